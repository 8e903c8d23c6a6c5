"""Letting the program go on, by as many requests as a step takes."""

from __future__ import absolute_import

from sorrel.common.records import record
from sorrel.protocol.messages import Refused
from sorrel.remote import steps
from sorrel.remote.session import Interrupted
from sorrel.service.stops import (
    CONTINUE, DETACH, STEP_INTO, STEP_OUT, STEP_OVER, STEP_OVER_RANGE)

# Where steps count: how many frames there are, down to this one; its line.
StepFrame = record('StepFrame', 'depth f_lineno')


class GoingOn(object):
    """Finds here: `_step`, what is left of the step that the program takes, or None."""

    def _goes_on(self, step):
        """Whether this stop is only one on the way of a step, which is sent on."""
        if self._stop.reason != 'step' or self._stop.thread != self._thread:
            return False
        try:
            self._look_at(self._stop.thread)
            self._send_on(step, step.send(self._here()))
        except (Interrupted, StopIteration, Refused):
            return False
        return True

    def _go_on(self):
        """As the commands of this stop have said."""
        resume, self._resume = self._resume, None
        if resume.action == DETACH:
            self._leave()
            return
        step = self._planned(resume)
        for command in step:
            self._send_on(step, command)
            break

    def _send_on(self, step, command):
        try:
            self._session.ask(command, threadId=self._stop.thread)
        except Interrupted:
            self._pause()
        else:
            self._step = step
        self._stop = None

    def _planned(self, resume):
        here = self._here()
        count = self._repeated[1] + 1
        depth = resume.frame.depth if resume.frame is not None else None
        return {STEP_INTO: lambda: steps.into(here, count),
                STEP_OVER: lambda: steps.over(here, depth, count),
                STEP_OVER_RANGE: lambda: steps.until(here, depth, resume.last),
                STEP_OUT: lambda: steps.out(here, depth),
                CONTINUE: lambda: steps.on(here)}[resume.action]()

    def _here(self):
        stack = self._stack
        if self._shown_thread != self._stop.thread:
            stack = self._stack_of(self._stop.thread)
        return steps.Here(len(stack), stack[-1].line if stack else 0)

    def _step_frame(self):
        if self._shown_thread == self._stop.thread:
            return StepFrame(self._index + 1, self._frame().line)
        return StepFrame(*self._here())
