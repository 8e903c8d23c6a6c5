"""Makes a Python function of a template.

Each statement, and the text of each line, becomes one line of Python; the list of the template's
lines beside it says where each came from.
"""

from weft.parser import Output, parse


def compile_template(path, text):
    """Python source that defines render(scope, write), and the template's line of each of its
    lines (0 for none); TemplateError."""
    source, lines = ['def render(scope, write):'], [0]
    _generate(parse(path, text), 1, source, lines)
    return '\n'.join(source) + '\n', lines


def _generate(statements, depth, source, lines):
    indent = '    ' * depth
    for statement in statements:
        lines.append(statement.line)
        if isinstance(statement, Output):
            source.append('%swrite(%s)' % (indent, ', '.join(statement.parts)))
        else:
            source.append(indent + statement.source)
            for number, body in enumerate(statement.bodies):
                if number:
                    lines.append(0)
                    source.append(indent + 'else:')
                _generate(body, depth + 1, source, lines)
    if not statements:
        lines.append(0)
        source.append(indent + 'pass')
