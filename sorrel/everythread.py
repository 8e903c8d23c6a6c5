"""Tracing in all threads of the process, wherever they are.

A trace function is set by its thread alone, and one that runs in old frames or waits in C would
never come to it. The interpreter's records of such threads are therefore given a trace function
whose first event, in the thread itself, sets the core's.
"""

import sys

import tmorvik26_vs2012_x64 as core

from sorrel import frames

try:
    import ctypes
except ImportError:
    ctypes = None  # Threads are then traced from their next import on.

_is_on = False


def trace():
    """Starts tracing. The calling thread has to be none of the program's."""
    global _is_on
    _is_on = True
    # The interpreter counts the threads that trace, without those given their function here, and
    # looks for line events while the count is not 0: this thread keeps it so.
    sys.settrace(_take_over)
    by_interpreter = ctypes and _current().contents.c_tracefunc
    core.start_trace()
    if ctypes is not None:
        _arm_threads(by_interpreter)


def stop():
    """To be called in the same thread when the core has been reset."""
    global _is_on
    _is_on = False
    sys.settrace(None)


def _arm_threads(trace_function):
    thread = _head(_current().contents.interp)
    while thread:
        record = thread.contents
        if not record.c_tracefunc:
            if record.frame:
                for caller in frames.callers(ctypes.cast(record.frame, ctypes.py_object).value):
                    caller.f_trace = _take_over
            _keep(_address)
            record.c_traceobj = _address
            record.c_tracefunc = trace_function
            record.use_tracing = 1
        thread = _next(thread)


def _take_over(frame, event, argument):
    """The first event of a thread that has been given this function."""
    record = _current().contents
    # As it was given, so it is taken: the interpreter has not counted it.
    record.c_tracefunc = record.c_traceobj = None
    _drop(_address)
    for caller in frames.callers(frame):
        if caller.f_trace is _take_over:
            del caller.f_trace
            if _is_on:
                caller.f_trace = core.trace_dispatch
    if not _is_on:
        return None
    sys.settrace(core.trace_dispatch)
    return core.trace_dispatch(frame, event, argument)


if ctypes is not None:
    class _Thread(ctypes.Structure):
        """How a PyThreadState begins, in 2.6 as in 2.7."""

        _fields_ = [
            ('next', ctypes.c_void_p), ('interp', ctypes.c_void_p), ('frame', ctypes.c_void_p),
            ('recursion_depth', ctypes.c_int), ('tracing', ctypes.c_int),
            ('use_tracing', ctypes.c_int),
            ('c_profilefunc', ctypes.c_void_p), ('c_tracefunc', ctypes.c_void_p),
            ('c_profileobj', ctypes.c_void_p), ('c_traceobj', ctypes.c_void_p)]

    def _function(name, result, *arguments):
        function = getattr(ctypes.pythonapi, name)
        function.argtypes = arguments
        function.restype = result
        return function

    _current = _function('PyThreadState_Get', ctypes.POINTER(_Thread))
    _head = _function('PyInterpreterState_ThreadHead', ctypes.POINTER(_Thread), ctypes.c_void_p)
    _next = _function('PyThreadState_Next', ctypes.POINTER(_Thread), ctypes.POINTER(_Thread))
    _keep = _function('Py_IncRef', None, ctypes.c_void_p)
    _drop = _function('Py_DecRef', None, ctypes.c_void_p)
    _address = id(_take_over)  # In this interpreter.
