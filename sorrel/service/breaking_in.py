"""Ctrl-C while the program runs: whichever thread gets to a line stops.

The signal is the main thread's, which has it first. Where that waits in C code, for another thread
say, it would come to it only when the wait is over: then it is for any thread, and when none of
them runs Python code either, for the person, who is told where they wait.
"""

from __future__ import absolute_import

import sys

import _sorrel
import tmorvik26_vs2012_x64 as core

from sorrel.common.originals import time
from sorrel.inspection import frames
from sorrel.service.main_thread import Activity
from sorrel.service.stops import DETACH, INTERRUPT, INTERRUPTED, QUIT, Stop

# In place of the thread that is to stop: any one, for Ctrl-C that nobody else has taken.
CTRL_C = object()
# How often is looked whether the main thread comes to it, and how long C code may compute before
# that is taken for waiting, in seconds.
_LOOK = 0.03
_PATIENCE = 3.0
# Taken now: a program may replace what the interpreter's modules offer.
_now, _sleep = time.time, time.sleep


class BreakingIn(object):
    """The part of the Service that Ctrl-C comes to."""

    # Whether somebody looks at threads that wait, and how many stops there have been.
    _is_looking = False
    _stop_count = 0

    def _interrupt(self, frame):
        """In the main thread, which is in this frame."""
        if self._is_forked():
            raise KeyboardInterrupt
        if not self._is_in_front():
            return
        if self._to_interrupt is CTRL_C:
            self._to_interrupt = None
        if self.main_thread in self._stops:
            raise KeyboardInterrupt  # It is for the front end.
        if self._is_elsewhere() and self._interrupt_front_end():
            return
        if self.main_thread in self._interrupted:
            # The program has not got to a line since the last one.
            raise KeyboardInterrupt
        self._interrupted[self.main_thread] = self.main_thread
        if self._may_stop_in(frame):
            # What it has waited for, input say, may begin anew without coming to a line.
            self._without_events(self._in_midst_of_line, frame)
        else:
            self._steps.stop_anywhere(self.main_thread)

    def _interrupt_elsewhere(self):
        """After each, in a thread of the server's."""
        while self._is_elsewhere() and _sorrel.pending_interrupts():
            if self._interrupt_front_end():
                _sorrel.take_interrupts()
            else:
                _sleep(_LOOK)  # The stop just begins or ends.
        if not self._stops and self._main_thread_waits():
            if not self._interrupted and _sorrel.pending_interrupts() == 1:
                self._to_interrupt = CTRL_C
                core.set_debug_thread_cb(self._asks_about_thread)
            elif _sorrel.take_interrupts():
                self._to_interrupt = None
                self._let_look()

    def _absorb_interrupts(self):
        """A thread stops: what has come by now has asked for no more."""
        self._stop_count += 1
        _sorrel.take_interrupts()

    def _is_elsewhere(self):
        """Whether the front end is asked in another thread than the main one."""
        return self._is_looking or bool(self._stops) and self.main_thread not in self._stops

    def _interrupt_front_end(self):
        """Whether it was for what is done there."""
        interrupt = getattr(self._front_end, 'interrupt', None)
        return interrupt is not None and interrupt()

    def _may_stop_in(self, frame):
        """Whether the main thread, which is called in the midst of a line, may stop just there.

        Elsewhere it stops at its next line.
        """
        return _sorrel.was_main_thread_waiting() and self.is_tracing and frame is not None \
            and frames.is_program(frame) and sys.gettrace() is core.trace_dispatch \
            and core.get_tstate_tracing() == 0

    def _in_midst_of_line(self, frame):
        if self._interrupted.pop(self.main_thread, None) is None:
            return
        resume = self._ask(Stop(
            self.main_thread, frame, INTERRUPTED, True, None, False, False))
        self._resume(self.main_thread, sys._getframe(), resume)

    def _main_thread_waits(self):
        """Whether the main thread leaves it to others, as far as can be told."""
        activity = Activity()
        end = _now() + _PATIENCE
        while _sorrel.pending_interrupts() and not self._stops:
            _sleep(_LOOK)
            if activity.has_waited() or _now() > end:
                return _sorrel.pending_interrupts() > 0
        return False

    # Looking at threads none of which has stopped.

    def _let_look(self):
        self._is_looking = True
        self.start_own_thread(self._look, self._stop_count)

    def _look(self, stop_count):
        core.acquire_sorrel_mutex()
        try:
            self._in_turn(self._ask_nobody, stop_count)
        finally:
            self._is_looking = False
            core.release_sorrel_mutex()

    def _ask_nobody(self, stop_count):
        """The others wait at their next lines meanwhile."""
        if self._stop_count != stop_count:
            return  # One has stopped after all.
        look = getattr(self._front_end, 'nothing_runs', None)
        resume = self._guarded(look) if look is not None else None
        if look is None or resume is not None and resume.action == INTERRUPT:
            _sorrel.raise_in_thread(self.main_thread, KeyboardInterrupt)
        elif resume is not None and resume.action == DETACH:
            self.detach()
        elif resume is not None and resume.action == QUIT:
            self.quit()
