"""Which lines are commands. Any other line is a statement: "n = 1" sets a variable."""

from __future__ import absolute_import

import re

ALIASES = {
    's': 'step', 'n': 'next', 'r': 'return', 'c': 'continue', 'cont': 'continue', 'unt': 'until',
    'w': 'where', 'bt': 'where', 'u': 'up', 'd': 'down', 'l': 'list', 'a': 'args', 'p': 'print',
    'pretty-print': 'pp', 'b': 'break', 'cl': 'clear', 'h': 'help', 'q': 'quit', 'exit': 'quit'}

# What may follow a command.
_NOTHING = r'$'
_COUNT = r'\d*$'
_LINES = r'(\d+(\s*,\s*|\s+)?(\d+)?)?$'
_WORDS = r'$|\w|\$bpnum\b'
_WORDS_OR_PATH = r'$|\w|\$bpnum\b|~|\.{0,2}[/\\]'
_EXPRESSION = r'(?!=[^=])'
# A file is told from the attribute of a variable by its first characters.
_PLACE = r'(((\.{0,2}[/\\]|[\w~])[^=]*:\s*)?\w[\w.]*\s*(,.*)?)?$'
_ARGUMENTS = {
    'step': _NOTHING, 'next': _NOTHING, 'return': _NOTHING, 'continue': _NOTHING,
    'until': _NOTHING, 'where': _NOTHING, 'up': _COUNT, 'down': _COUNT, 'list': _LINES,
    'args': _NOTHING, 'break': _PLACE, 'tbreak': _PLACE, 'clear': _WORDS_OR_PATH,
    'delete': _WORDS, 'enable': _WORDS, 'disable': _WORDS, 'ignore': _WORDS, 'condition': _WORDS,
    'catch': _WORDS, 'commands': _WORDS, 'logpoint': _PLACE, 'save': r'breakpoints\s+\S',
    'threads': _NOTHING, 'thread': _COUNT, 'modules': _NOTHING,
    'processes': _NOTHING, 'process': _COUNT, 'follow': r'(parent|child|all)?$',
    'quit': r'(\(\))?$'}


def is_command(name, argument):
    return re.match(_ARGUMENTS.get(name, _EXPRESSION), argument) is not None
