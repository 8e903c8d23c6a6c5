"""How a process was started, so that it can start once more in its own place."""

from __future__ import absolute_import

import os
import signal

try:
    import fcntl
except ImportError:
    fcntl = None  # Another platform, where nothing begins again.

from sorrel.common.records import record

_SELF = '/proc/self/exe'
# Taken now: a program may replace what the interpreter's modules offer.
_execve = os.execve

# words: its command line. environment: what it began with. ignored: the signals that it ignored.
Beginning = record('Beginning', 'words environment folder mask ignored')


def of_this_process():
    """The Beginning of a process that has hardly begun; None where the system does not say."""
    try:
        words = command_line()
        environment = dict([entry.partition('=')[::2] for entry in _said('environ')])
        folder = os.getcwd()
    except EnvironmentError:
        return None
    mask = os.umask(077)
    os.umask(mask)
    return Beginning(words, environment, folder, mask, _ignored())


def command_line():
    """The words that the interpreter was started with. Raises EnvironmentError."""
    return _said('cmdline')


def begin_again(beginning, **variables):
    """Does not return. variables: what is added to the environment. Raises EnvironmentError.

    What the program has open is closed then, but for standard input, output and errors.
    """
    os.chdir(beginning.folder)
    for name in os.listdir('/proc/self/fd'):
        if int(name) > 2:
            _close_with_exec(int(name))
    signal.setitimer(signal.ITIMER_REAL, 0)
    try:
        for number in _ignored().difference(beginning.ignored):
            signal.signal(number, signal.SIG_DFL)
    except ValueError:
        pass  # Only the main thread can: the program will ignore them from its beginning on.
    os.umask(beginning.mask)
    _execve(_SELF, beginning.words, dict(beginning.environment, **variables))


def _said(name):
    source = open('/proc/self/' + name)
    try:
        return source.read().split('\0')[:-1]
    finally:
        source.close()


def _ignored():
    return set([number for number in range(1, signal.NSIG)
                if signal.getsignal(number) == signal.SIG_IGN])


def _close_with_exec(number):
    try:
        fcntl.fcntl(number, fcntl.F_SETFD, fcntl.FD_CLOEXEC)
    except EnvironmentError:
        pass  # It was that of the folder that is being read.
