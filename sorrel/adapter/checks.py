"""What is looked at before a program is started: whether all that it needs for that is there.

One in a terminal of the client's could not tell the client itself.
"""

from __future__ import absolute_import

import errno
import os
import re
import select
import subprocess
import time

from sorrel.adapter import interpreters
from sorrel.protocol.messages import Refused

_TELL_VERSION = 'import sys; sys.stdout.write("version %d.%d;" % tuple(sys.version_info)[:2])'
_VERSION = re.compile(r'version (\d+\.\d+);')
# How long an interpreter may take to begin, in seconds, and how much it is read of.
_PATIENCE = 10.0
_ANSWER_SIZE = 1000


def check_folder(path):
    """That a program can be started in it. Raises Refused."""
    if not os.path.exists(path):
        raise Refused('cwd does not exist: %s' % path)
    if not os.path.isdir(path):
        raise Refused('cwd is not a folder: %s' % path)


def check_program(path, folder):
    """path: as given, from the folder on. Raises Refused."""
    try:
        os.stat(os.path.join(folder, path))
    except EnvironmentError as error:
        place = '' if os.path.isabs(path) else ' in ' + folder
        raise Refused("can't open program '%s'%s: %s" % (path, place, error.strerror))


def check_interpreter(python, environment, folder):
    """python: as a client names it for what is started so. Raises Refused."""
    path = found(python, environment, folder)
    if path is None:
        raise Refused('no such interpreter: %s' % python)
    if os.path.realpath(path) == os.path.realpath(interpreters.own()):
        return
    version = version_of(path, environment, folder)
    if version is None:
        raise Refused('%s is no Python; 2.6 or 2.7 is needed' % path)
    if version not in ('2.6', '2.7'):
        raise Refused('%s is Python %s; 2.6 or 2.7 is needed' % (path, version))


def found(name, environment, folder):
    """The path of a program; None where there is none."""
    folders = [''] if '/' in name else environment.get('PATH', os.defpath).split(os.pathsep)
    for one in folders:
        path = os.path.join(folder, one, name)
        if os.path.isfile(path) and os.access(path, os.X_OK):
            return path
    return None


def version_of(path, environment, folder):
    """Such as '2.7'; None for what is no Python."""
    said = said_by([path, '-E', '-c', _TELL_VERSION], environment, folder, _VERSION, _ANSWER_SIZE)
    return said and said.group(1)


def said_by(command, environment, folder, expected, most):
    """The match of what is expected, as a pattern, in what the command writes; None where it does
    not say so in time, or within so many letters."""
    try:
        nothing = open(os.devnull, 'r+')
        try:
            process = subprocess.Popen(
                command, env=environment, cwd=folder, stdin=nothing, stdout=subprocess.PIPE,
                stderr=nothing, close_fds=True)
        finally:
            nothing.close()
    except EnvironmentError:
        return None
    said = expected.search(_read(process.stdout.fileno(), expected, most))
    if process.poll() is None:
        process.kill()
    process.wait()
    process.stdout.close()
    return said


def _read(output, expected, most):
    """What is written there within the time there is, up to what an answer can be."""
    until = time.time() + _PATIENCE
    written = ''
    while len(written) < most and not expected.search(written):
        try:
            ready = select.select([output], [], [], max(0.0, until - time.time()))[0]
            more = os.read(output, most) if ready else ''
        except (OSError, select.error) as error:
            if error.args[0] == errno.EINTR:
                continue
            more = ''
        if not more:
            break
        written += more
    return written
