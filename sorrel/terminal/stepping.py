"""Commands that let the program go on for a while."""

from __future__ import absolute_import

from sorrel.service.stops import (
    CONTINUE, NUMBER_LIMIT, Resume, RETURNED, STEP_INTO, STEP_OUT, STEP_OVER, STEP_OVER_RANGE,
    STEPPED)


class SteppingCommands(object):

    # The action of a step that is taken several times, how often still, and in which thread.
    _repeated = None, 0, None

    def do_step(self, argument):
        """step, s [COUNT]: run to the next line, in whatever function it is; so many times."""
        self._resume = Resume(STEP_INTO)
        self._repeat(argument)

    def do_next(self, argument):
        """next, n [COUNT]: run to the next line of this function, or to its return; so many times.

        A stop for another reason ends the count.
        """
        self._resume = Resume(STEP_OVER, self._step_frame())
        self._repeat(argument)

    def do_until(self, argument):
        """until, unt [LINE]: as next, but only forward: a loop is run to its end.

        With LINE, run until this function gets to that line or a later one.
        """
        line = self._step_frame().f_lineno
        last = min(int(argument) - 1, NUMBER_LIMIT) if argument else line
        if last < line:
            self._say('*** Not after line %d: %s' % (line, argument))
            return
        self._resume = Resume(STEP_OVER_RANGE, self._step_frame(), 0, last)

    def do_return(self, argument):
        """return, r: run until this function returns."""
        self._resume = Resume(STEP_OUT, self._step_frame())

    def do_continue(self, argument):
        """continue, cont, c: run on."""
        self._resume = Resume(CONTINUE)

    def _repeat(self, argument):
        self._repeated = self._resume.action, int(argument or 1) - 1, self._stop.thread

    def _next_step(self, stop):
        """A Resume where this stop is only one of the steps that were asked for; None else."""
        action, left, thread = self._repeated
        if left < 1 or stop.thread != thread or stop.reason not in (STEPPED, RETURNED) \
                or stop.policy is not None or self._fired or self._due or self._changes:
            self._repeated = None, 0, None
            return None
        self._repeated = action, left - 1, thread
        return Resume(action)
