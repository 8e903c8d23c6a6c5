"""The processes that are debugged together: the program, and what it has forked or started.

They share a folder, which says who they are. A file there is mapped into the memory of each, and
of each process that one of them forks: so those are known, too, that have not said a word yet, and
one that has ended, or has become another program, is not taken for what it was.
"""

from __future__ import absolute_import

import errno
import mmap
import os
import shutil
import signal
import stat
import struct

import _sorrel

from sorrel.common import temporary
from sorrel.common.originals import time

_PREFIX = 'sorrel-tree-'
_FRONT, _FIRST, _FOLLOW, _LET_GO = 'front', 'first', 'follow', 'let-go-%d'
ALL, PARENT, CHILD = 'all', 'parent', 'child'
_SIZE = struct.calcsize('i')
# In place of the process in front: all are to end.
_END = -1
# How long the others and then the first process may take for that, and all others to meet with
# Ctrl-C, and for how long a folder is left alone that nobody seems to need, in seconds.
_KILL_PATIENCE = 5.0
_END_PATIENCE = 1.0
_INTERRUPT_PATIENCE = 1.0
_NEW = 60.0
_LOOK = 0.005
_DELETED = ' (deleted)'
# Taken now: a program may replace what the interpreter's modules offer.
_now, _sleep, _getpid, _open = time.time, time.sleep, os.getpid, open


class Process(object):
    """One that has said who it is. place: where it has stopped and waits; '' while it runs."""

    def __init__(self, pid, name, place):
        self.pid = pid
        self.name = name
        self.place = place


class Tree(object):
    """folder: what the processes share. first: the id of the first of them."""

    def __init__(self, folder=None):
        """folder: that of the tree, for a process that is not the first."""
        self.folder = folder or _new_folder()
        self._front = self._map_front()
        if folder is None:
            self.write(_FIRST, str(_getpid()))
        self.first = self.read_number(_FIRST)

    def register(self, name, place=''):
        """The calling process takes part, or is somewhere else now."""
        self.write(str(_getpid()), '%s\n%s' % (name, place))

    def unregister(self):
        """It ends, or runs on alone. The last one clears up."""
        self.remove(str(_getpid()))
        others = self.processes()
        if self.front() == _getpid():
            self._wait_for_interrupts(others)
            self._set_front(others[0].pid if others else 0)
        # Some may still have to find out that they are let go.
        if not self._registered() and not self._members():
            self._clear_up()

    def _registered(self):
        return [int(name) for name in self._names() if name.isdigit() and self.has(int(name))]

    def is_kept_by_parent(self):
        """Whether there is another process that most likely outlives the calling one."""
        return os.path.exists(self._path(str(os.getppid())))

    def processes(self):
        """Those that have said who they are, by their ids."""
        found = []
        for pid in sorted(self._registered()):
            if not self.is_let_go(pid):
                written = self.read(str(pid)).partition('\n')
                found.append(Process(pid, written[0], written[2]))
        return found

    def has(self, pid):
        """Whether a process that has said who it is is still there."""
        mapped = _mapped_files(pid)
        return _is_there(pid) if mapped is None else self._path(_FRONT) in mapped

    def end_others(self):
        """Ends all but the calling process: the first one with exit status 0, if it can."""
        first = self.first
        if first == _getpid() or first is None or self.is_let_go(first):
            first = None
        else:
            # Before the others: it would go on when it hears of their ends.
            _ignore_hangup()
            self._set_front(_END)
            _send(first, signal.SIGINT)
        end = _now() + _END_PATIENCE
        others = self._members()
        while others and _now() < end + _KILL_PATIENCE:
            for pid in others:
                if pid != first or _now() > end:
                    _send(pid, signal.SIGKILL)
            _sleep(_LOOK)
            # Each time there may be more of them.
            others = self._members()
        self._clear_up()

    # Which of them are debugged.

    def follow(self, whom):
        """whom: ALL, or which process of two is debugged after a fork."""
        self.write(_FOLLOW, whom)

    def followed(self):
        return self.read(_FOLLOW) or ALL

    def let_go(self, pid):
        """This process is not to be debugged any more."""
        self.write(_LET_GO % pid, '')

    def is_let_go(self, pid):
        return _LET_GO % pid in self._names()

    def take_back(self):
        """The calling process has become another program since."""
        self.remove(_LET_GO % _getpid())

    def has_new_child(self):
        """Whether the calling process has forked one that has not said a word yet."""
        known = self._names()
        return bool([pid for pid in self._members()
                     if str(pid) not in known and _parent(pid) == _getpid()])

    def _members(self, *left_out):
        """The ids of the others, of those as well that have not said a word yet."""
        names = self._names()
        pids = set(self._registered())
        if self.followed() != PARENT:
            pids.update(pid for pid in _all_processes()
                        if self._path(_FRONT) in (_mapped_files(pid) or ()))
        return [pid for pid in pids.difference([_getpid()]).difference(left_out)
                if _LET_GO % pid not in names]

    # Ctrl-C, which comes to all of them.

    def front(self):
        """The process that it is for; 0 for none."""
        return struct.unpack('i', self._front[:_SIZE])[0]

    def come_to_front(self):
        """From now on it is for the calling process."""
        self._set_front(_getpid())

    def guard_interrupts(self):
        """It does something in the process in front alone, whichever that is when it comes."""
        return _sorrel.guard_interrupts(self._front)

    def _wait_for_interrupts(self, processes):
        """On a busy machine one may have come to them that they have not met with yet: it was for
        the calling process."""
        end = _now() + _INTERRUPT_PATIENCE
        for process in processes:
            while _has_pending(process.pid, signal.SIGINT) and _now() < end:
                _sleep(_LOOK)

    def _set_front(self, pid):
        self._front[:_SIZE] = struct.pack('i', pid)

    def _map_front(self):
        number = os.open(self._path(_FRONT), os.O_RDWR | os.O_CREAT, 0600)
        try:
            os.ftruncate(number, _SIZE)
            return mmap.mmap(number, _SIZE)
        finally:
            os.close(number)

    # What else they share.

    def read(self, name):
        try:
            source = _open(self._path(name))
        except IOError:
            return ''
        try:
            return source.read()
        finally:
            source.close()

    def read_number(self, name):
        written = self.read(name)
        return int(written) if written.isdigit() else None

    def write(self, name, text):
        """At once: whoever reads it sees all of it or what was there before."""
        path = self._path(name)
        made = '%s.%d' % (path, _getpid())
        try:
            output = _open(made, 'w')
            output.write(text)
            output.close()
            os.rename(made, path)
        except EnvironmentError:
            pass  # Somebody has removed the folder, or the device is full.

    def remove(self, name):
        try:
            os.unlink(self._path(name))
        except OSError:
            pass

    def open_lock(self, name):
        """A file to be locked; None where there is none now. Any will do where the folder is gone."""
        try:
            return _open(self._path(name), 'w')
        except IOError:
            return None if os.path.isdir(self.folder) else _open(os.devnull, 'w')

    def age(self, name):
        """How long ago it was written, in seconds; None for nothing written."""
        try:
            return _now() - os.stat(self._path(name)).st_mtime
        except OSError:
            return None

    def _path(self, name):
        return os.path.join(self.folder, name)

    def _names(self):
        try:
            return os.listdir(self.folder)
        except OSError:
            return []  # Somebody has removed it.

    def _clear_up(self):
        shutil.rmtree(self.folder, ignore_errors=True)


def _new_folder():
    """For this user alone."""
    place = os.path.realpath(temporary.place())
    _clear_up_after_killed(place)
    return temporary.new_folder(_PREFIX, place)


def _clear_up_after_killed(place):
    """Where all processes of a tree were killed, nobody has removed their folder."""
    found = []
    for name in os.listdir(place):
        path = os.path.join(place, name)
        if name.startswith(_PREFIX) and _is_old_and_own(path):
            found.append(path)
    if not found:
        return
    mapped = set()
    for pid in _all_processes():
        mapped.update(_mapped_files(pid) or ())
    for path in found:
        if os.path.join(path, _FRONT) not in mapped:
            shutil.rmtree(path, ignore_errors=True)


def _is_old_and_own(folder):
    try:
        status = os.lstat(folder)
    except OSError:
        return False
    return stat.S_ISDIR(status.st_mode) and status.st_uid == os.getuid() \
        and _now() - status.st_mtime > _NEW


def _all_processes():
    """The ids of those there are; of none where the system does not say."""
    try:
        return [int(name) for name in os.listdir('/proc') if name.isdigit()]
    except OSError:
        return []


def _mapped_files(pid):
    """The files that are mapped into its memory; None where the system does not say."""
    try:
        source = _open('/proc/%d/maps' % pid)
    except IOError as error:
        return () if error.errno == errno.ENOENT and os.path.exists('/proc/self') else None
    try:
        lines = source.read().split('\n')
    except IOError as error:
        return () if error.errno == errno.ESRCH else None
    finally:
        source.close()
    files = [line[line.index('/'):] for line in lines if '/' in line]
    return [name[:-len(_DELETED)] if name.endswith(_DELETED) else name for name in files]


def _is_there(pid):
    """Whether it runs: one that has ended may still be waited for by its parent."""
    try:
        os.kill(pid, 0)
    except OSError as error:
        return error.errno == errno.EPERM
    return not _state(pid).startswith('Z')


def _parent(pid):
    return int((_state(pid).split() + [0, 0])[1])


def _state(pid):
    """From its state on, what the system says of a process; '' where it does not."""
    return _said_of(pid, 'stat').rpartition(')')[2].strip()


def _has_pending(pid, number):
    """Whether a signal has come to a process that has not met with it yet."""
    pending = _said_of(pid, 'status').partition('\nShdPnd:')[2].split()
    return bool(pending) and int(pending[0], 16) >> (number - 1) & 1 == 1


def _said_of(pid, name):
    """What is in the system's file of this name about a process; '' where that says nothing."""
    try:
        source = _open('/proc/%d/%s' % (pid, name))
    except IOError:
        return ''
    try:
        return source.read()
    except IOError:
        return ''  # It has ended meanwhile.
    finally:
        source.close()


def _ignore_hangup():
    """The terminal may go with the first process."""
    try:
        signal.signal(signal.SIGHUP, signal.SIG_IGN)
    except ValueError:
        pass  # Not in the main thread: the signal is for all of them.


def _send(pid, number):
    try:
        os.kill(pid, number)
    except OSError:
        pass  # It has ended by itself.
