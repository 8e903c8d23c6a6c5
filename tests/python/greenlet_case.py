"""For tests of programs that switch stacks: where the stand-in for greenlet is."""

import os

import tmorvik26_vs2012_x64 as core

FOLDER = os.path.join(
    os.path.dirname(os.path.dirname(os.path.abspath(core.__file__))), 'greenlet')


def need(test):
    """Skips a test where there is none."""
    if not os.path.isdir(FOLDER) or not os.listdir(FOLDER):
        test.skip('the stand-in for greenlet is built for Linux on x86-64, with the tests')
