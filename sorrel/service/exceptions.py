"""Exceptions: at which of them the program stops, and which it has been stopped for already."""

from __future__ import absolute_import

import atexit
import threading

import _sorrel
import tmorvik26_vs2012_x64 as core

from sorrel.common.records import record
from sorrel.inspection import frames, try_statements
from sorrel.languages import sublanguages
from sorrel.service import living, printing, swallowing, thread_hooks
from sorrel.service.learning import Learning
from sorrel.service.print_calls import PrintCalls
from sorrel.service.signal_handlers import old_style_mro

# The modes: stop at none, at every one, where nothing will catch it, where nothing in the user's
# own code will, where the program prints it.
NEVER, ALWAYS, UNHANDLED, USER_UNHANDLED, PRINTED = (
    'never', 'always', 'unhandled', 'user-unhandled', 'printed')
# The core's own: which exceptions it asks about. It looks for handlers itself, but passes over a
# type to stop at always where the same frame names it.
_ASKS_AT_NONE, _ASKS_AT_ALL, _ASKS_AT_UNHANDLED = 0, 1, 2

# How generators, iterators and programs end. The interpreter takes them where no handler shows.
_PART_OF_NORMAL_WORK = (GeneratorExit, StopIteration, SystemExit)


# policy: the mode for whose sake the thread is to stop, or None. frame: where the exception was
# raised, if there is a policy. is_end: whether the exception is about to end the thread. called_by_c:
# whether C code, which may swallow it, has called one of the frames that it will leave.
Judgement = record('Judgement', 'policy frame is_end called_by_c')
NO_JUDGEMENT = Judgement(None, None, False, False)

_NOTHING = None, False, None
# In place of a clause's offset.
_LOOP_END = -1
_RUN_EXIT_FUNCTIONS = atexit._run_exitfuncs.func_code


class Exceptions(object):
    """modes: a set of the words above, for whose sakes the program stops. always, never: tuples
    of the types at which it stops in any case, and in none. ignored: (path, line) of the places whose
    exceptions don't stop it. All are changed by the methods alone. learning: what is known of
    exceptions that were swallowed. print_calls: those that PRINTED is interested in.
    """

    def __init__(self, all_breakpoints, passing):
        """all_breakpoints: the service's Breakpoints. passing: its Passing, code in which those to
        stop at always are of no concern yet, and what is the user's own.
        """
        self._passing = passing
        # For each thread, what tells the traceback of its last exception event from others,
        # whether the front end knows of that exception, and the id of the frame that is to
        # swallow it.
        self._last = {}
        # For each thread, what tells the traceback of the exception where it was raised that the
        # front end was last told of.
        self._told = {}
        self._own_handlers = {}
        self._core_mode = _ASKS_AT_NONE
        self.learning = Learning()
        self.print_calls = PrintCalls(all_breakpoints)
        self.forget()

    def forget(self):
        """The core has been reset: as at the beginning, the program stops at no exception."""
        self._last.clear()
        self._told.clear()
        self.learning.forget()
        self.modes = frozenset()
        self.ignored = []
        self.set_types((), _PART_OF_NORMAL_WORK)
        core.set_ignored_exception_handlers(self._own_handlers)
        core.clear_exception_ignores()

    def set_mode(self, *modes):
        """In the order of importance, NEVER for none."""
        self.modes = frozenset(modes).difference([NEVER])
        self._tell_core()

    def set_types(self, always, never):
        """Tuples of exception types; a subclass counts as its nearest base. In both is in never."""
        self.always, self.never = tuple(always), tuple(never)
        self._tell_core()

    def _tell_core(self):
        if self.always or self.modes.difference([UNHANDLED]):
            self._core_mode = _ASKS_AT_ALL
        else:
            self._core_mode = _ASKS_AT_UNHANDLED if self.modes else _ASKS_AT_NONE
        self.print_calls.see(PRINTED in self.modes)
        core.set_never_stop_excepts(self.never)
        core.set_exception_mode(self._core_mode)

    def ignore(self, place):
        """Exceptions raised at this (path, line) don't stop the program any more."""
        if place not in self.ignored:
            self.ignored.append(place)
            core.ignore_exception_loc(place[0], place[1], 1)

    def unignore(self, place):
        if place in self.ignored:
            self.ignored.remove(place)
            core.ignore_exception_loc(place[0], place[1], 0)

    # For the service.

    def set_own_frames(self, callers):
        """What these frames catch, which run the program, the program has not caught.

        Nor has it what ends its threads and its exit functions.
        """
        codes = [frame.f_code for frame in callers]
        codes.append(thread_hooks.ThreadMain.__call__.im_func.func_code)
        for name in '_Thread__bootstrap', '_Thread__bootstrap_inner':
            codes.append(getattr(threading.Thread, name).im_func.func_code)
        codes.append(_RUN_EXIT_FUNCTIONS)
        self._own_handlers = dict.fromkeys(codes)
        sublanguages.add_to_no_handlers(self._own_handlers)
        core.set_ignored_exception_handlers(self._own_handlers)

    def is_of_concern(self, thread, frame, error):
        """Whether an event of an exception is worth judging. Nearly none is, which is found quickly.

        To be called once for each event, in the calling thread, whose ident this is. Each frame that
        an exception passes through has one: the program is to stop at the first of them alone.
        """
        type, _, traceback = error
        if traceback is None:
            return False
        known, is_told, swallowing_in = self._last.get(thread, _NOTHING)
        if (is_told or swallowing_in) and not _leads_to(traceback.tb_next, known):
            is_told, swallowing_in = False, None
        key = _key(traceback)
        self._last[thread] = key, is_told, swallowing_in
        if is_told:
            self.learning.goes_on(thread, traceback)
        elif self._told.get(thread) == key:
            self._told.pop(thread, None)  # Another one, at the same place in memory.
        if self._core_mode != _ASKS_AT_ALL:
            return True
        listed = self._listed(type)
        if listed == NEVER:
            return False
        if self._stops_always(listed, frame):
            return True
        handler, clause = self._handler(frame, type) or (None, None)
        if handler is not frame:
            # C code may be between the two, or code of a library.
            return handler is None or USER_UNHANDLED in self.modes or PRINTED in self.modes
        return USER_UNHANDLED in self.modes and self._has_left_own_code(traceback) or \
            PRINTED in self.modes and _prints(handler, clause, type)

    def judge(self, thread, frame, error, is_step):
        """What an event of an exception means for the calling thread, whose ident this is.

        error: (type, value, traceback). is_step: whether its step stops the thread in any case.
        """
        type, _, traceback = error
        if traceback is None:
            return NO_JUDGEMENT
        is_told = self._last.get(thread, _NOTHING)[1]
        raising = frames.innermost(traceback).tb_frame
        if not frames.is_program(raising):
            return NO_JUDGEMENT
        policy = fate = None
        if not is_told:
            policy, fate = self._policy(thread, frame, error, is_step)
        # After an exit function the next one follows.
        is_end = not is_step and _is_outermost(frame) and self._listed(type) != NEVER \
            and frame.f_code is not _RUN_EXIT_FUNCTIONS and self._handler(frame, type) is None
        if is_end:
            is_end = (fate or swallowing.fate(frame, type)[0]) == swallowing.LEAVES
        if policy == UNHANDLED:
            self.learning.watch(thread, raised_at(error), traceback)
            # Whoever might have swallowed it has not, once it has come to who runs the program.
            is_end = is_end or not frames.is_program(frame)
        return Judgement(policy, raising if policy else None, is_end,
                         policy == UNHANDLED and fate == swallowing.LEAVES_BY_C)

    def judge_print(self, thread, error):
        """The same of the calling thread's printing an exception that was raised earlier."""
        raised = frames.innermost(error[2])
        if PRINTED not in self.modes or not frames.is_program(raised.tb_frame) \
                or self._told.get(thread) == _key(raised) \
                or self._listed(error[0]) == NEVER or raised_at(error) in self.ignored:
            return NO_JUDGEMENT
        return Judgement(PRINTED, raised.tb_frame, False, False)

    def told(self, thread, error):
        """The front end is told of an exception of the thread's."""
        known = self._last.get(thread)
        if known is not None and _leads_to(error[2], known[0]):
            self._last[thread] = known[0], True, None
        if error[2] is not None:
            self._told[thread] = _key(frames.innermost(error[2]))

    def has_told(self, thread, traceback):
        """Whether the front end knows of the exception that has left this traceback there."""
        return self._told.get(thread) == _key(frames.innermost(traceback))

    def forget_thread(self, thread):
        """The thread has ended."""
        self._last.pop(thread, None)
        self._told.pop(thread, None)
        self.learning.thread_ended(thread)

    def keep_living(self):
        """Forgets threads that have ended without a word."""
        # Looked at first: a thread that begins meanwhile is not among them.
        for thread in set(self._last).difference(living.idents()):
            self.forget_thread(thread)

    def _policy(self, thread, frame, error, is_step):
        """The mode for whose sake the thread is to stop; and the fate of the exception, if asked."""
        type, _, traceback = error
        listed = self._listed(type)
        place = raised_at(error)
        if listed == NEVER or place in self.ignored:
            return None, None
        if self._stops_always(listed, frame):
            return ALWAYS, None
        # A step shows what it comes upon without a verdict.
        if is_step or not self.modes:
            return None, None
        handler, clause = self._handler(frame, type) or (None, None)
        fate = self._fate(thread, frame, type, handler or _runner_of_exit_functions(frame))
        if handler is None and UNHANDLED in self.modes and fate not in swallowing.SWALLOWED and (
                not self.learning.is_swallowed(thread, place, frame) or _is_left_for_good(frame)):
            return UNHANDLED, fate
        if USER_UNHANDLED in self.modes and self._leaves_own_code(traceback, type, handler):
            return USER_UNHANDLED, None
        if PRINTED in self.modes and (
                fate == swallowing.PRINTED or handler is not None
                and fate not in swallowing.SWALLOWED and _prints(handler, clause, type)):
            return PRINTED, None
        return None, None

    def _fate(self, thread, frame, type, end):
        """What becomes of the thread's last exception in the frame. end: as for `swallowing.fate`.

        What was found in a frame further in holds until the exception has come where it said.
        """
        key, is_told, swallowing_in = self._last.get(thread, _NOTHING)
        if _is_inside(frame, swallowing_in):
            return swallowing.DROPPED
        fate, place = swallowing.fate(frame, type, end)
        if fate in swallowing.SWALLOWED:
            self._last[thread] = key, is_told, place and id(place)
        return fate

    def _listed(self, type):
        """ALWAYS or NEVER, whichever is said of the type or its nearest base; or None."""
        is_always, is_never = _is_kind_of(type, self.always), _is_kind_of(type, self.never)
        if is_always and is_never:
            for base in getattr(type, '__mro__', None) or old_style_mro(type):
                if base in self.never:
                    return NEVER
                if base in self.always:
                    return ALWAYS
        return NEVER if is_never else ALWAYS if is_always else None

    def _stops_always(self, listed, frame):
        return (listed == ALWAYS or ALWAYS in self.modes) and not self._passing.passes(frame)

    def _leaves_own_code(self, traceback, type, handler):
        """Whether an exception goes, or has just gone, from the user's own code to other code.

        handler: the frame that will catch it first, None for none.
        """
        frame = traceback.tb_frame
        if not self._passing.is_own_code(frame):
            return self._has_left_own_code(traceback)
        for caller in frames.callers(frame):
            if caller is handler:
                return False
            if not self._passing.is_own_code(caller):
                return swallowing.fate(frame, type, caller)[0] not in swallowing.SWALLOWED
        return True

    def _has_left_own_code(self, traceback):
        """Whether a handler there has raised it again, for which there was no event."""
        inner = traceback.tb_next
        return inner is not None and self._passing.is_own_code(inner.tb_frame) \
            and not self._passing.is_own_code(traceback.tb_frame)

    def _handler(self, frame, type):
        """The frame and the clause of what will catch it, or None."""
        return _sorrel.find_handler(frame, type, self._own_handlers)


def _runner_of_exit_functions(frame):
    """The frame that calls exit functions, where the program has come to its end; else None."""
    for caller in frames.outward(frame):
        if caller.f_code is _RUN_EXIT_FUNCTIONS:
            return caller
    return None


def _is_outermost(frame):
    return frames.is_program(frame) and (
        frame.f_back is None or not frames.is_program(frame.f_back))


def _is_left_for_good(frame):
    """Whether an exception that has come to this frame can but end its thread."""
    return not frames.is_program(frame) or _is_outermost(frame) and \
        not try_statements.has_try_around(frame.f_code, frame.f_lasti)


def _prints(handler, clause, type):
    return clause != _LOOP_END and printing.clause_prints(handler, clause, type)


def raised_at(error):
    """The (path, line) at which an exception, as (type, value, traceback), was raised."""
    traceback = frames.innermost(error[2])
    return core.get_frame_file(traceback.tb_frame), traceback.tb_lineno


def _is_inside(frame, id_of_caller):
    """Whether the frame is that of this id, or was called from there."""
    while id_of_caller is not None and frame is not None:
        if id(frame) == id_of_caller:
            return True
        frame = frame.f_back
    return False


def _key(traceback):
    # Not the traceback itself, which would keep all that it leads to.
    return id(traceback), id(traceback.tb_frame), traceback.tb_lasti


def _leads_to(traceback, key):
    while traceback is not None:
        if _key(traceback) == key:
            return True
        traceback = traceback.tb_next
    return False


def _is_kind_of(type, types):
    try:
        return issubclass(type, types)
    except TypeError:
        return False  # What was raised is no class.
