"""Which of several processes talks to the person at the terminal: one at a time.

Who holds the lock on one file in the folder of their tree has the prompt; the system gives it back
for a process that is killed. Other files there say who had the prompt last, and who is to have it
next.
"""

from __future__ import absolute_import

import errno
import os

from sorrel.common.originals import time

try:
    import fcntl
except ImportError:
    fcntl = None  # Another platform: nothing is forked there.

# How often is looked whether it is one's turn, in seconds.
_LOOK = 0.02
# For how long the prompt is kept for a process that takes a step.
_STEP_TIME = 1.0
_LOCK, _LAST, _NEXT, _STEPPING = 'prompt', 'last', 'next', 'stepping'
# Taken now: a program may replace what the interpreter's modules offer.
_sleep, _getpid = time.sleep, os.getpid


class Turns(object):

    def __init__(self, tree):
        """tree: the Tree of processes whose turns these are."""
        self._tree = tree
        self._held = None

    def take(self):
        """Waits for one's turn. Whether another process had the prompt before."""
        while self._held is None:
            self._held = self._try()
            if self._held is None:
                _sleep(_LOOK)
        last = self._tree.read_number(_LAST)
        self._tree.write(_LAST, str(_getpid()))
        self._tree.come_to_front()
        return last not in (None, _getpid())

    def give(self, is_step=False):
        """The prompt is free for whoever waits for it.

        is_step: whether the calling process is about to be back, and is to have it again then.
        """
        held, self._held = self._held, None
        if held is not None:
            if is_step:
                self._tree.write(_STEPPING, str(_getpid()))
            held.close()

    def give_to(self, pid):
        """The same, for this process, which waits."""
        self._tree.write(_NEXT, str(pid))
        self.give()

    def if_free(self, function):
        """Calls it where no process has the prompt; none gets it meanwhile."""
        held = self._try()
        if held is not None:
            try:
                function()
            finally:
                held.close()

    def is_in_front(self):
        """Whether the calling process has the prompt, or is the next best."""
        front = self._tree.front()
        if front == _getpid():
            return True
        others = self._tree.processes()
        return not self._tree.has(front) and others[:1] and others[0].pid == _getpid()

    def _try(self):
        """The lock file, locked, if it is one's turn."""
        held = self._tree.open_lock(_LOCK)
        if held is None:
            return None
        try:
            fcntl.lockf(held, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except IOError as error:
            held.close()
            if error.errno not in (errno.EACCES, errno.EAGAIN):
                raise
            return None
        if self._is_for_another():
            held.close()
            return None
        self._tree.write(_NEXT, '')
        self._tree.remove(_STEPPING)
        return held

    def _is_for_another(self):
        wanted = self._tree.read_number(_NEXT)
        if wanted not in (None, _getpid()) and self._waits(wanted):
            return True
        stepping = self._tree.read_number(_STEPPING)
        return stepping not in (None, _getpid()) and self._tree.has(stepping) and \
            self._tree.age(_STEPPING) < _STEP_TIME

    def _waits(self, pid):
        return bool([one for one in self._tree.processes() if one.pid == pid and one.place])
