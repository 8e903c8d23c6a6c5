"""Runs a program under the service and remembers its stops at exceptions and what came of them.

usage: morvik-python tests/exception_stops/witness.py stops|tests|count REPORT PROGRAM [ARGS...]

With "stops" the service stops where nothing will catch an exception, and goes on.  REPORT gets a
line for each stop and for each exception that has ended a thread or the program or that a library
has printed, as it happens: the repr of a dictionary.  With "count" the core alone counts the
exceptions that the program raises.  With "tests" each test of unittest's counts as a program.

What came of an exception is learnt where it ends: in the service's runner and the threads' last
frames, in threading, in atexit, and in sys.excepthook.  An exception is known again by its
traceback: what is raised once more later on has another one.
"""

import atexit
import linecache
import opcode
import os
import sys
import thread
import threading
import traceback
import types
import unittest

import tmorvik26_vs2012_x64 as core
from sorrel.inspection import frames
from sorrel.service import exceptions, runner, service, stops, thread_hooks

REGRTEST = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../regrtest")
MODE_EVERY = 1
# How much is remembered of what a thread does after a stop.
EVENTS = 12
# How a test says that it is not to be run, or has gone wrong as it should.
SKIPS = tuple(getattr(unittest.case, name) for name in (
    "SkipTest", "_ExpectedFailure", "_UnexpectedSuccess")) if hasattr(unittest, "case") else ()


class Report(object):
    """Lines that are whole even if the process is killed."""

    def __init__(self, path):
        self._file = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0666)
        self._process = os.getpid()

    def put(self, kind, **values):
        # A forked child is let go, and none of its ends is anybody's business.
        if os.getpid() == self._process:
            os.write(self._file, repr((kind, values)) + "\n")


class FrontEnd(object):
    """Goes on from every stop."""

    def __init__(self, report):
        self._report = report
        self._last = 0

    def stopped(self, stop):
        if stop.reason == stops.RAISED:
            self._last += 1
            self._report.put("stop", number=self._last, is_end=stop.is_end,
                             **description(stop.argument))
            self._report.put("chain", number=self._last, lines=chain(stop.frame),
                             cleanups=cleanups(stop.frame))
            watch(self._report, self._last, stop.frame)
        return stops.Resume(stops.CONTINUE)

    def ended(self, outcome):
        self._report.put("over")


def description(error):
    """What an exception is known by and what the interpreter may print of it."""
    type, value, tb = error
    return {"thread": thread.get_ident(), "keys": keys(tb), "type": name_of(type),
            "texts": texts(value), "where": where(frames.innermost(tb).tb_frame) if tb else None}


def keys(tb):
    """Each exception has a traceback of its own, which grows at its outer end."""
    found = []
    while tb is not None:
        found.append((id(tb), id(tb.tb_frame), tb.tb_lasti))
        tb = tb.tb_next
    return found


def name_of(type):
    return getattr(type, "__name__", None) or str(type)


def texts(value):
    """The value may be what it is going to be made from."""
    values = [value]
    if isinstance(value, BaseException):
        values.extend(value.args[:1])
    found = []
    for each in values:
        for function in repr, str:
            try:
                found.append(function(each))
            except Exception:
                pass    # The program's own, which cannot be printed either.
    return found


def where(frame, line=None):
    operation = "(entered)"
    if frame.f_lasti >= 0:
        operation = opcode.opname[ord(frame.f_code.co_code[frame.f_lasti])]
    line = line or frame.f_lineno
    text = linecache.getline(frame.f_code.co_filename, line, frame.f_globals).strip()
    return "%s(%d)%s() %s: %s" % (frame.f_code.co_filename, line, frame.f_code.co_name, operation,
                                  text)


def chain(frame):
    return [where(each) for each in frames.outward(frame)]


def cleanups(frame):
    """For each frame outward, where it is and the code that finally clauses will run from there."""
    return [(id(each), each.f_lasti, finally_clauses(each.f_code.co_code, each.f_lasti))
            for each in frames.outward(frame)]


def finally_clauses(code, place):
    """The (first, last) of the instructions of the clauses around one."""
    found, open_blocks = [], []
    offset = 0
    while offset < len(code):
        operation = ord(code[offset])
        size = 3 if operation >= opcode.HAVE_ARGUMENT else 1
        if opcode.opname[operation] in ("SETUP_FINALLY", "SETUP_EXCEPT", "SETUP_WITH"):
            jump = ord(code[offset + 1]) + 256 * ord(code[offset + 2])
            open_blocks.append((offset, offset + size + jump, opcode.opname[operation]))
        elif opcode.opname[operation] == "END_FINALLY" and open_blocks:
            first, clause, kind = open_blocks.pop()
            if first < place < clause and kind != "SETUP_EXCEPT":
                found.append((clause, offset))
        offset += size
    return found


def watch(report, number, frame):
    """Remembers what the calling thread does next, for whoever wants to know who swallows."""
    if sys.getprofile() is not None:
        return      # The program's own.
    left = [EVENTS]
    depth = dict((id(each), place) for place, each in enumerate(frames.outward(frame)))

    def profile(frame, event, argument):
        if frames.is_own(frame):
            return
        place = depth.get(id(frame))
        name = getattr(argument, "__name__", "") if event.startswith("c_") else ""
        report.put("next", number=number, event="%s %s in %s%s" % (
            event, name, "" if place is None else "#%d " % place, where(frame)))
        left[0] -= 1
        if not left[0]:
            sys.setprofile(None)
    sys.setprofile(profile)


def wrap_end(report, owner, name, kind, of_caller=None):
    """The function also reports the exception that it is given or that is being handled."""
    function = getattr(owner, name)

    def wrapper(*arguments, **keywords):
        caller = sys._getframe(1)
        if of_caller is None or caller.f_code is of_caller:
            error = error_of(arguments)
            # What no frame of the program has raised is nothing to stop at: a file of its own that
            # does not compile.
            if error[2] is None or not frames.is_own(frames.innermost(error[2]).tb_frame):
                # Where the program calls such a caller itself, it may still catch the exception.
                report.put(is_by_program(of_caller, caller) and "printed" or kind,
                           **description(error))
        return function(*arguments, **keywords)
    setattr(owner, name, wrapper)
    return wrapper


def is_by_program(of_caller, caller):
    return of_caller is not None and caller.f_back is not None and frames.is_program(caller.f_back)


def error_of(arguments):
    if len(arguments) >= 3 and type(arguments[-1]) in (types.TracebackType, types.NoneType):
        return arguments[-3:]
    return sys.exc_info()


def watch_ends(report):
    """The report is told of exceptions where nothing more can catch them."""
    wrap_end(report, runner, "_report", "program")
    wrap_end(report, thread_hooks.ThreadMain, "_report", "thread")
    wrap_end(report, threading, "_format_exc", "thread")
    wrap_end(report, traceback, "print_exc", "atexit", atexit._run_exitfuncs.func_code)
    sys.__excepthook__ = wrap_end(report, sys, "excepthook", "printed")


def prepared(program, arguments):
    """What is to be run, with the process as it expects it."""
    if program == "-m":
        script = runner.find_module(arguments.pop(0))
    else:
        script = runner.find_script(program)
    runner.prepare(script, arguments)
    return script


def stop(report, program, arguments):
    front_end = FrontEnd(report)
    watch_ends(report)
    under = service.Service(front_end)
    under.exceptions.set_mode(exceptions.UNHANDLED)
    script = prepared(program, arguments)
    return runner.run(script, under)


def stop_in_tests(report, program, arguments):
    """What runs a test of unittest's is no part of the program that each test is here."""
    import run_one
    from test import test_support
    codes = [each.func_code for each in (unittest.TestCase.run.im_func, run_one.run_test)]
    is_program = frames.is_program
    frames.is_program = lambda frame: is_program(frame) and frame.f_code not in codes
    set_own_frames = exceptions.Exceptions.set_own_frames

    def set_own_frames_and_tests(self, callers):
        set_own_frames(self, callers)
        self._own_handlers.update(dict.fromkeys(codes))
        core.set_ignored_exception_handlers(self._own_handlers)
        self.set_types((), self.never + SKIPS + (test_support.Error,))
    exceptions.Exceptions.set_own_frames = set_own_frames_and_tests
    wrap_end(report, unittest.TestResult, "addError", "thread")
    wrap_end(report, unittest.TestResult, "addFailure", "thread")
    return stop(report, program, arguments)


class Count(object):
    """A debug server that is told of every exception."""

    def __init__(self):
        self.raised = 0

    def exception(self, frame, error, changed_bps):
        # One whose traceback is longer has come from a frame where it was counted.
        self.raised += error[2] is not None and error[2].tb_next is None
        core.continue_run()

    def nothing(self, *arguments):
        core.continue_run()

    def hook_threads(self, on):
        threading.settrace(on and core.bootstrap_new_thread or None)


def count(report, program, arguments):
    counter = Count()
    core.init(1.0, MODE_EVERY, counter.hook_threads, counter.nothing, counter.nothing,
              counter.nothing, counter.exception, counter.nothing, None, __import__, None,
              frames.own_files())
    core.set_autoquit(0)
    script = prepared(program, arguments)
    main = runner._new_main(script)
    atexit.register(lambda: report.put("raised", number=counter.raised))
    core.start_trace()
    core.continue_run()
    try:
        if script.code is not None:
            exec script.code in main
        else:
            execfile(script.path, main)
    finally:
        core.stop_trace()


def main(how, report, program, arguments):
    # Other threads' frames of this module are none of the program's either.
    frames.own_namespaces.add(id(globals()))
    # What runs the host's tests.
    sys.path.append(REGRTEST)
    run = {"stops": stop, "tests": stop_in_tests, "count": count}[how]
    return run(Report(report), program, arguments)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], os.path.abspath(sys.argv[2]), sys.argv[3], sys.argv[4:]))
