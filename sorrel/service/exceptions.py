"""Exceptions: at which of them the program stops, and which it has been stopped for already."""

import threading
from collections import namedtuple

import tmorvik26_vs2012_x64 as core

from sorrel.inspection import frames
from sorrel.service import library_handlers, swallowing, thread_hooks

# The modes: stop at none, at every one, where nothing will catch it, where the program prints it
# or nothing will catch it.
NEVER, ALWAYS, UNHANDLED, PRINTED = 'never', 'always', 'unhandled', 'printed'
_CORE_MODES = {NEVER: 0, ALWAYS: 1, UNHANDLED: 2, PRINTED: 4}

# How generators, iterators and programs end. The interpreter takes them where no handler shows.
_PART_OF_NORMAL_WORK = (GeneratorExit, StopIteration, SystemExit)


# policy: the mode for whose sake the thread is to stop, or None. frame: where the exception was
# raised, if there is a policy. is_end: whether the exception is about to end the thread. called_by_c:
# whether C code, which may swallow it, has called one of the frames that it will leave.
Judgement = namedtuple('Judgement', 'policy frame is_end called_by_c')
NO_JUDGEMENT = Judgement(None, None, False, False)

_NOTHING = None, False


class Exceptions(object):
    """mode: one of the words above. only: in the mode ALWAYS, a tuple of the types that this goes
    for; () for all. always, never: tuples of the types at which the program stops in every mode,
    unless a handler names them, and in none. ignored: (path, line) of the places whose exceptions
    don't stop it. All are changed by the methods alone.
    """

    def __init__(self):
        # For each thread, what tells the traceback of its last exception event from others, and
        # whether the front end knows of that exception.
        self._last = {}
        self._own_handlers = {}
        self.forget()

    def forget(self):
        """The core has been reset: as at the beginning, the program stops at no exception."""
        self._last.clear()
        self.ignored = []
        self.set_mode(NEVER)
        self.set_types((), _PART_OF_NORMAL_WORK)
        core.set_ignored_exception_handlers(self._own_handlers)
        core.set_exc_catch_info_list(library_handlers.PLACES)
        core.clear_exception_ignores()

    def set_mode(self, mode, only=()):
        self.mode = mode
        self.only = tuple(only)
        core.set_exception_mode(_CORE_MODES[mode])

    def set_types(self, always, never):
        """Tuples of exception types; a subclass counts as its base. What is in both is never."""
        self.always, self.never = tuple(always), tuple(never)
        core.set_always_stop_excepts(self.always)
        core.set_never_stop_excepts(self.never)

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
        """What these frames catch, which run the program, the program has not caught."""
        codes = [frame.f_code for frame in callers]
        codes.append(thread_hooks.ThreadMain.__call__.im_func.func_code)
        for name in '_Thread__bootstrap', '_Thread__bootstrap_inner':
            codes.append(getattr(threading.Thread, name).im_func.func_code)
        self._own_handlers = dict.fromkeys(codes)
        core.set_ignored_exception_handlers(self._own_handlers)

    def judge(self, thread, frame, error, is_step):
        """What an event of an exception means for the calling thread, whose id this is.

        error: (type, value, traceback). is_step: whether its step stops the thread in any case.
        Each frame that an exception passes through has an event for it: the program is to stop
        at the first of them alone.
        """
        type, _, traceback = error
        if traceback is None:
            return NO_JUDGEMENT
        known, is_told = self._last.get(thread, _NOTHING)
        is_told = is_told and _leads_to(traceback.tb_next, known)
        self._last[thread] = _key(traceback), is_told
        raising = frames.innermost(traceback).tb_frame
        if not frames.is_program(raising):
            return NO_JUDGEMENT
        policy = None if is_told else self._policy(error, is_step)
        is_end = not is_step and self._may_be_end(frame, type)
        fate = None
        if policy == UNHANDLED or is_end or policy == PRINTED and _may_be_printed(frame):
            fate = swallowing.fate(frame, type)
        if policy == UNHANDLED and fate in swallowing.SWALLOWED or \
                policy == PRINTED and _may_be_printed(frame) and fate != swallowing.PRINTED:
            policy = None
        # Whoever might have swallowed it has not, once it has come to who runs the program.
        is_end = is_end or policy == UNHANDLED and not frames.is_program(frame)
        return Judgement(policy, raising if policy else None,
                         is_end and fate == swallowing.LEAVES,
                         policy == UNHANDLED and fate == swallowing.LEAVES_BY_C)

    def told(self, thread):
        """The front end is told of the exception that has had the thread's last event."""
        known = self._last.get(thread)
        if known is not None:
            self._last[thread] = known[0], True

    def forget_thread(self, thread):
        """The thread has ended."""
        self._last.pop(thread, None)

    def keep_living(self):
        """Forgets threads that have ended without a word."""
        # Looked at first: a thread that begins meanwhile is not among them.
        for thread in set(self._last).difference(core.get_threads()):
            self.forget_thread(thread)

    def _policy(self, error, is_step):
        type = error[0]
        if _is_kind_of(type, self.never) or raised_at(error) in self.ignored:
            return None
        if _is_kind_of(type, self.always):
            return ALWAYS
        if self.mode == ALWAYS:
            return ALWAYS if not self.only or _is_kind_of(type, self.only) else None
        # The core has not looked for handlers where the step stops the thread.
        if self.mode == NEVER or is_step:
            return None
        return UNHANDLED if core.exiting_on_exception() else self.mode

    def _may_be_end(self, frame, type):
        """Whether it is for the core. What that does not see may still swallow it."""
        if not frames.is_program(frame) or \
                frame.f_back is not None and frames.is_program(frame.f_back):
            return False
        return core.exiting_on_exception() == 1 or (
            self.mode == UNHANDLED and not _is_kind_of(type, self.always))


def raised_at(error):
    """The (path, line) at which an exception, as (type, value, traceback), was raised."""
    traceback = frames.innermost(error[2])
    return core.get_frame_file(traceback.tb_frame), traceback.tb_lineno


def _may_be_printed(frame):
    """Whether it is for the core only by the name of the function."""
    return frame.f_code.co_name == library_handlers.DESTRUCTOR


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
