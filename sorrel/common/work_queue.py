"""Work handed from one thread to another."""

from __future__ import absolute_import

import collections

from sorrel.common.originals import thread

# Taken now: a program may replace what the interpreter's modules offer.
_new_lock = thread.allocate_lock


class WorkQueue(object):

    def __init__(self):
        self._items = collections.deque()
        self._closed = False
        # Locked while there is nothing to take.
        self._filled = _new_lock()
        self._filled.acquire()

    def put(self, item):
        """Whether anybody will take it."""
        # No lock is needed: one thread takes, and looks at what is there after closing.
        self._items.append(item)
        if self._closed:
            try:
                self._items.remove(item)
            except ValueError:
                return True  # It was among what close() gave back.
            return False
        self._signal()
        return True

    def take(self):
        """The next item, waiting for it as long as it takes."""
        while not self._items:
            self._filled.acquire()
        return self._items.popleft()

    def close(self):
        """Nothing is taken any more; returns what was not."""
        self._closed = True
        left = []
        try:
            while True:
                left.append(self._items.popleft())
        except IndexError:
            return left

    def _signal(self):
        try:
            self._filled.release()
        except thread.error:
            pass  # Not waiting, or already told.
