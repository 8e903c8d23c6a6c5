"""How deeply a text is nested: measured before the interpreter's parser and compiler get it.

The parser has a stack of fixed size: where a text needs more it writes a line to the process's
standard error, whatever sys.stderr is, and raises MemoryError. The compiler calls itself for each
operator of a chain and for each branch of a function, until the thread's stack overflows and the
process dies. Neither can be asked beforehand, so that both are followed here, in one pass over the
text. The stack is followed as the grammar has it and never taken for smaller than it will be; in
expressions nearly always for what it is. A text with an error counts up to there at least.
"""

from __future__ import absolute_import

import keyword
import re

# The parser's, in entries: one for each symbol of the grammar that is not complete yet.
_PARSER_STACK = 1500
# What lies between "test" and a name, a number or an opening bracket in the grammar.
_OPERAND = 14
# Entries that an opening bracket adds, as an operand and behind one (of a call or an index).
_BRACKET, _TRAILER = 15, 16
# Around an expression that is all of the text; in a statement, the most; and for a block in it.
_IN_EXPRESSION, _IN_STATEMENT, _IN_BLOCK = 2, 12, 5

# How many operators, indexes, calls and attributes may follow each other: of the thread's stack,
# the compiler takes some 250 bytes for each.
_CHAIN = 1000
# Of branches, by what the compiler takes for them in units of some 60 bytes, in a text that is
# evaluated in a thread of the program, and in a file.
IN_THREAD, IN_FILE = 4000, 32000
_BRANCHES = {'if': 1, 'and': 1, 'or': 1, 'assert': 1, 'except': 1, 'else': 1, 'finally': 2,
             'try': 4, 'with': 4, 'for': 4, 'while': 4, 'elif': 16}
_CHAINED_COMPARISON = 4

_STRING = r'{0}{0}{0}[^{0}\\]*(?:(?:\\.|{0}(?!{0}{0}))[^{0}\\]*)*{0}{0}{0}|' \
          r'(?!{0}{0}{0}){0}[^{0}\\\n]*(?:\\.[^{0}\\\n]*)*{0}'
_TOKEN = '|'.join((
    r'#[^\n]*', r'\\\n', r'(?P<line>\n[ \t\f]*)', r'(?P<word>[A-Za-z_][A-Za-z_0-9]*)',
    r'(?P<operand>%s|%s|0[xX][0-9a-fA-F]+|(?:\d+\.?\d*|\.\d+)(?:[eE][-+]?\d+)?)' % (
        _STRING.format("'"), _STRING.format('"')),
    r'(?P<endless>["\'])',
    r'(?P<operator>\*\*=?|//=?|<<=?|>>=?|<>|[-+*/%&|^<>=!]=|[-+*/%&|^~<>=.,:;@`(){}\[\]])'))
# Compiled when it is first needed, since that takes as long as loading the module, or longer.
_token = []

# A word may be the name of a function: "print", where its module says so.
_KEYWORDS = frozenset(keyword.kwlist) - frozenset(['print'])
_ARITHMETIC = frozenset('+ - * / % // << >> & | ^'.split())
_COMPARISONS = frozenset('< > == >= <= <> != in is'.split())

# An opening bracket that is not that of a list.
_INDEX = 'x['

# What is open within brackets, by what ends it: an end at one of these ends those behind it, too.
# A lambda whose parameters are still being read is ended by its colon alone.
_PARAMETERS, _TEST, _NOT, _FACTOR = range(4)


class TooMuch(SyntaxError):
    """The interpreter might compile the text: it is not tried, for the sake of the program."""


def check(text, is_expression, branches=IN_THREAD):
    """Raises SyntaxError for a text that the parser cannot take, TooMuch for one too long to try.

    branches: IN_THREAD or IN_FILE.
    """
    text = text.replace('\r\n', '\n').replace('\r', '\n')
    follower = _Follower(_IN_EXPRESSION if is_expression else _IN_STATEMENT)
    follow = {'line': follower.line, 'word': follower.word, 'operand': follower.operand,
              'operator': follower.operator}
    if not _token:
        _token.append(re.compile(_TOKEN, re.DOTALL))
    for found in _token[0].finditer(text):
        kind = found.lastgroup
        if kind == 'endless':
            break  # So the parser gets no further.
        if kind is not None:
            follow[kind](found.group())
            if follower.deepest > _PARSER_STACK:
                raise SyntaxError('nested too deeply')
            if follower.level.chain > _CHAIN:
                raise TooMuch('too many operators in one expression')
            if follower.branches > branches:
                raise TooMuch('too many branches')


class _Level(object):
    """What is between two brackets, or in a statement outside of all."""

    def __init__(self, opener, depth):
        self.opener = opener
        # Entries of the stack below the next "test", and below the first.
        self.depth = self.first_depth = depth
        # What is open: (what ends it, its entries).
        self._open = []
        self.clauses = self.colons = 0
        # Links of the chain that is being read, and of the longest before.
        self.chain = self._longest = 0
        self.is_compared = False

    def begin(self, end, entries):
        self._open.append((end, entries))
        self.depth += entries

    def end(self, end):
        while self._open and self._open[-1][0] >= end:
            self.depth -= self._open.pop()[1]
        if end < _FACTOR:
            self.is_compared = False

    def end_parameters(self):
        """Whether a colon was that of a lambda."""
        if not self._open or self._open[-1][0] != _PARAMETERS:
            return False
        self.depth -= self._open.pop()[1]
        self.begin(_TEST, 2)
        return True

    def next_item(self):
        self.end(_TEST)
        self.colons = 0
        self._longest = self.longest()
        self.chain = 0

    def longest(self):
        return max(self._longest, self.chain)


class _Follower(object):
    """Follows the parser, token by token.

    deepest: the most entries that its stack has had. level: the innermost _Level. branches: of
    all of the text.
    """

    def __init__(self, depth):
        self._depth = depth
        self._indents = [0]
        self._new_indent = None
        self._outer = []
        self.level = _Level('', depth)
        self.deepest = self.branches = 0
        # Whether the last token has completed an operand; and what it was.
        self._has_operand = False
        self._last = ''

    def line(self, token):
        if not self._outer:
            self._new_indent = len(token[1:].rpartition('\f')[2].expandtabs(8))
            self._last = ''

    def operand(self, token):
        self._begin_line()
        self._reach(_OPERAND)
        self._has_operand = True
        self._last = token

    def word(self, token):
        if token not in _KEYWORDS:
            self.operand(token)
            return
        self._begin_line()
        self.branches += _BRANCHES.get(token, 0)
        if token in ('in', 'is'):
            self._compare()
        elif token in ('and', 'or'):
            self.level.end(_NOT)
        elif token == 'not':
            # Or a part of "not in" or "is not".
            if not self._has_operand and self._last != 'is':
                self.level.begin(_NOT, 1)
        elif token == 'lambda':
            self.level.begin(_PARAMETERS, 3)
        elif token == 'else':
            self.level.end(_NOT)
            if self._has_operand:
                self.level.begin(_TEST, 1)
        elif token == 'if' and not self.level.clauses:
            self.level.end(_NOT)
        elif token in ('for', 'if'):
            self._begin_clause(token)
        elif token == 'yield':
            self._reach(0)
            self.level.begin(_PARAMETERS, 1)
        self._has_operand = False
        self._last = token

    def operator(self, token):
        self._begin_line()
        level = self.level
        had_operand, self._has_operand = self._has_operand, False
        self._last = token
        if token in '([{':
            self._open(token, had_operand)
        elif token in ')]}' or token == '`' and had_operand and level.opener == '`':
            self._close()
        elif token == '`':
            self._open(token, False)
        elif token == '.':
            self._reach(0)  # Of an ellipsis.
            level.chain += 1
        elif token == '**':
            # Or it stands before an argument.
            if had_operand:
                level.chain += 1
                level.begin(_FACTOR, 2)
        elif token in _ARITHMETIC or token == '~':
            if had_operand:
                level.chain += 1
                level.end(_FACTOR)
            elif token in '+-~':
                level.begin(_FACTOR, 1)
        elif token in _COMPARISONS:
            self._compare()
        elif token == ';' and not self._outer:
            self._begin_statement()
        elif token == ':':
            self._colon()
        else:
            level.next_item()  # A comma, or an assignment.

    def _reach(self, entries):
        reached = self.level.depth + entries
        if reached > self.deepest:
            self.deepest = reached

    def _begin_line(self):
        if self._new_indent is None:
            return
        while self._indents[-1] > self._new_indent:
            self._indents.pop()
        if self._indents[-1] < self._new_indent:
            self._indents.append(self._new_indent)
        self._new_indent = None
        self._begin_statement()

    def _begin_statement(self):
        self.level = _Level('', self._depth + _IN_BLOCK * (len(self._indents) - 1))
        self._has_operand = False

    def _open(self, token, is_trailer):
        self._reach(_OPERAND)
        if is_trailer:
            self.level.chain += 1
        self._outer.append(self.level)
        self.level = _Level(_INDEX if is_trailer and token == '[' else token,
                            self.level.depth + (_TRAILER if is_trailer else _BRACKET))

    def _close(self):
        if self._outer:
            chain = self.level.longest()
            self.level = self._outer.pop()
            self.level.chain += chain
        self._has_operand = True

    def _compare(self):
        self.level.end(_FACTOR)
        if self.level.is_compared:
            self.branches += _CHAINED_COMPARISON
        self.level.is_compared = True

    def _begin_clause(self, token):
        """A "for" or "if" in brackets; or a statement, to which it makes no difference."""
        level = self.level
        level.end(_TEST)
        if level.opener:
            level.clauses += 1
            ahead = 1 if token == 'if' else 2 if level.opener == '[' else 0
            level.depth = level.first_depth + 2 * (level.clauses - 1) + ahead

    def _colon(self):
        self.level.end(_TEST)
        if self.level.end_parameters():
            return
        self.level.colons += 1
        if self.level.opener == _INDEX and self.level.colons == 2:
            self.level.begin(_TEST, 1)
        self._reach(0)
