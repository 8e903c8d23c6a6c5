"""Scripts and commands that set up an environment and then become an interpreter.

What runs the program is the launcher that is built for that interpreter: the wrapper is run once
before, with the interpreter asked what it has become.
"""

from __future__ import absolute_import

import ast
import re

from sorrel.adapter import checks
from sorrel.common.records import record
from sorrel.processes import commands

_TELL = ('import sys, posix; sys.stdout.write('
         '"[sorrel" + repr((sys.executable, posix.environ.items())) + "sorrel]")')
_TOLD = re.compile(r'\[sorrel(.*)sorrel\]', re.DOTALL)
_MOST_TOLD = 4 * 1024 * 1024
_EXECUTABLE = '\x7fELF'
# What shells set for themselves.
_OF_SHELLS = frozenset(('_', 'PWD', 'OLDPWD', 'SHLVL'))

# python: the interpreter and its options. variables: what is to be set in the environment, and None
# for what is to be removed from it.
Wrapped = record('Wrapped', 'python variables')


def unwrapped(python, environment, folder):
    """What the words for an interpreter come down to, a Wrapped; None where that is themselves."""
    words = [word.encode('utf-8') for word in python]
    path = checks.found(words[0], environment, folder)
    if path is None or not _may_wrap(path, words, environment, folder):
        return None
    command, options = _parts(words)
    told = checks.said_by(
        [path] + command[1:] + ['-c', _TELL], environment, folder, _TOLD, _MOST_TOLD)
    if told is None:
        return None
    try:
        interpreter, variables = ast.literal_eval(told.group(1))
        variables = _changes(environment, dict(variables))
    except (SyntaxError, TypeError, ValueError):
        return None  # Something else has written that.
    if not interpreter:
        return None
    return Wrapped([word.decode('utf-8') for word in [interpreter] + options], variables)


def _may_wrap(path, words, environment, folder):
    """Whether it is not the interpreter itself."""
    if not _is_compiled(path):
        return True
    options = words[1:]
    # What follows an interpreter and is no option is a program, which is not to be run here.
    return commands.options_of(options) != options \
        and checks.version_of(path, environment, folder) is None


def _is_compiled(path):
    try:
        program = open(path, 'rb')
    except EnvironmentError:
        return True
    try:
        return program.read(len(_EXECUTABLE)) == _EXECUTABLE
    finally:
        program.close()


def _parts(words):
    """(the command, the options of the interpreter that it becomes)."""
    for at in range(1, len(words)):
        if commands.options_of(words[at:]) == words[at:]:
            return words[:at], words[at:]
    return words, []


def _changes(before, after):
    return dict((name, after.get(name)) for name in set(before) | set(after)
                if before.get(name) != after.get(name) and name not in _OF_SHELLS)
