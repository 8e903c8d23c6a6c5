"""What the programs run under: context managers, each given the program's module."""

import bdb as standard_library
import sys
from __builtin__ import __import__ as builtin_import
from contextlib import contextmanager

import morvik_counting
import tmorvik26_vs2012_x64 as morvik


@contextmanager
def untraced(program):
    yield


@contextmanager
def counting(program):
    """A trace function in C that only counts the events."""
    morvik_counting.start()
    try:
        yield
    finally:
        morvik_counting.stop()


def ignore(*arguments):
    """All the callbacks of a server with nothing to do."""


morvik.init(1.0, 0, ignore, ignore, ignore, ignore, ignore, ignore, None, builtin_import, None, {})


@contextmanager
def core(program):
    """The core, told to run freely and never to stop at exceptions."""
    morvik.start_trace()
    morvik.continue_run()
    try:
        yield
    finally:
        morvik.stop_trace()


class ContinuingBdb(standard_library.Bdb):

    def user_line(self, frame):
        self.set_continue()


@contextmanager
def bdb_with_breakpoint_in(function):
    # Without any breakpoint bdb stops tracing when it is told to continue.
    debugger = ContinuingBdb()
    code = function.func_code
    complaint = debugger.set_break(code.co_filename, code.co_firstlineno + 1)
    if complaint:
        raise ValueError(complaint)
    debugger.reset()
    sys.settrace(debugger.trace_dispatch)
    try:
        yield
    finally:
        sys.settrace(None)


def bdb(program):
    """Told to continue, with a breakpoint in a function of the same file that never runs."""
    return bdb_with_breakpoint_in(program.quiet)


def bdb_elsewhere(program):
    """The same with the breakpoint in another file: bdb then sees the calls but no lines."""
    return bdb_with_breakpoint_in(contextmanager)


ALL = [untraced, counting, core, bdb, bdb_elsewhere]

# Those that get a tenth of the work to do.
SLOW = [bdb, bdb_elsewhere]

# The one that the others are compared with.
YARDSTICK = counting
