"""Commands that a shell starts programs of Python 2 by, with other words in their place.

Only what is certain to be a command of its own is read; all else in a text is left as it is, and
so is a text in which the shell computes more than the values of variables.
"""

from __future__ import absolute_import

import re

from sorrel.common.records import record

# What the shell does more with than to read words.
_UNSURE = re.compile(r'`|\$\(|<<|\(\(|\[\[|PATH=|\bfunction\b')
_OPERATORS = ';&|()\n'
_ENDS = frozenset(' \t<>' + _OPERATORS)
# The words that a command follows, and those after which what looks like one may be none.
_BEFORE_COMMAND = frozenset(('if', 'then', 'else', 'elif', 'do', 'while', 'until', '!', '{', 'exec'))
_OTHER_GRAMMAR = frozenset(('for', 'case', 'select', 'esac', 'alias'))
_ASSIGNMENT = re.compile(r'\w+=')
_PLAIN = re.compile(r'[\w./+:@%,=-]+\Z')

# A word as it is written from `start` to `end`. value: what it is to the program, None where only
# the shell knows. is_plain: whether nothing of it is quoted.
_Word = record('_Word', 'start end value is_plain')


class _Unsure(Exception):
    pass


def rewritten(text, start):
    """The text of a shell's commands with others in place of those that start() knows.

    start: called with the words of a command, up to the first that only the shell knows, and whether
    it is found where the shell is now. Returns the text to have instead of how many of the words, or
    None.
    """
    if _UNSURE.search(text):
        return text
    try:
        commands = list(_commands(text))
    except _Unsure:
        return text
    pieces, done, has_moved = [], 0, False
    for words in commands:
        known = []
        for word in words:
            if word.value is None:
                break
            known.append(word.value)
        found = start(known, not has_moved) if known else None
        if found is not None:
            instead, number = found
            pieces += [text[done:words[0].start], instead]
            done = words[number - 1].end
        has_moved = has_moved or known[:1] in (['cd'], ['pushd'], ['.'], ['source'])
    return ''.join(pieces + [text[done:]])


def quoted(word):
    return word if _PLAIN.match(word) else "'%s'" % word.replace("'", "'\\''")


def _commands(text):
    """The words of each command, without assignments before it and up to a redirection."""
    at, words, is_over = 0, [], False
    while at < len(text):
        if text[at] in ' \t':
            at += 1
        elif text[at] in _OPERATORS:
            yield words
            at, words, is_over = at + 1, [], False
        elif text[at] in '<>':
            at, is_over = _after_redirection(text, at), True
        elif text[at] == '#':
            break
        else:
            word = _word(text, at)
            at = word.end
            is_redirected = text[at:at + 1] in ('<', '>') and word.is_plain \
                and word.value is not None and word.value.isdigit()
            if is_redirected or is_over:
                is_over = True
            elif words or not (word.is_plain and word.value in _BEFORE_COMMAND
                               or _ASSIGNMENT.match(text, word.start)):
                if not words and word.value in _OTHER_GRAMMAR:
                    raise _Unsure
                words.append(word)
    yield words


def _after_redirection(text, at):
    while at < len(text) and text[at] in '<>&|':
        at += 1
    while at < len(text) and text[at] in ' \t':
        at += 1
    return _word(text, at).end if at < len(text) and text[at] not in _ENDS else at


def _word(text, start):
    """Raises _Unsure for one that does not end."""
    at, value, is_known, is_plain = start, [], True, True
    while at < len(text) and text[at] not in _ENDS:
        letter = text[at]
        if letter in '\'"':
            end = _end_of_quotes(text, at)
            is_plain = False
            inside = text[at + 1:end]
            if letter == '"':
                is_known = is_known and '$' not in inside
                inside = re.sub(r'\\([\\"$\n])', r'\1', inside)
            value.append(inside)
            at = end
        elif letter == '\\':
            if at + 1 == len(text):
                raise _Unsure
            at += 1
            is_plain = False
            value.append(text[at] if text[at] != '\n' else '')
        else:
            is_known = is_known and letter not in '$*?[~'
            value.append(letter)
        at += 1
    return _Word(start, at, ''.join(value) if is_known else None, is_plain)


def _end_of_quotes(text, at):
    quote = text[at]
    at += 1
    while at < len(text) and text[at] != quote:
        at += 2 if text[at] == '\\' and quote == '"' else 1
    if at >= len(text):
        raise _Unsure
    return at
