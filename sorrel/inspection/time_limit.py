"""Ending what a thread evaluates when it takes too long, or is no longer wanted.

An exception is raised in the thread by the interpreter, which it does between two instructions of
Python code. Code in C that waits or computes for long is therefore never ended.
"""

from __future__ import absolute_import


import _sorrel

from sorrel.common.originals import thread, time

_INSIST_AFTER = 0.1
# Taken now: a program may replace what the interpreter's modules offer.
_now, _sleep, _get_ident = time.time, time.sleep, thread.get_ident
_new_lock = thread.allocate_lock
_raise_in = _sorrel.raise_in_thread


class Overtime(Exception):
    """Code of the program was ended because it took too long."""


class TimeLimit(object):

    def __init__(self):
        self._ident = None
        self._running = False
        # Held by the thread that ends it just now.
        self._expiry = _new_lock()
        # When to call `expire()`; None for never.
        self.deadline = None
        # Since when what is being called is to end; None while it may go on.
        self.overdue_since = None

    def call(self, seconds, function, *arguments):
        """Calls the function. seconds: None for no limit. Raises Overtime besides its own."""
        if self._running:
            return function(*arguments)  # A limit within a limit: the outer one holds.
        try:
            try:
                self._begin(seconds)
                return function(*arguments)
            finally:
                self._end()
        finally:
            # The first time may have been ended by what it is to prevent.
            self._end()

    def is_due(self, now):
        return self.deadline is not None and now >= self.deadline

    def expire(self, end_call=None):
        """Ends what is being called, if it still is; for another thread.

        end_call: called with the ident of the thread, which is to come back to Python code.
        """
        if not self._expiry.acquire(False):
            return
        try:
            # The thread goes on only when this is done.
            if self._running:
                _raise_in(self._ident, Overtime)
                now = _now()
                self.overdue_since = self.overdue_since or now
                # Once more, should it be caught.
                self.deadline = now + _INSIST_AFTER
                if end_call is not None:
                    end_call(self._ident)
        finally:
            self._expiry.release()

    def _begin(self, seconds):
        self._ident = _get_ident()
        self._running = True
        if seconds is not None:
            self.deadline = _now() + seconds

    def _end(self):
        self._running = False
        while self._expiry.locked():
            _sleep(0.001)
        self.deadline = self.overdue_since = None
        _raise_in(self._ident, None)
