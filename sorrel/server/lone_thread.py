"""The thread that goes on while the others wait: seen to in the network thread."""

from __future__ import absolute_import

from sorrel.common.originals import time
from sorrel.service import living
from sorrel.service.stops import OTHERS_WAIT, OTHERS_WAIT_FIRST

# For how long, in seconds, the others wait for one that is stepped, or is to stop.
_MOMENT = 0.3
# Taken now: a program may replace what the interpreter's modules offer.
_now = time.time


class LoneThread(object):

    def __init__(self, service, has_stopped, tell):
        """has_stopped: whether a thread of the program has. tell: called with the ident of one
        that goes on alone no more, where the client does not know.
        """
        self._service = service
        self._has_stopped = has_stopped
        self._tell = tell
        # Since when it is to stop.
        self._paused = None

    def pause(self):
        """Stops it, or else another one. Whether there is such a thread."""
        if not self._service.pause_alone():
            return False
        self._paused = _now()
        return True

    def look(self):
        """Lets the others go where it may wait for them, or has ended."""
        now, paused, idents = _now(), self._paused, living.idents()

        def is_over(ident, others, since):
            return ident not in idents or paused is not None and now > paused + _MOMENT \
                or others == OTHERS_WAIT_FIRST and now > since + _MOMENT
        ended = self._service.end_alone(is_over)
        if ended is not None and ended[1] == OTHERS_WAIT:
            self._tell(ended[0])
        if paused is not None and (ended is not None or self._has_stopped()):
            self._paused = None
            if ended is not None:
                self._service.pause()
