"""Which lines of a file have code, and of which function."""

from __future__ import absolute_import

import re
import types

from sorrel.inspection import evaluation, nesting, private_names

# The interpreter lock is held while a text is compiled: for about a second for so much.
_COMPILED_LIMIT = 1024 * 1024
_CODING = re.compile(r'coding[:=][ \t]*([-\w.]+)')
# Encodings in which every byte of ASCII is what it is in ASCII.
_LIKE_ASCII = re.compile(r'utf[-_]?8|(iso[-_]?)?latin|iso[-_]?8859|(us[-_]?)?ascii|cp125|koi8', re.I)


def of_code(code):
    """The lines at which code of this function, without those inside it, begins."""
    lines = []
    line = code.co_firstlineno
    previous = None
    for address, step in zip(map(ord, code.co_lnotab[::2]), map(ord, code.co_lnotab[1::2])):
        if address:
            if line != previous:
                lines.append(line)
                previous = line
        line += step
    if line != previous:
        lines.append(line)
    return lines


def functions(code, outer='', class_name=None):
    """(name, code, class) of the functions and classes inside, with names such as "Class.method".

    class: the name of the class whose body this is or lies in, the innermost one; None for none.
    """
    for constant in code.co_consts:
        if isinstance(constant, types.CodeType):
            name = outer + constant.co_name
            inside = constant.co_name if private_names.is_class_body(constant) else class_name
            yield name, constant, inside
            for found in functions(constant, name + '.', inside):
                yield found


def compiled(text, path):
    """The code of the text of a source file.

    Raises SyntaxError or TypeError; nesting.TooMuch where the interpreter might take it.
    """
    # The compiler would import a codec for it. A thread of the program may have stopped in an
    # import, and wait for what the calling one is to answer.
    head = '\n'.join(text.split('\n', 2)[:2])
    body = head.replace('coding', 'c0ding') + text[len(head):]
    try:
        return evaluation.compiled(body.rstrip() + '\n', path, 'exec', 0, _COMPILED_LIMIT,
                                 nesting.IN_FILE)
    except SyntaxError:
        if all(_LIKE_ASCII.match(name) for name in _CODING.findall(head)):
            raise
        raise nesting.TooMuch('its encoding matters')


def filled(text):
    """The lines of a text that are not blank."""
    return [number for number, line in enumerate(text.split('\n'), 1) if line.strip()]
