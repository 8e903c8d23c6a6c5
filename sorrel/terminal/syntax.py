"""Which lines are commands. Any other line is a statement: "n = 1" sets a variable."""

from __future__ import absolute_import

import difflib
import keyword
import re

ALIASES = {
    's': 'step', 'n': 'next', 'r': 'return', 'c': 'continue', 'cont': 'continue', 'unt': 'until',
    'w': 'where', 'bt': 'where', 'u': 'up', 'd': 'down', 'l': 'list', 'a': 'args', 'p': 'print',
    'pretty-print': 'pp', 'b': 'break', 'cl': 'clear', 'h': 'help', 'q': 'quit', 'exit': 'quit',
    'll': 'longlist', 'j': 'jump', 'rv': 'retval', 'restart': 'run'}

_WORD = re.compile(r'(pretty-print\b|[^\W\d]\w*)(.*)$', re.DOTALL)

# What may follow a command.
_NOTHING = r'$'
_COUNT = r'\d*$'
_LINES = r'(\d+(\s*,\s*|\s+)?(\d+)?)?$'
_WORDS = r'$|\w|\$bpnum\b'
_WORDS_OR_PATH = r'$|\w|\$bpnum\b|~|\.{0,2}[/\\]'
# What only goes on with an expression, and begins none.
_BINARY = r'[=!]=|[<>|&^%,;=]|(in|is|and|or|if|not\s+in)\b'
_EXPRESSION = r'(?!%s|\.\D)' % _BINARY
# A file is told from the attribute of a variable by its first characters.
_PLACE = r'(((\.{0,2}[/\\]|[\w~])[^=]*:\s*)?\w[\w.]*\s*(,.*)?)?$'
_ARGUMENTS = {
    'step': _COUNT, 'next': _COUNT, 'return': _NOTHING, 'continue': _NOTHING,
    'until': _COUNT, 'jump': r'\d+$', 'where': r'((full\b)?\s*\d*|\d+\s+full)$', 'frame': _COUNT,
    'up': _COUNT, 'down': _COUNT, 'list': _LINES, 'longlist': _NOTHING, 'sticky': _NOTHING,
    'args': _NOTHING, 'retval': _NOTHING, 'exceptions': _NOTHING, 'info': r'\w',
    'interact': _NOTHING, 'source': r'(?!=)\S', 'alias': _WORDS, 'unalias': r'\w+$',
    'help': _WORDS, 'break': _PLACE, 'tbreak': _PLACE, 'clear': _WORDS_OR_PATH,
    'delete': _WORDS, 'enable': _WORDS, 'disable': _WORDS, 'ignore': _WORDS, 'condition': _WORDS,
    'catch': _WORDS, 'commands': _WORDS, 'logpoint': _PLACE, 'save': r'breakpoints\s+\S',
    'skip': r'$|[\w*?~]|\.{0,2}/', 'threads': _NOTHING, 'thread': _COUNT, 'modules': _NOTHING,
    'processes': _NOTHING, 'process': _COUNT, 'follow': r'(parent|child|all)?$',
    'watch': _EXPRESSION, 'run': _NOTHING, 'detach': _NOTHING, 'quit': r'(\(\))?$'}

_ASSIGNMENT = re.compile(r'\s*([-+*/%&|^]|\*\*|//|<<|>>)?=(?!=)')
# Signs that may begin an expression, too, go on with one where they follow the word at once, or
# stand between blanks.
_CONTINUATION = re.compile(r'\s*(%s)|[-+*/.(\[]|\s+([-+*/]|//|\*\*)\s' % _BINARY)
_LIKELY_CONTINUATION = re.compile(r'\s*[-+*/.(\[]')
_STRING_PREFIX = re.compile(r'([uUbB]?[rR]|[uUbB])$')


def typed_word(line):
    """(the name that a line begins with, what follows it); '' for no name."""
    found = _WORD.match(line)
    if found is None or _STRING_PREFIX.match(found.group(1)) and found.group(2)[:1] in ('"', "'"):
        return '', line
    return found.groups()


def split(line):
    """The same, for commands by their full names."""
    if line.startswith('?'):
        return 'help', ' ' + line[1:]
    word, rest = typed_word(line)
    return ALIASES.get(word, word), rest


def is_command(name, argument):
    return re.match(_ARGUMENTS.get(name, _EXPRESSION), argument) is not None


def is_statement(name, rest, is_variable):
    """Whether a line is one that begins with the name of a command, this being what follows.

    is_variable: whether the program has a variable of the name that was typed.
    """
    if _ASSIGNMENT.match(rest):
        return True
    if not rest.strip():
        return is_variable and not is_command(name, '')
    if _CONTINUATION.match(rest):
        return is_variable or not is_command(name, rest.strip())
    return is_variable and _LIKELY_CONTINUATION.match(rest) is not None \
        and not is_command(name, rest.strip())


def goes_on(rest):
    """Whether what follows a word makes it part of an expression or an assignment."""
    return (_ASSIGNMENT.match(rest) or _CONTINUATION.match(rest)) is not None


def is_keyword(word):
    return word in keyword.kwlist


def like(word, commands):
    """The command that is probably meant, or None."""
    found = difflib.get_close_matches(word, list(commands) + list(ALIASES), 1)
    return ALIASES.get(found[0], found[0]) if found else None
