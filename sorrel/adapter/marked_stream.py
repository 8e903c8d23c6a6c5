"""What a launched program writes to one of its streams, in parts: from mark to mark."""

from __future__ import absolute_import

import codecs
import os
import select
import time

from sorrel.protocol import output_marks

_READ_AT_ONCE = 65536
# How long the message that belongs to a mark is waited for, in seconds: it may have been left out.
_MESSAGE_PATIENCE = 1.0


class MarkedStream(object):
    """name: 'stdout' or 'stderr'.

    is_unfinished: whether what has come last may be the beginning of a mark.
    """

    def __init__(self, pipe, name, word):
        """word: the one in the marks."""
        self.name = name
        self.is_unfinished = False
        self._descriptor = pipe.fileno()
        self._word = word
        self._pattern = output_marks.pattern(word)
        self._decoder = codecs.getincrementaldecoder('utf-8')('replace')
        self._is_at_end = False
        # Read, but not taken; and whether there may be a whole mark in it.
        self._held = ''
        self._may_have_mark = False
        # The number of the last mark that is no reason to wait, and since when it waits at another.
        self._passed = 0
        self._at, self._since = 0, None

    def fileno(self):
        return self._descriptor

    def is_waiting(self):
        """Whether what follows is to come after a message that is still to come."""
        if self._at > self._passed and time.time() > self._since + _MESSAGE_PATIENCE:
            self.go_past(self._at)
        return self._at > self._passed

    def is_before(self, number):
        """Whether the mark of this number is still to come."""
        return max(self._at, self._passed) < number

    def go_past(self, number):
        self._passed = max(self._passed, number)

    def has_ended(self):
        """Whether all has been taken."""
        return self._is_at_end and not self._held

    def has_read_more(self):
        """Whether take() has more without anything being read, or waited for."""
        return self._may_have_mark and not self.is_waiting()

    def take(self, seconds):
        """What has been written, as text, up to a mark; waits so long for it. None for nothing."""
        if self.is_waiting():
            return None
        if not self._may_have_mark:
            if self._is_at_end or not select.select([self], [], [], seconds)[0]:
                return None
            data = os.read(self._descriptor, _READ_AT_ONCE)
            self._is_at_end = not data
            self._held += data
        return self._take_held()

    def take_unfinished(self):
        """What has turned out to be no mark."""
        if not self.is_unfinished:
            return u''
        self.is_unfinished = False
        return self._take_bytes(len(self._held))

    def _take_held(self):
        mark = self._pattern.search(self._held)
        self._may_have_mark = mark is not None
        if mark is None:
            unfinished = 0 if self._is_at_end \
                else output_marks.unfinished(self._held, self._word)
            self.is_unfinished = unfinished > 0
            return self._take_bytes(len(self._held) - unfinished)
        self.is_unfinished = False
        self._at, self._since = int(mark.group(1), 16), time.time()
        before = self._take_bytes(mark.start())
        self._held = self._held[mark.end() - mark.start():]
        return before

    def _take_bytes(self, size):
        taken, self._held = self._held[:size], self._held[size:]
        return self._decoder.decode(taken, self._is_at_end and not self._held)
