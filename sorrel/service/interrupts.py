"""Ctrl-C breaks into the program instead of ending it.

For the program the interpreter's own handler is there meanwhile, which it can also set again.
"""

from __future__ import absolute_import

import os
import signal
import thread

import _sorrel

from sorrel.processes.replacements import Replacement, replace

_signal, _getsignal = signal.signal, signal.getsignal
_ORIGINALS = [_signal, _getsignal, thread.interrupt_main]
_MODULES = signal, thread
if hasattr(signal, 'siginterrupt'):  # Not on every platform.
    _ORIGINALS.append(signal.siginterrupt)


class Interrupts(object):

    def __init__(self, on_interrupt, on_seen):
        """on_interrupt: called in the main thread, with the frame that it is in.

        on_seen: called after each Ctrl-C in a thread of the server's, if the program has threads.
        What comes is for whoever takes it first from _sorrel.
        """
        self._on_interrupt = on_interrupt
        self._on_seen = on_seen
        self._active = False
        self._guard = _sorrel.guard_interrupts
        # Whether each Ctrl-C is known to _sorrel.
        self._is_guarded = False
        # In which process Ctrl-C is seen.
        self._process = None
        # Whether the program has just said what becomes of its system calls at Ctrl-C.
        self._call_goes_on = None
        # One object: to compare it with another could run code of the program.
        self._handler = self._handle
        self._replacements = [
            Replacement(original, *hooks) for original, hooks in zip(_ORIGINALS, [
                (self._to_set, self._set), (_same, self._seen), (_noted,),
                (self._to_go_on, self._go_on)])]

    def guard(self, function):
        """function: called whenever the signal's handler is set, and after each signal.

        It returns what _sorrel.guard_interrupts, which it calls, does.
        """
        self._guard = function
        self._set_guard()

    def install(self):
        """Only where Ctrl-C would have raised KeyboardInterrupt; call it in the main thread."""
        if _getsignal(signal.SIGINT) is signal.default_int_handler:
            _signal(signal.SIGINT, self._handler)
        self._active = True
        replace(_ORIGINALS, self._replacements, _MODULES)
        self._set_guard()

    def remove(self):
        """A handler that the program has installed since then stays."""
        self._active = False
        self._process = None
        _sorrel.watch_interrupts(None)
        replace(self._replacements, _ORIGINALS, _MODULES)
        if _getsignal(signal.SIGINT) is self._handler:
            try:
                _signal(signal.SIGINT, signal.default_int_handler)
            except ValueError:
                pass  # Not the main thread; the handler passes on what comes.

    def _handle(self, signum, frame):
        try:
            if self._is_guarded and not _sorrel.take_interrupts():
                return  # Another thread has taken what it is called for.
            if self._active:
                self._on_interrupt(frame)
            else:
                signal.default_int_handler(signum, frame)
        finally:
            self._set_guard()

    def _to_set(self, *args):
        if self._active and len(args) == 2 and args[0] == signal.SIGINT \
                and args[1] is signal.default_int_handler:
            return args[0], self._handler
        return args

    def _set(self, previous):
        self._set_guard()
        return self._seen(previous)

    def _seen(self, handler):
        return signal.default_int_handler if handler is self._handler else handler

    def _to_go_on(self, *args):
        self._call_goes_on = not args[1] if len(args) == 2 and args[0] == signal.SIGINT else None
        return args

    def _go_on(self, nothing):
        if self._call_goes_on is not None:
            _sorrel.let_calls_go_on(self._call_goes_on)

    def _set_guard(self):
        if _getsignal(signal.SIGINT) is not self._handler:
            return
        self._is_guarded = self._guard()
        if self._active and self._process != os.getpid():
            self._process = os.getpid()
            _sorrel.watch_interrupts(self._on_seen)


def _same(*args):
    return args


def _noted(*args):
    # The handler is called where there has been no signal.
    _sorrel.note_interrupt()
    return args
