"""Where others connect to."""

from __future__ import absolute_import

from sorrel.common.originals import time
from sorrel.protocol.descriptors import above_streams, Descriptor
from sorrel.server.network.connection import will_pass

# How long nobody is let in when the system allows no more connections, in seconds.
_CROWDED_PAUSE = 1.0
# Taken now: a program may replace what the interpreter's modules offer.
_now = time.time


class Door(object):
    """descriptor: the listener's. closed_until: when to look at it again."""

    def __init__(self, listener):
        self.descriptor = Descriptor(listener)
        self.closed_until = 0.0

    def let_in(self):
        """The socket of the next one who has come; None where there is nobody."""
        try:
            return above_streams(self.descriptor.socket.accept)[0]
        except EnvironmentError as error:
            if not will_pass(error):
                self.closed_until = _now() + _CROWDED_PAUSE
            return None
