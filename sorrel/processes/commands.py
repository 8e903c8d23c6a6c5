"""What a command runs, where it starts an interpreter of Python 2.

Commands are what execve() is given. Nothing here starts anything, and all of it may be called
between fork and exec.
"""

from __future__ import absolute_import

import os
import re

from sorrel.common.records import record
from sorrel.processes import executables

# What is run. As with the interpreter's options.
SCRIPT, MODULE, TEXT = '', '-m', '-c'

# Options without a value that a program runs the same with under the server.
_FLAGS = 'BEORSbdstuv'
# Those that are left alone: -h, -? and -V run nothing. -i asks a person at the standard input,
# where a terminal of the server's would be. -U makes all literals unicode, the server's as well,
# which has no library that could run with that, and -3 warns of what the server does, too. -x
# leaves out the first line of a script: it is for systems where that is something else.
_WITH_VALUE = 'cmQW'
_DIVISIONS = ('old', 'warn', 'warnall', 'new')

# How often a script may be run by another one. The kernel goes on for one more.
_SCRIPTS = 4
_BLANKS = ' \t'
_PLAIN_WORD = re.compile(r'[\w./+:@%,=-]+\Z')

# executable: what is to be started; name: its argv[0]; options: what remains before what is run, as
# given. kind, what: SCRIPT, MODULE or TEXT, and which one; arguments: what the program is given.
Command = record('Command', 'executable name options kind what arguments')


def words_of(command, starter):
    """The argv by which `starter`, a script, gets the same command for itself to run."""
    words = [command.name] + command.options + [starter]
    if command.kind != SCRIPT:
        words.append(command.kind)
    elif command.what.startswith('-'):
        words.append('--')
    return words + [command.what] + command.arguments


def find(path, argv, environment, is_host):
    """The Command that execve(path, argv, environment) comes to; None where it is left alone.

    is_host: called with the path of an executable and the environment, says whether that is an
    interpreter that the server can run in.
    """
    if not argv:
        return None
    for _ in range(_SCRIPTS):
        words = _by_first_line(path, argv)
        if words is None:
            break
        path, argv = _by_env(words, environment) or (words[0], words)
    if not is_host(path, environment):
        return None
    return _of_interpreter(path, argv, environment)


def options_of(words):
    """Those that an interpreter's command line begins with, without -m or -c; None for others."""
    found = _options(words, _FLAGS + '3ix')
    return None if found is None else found[0]


def _of_interpreter(path, argv, environment):
    """The Command of an interpreter's command line, read as its main program does."""
    found = _options(argv[1:])
    if found is None:
        return None
    options, has_own_environment, kind, rest = found
    # The interpreter takes a script that is called "-c" for text in part.
    if not rest or kind == SCRIPT and rest[0] in ('', '-', '-c'):
        return None
    if environment.get('PYTHONINSPECT') and not has_own_environment:
        return None
    return Command(path, argv[0], options, kind, rest[0], rest[1:])


def _options(words, flags=_FLAGS):
    """(options, whether -E is among them, kind, what follows); None where they are left alone."""
    has_own_environment = False
    at = 0
    while at < len(words):
        word = words[at]
        if word == '--':
            return words[:at], has_own_environment, SCRIPT, words[at + 1:]
        if not word.startswith('-') or word == '-':
            break
        for place in range(1, len(word)):
            letter = word[place]
            if letter in _WITH_VALUE:
                attached = word[place + 1:]
                if letter in 'cm':
                    options = words[:at] + (['-' + word[1:place]] if place > 1 else [])
                    rest = ([attached] if attached else []) + words[at + 1:]
                    return options, has_own_environment, '-' + letter, rest
                if not attached:
                    at += 1
                    if at == len(words):
                        return None
                    attached = words[at]
                if letter == 'Q' and attached not in _DIVISIONS:
                    return None
                break
            if letter not in flags:
                return None  # Also --help, --version.
            has_own_environment = has_own_environment or letter == 'E'
        at += 1
    return words[:at], has_own_environment, SCRIPT, words[at:]


def _longest_line():
    """How many bytes of a script's first line the kernel reads."""
    version = re.match(r'(\d+)\.(\d+)', os.uname()[2])
    is_new = version is not None and (int(version.group(1)), int(version.group(2))) >= (5, 1)
    return 255 if is_new else 127


_LONGEST_LINE = _longest_line()


def _by_first_line(path, argv):
    """What the kernel makes of a script that begins with #!; None where it does not."""
    text = executables.beginning(path, _LONGEST_LINE + 1)
    line, end, _ = text.partition('\n')
    if not line.startswith('#!') or not end and len(text) > _LONGEST_LINE or '\0' in line:
        return None  # A longer line would be read in part.
    words = line[2:].strip(_BLANKS)
    name = re.split('[%s]' % _BLANKS, words, 1)[0]
    if not name:
        return None
    option = words[len(name):].strip(_BLANKS)
    return [name] + ([option] if option else []) + [path] + argv[1:]


def _by_env(words, environment):
    """(path, argv) of what env starts; None where it is not env, or is more than that."""
    if os.path.basename(words[0]) != 'env' or len(words) < 3:
        return None
    option = words[1]
    if option.startswith('-S') and executables.mentions(words[0], 'split-string'):
        # Only some have it.
        split = option[2:].split()
        if not split or [word for word in split if not _PLAIN_WORD.match(word)]:
            return None
    else:
        split = [option]
    # It sets no variables and takes no options.
    if '=' in split[0] or split[0].startswith('-'):
        return None
    path = on_path(split[0], environment)
    return None if path is None else (path, split + words[2:])


def on_path(name, environment):
    """The file that a command of this name is; None for none."""
    if '/' in name:
        return name
    for folder in environment.get('PATH', '').split(':'):
        path = os.path.join(folder or '.', name)
        if os.path.isfile(path) and os.access(path, os.X_OK):
            return path
    return None
