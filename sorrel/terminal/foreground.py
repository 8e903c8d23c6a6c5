"""What a process makes of the terminal while it has the prompt, and leaves as it was.

Only the process group in the foreground can read from a terminal: a process that the program has
given a group of its own has to bring that to the foreground first.
"""

from __future__ import absolute_import

import errno
import marshal
import os

try:
    import termios
except ImportError:
    termios = None  # Another platform: there is one process there.

import _sorrel

_MODES, _GROUP = 'modes', 'group'


class Foreground(object):

    def __init__(self, tree, descriptor):
        """tree: the Tree of processes that have the terminal; descriptor: of the terminal."""
        self._tree = tree
        self._descriptor = descriptor
        # The process group that has the terminal while no process has the prompt.
        self._home = tree.read_number(_GROUP)

    def be_home(self):
        """The calling process, the first of the tree, is of the group that has the terminal."""
        self._home = os.getpgrp()
        self._tree.write(_GROUP, str(self._home))

    def enter(self):
        if not self._is_in_foreground() and self._is_of_tree(os.tcgetpgrp(self._descriptor)):
            _sorrel.set_foreground_group(self._descriptor, os.getpgrp())
        self.mend()
        try:
            modes = termios.tcgetattr(self._descriptor)
        except termios.error:
            return
        self._tree.write(_MODES, marshal.dumps(modes))

    def leave(self):
        self._tree.remove(_MODES)
        if self._home not in (None, os.getpgrp()) and self._is_in_foreground():
            _sorrel.set_foreground_group(self._descriptor, self._home)

    def mend(self):
        """Has the modes again that there were before a process was killed at its prompt."""
        modes = self._tree.read(_MODES)
        if modes and self._is_in_foreground():
            try:
                termios.tcsetattr(self._descriptor, termios.TCSADRAIN, marshal.loads(modes))
            except termios.error:
                pass
            self._tree.remove(_MODES)

    def _is_in_foreground(self):
        try:
            return os.tcgetpgrp(self._descriptor) == os.getpgrp()
        except OSError:
            return True  # A process with another terminal than the rest, or none, may do anything.

    def _is_of_tree(self, group):
        """Whether a process group is one of the tree, or of what has been killed."""
        if group == self._home:
            return True
        try:
            os.killpg(group, 0)
        except OSError as error:
            return error.errno == errno.ESRCH
        return group in [_group_of(process.pid) for process in self._tree.processes()]


def _group_of(pid):
    try:
        return os.getpgid(pid)
    except OSError:
        return None  # It has ended.
