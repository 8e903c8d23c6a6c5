"""Ctrl-C breaks into the program instead of ending it."""

from __future__ import absolute_import

import signal


class Interrupts(object):

    def __init__(self, on_interrupt):
        self._on_interrupt = on_interrupt
        self._active = False
        self._guard = None

    def guard(self, function):
        """function: called whenever the signal's handler is set, and after each signal."""
        self._guard = function
        self._set_guard()

    def install(self):
        """Only where Ctrl-C would have raised KeyboardInterrupt; call it in the main thread."""
        if signal.getsignal(signal.SIGINT) is signal.default_int_handler:
            signal.signal(signal.SIGINT, self._handle)
        self._active = True
        self._set_guard()

    def remove(self):
        """A handler that the program has installed since then stays."""
        self._active = False
        if signal.getsignal(signal.SIGINT) == self._handle:
            try:
                signal.signal(signal.SIGINT, signal.default_int_handler)
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

    def _set_guard(self):
        if self._guard is not None and signal.getsignal(signal.SIGINT) == self._handle:
            self._guard()
