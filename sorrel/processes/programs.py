"""New programs that the program starts, which are to be debugged as well.

All that starts one through the interpreter's library (subprocess, os.spawn*, os.execlp, pty, a
program that starts itself again) comes to `execv` or `execve` in the module `os` in the end, or to
`system` or `popen` there. While this is installed a callable stands there that starts a program of
Python 2 by other words, so that it runs the same under the server (sorrel/child.py). It is called in
processes that were forked a moment ago: it takes no lock, and what it needs is imported by now.
"""

from __future__ import absolute_import

import os
import posix
import sys
from UserDict import UserDict

import _sorrel
import tmorvik26_vs2012_x64 as core

from sorrel.common.records import record
from sorrel.processes import commands, executables, shell_commands
from sorrel.processes.replacements import Replacement, replace

_STARTER = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), 'child.py')
_VARIABLE = 'SORREL_CHILD'
# What a new program needs to run under the server.
_FILES = [os.path.abspath(module.__file__) for module in (core, _sorrel)]
# Taken now: a program may replace what the interpreter's modules offer.
_execv, _execve, _system, _popen = posix.execv, posix.execve, posix.system, posix.popen
_SHELLS = frozenset(('sh', 'dash', 'bash', 'ksh', 'zsh'))
_putenv, _unsetenv = os.putenv, os.unsetenv

# What a new program is told. front_end: the name of a module, by default of none. Its
# begin_child(script, text) is called when all is ready to run the program, a runner.Script, and
# returns (the Service of that process, whether it stops at the program's first line).
# Without one the program runs with a service that whoever comes later can take.
Settings = record('Settings', 'front_end text')


def install(describe):
    """From now on. describe: called before a program is started, with its name: that of its file or
    its module, or "-c". Returns its Settings, or None for one that is to be left alone. It is called
    between fork and exec, too."""
    remove()

    def execv(*args):
        if len(args) == 2:
            _start(describe, *args)
        return args

    def execve(*args):
        if len(args) == 3 and args[2] is not None:
            _start(describe, *args)
        return args

    def by_shell(*args):
        if args and isinstance(args[0], basestring):
            return (_with_others(describe, args[0], os.environ),) + args[1:]
        return args
    _replacements[:] = map(Replacement, _ORIGINALS, (execv, execve, by_shell, by_shell))
    replace(_ORIGINALS, _replacements)
    for path in (sys.executable, '/proc/self/exe'):
        # Forked processes know the answer then.
        executables.is_host(path, os.environ)


def remove():
    """Everything is as it was, but for what the program has put in place meanwhile."""
    replace(_replacements, _ORIGINALS)


_ORIGINALS = _execv, _execve, _system, _popen
_replacements = []


def _start(describe, path, argv, environment=None):
    """Does not return where it has started the program under the server."""
    try:
        found = _rewritten(describe, path, argv, environment)
    except Exception:
        return
    if found is None:
        return
    path, words, settings = found
    try:
        if environment is not None:
            environment = dict(environment)
            if settings is not None:
                environment[_VARIABLE] = settings
            _execve(path, words, environment)
        if settings is None:
            _execv(path, words)
        # What the process has is more than os.environ knows of.
        _putenv(_VARIABLE, settings)
        try:
            _execv(path, words)
        finally:
            _unsetenv(_VARIABLE)
    except (EnvironmentError, TypeError):
        pass  # Too long, perhaps, with more than before.


def _rewritten(describe, path, argv, environment):
    """(path, argv, settings as text) to start instead; None where it is to be left alone.

    The settings are None where the words hold them.
    """
    if not isinstance(argv, (list, tuple)) or not isinstance(
            environment, (type(None), dict, UserDict)):
        return None
    words = [_as_bytes(word) for word in argv]
    known = os.environ if environment is None else environment
    path = _as_bytes(path)
    if words[1:2] == ['-c'] and len(words) > 2 and os.path.basename(path) in _SHELLS:
        text = _with_others(describe, words[2], known)
        return None if text == words[2] else (path, words[:2] + [text] + words[3:], None)
    command = commands.find(path, words, known, executables.is_host)
    if command is None:
        return None
    settings = _settings_for(describe, command)
    if settings is None:
        return None
    return command.executable, commands.words_of(command, _STARTER), settings


def _with_others(describe, text, environment):
    """The text of a shell's commands, with those that can be debugged started by other words."""
    def start(words, is_here):
        if '/' in words[0] and not words[0].startswith('/') and not is_here:
            return None
        path = commands.on_path(words[0], environment)
        command = path and commands.find(path, words, environment, executables.is_host)
        settings = command and _settings_for(describe, command)
        if not settings:
            return None
        number = len(words) - len(command.arguments)
        words = [command.executable] + commands.words_of(
            command._replace(arguments=[]), _STARTER)[1:]
        return '%s=%s %s' % (_VARIABLE, shell_commands.quoted(settings), ' '.join(
            map(shell_commands.quoted, words))), number
    try:
        return shell_commands.rewritten(_as_bytes(text), start)
    except Exception:
        return text


def _settings_for(describe, command):
    """What goes by the variable; None where the command is to be left alone."""
    settings = describe(os.path.basename(command.what) if command.kind == commands.SCRIPT
                        else command.what if command.kind == commands.MODULE else command.kind)
    if settings is None:
        return None
    # There may be another root by now, or another user.
    if [name for name in _FILES + [_STARTER] if '\n' in name or not os.access(name, os.R_OK)]:
        return None
    return '\n'.join(_FILES + [settings.front_end or '', settings.text])


def _as_bytes(word):
    """As the system gets it. Raises TypeError or UnicodeError where it would not."""
    if isinstance(word, unicode):
        word = word.encode(sys.getfilesystemencoding() or sys.getdefaultencoding())
    if not isinstance(word, str) or '\0' in word:
        raise TypeError('not a word of a command')
    return word
