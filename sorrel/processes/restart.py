"""Options of the interpreter's that count only when it starts: it is started anew with them."""

from __future__ import absolute_import

import os
import sys

import tmorvik26_vs2012_x64 as core

from sorrel.processes import beginnings, commands

_STARTER = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), 'start.py')


class CannotRestart(Exception):
    """The text says in one line what to do instead."""


def with_options(options, start_words):
    """Returns where the interpreter was started with these options; else the process becomes such a
    one, which runs the same command line. Raises CannotRestart.

    options: words, one for each. start_words: the command line, for sorrel.main.start().
    """
    try:
        words = beginnings.command_line()
        given = commands.options_of(words[1:])
        if given is not None and given[len(given) - len(options):] == options:
            return
        if given is not None:
            folder = os.path.dirname(os.path.abspath(core.__file__))
            os.execv(os.readlink('/proc/self/exe'),
                     words[:1] + given + options + [_STARTER, folder] + start_words)
    except EnvironmentError:
        pass
    raise CannotRestart('%s is for the interpreter itself: %s %s -m sorrel ...' % (
        options[0], os.path.basename(sys.executable), ' '.join(options)))
