"""Places at which the program has stopped for an exception that ended nothing after all.

That shows later: the frame that was left last goes on, or is gone and its caller goes on. Nothing
of the program's is kept alive to see it.
"""

from __future__ import absolute_import

from sorrel.common.records import record
from sorrel.inspection import frames, try_statements
from sorrel.service import living

# An exception for which its thread has stopped, since nothing seemed to catch it. place: where it
# was raised. frame, offset: the id() of the frame that it has come to, and where that was.
# is_outermost: whether no code of the program's has called that.
_Watched = record('_Watched', 'place frame offset is_outermost')


class Learning(object):
    """is_on: whether what has been learned counts. The threads are named by their idents."""

    def __init__(self):
        self._watched = {}
        self._places = {}
        self.forget()

    def forget(self):
        self.is_on = False
        self._watched.clear()
        self._places.clear()

    def places(self):
        for thread, known in self._watched.items():
            self._learn_from(thread, known)
        return sorted(self._places)

    def watch(self, thread, place, traceback):
        """The calling thread is stopping, where an exception has come to the traceback's frame."""
        self._learn_if(thread, traceback.tb_frame)
        self._watched[thread] = _watched(place, traceback)

    def goes_on(self, thread, traceback):
        """The exception of the calling thread that it has last stopped for has come to here."""
        known = self._watched.get(thread)
        if known is not None:
            self._watched[thread] = _watched(known.place, traceback)

    def is_swallowed(self, thread, place, frame):
        """Whether those from this place are, as far as is known. frame: the calling thread's."""
        if not self.is_on:
            return False
        self._learn_if(thread, frame)
        for other, known in self._watched.items():
            if other != thread and known.place == place:
                self._learn_from(other, known)
        return place in self._places

    def thread_ended(self, thread):
        self._learn_if(thread, None)
        self._watched.pop(thread, None)

    def _learn_if(self, thread, frame):
        """The exception is swallowed, if the thread, which is in this frame now, has gone on."""
        known = self._watched.get(thread)
        if known is not None and _has_gone_on(known, frame):
            self._places[known.place] = None
            self._watched.pop(thread, None)

    def _learn_from(self, thread, known):
        """The same for a thread that may just have stopped for it."""
        frame = living.current_frames().get(thread)
        for caller in frames.callers(frame):
            if id(caller) == known.frame and caller.f_lasti == known.offset:
                return
        self._learn_if(thread, frame)


def _watched(place, traceback):
    frame = traceback.tb_frame
    caller = frame.f_back
    return _Watched(place, id(frame), traceback.tb_lasti,
                    caller is None or not frames.is_program(caller))


def _has_gone_on(known, frame):
    for caller in frames.callers(frame):
        if id(caller) == known.frame:
            return not try_statements.is_being_left(caller.f_code, known.offset, caller.f_lasti)
    # Had it come to the caller, that would have been seen.
    return not known.is_outermost
