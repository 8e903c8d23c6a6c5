"""The standard library's own benchmark, for the mixture of a real program."""

from test import pystone

TIMES = 1000
hot = pystone.Proc7
quiet = pystone.main


def run(times):
    pystone.Proc0(times)
