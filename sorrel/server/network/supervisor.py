"""The stopped thread as the network thread sees it.

It is handed the client's requests, and seen to while it runs code of the program for them: that may
wait for another thread, or never end, and is to hold up neither the program nor the client.
"""

from __future__ import absolute_import

from sorrel.common.originals import time
from sorrel.server.shared.requests import Job, RUNNING
from sorrel.server.stopped.request_handlers import GOING_ON, TOO_LONG

# For how long, in seconds, the other threads wait for what is evaluated, and a request to go on
# does; and how long what is to end may take for that before nobody waits for it.
_MOMENT = 0.3
# How often that is looked at, while there are requests and else.
_LOOK = 0.1
_SELDOM = 0.25
_GOES_ON = 'ended, since the program goes on'
_STUCK = 'the thread is busy: what it evaluates waits or computes in C code, and cannot be ended'
# Taken now: a program may replace what the interpreter's modules offer.
_now, _sleep = time.time, time.sleep


class Supervisor(object):

    def __init__(self, session, service, limit):
        """limit: the TimeLimit of what is called by consider()."""
        self._session = session
        self._service = service
        # The StoppedThread that the client has been told of, if there is one. Whoever removes it
        # from the list has done so alone.
        self._current = []
        # Those that were left behind in what they evaluate.
        self._left = []
        # Requests on their way through the stopped thread, by their numbers.
        self._jobs = {}
        # Of a stop that the client may not be told of: since when that is found out, and what the
        # thread makes the others wait for.
        self._considered = None
        self._considered_limit = limit
        self._look_at = 0

    def current(self):
        """The StoppedThread that the client's requests go to; None while the program runs."""
        for stopped in self._current[:1]:
            return stopped
        return None

    # For the thread that has stopped.

    def consider(self, hold, function, *arguments):
        """Calls what finds out what the client is told of a stop; may run code of the program."""
        considered = _now(), hold
        try:
            self._considered = considered
            return function(*arguments)
        finally:
            self._considered = None
            self._service.make_others_wait(considered[1])

    def serve(self, stopped, tell):
        """Has the client's requests answered; returns how the thread goes on.

        tell: tells the client of the stop. None is returned where it says that nobody is there.
        """
        try:
            self._current.append(stopped)
            return stopped.serve() if tell() else None
        finally:
            self._remove(stopped)
            for job in stopped.close():
                job.refuse()

    # For the network thread.

    def ask(self, request):
        """Has a request answered in the stopped thread."""
        stopped = self.current()
        job = Job(self._session, stopped, request)
        if stopped is None:
            job.refuse()
        elif stopped.is_stuck():
            self._answer_for(stopped, job)
        else:
            self._jobs = dict((number, other) for number, other in self._jobs.items()
                              if not other.is_answered())
            self._jobs[job.number] = job
            if not stopped.put(job):
                job.refuse()
        self._look_soon()

    def cancel(self, number):
        job = self._jobs.get(number)
        stopped = self.current()
        if job is not None:
            job.cancel()
            if stopped is not None and stopped.is_at(job):
                stopped.limit.expire()
        self._look_soon()

    def free(self, resume, patience=_MOMENT):
        """Lets the stopped thread go, or leaves it behind if it does not come.

        patience: how many seconds that may take. Returns whether a thread is stopped.
        """
        stopped = self.current()
        if stopped is None:
            return False
        stopped.resume(resume)
        end = _now() + patience
        while stopped in self._current and _now() < end:
            stopped.end(_GOES_ON)
            _sleep(0.001)
        self._leave_behind(stopped)
        return True

    def is_busy(self, ident):
        """Whether this thread is at something that nobody waits for any more."""
        stopped = self.current()
        return self._service.is_left_behind(ident) or (
            stopped is not None and stopped.ident == ident and stopped.is_stuck())

    def deadline(self):
        """When to call look()."""
        return self._look_at

    def look(self):
        """Sees to what takes long."""
        now = _now()
        self._look_at = now + (_LOOK if self._jobs else _SELDOM)
        self._see_to_considered(now)
        stopped = self.current()
        if stopped is not None:
            self._see_to(stopped, now)
        self._left = [left for left in self._left if not left.has_gone()]
        for left in self._left:
            left.limit.expire()

    def _look_soon(self):
        self._look_at = min(self._look_at, _now() + _LOOK)

    def _see_to_considered(self, now):
        if self._considered_limit.is_due(now):
            self._considered_limit.expire()
        considered = self._considered
        if considered is not None and now > considered[0] + _MOMENT:
            self._service.let_others_run(considered[1], _nothing)
            if self._considered is not considered:
                self._service.make_others_wait(considered[1])

    def _see_to(self, stopped, now):
        if stopped.limit.is_due(now):
            stopped.limit.expire()
        turn = stopped.turn
        if turn is None or now < turn.since + _MOMENT:
            return
        stopped.let_others_run(turn)
        going = self._going()
        if going is not None and now > going.since + _MOMENT:
            stopped.end(_GOES_ON)
        to_end = [since for since in (
            stopped.limit.overdue_since, turn.job.cancelled_since,
            going and going.since + _MOMENT) if since is not None]
        if to_end and now > min(to_end) + _MOMENT:
            self._give_up(stopped, turn, _GOES_ON if going is not None else TOO_LONG)

    def _going(self):
        """The first request to let the thread go that has not been answered."""
        for _, job in sorted(self._jobs.items()):
            if job.command in GOING_ON and not job.is_answered():
                return job
        return None

    def _give_up(self, stopped, turn, why):
        """Answers all requests for the thread, which does not."""
        if turn.job.refuse(why):
            stopped.give_up(turn)
        if stopped.is_stuck():
            for _, job in sorted(self._jobs.items()):
                if not job.is_answered():
                    self._answer_for(stopped, job)

    def _answer_for(self, stopped, job):
        if job.command not in GOING_ON:
            job.refuse(_STUCK)
            return
        job.do(_nothing)
        if stopped.is_leaving():
            self._leave_behind(stopped)

    def _leave_behind(self, stopped):
        if not self._remove(stopped):
            return
        self._left.append(stopped)
        for job in self._jobs.values():
            job.refuse(_GOES_ON if stopped.is_at(job) else RUNNING)
        self._service.leave_behind(stopped.hold)

    def _remove(self, stopped):
        """Whether it was still there."""
        try:
            self._current.remove(stopped)
        except ValueError:
            return False
        return True


def _nothing():
    pass
