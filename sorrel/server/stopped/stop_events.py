"""Which stops of the program the client is told of, and as what."""

from __future__ import absolute_import

from sorrel.common import errors
from sorrel.common.decoding import text
from sorrel.common.records import record
from sorrel.inspection import frames, line_calls
from sorrel.service import living
from sorrel.service.stops import (
    CALLED, CONTINUE, INTERRUPTED, POST_MORTEM, RAISED, Resume, RETURNED, STEP_INTO,
    STEP_INTO_CALL, STEPPED, TRACEBACK)

# What a client is told of a stop. reason: a word of the protocol's. frame: the innermost that the
# client is shown. details: what else is in the body of the event.
Told = record('Told', 'reason frame details')

_FAILED = 'Paused on breakpoint: its condition fails'
_CALLED = 'Paused by the program'
_PAUSED = 'Paused on exception'
_CALLED_BY_C = ' (no handler in Python code; called by C code)'
_POST_MORTEM = {POST_MORTEM: 'Post-mortem: the program has ended by an exception',
                TRACEBACK: 'Post-mortem: the program has caught an exception'}

# How a thread was last let go; the frame in which a step ends that does not lead into calls, or
# one that it was called from; whether it was in code that is not passed by; and the LineCall that
# it leads into.
_Going = record('_Going', 'action frame from_own_code call')


class Stops(object):

    def __init__(self, breakpoints, passing, error_text):
        """breakpoints: the client's. passing: the service's Passing, at which steps don't end.
        error_text: makes the text of a (type, value, traceback).
        """
        self._breakpoints = breakpoints
        self._passing = passing
        self._error_text = error_text
        self._is_at_entry = self._stops_on_entry = False
        # By the threads' idents.
        self._goings = {}

    def expect_entry(self, stops):
        """The program is about to stop where it begins. stops: whether the client wants that."""
        self._is_at_entry = True
        self._stops_on_entry = stops

    def consider(self, stop):
        """What to tell of a Stop: a Told; or a Resume or None when the client is told nothing."""
        if stop.policy is not None:
            return Told('exception', stop.frame, {
                'description': _POST_MORTEM.get(
                    stop.policy, _PAUSED + _CALLED_BY_C * stop.called_by_c),
                'text': self._error_text(stop.argument)})
        at_entry, self._is_at_entry = self._is_at_entry, False
        going = self._goings.get(stop.thread)
        may_be_step = stop.reason in (INTERRUPTED, CALLED) or at_entry or (
            going is not None and _has_arrived(going, stop.frame))
        hits = self._breakpoints.hits(stop, may_be_step)
        if hits:
            return _told_hits(hits, stop.frame)
        if stop.reason == CALLED:
            return Told('breakpoint', stop.frame, {'description': _CALLED})
        if stop.reason == INTERRUPTED:
            return Told('pause', stop.frame, {})
        if at_entry:
            return Told('entry', stop.frame, {}) if self._stops_on_entry else Resume(CONTINUE)
        if may_be_step:
            return self._consider_step(stop, going)
        if stop.reason == STEPPED:
            return _onward(going)  # At breakpoints that are not due.
        # It returns or raises where none of its steps ends: told all the same, as a pause.
        return Told('pause', _caller(stop) or stop.frame, {})

    def inherit(self, other):
        """In a forked process: the steps that the parent's client has asked for go on here."""
        self._goings = dict(other._goings)

    def forget(self, thread):
        """The thread has ended."""
        self._goings.pop(thread, None)

    def gone(self, stop, told, resume):
        """The thread goes on from a stop that the client was told of."""
        # Looked at first: a thread that begins meanwhile is not among them.
        for thread in set(self._goings).difference(living.idents()):
            self.forget(thread)
        # No frame is kept alive for longer than needed.
        frame = None if resume.action in (CONTINUE, STEP_INTO) else resume.frame or stop.frame
        self._goings[stop.thread] = _Going(
            resume.action, frame, not self._passing.passes(told.frame), resume.call)

    def _consider_step(self, stop, going):
        if stop.reason == RAISED:
            return None  # What follows, in a handler or in a caller, is told.
        if going.from_own_code and self._passing.passes(stop.frame):
            return None  # At breakpoints that are not due.
        frame = _caller(stop)
        if frame is not None and going.from_own_code and self._passing.passes(frame):
            return Resume(STEP_INTO)  # On to where it comes out of that.
        return Told('step', frame, {}) if frame is not None else None


def _told_hits(hits, frame):
    details = {'hitBreakpointIds': [hit.id for hit in hits]}
    failures = [errors.error_text(*hit.error) for hit in hits if hit.error is not None]
    if failures:
        details.update(description=_FAILED, text=text('; '.join(failures)))
    all_of_functions = all(hit.is_function for hit in hits)
    return Told('function breakpoint' if all_of_functions else 'breakpoint', frame, details)


def _caller(stop):
    """The frame of a stop; where that returns, its caller's, whose line is still to be finished.

    None when the thread's first frame returns.
    """
    if stop.reason != RETURNED:
        return stop.frame
    frame = stop.frame.f_back
    return frame if frame is not None and frames.is_program(frame) else None


def _onward(going):
    """What a thread does that goes on as before: the service gives a step into a call up there."""
    if going is None or going.action != STEP_INTO_CALL:
        return None
    return Resume(STEP_INTO_CALL, going.frame, call=going.call)


def _has_arrived(going, frame):
    """Whether a step ends here; other stops may come before that."""
    if going.action == STEP_INTO:
        return True
    if going.action == CONTINUE:
        return False
    if going.action == STEP_INTO_CALL and going.frame in list(frames.callers(frame)):
        return not line_calls.is_ahead(going.call, going.frame) or (
            frame is not going.frame and going.frame.f_lasti == going.call.offset)
    return frame is going.frame or going.frame not in list(frames.callers(frame))
