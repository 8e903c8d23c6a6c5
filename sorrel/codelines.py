"""Which lines of a file have code, and of which function."""

import types


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


def functions(code, outer=''):
    """(name, code) of the functions and classes inside, with names such as "Class.method"."""
    for constant in code.co_consts:
        if isinstance(constant, types.CodeType):
            name = outer + constant.co_name
            yield name, constant
            for found in functions(constant, name + '.'):
                yield found


def compiled(path):
    """The code of a source file. Raises IOError, SyntaxError or TypeError."""
    source = open(path, 'U')
    try:
        text = source.read()
    finally:
        source.close()
    return compile(text.rstrip() + '\n', path, 'exec', 0, True)


def of_file(path):
    """All lines with code, sorted. Raises as `compiled` does."""
    code = compiled(path)
    lines = set(of_code(code))
    for _, function in functions(code):
        lines.update(of_code(function))
    return sorted(lines)


def filled(path):
    """The lines of a text file that are not blank."""
    source = open(path, 'U')
    try:
        return [number for number, line in enumerate(source, 1) if line.strip()]
    finally:
        source.close()
