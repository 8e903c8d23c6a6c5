"""What is evaluated at the prompt does not wait for ever for threads that wait for the prompt."""

from __future__ import absolute_import


import _sorrel

from sorrel.common.originals import thread, time
from sorrel.inspection.time_limit import TimeLimit
from sorrel.service import thread_hooks

# How long the other threads wait for it, in seconds.
_MOMENT = 0.3
_LOOK = 0.01
# Taken now: a program may replace what the interpreter's modules offer.
_new_lock = thread.allocate_lock


class PromptEvaluation(object):

    def __init__(self, service, has_ctrl_c=True):
        """has_ctrl_c: whether Ctrl-C raises KeyboardInterrupt in the main thread."""
        self._service = service
        self._has_ctrl_c = has_ctrl_c
        # The TimeLimit of what is evaluated in a thread in which Ctrl-C does not end it.
        self._limit = None

    def call(self, stop, function, *arguments):
        """Calls it in the stopped thread. When it takes long, the others run until it is done.

        Raises Overtime when it has been interrupted.
        """
        if not self._has_ctrl_c or stop.thread != self._service.main_thread:
            function, arguments = self._interruptible, (function,) + arguments
        if not self._service.has_other_threads():
            return function(*arguments)
        hold = self._service.hold(stop)
        is_done, has_seen = _new_lock(), _new_lock()
        is_done.acquire()
        has_seen.acquire()
        thread_hooks.start_own(lambda: self._watch(hold, is_done, has_seen))
        try:
            return function(*arguments)
        finally:
            try:
                is_done.release()
                has_seen.acquire()
            finally:
                self._service.make_others_wait(hold)

    def interrupt(self):
        """Ctrl-C. Whether a thread has been evaluating that has not got it, and ends that."""
        limit = self._limit
        if limit is None:
            return False
        limit.expire(_sorrel.end_call_in)
        return True

    def _interruptible(self, function, *arguments):
        self._limit = limit = TimeLimit()
        try:
            return limit.call(None, function, *arguments)
        finally:
            self._limit = None

    def _watch(self, hold, is_done, has_seen):
        end = time.time() + _MOMENT
        while not is_done.acquire(False):
            if time.time() > end:
                self._service.let_others_run(hold, _nothing)
                break
            time.sleep(_LOOK)
        has_seen.release()


def _nothing():
    pass
