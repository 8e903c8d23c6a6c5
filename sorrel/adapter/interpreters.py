"""Which interpreter runs what the adapter starts, and what with."""

from __future__ import absolute_import

import glob
import os
import re
import sys

from sorrel.protocol.messages import Refused

_FOLDER = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
# In a checkout. What is installed has none.
MORVIK = os.path.join(_FOLDER, 'morvik')
_PYTHON_2 = re.compile(r'python(2|[^0-9]|$)')
_LAUNCHER = 'morvik-python'
_HOST = re.compile(r'^MORVIK_PYTHON:FILEPATH=(.*)$', re.MULTILINE)


def command(arguments, interpreter, may_build=False):
    """The words before what it is to run, where a client's request has these arguments.

    interpreter: the one that is meant where they name none. may_build: whether Morvik is built for
    one that has nothing else, where they do not say. Raises Refused.
    """
    python = named(arguments) or interpreter
    if os.path.exists(MORVIK):
        return [MORVIK, 'python'] + _extent_of_build(arguments.get('build'), may_build) + [
            '--python', python, '--']
    if arguments.get('build'):
        raise Refused('there is nothing here that could be built: Morvik is installed')
    return [python]


def _extent_of_build(wanted, may_build):
    """Options of the morvik command. wanted: by the client; None where it does not say."""
    if wanted:
        return []
    return ['--as-is', '--or-build'] if wanted is None and may_build else ['--as-is']


def named(arguments):
    """The one that a request names; None for none."""
    return arguments['python'][0].encode('utf-8') if arguments.get('python') else None


def options(arguments):
    """Those of the interpreter's that a request to launch has."""
    return arguments.get('python', [])[1:] + arguments.get('pythonArgs', [])


def command_of_person():
    """What a person types to run a program under the debugger."""
    return './morvik run' if os.path.exists(MORVIK) else 'python -m sorrel'


def own():
    """The one that runs the adapter."""
    return sys.executable


def of_process(pid):
    """The one that the process runs, or that of the adapter where that cannot be told."""
    try:
        path = os.readlink('/proc/%d/exe' % pid)
    except EnvironmentError:
        return own()
    folder, name = os.path.split(path)
    if name == _LAUNCHER:
        return _host_of_build(os.path.dirname(folder)) or own()
    # Of what only has an interpreter in it, nothing more is to be started.
    if not _PYTHON_2.match(name) or not os.access(path, os.X_OK):
        return own()
    # It may have been built for by another name.
    hosts = [_host_of_build(folder) for folder in glob.glob(os.path.join(_FOLDER, 'build', '*'))]
    return ([host for host in hosts if host and os.path.realpath(host) == path] or [path])[0]


def _host_of_build(folder):
    """What has been built in this folder is for this interpreter; None for nothing."""
    try:
        cache = open(os.path.join(folder, 'CMakeCache.txt'))
    except EnvironmentError:
        return None
    try:
        found = _HOST.search(cache.read())
    finally:
        cache.close()
    return found and found.group(1)
