"""Exceptions: at which of them the program stops, and which it has been stopped for already."""

import threading

import tmorvik26_vs2012_x64 as core

from sorrel import frames, printers

# The modes: stop at none, at every one, where nothing will catch it, where the program prints it
# or nothing will catch it.
NEVER, ALWAYS, UNHANDLED, PRINTED = 'never', 'always', 'unhandled', 'printed'
_CORE_MODES = {NEVER: 0, ALWAYS: 1, UNHANDLED: 2, PRINTED: 4}

# How generators, iterators and programs end. The interpreter takes them where no handler shows.
_PART_OF_NORMAL_WORK = (GeneratorExit, StopIteration, SystemExit)


class Exceptions(object):
    """mode: one of the words above. always, never: tuples of the types at which the program stops
    in every mode, and in none. ignored: (path, line) of the places whose exceptions don't stop it.
    All are changed by the methods alone.
    """

    def __init__(self):
        # For each thread, what tells the exception of its last event from others.
        self._last = {}
        self.forget()

    def forget(self):
        """The core has been reset: as at the beginning, the program stops at no exception."""
        self._last.clear()
        self.ignored = []
        self.set_mode(NEVER)
        self.set_types((), _PART_OF_NORMAL_WORK)
        core.set_exc_catch_info_list(printers.PLACES)
        core.clear_exception_ignores()

    def set_mode(self, mode):
        self.mode = mode
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
        for name in '_Thread__bootstrap', '_Thread__bootstrap_inner':
            codes.append(getattr(threading.Thread, name).im_func.func_code)
        core.set_ignored_exception_handlers(dict.fromkeys(codes))

    def reason(self, thread, error):
        """The mode for whose sake the program is to stop at this event, or None.

        error: (type, value, traceback). Each frame that an exception passes through has an event
        for it: the program stops at the first of them alone.
        """
        type, _, traceback = error
        passes_on = (traceback.tb_next is not None
                     and self._last.get(thread) == id(traceback.tb_next))
        # Not the traceback itself, which would keep all that it leads to.
        self._last[thread] = id(traceback)
        if passes_on or _is_kind_of(type, self.never) or raised_at(error) in self.ignored:
            return None
        if _is_kind_of(type, self.always):
            return ALWAYS
        if self.mode == PRINTED and core.exiting_on_exception():
            return UNHANDLED
        return self.mode if self.mode != NEVER else None

    def thread_ended(self, thread):
        self._last.pop(thread, None)


def raised_at(error):
    """The (path, line) at which an exception, as (type, value, traceback), was raised."""
    traceback = frames.innermost(error[2])
    return core.get_frame_file(traceback.tb_frame), traceback.tb_lineno


def _is_kind_of(type, types):
    try:
        return issubclass(type, types)
    except TypeError:
        return False  # What was raised is no class.
