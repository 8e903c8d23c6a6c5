"""Sees to it that a launched program does not outlive whoever has launched it.

That may be killed without a word. The guard is a small process beside it which reads from it: at
the end of what there is to read, the program and what it has started are to end as well, and what
they have been found by is to go.
"""

from __future__ import absolute_import

import os
import subprocess

# What a process that is to have a group of its own, and no terminal, calls first.
OWN_SESSION = getattr(os, 'setsid', None)  # Another platform has no groups to guard.
# How long the program may take to end, in seconds; it has been asked to by then.
PATIENCE = 5.0
_LOOK = 0.1
# Its arguments: the process, what is killed in the end (a process, or a group after a minus), how
# often to look, and a folder that goes then, or nothing. It runs on its own, so that it is in
# nobody's tree of processes.
_SCRIPT = '''
exec 3<&0
(
    trap '' HUP INT TERM
    read -r word <&3
    [ "$word" = leave ] && exit
    looks=$3
    while [ "$looks" -gt 0 ] && kill -0 "$1"; do
        sleep %s
        looks=$((looks - 1))
    done
    kill -s KILL -- "$2"
    [ -z "$4" ] || rm -rf -- "$4"
) &
''' % _LOOK


class Guard(object):

    def __init__(self, pid, folder=None):
        """pid: the program's process. Of a group of its own, all of the group are guarded.

        folder: one that is nobody's any more when they have ended.
        """
        self._pipe = None
        if OWN_SESSION is None:
            return
        victim = -pid if _group_of(pid) == pid else pid
        nothing = open(os.devnull, 'w')
        try:
            shell = subprocess.Popen(
                ['/bin/sh', '-c', _SCRIPT, 'sh', str(pid), str(victim), str(int(PATIENCE / _LOOK)),
                 folder or ''],
                stdin=subprocess.PIPE, stdout=nothing, stderr=nothing, close_fds=True, cwd='/',
                preexec_fn=OWN_SESSION)
        except EnvironmentError:
            return  # No more processes: the program will still be asked to end.
        finally:
            nothing.close()
        self._pipe = shell.stdin
        shell.wait()

    def leave(self):
        """The program may run on, and so may what it has started."""
        self._close('leave\n')

    def end(self):
        """The program is about to end: it has a while for that, then is killed.

        What it has started is killed as soon as it has ended.
        """
        self._close('')

    def _close(self, word):
        pipe, self._pipe = self._pipe, None
        if pipe is not None:
            try:
                pipe.write(word)
                pipe.close()
            except IOError:
                pass  # Somebody has killed the guard.


def _group_of(pid):
    try:
        return os.getpgid(pid)
    except OSError:
        return None  # It has ended.


def have_own_group():
    """For the program: what it starts is to be known by a group of processes.

    A terminal has given it one already. Without a terminal a new one has no drawbacks.
    """
    if OWN_SESSION is None or os.getpgrp() == os.getpid():
        return
    try:
        os.close(os.open('/dev/tty', os.O_RDWR | os.O_NOCTTY))
    except OSError:
        OWN_SESSION()
