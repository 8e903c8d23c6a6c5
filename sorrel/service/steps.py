"""The step that each thread is on.

The core counts a step in the innermost frame of a thread. One that is to count in a frame further
out begins when the frames inside it have been left, one by one.

One that is to lead into a certain call of a frame's stops where any code is called, to find out by
which call that was, and goes out again of all but the one.

One that begins elsewhere than in code that is to be passed does not end there: where it comes out in
such code, it becomes one that goes through this, into whatever else that returns to or calls.
"""

from __future__ import absolute_import

import tmorvik26_vs2012_x64 as core

from sorrel.inspection import frames, line_calls, source
from sorrel.languages import sublanguages
from sorrel.service import c_calls, living
from sorrel.service.stops import (
    CONTINUE, INTERRUPTED, RAISED, Resume, RETURNED, STEP_INTO, STEP_INTO_CALL, STEP_OUT, STEP_OVER,
    STEP_OVER_RANGE, STEPPED)

_NO_TARGET = object()
_step_through, _pass_code, _is_elsewhere = [
    core._for_sorrel[name] for name in 'step_through', 'pass_code', 'is_elsewhere']


class Steps(object):
    """Each thread has its own, which it may lose at any moment: another one may detach."""

    def __init__(self, passing):
        """passing: the service's Passing."""
        self._passing = passing
        # For threads on their way to an outer frame or into a call, what was asked for there.
        self._awaited = {}
        # For threads that the core is to stop, the id() of the frame in which, or None for any.
        # The core keeps that frame alive.
        self._targets = {}
        # The lines of that frame, the first and the last, at which it is not.
        self._passed_over = {}
        # Threads whose steps pass code, as keys; and those that pass libraries' in any case.
        self._passes_code = {}
        self._from_template = {}

    def request(self, thread, frame, resume, is_leaving):
        """The calling thread, whose ident this is, goes on from an event in this frame.

        is_leaving: whether the frame is about to be left.
        """
        self._passes_code.pop(thread, None)
        self._from_template.pop(thread, None)
        counted = resume.frame or frame
        if resume.action != CONTINUE and self._leads_through_engine(thread, counted, resume.action):
            # What the engine calls on the way is no matter of the template's author's.
            self._from_template[thread] = True
        if self._passing.is_on() and resume.action != CONTINUE:
            if self._is_wanted(counted) or is_leaving and self._is_wanted(frame.f_back):
                self._passes_code[thread] = True
        if resume.action != CONTINUE:
            self._ask_languages(thread, resume.action)
        if resume.action == STEP_INTO_CALL:
            self._awaited[thread] = resume
            is_there = is_leaving or resume.frame is frame
            resume = Resume(STEP_INTO if is_there else STEP_OUT)
        elif resume.frame is not frame and resume.frame in list(frames.callers(frame)):
            self._awaited[thread] = resume
            resume = Resume(STEP_OUT)
        self._begin(thread, frame, resume)
        if not self._targets:
            sublanguages.ask_no_more()

    def _leads_through_engine(self, thread, frame, action):
        """Whether a step begins in a template, or may lead back into one."""
        return sublanguages.is_key(frame) or sublanguages.is_of_engine() \
            and action not in (STEP_INTO, STEP_INTO_CALL) \
            and sublanguages.at_work(thread) is not None

    def _ask_languages(self, thread, action):
        """A step may lead into a template, or on in one."""
        if sublanguages.is_of_engine() and (
                action in (STEP_INTO, STEP_INTO_CALL) or sublanguages.at_work(thread) is not None):
            sublanguages.ask()

    def expect_stop(self, thread):
        """The core is asked by the caller to stop this thread as soon as it can."""
        self._passed_over.pop(thread, None)
        self._passes_code.pop(thread, None)
        self._from_template.pop(thread, None)
        self._targets[thread] = None
        sublanguages.run(thread)

    def stop_anywhere(self, thread):
        """The calling thread, whose ident this is, stops as soon as it can."""
        self.expect_stop(thread)
        core.stop()

    def give_up(self, thread):
        """The calling thread, whose ident this is, runs on."""
        self.forget(thread)
        core.continue_run()

    def is_on_step(self, thread):
        return thread in self._targets

    def stops_at(self, thread, frame):
        """Whether the calling thread, whose ident this is, stops at any event in this frame, for
        the sake of its step.
        """
        target = self._targets.get(thread, _NO_TARGET)
        if target is _NO_TARGET or self.passes(thread, frame) or _is_elsewhere(frame):
            return False
        for caller in frames.callers(frame):
            if id(caller) == target:
                return caller is frame
        return True  # The target is any frame, or has been left.

    def stops_at_line(self, thread, frame):
        """Whether its step is what stops the thread at a line event in this frame."""
        first, last = self._passed_over.get(thread, (1, 0))
        is_passed = self._targets.get(thread) == id(frame) and first <= frame.f_lineno <= last
        return not is_passed and self.stops_at(thread, frame)

    def passes(self, thread, frame):
        """Whether the thread's step does not end in this frame for what code it is."""
        if not frames.is_program(frame) or sublanguages.is_key(frame):
            return False
        return thread in self._passes_code and self._passing.passes(frame) \
            or thread in self._from_template and self._is_engines(thread, frame)

    def _is_engines(self, thread, frame):
        """Whether a frame is no matter of a template's author: of a library, or of what that makes.
        """
        if not self._passing.is_own_code(frame) or sublanguages.is_module(frame):
            return True
        caller = frame.f_back
        return source.is_made_up(frame) and caller is not None and (
            not self._passing.is_own_code(caller)
            or sublanguages.is_hidden(sublanguages.at_work(thread), caller))

    def goes_through(self, thread, frame):
        """Whether the calling thread, whose ident this is, goes on with its step for that."""
        if not self.passes(thread, frame):
            return False
        if thread in self._passes_code:
            _pass_code(frame.f_code)
        if self._targets.get(thread, _NO_TARGET) is not None:
            self._begin(thread, frame, Resume(STEP_INTO))
        return True

    def is_awaited(self, thread):
        """Whether the thread's step is not yet where it counts."""
        return thread in self._awaited

    def is_on_its_way(self, thread, frame, reason):
        """Whether the thread has an event in this frame only because its step counts elsewhere.

        It has been sent on then.
        """
        resume = self._awaited.get(thread)
        if resume is None:
            return False
        if resume.action == STEP_INTO_CALL:
            return self._is_before_call(thread, frame, reason, resume)
        if frame is not resume.frame and reason != INTERRUPTED \
                and resume.frame in list(frames.callers(frame)):
            if reason != RETURNED:
                self._begin(thread, frame, Resume(STEP_OUT))
            return True
        self._awaited.pop(thread, None)
        if frame is resume.frame and reason == STEPPED:
            if resume.action == STEP_OUT or (
                    resume.action == STEP_OVER_RANGE
                    and resume.first <= frame.f_lineno <= resume.last):
                self._begin(thread, frame, resume)
                return True
        return False

    def _is_before_call(self, thread, frame, reason, resume):
        """The same of a step into a call."""
        if reason != INTERRUPTED and frame is not resume.frame:
            for callee in frames.callers(frame):
                if callee.f_back is resume.frame:
                    return self._is_beside_call(thread, frame, reason, resume, callee)
        elif reason == STEPPED and line_calls.is_ahead(resume.call, frame):
            self._begin(thread, frame, Resume(STEP_INTO))
            return True
        self._awaited.pop(thread, None)
        if frame is resume.frame and reason == RAISED:
            self._begin(thread, frame, Resume(STEP_OVER))
            return True
        return False

    def _is_beside_call(self, thread, frame, reason, resume, callee):
        """The same in what the frame where it counts has called, which is the callee's."""
        if self.goes_through(thread, frame):
            return True
        if reason == STEPPED and resume.frame.f_lasti == resume.call.offset \
                and not c_calls.is_of_c(callee, resume.frame):
            self._awaited.pop(thread, None)
            return False
        self._begin(thread, frame, Resume(STEP_INTO if reason == RETURNED else STEP_OUT))
        return True

    def arrive(self, thread):
        """The thread has stopped for another reason than its step."""
        self._awaited.pop(thread, None)

    def forget(self, thread):
        """The thread has ended."""
        self._awaited.pop(thread, None)
        self._targets.pop(thread, None)
        self._passed_over.pop(thread, None)
        self._passes_code.pop(thread, None)
        self._from_template.pop(thread, None)
        sublanguages.run(thread)

    def keep_living(self):
        """Forgets threads that have ended without a word."""
        # Looked at first: a thread that begins meanwhile is not among them.
        known = set(self._awaited).union(self._targets)
        for thread in known.difference(living.idents()):
            self.forget(thread)

    def forget_all(self):
        self._awaited.clear()
        self._targets.clear()
        self._passed_over.clear()
        self._passes_code.clear()
        self._from_template.clear()

    def _begin(self, thread, frame, resume):
        self._passed_over.pop(thread, None)
        sublanguages.run(thread)
        if resume.action == CONTINUE:
            self._targets.pop(thread, None)
        elif resume.action == STEP_INTO:
            self._targets[thread] = None
        elif resume.action == STEP_OUT:
            self._targets[thread] = frame.f_back and id(frame.f_back)
            sublanguages.step(thread, frame, False)
        else:
            self._targets[thread] = id(frame)
            sublanguages.step(thread, frame, True)
        if resume.action == STEP_OVER_RANGE:
            self._passed_over[thread] = resume.first, resume.last
            core.step_over_line_range(resume.first, resume.last)
        elif resume.action == STEP_INTO and thread in self._passes_code:
            _step_through()
        else:
            # The words are the names of the core's functions.
            getattr(core, resume.action)()

    def _is_wanted(self, frame):
        """Whether it is one of the program's that is not passed."""
        return frame is not None and frames.is_program(frame) and not self._passing.passes(frame)
