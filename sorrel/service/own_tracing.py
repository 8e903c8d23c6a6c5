"""Programs that trace themselves: a thread has one trace function, theirs or the core's."""

from __future__ import absolute_import

import sys

import _sorrel
import tmorvik26_vs2012_x64 as core

_original = sys.settrace
_installed = []


def install(on_take, on_return):
    """on_take, on_return: called in threads before they have their own, and when they have none."""
    def settrace(function):
        if function is None or function is core.trace_dispatch:
            _original(None)
            on_return()
        else:
            # That new threads begin with the core's is the service's doing.
            if function is not core.bootstrap_new_thread:
                on_take()
            _original(function)
    if sys.settrace is _original:
        _installed[:] = [_sorrel.settrace(settrace)]
        sys.settrace = _installed[0]


def remove():
    if sys.settrace in _installed:
        sys.settrace = _original


def end():
    """Takes away what traces the calling thread, without a word."""
    _original(None)
