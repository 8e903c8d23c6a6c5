"""What the programs run under: context managers, each given the program's module.

Where a program does not run in this process, they give what is to be called for its time.
"""

import bdb as standard_library
import linecache
import optparse
import os
import re
import sre_compile
import sre_parse
import sys
from __builtin__ import __import__ as builtin_import
from contextlib import contextmanager

import morvik_counting
import tmorvik26_vs2012_x64 as morvik
from bench.launched import Launched


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
    """What a server does that has nothing to do."""


def step_on(frame, changed_breakpoints):
    morvik.step_over()


def init():
    morvik.init(1.0, 0, ignore, ignore, step_on, ignore, ignore, ignore, None, builtin_import, None,
                {})


init()


@contextmanager
def core(program):
    """Running freely, never stopping at exceptions."""
    morvik.start_trace()
    morvik.continue_run()
    try:
        yield
    finally:
        morvik.reset()


@contextmanager
def core_always_traced(program):
    """The same with the events of everything."""
    os.environ["MORVIK_ALWAYS_TRACE"] = "1"
    init()
    try:
        with core(program):
            yield
    finally:
        del os.environ["MORVIK_ALWAYS_TRACE"]
        init()


@contextmanager
def core_policy(program):
    """The same with a thread policy, as of a server that keeps its own threads out."""
    with core(program):
        morvik.set_debug_thread_cb(lambda ident: 1)
        yield


@contextmanager
def core_stepping_over(program):
    """Stepping over the call of the program."""
    with core(program):
        morvik.stop()
        yield


def first_line(function):
    """The place of a function's first line: a file and a line number."""
    code = function.func_code
    return os.path.abspath(code.co_filename), code.co_firstlineno + 1


def set_break(path, line, condition=None):
    morvik.set_break(path, line, 1, 0, condition, 0)


@contextmanager
def core_breakpoints_elsewhere(program):
    """A breakpoint on every line number up to 1000, spread over other files."""
    modules = [standard_library, linecache, optparse, os, re, sre_compile, sre_parse]
    with core(program):
        for line in range(1, 1001):
            path, _ = os.path.splitext(modules[line % len(modules)].__file__)
            set_break(path + ".py", line)
        yield


@contextmanager
def core_breakpoints_nearby(program):
    """100 breakpoints on lines of the program's own file that never run."""
    path, _ = first_line(program.quiet)
    with core(program):
        for line in range(10001, 10101):
            set_break(path, line)
        yield


@contextmanager
def core_condition(program):
    """A breakpoint with a false condition on a line that runs again and again."""
    path, line = first_line(program.hot)
    with core(program):
        set_break(path, line, "0")
        yield


@contextmanager
def core_unhandled(program):
    """To stop at exceptions that nothing will catch."""
    with core(program):
        morvik.set_exception_mode(2)
        try:
            yield
        finally:
            morvik.set_exception_mode(0)


_launched = []


@contextmanager
def launched(program):
    """Under sorrel, as an editor launches it: for stops at exceptions that nothing catches."""
    if not _launched:
        _launched.append(Launched(first_line))
    yield _launched[0].timed


def close():
    """Nothing is measured any more."""
    while _launched:
        _launched.pop().close()


class ContinuingBdb(standard_library.Bdb):

    def user_line(self, frame):
        self.set_continue()


@contextmanager
def bdb_with_breakpoint(function, condition=None):
    # Without any breakpoint bdb stops tracing when it is told to continue.
    debugger = ContinuingBdb()
    path, line = first_line(function)
    complaint = debugger.set_break(path, line, cond=condition)
    if complaint:
        raise ValueError(complaint)
    debugger.reset()
    sys.settrace(debugger.trace_dispatch)
    try:
        yield
    finally:
        sys.settrace(None)
        debugger.clear_all_breaks()


def bdb(program):
    """Told to continue, with a breakpoint in a function of the program's file that never runs."""
    return bdb_with_breakpoint(program.quiet)


def bdb_elsewhere(program):
    """The same with the breakpoint in another file: bdb then sees the calls but no lines."""
    return bdb_with_breakpoint(contextmanager)


def bdb_condition(program):
    """As core_condition."""
    return bdb_with_breakpoint(program.hot, "0")


ALL = [untraced, counting, core, core_always_traced, core_policy, core_stepping_over,
       core_breakpoints_elsewhere, core_breakpoints_nearby, core_condition, core_unhandled, launched,
       bdb, bdb_elsewhere, bdb_condition]

# Those that get a tenth of the work to do.
SLOW = [bdb, bdb_elsewhere, bdb_condition]

# The one that the others are compared with.
YARDSTICK = counting
