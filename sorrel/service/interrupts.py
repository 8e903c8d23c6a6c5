"""Ctrl-C breaks into the program instead of ending it.

For the program the interpreter's own handler is there meanwhile, which it can also set again.
"""

from __future__ import absolute_import

import signal

from sorrel.processes.replacements import Replacement, replace

_ORIGINALS = _signal, _getsignal = signal.signal, signal.getsignal

class Interrupts(object):

    def __init__(self, on_interrupt):
        self._on_interrupt = on_interrupt
        self._active = False
        self._guard = None
        # One object: to compare it with another could run code of the program.
        self._handler = self._handle
        self._replacements = [Replacement(_signal, self._to_set, self._set),
                              Replacement(_getsignal, lambda *args: args, self._seen)]

    def guard(self, function):
        """function: called whenever the signal's handler is set, and after each signal."""
        self._guard = function
        self._set_guard()

    def install(self):
        """Only where Ctrl-C would have raised KeyboardInterrupt; call it in the main thread."""
        if _getsignal(signal.SIGINT) is signal.default_int_handler:
            _signal(signal.SIGINT, self._handler)
        self._active = True
        replace(_ORIGINALS, self._replacements, [signal])
        self._set_guard()

    def remove(self):
        """A handler that the program has installed since then stays."""
        self._active = False
        replace(self._replacements, _ORIGINALS, [signal])
        if _getsignal(signal.SIGINT) is self._handler:
            try:
                _signal(signal.SIGINT, signal.default_int_handler)
            except ValueError:
                pass  # Not the main thread; the handler passes on what comes.

    def _handle(self, signum, frame):
        try:
            if self._active:
                self._on_interrupt()
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

    def _set_guard(self):
        if self._guard is not None and _getsignal(signal.SIGINT) is self._handler:
            self._guard()
