"""Tracing begins in every thread that the program starts, and is cleared up when it ends."""

from __future__ import absolute_import

import sys
import thread
import threading

import _sorrel
import tmorvik26_vs2012_x64 as core

from sorrel.common import originals
from sorrel.inspection import frames


class _Outliving(object):
    """What a thread calls while the interpreter may end."""

    # Kept here: the interpreter empties the modules then, those of the builtins last.
    _sys = sys
    _Exception = Exception

    def __call__(self, *arguments):
        try:
            self._run(*arguments)
        except self._Exception:
            # Its path is the first thing that the interpreter takes from itself.
            if self._sys.path is not None:
                raise


class ThreadEnd(_Outliving):
    """To be called by a thread as the last of what it runs."""

    _settrace = sys.settrace
    _thread_exiting = core.thread_exiting

    def __init__(self, on_end):
        self._on_end = on_end

    def _run(self):
        # In this order: one more event would give the thread a new record.
        self._settrace(None)
        self._on_end()
        self._thread_exiting()


class OwnThread(_Outliving):
    """To be called as all that a thread of the server's runs."""

    def __init__(self, function):
        self._run = function


class ThreadMain(object):
    """Stands in place of a thread's function and calls it."""

    _settrace = sys.settrace

    def __init__(self, function, trace, on_end):
        self._function = function
        self._trace = trace
        self._on_end = ThreadEnd(on_end)

    def __repr__(self):
        return repr(self._function)

    def __call__(self, *args, **kwargs):
        try:
            if self._trace is not None:
                self._settrace(self._trace)
            self._function(*args, **kwargs)
        except SystemExit:
            raise
        except:
            if sys is None:
                raise  # For the interpreter, which is ending.
            self._report(*sys.exc_info())
        finally:
            self._on_end()

    def _report(self, type, value, traceback):
        # As the interpreter does it, but without this frame.
        sys.stderr.write('Unhandled exception in thread started by %r\n' % (self,))
        sys.excepthook(type, value, frames.without_own(traceback))


def _starter(start, trace, on_end):
    def start_new_thread(function, args, *kwargs):
        if callable(function):
            function = ThreadMain(function, trace, on_end)
        return start(function, args, *kwargs)
    _starters.append(start_new_thread)
    return start_new_thread


_bare_start = originals.thread.start_new_thread
_STARTS = ((thread, 'start_new_thread'), (thread, 'start_new'),
           (threading, '_start_new_thread'))
# Those of the server's that have been put there.
_starters = []


def start_own(function):
    """Starts a thread of the server's, which none of this happens to. Raises thread.error."""
    _sorrel.start_thread(OwnThread(function))


def install(on_end):
    """on_end: called in every thread that ends, as the last of what it runs.

    What a program has put in the place of the interpreter's function starts greenlets, say, in the
    thread that calls it: nothing is to begin or end in that.
    """
    if thread.start_new_thread is not _bare_start:
        return
    bare = _starter(_bare_start, core.bootstrap_new_thread, on_end)
    thread.start_new_thread = thread.start_new = bare
    # A Thread is traced from its run method on: until then, other threads may be waiting for it.
    threading._start_new_thread = _starter(_bare_start, None, on_end)
    threading.settrace(core.bootstrap_new_thread)


def remove():
    # What the program has put there since then stays.
    for module, name in _STARTS:
        if getattr(module, name) in _starters:
            setattr(module, name, _bare_start)
    del _starters[:]
    threading.settrace(None)
