"""What the Python that Mako makes of a template says of the template.

From 1.0 on a comment at its end has the lines, as JSON; before, a comment stands wherever another
line of the template begins.
"""

from __future__ import absolute_import

import bisect
import dis
import re
import types

_MAP = re.compile(r'"line_map": \{([^}]*)\}')
_PAIR = re.compile(r'"(\d+)": (\d+)')
_COMMENT = re.compile(r'# SOURCE LINE (\d+)\s*$')
_FUNCTION = 'render_'
# A line that writes nothing but blanks: there is nothing to see in the template.
_BLANK = re.compile(r'''\s*__M_writer\(u?(['"])(?:\\n|\\r|\\t|\s)*\1\)\s*$''')


def is_namespace(namespace):
    """Whether these are the variables of a template's module."""
    return '_template_uri' in namespace and '_magic_number' in namespace


class Source(object):
    """The lines of the template in a module's source."""

    def __init__(self, text):
        self._of_template = _lines_in(text)
        for number, line in enumerate(text.splitlines(), 1):
            if _BLANK.match(line):
                self._of_template.pop(number, None)

    def lines(self, code):
        """Those in one function, None where it has none."""
        own = [line for _, line in dis.findlinestarts(code) if line in self._of_template]
        return Lines([(line, self._of_template[line]) for line in sorted(own)]) if own else None

    def functions(self, namespace):
        """The code of all of a template's functions that have lines of it."""
        left = [made.func_code for name, made in dict.items(namespace)
                if isinstance(made, types.FunctionType) and name.startswith(_FUNCTION)]
        found = []
        while left:
            code = left.pop()
            if self.lines(code) is not None:
                found.append(code)
            left.extend([constant for constant in code.co_consts
                         if isinstance(constant, types.CodeType)])
        return found


class Lines(object):
    """The template's lines in one function."""

    def __init__(self, pairs):
        """pairs: of lines of the function and of the template, in the order of the former."""
        self._own = [line for line, _ in pairs]
        self._of_template = [line for _, line in pairs]
        self._begin = frozenset([
            line for at, (line, of_template) in enumerate(pairs)
            if not at or self._of_template[at - 1] != of_template])

    def of_template(self, line):
        """The template's line that a line of the function belongs to."""
        return self._of_template[max(0, bisect.bisect_right(self._own, line) - 1)]

    def begins(self, line):
        """Whether what the template says in some line begins with this line of the function."""
        return line in self._begin


def _lines_in(text):
    found = _MAP.search(text)
    if found is not None:
        pairs = [(int(line), int(of_template))
                 for line, of_template in _PAIR.findall(found.group(1))]
        # The last one says where the code ends, those with 0 what is in no template.
        return dict([pair for pair in sorted(pairs)[:-1] if pair[1]])
    return _lines_by_comments(text.splitlines())


def _lines_by_comments(lines):
    """A comment is about what follows, up to the next one or the end of the function."""
    found = {}
    of_template, is_block = None, False
    for number, line in enumerate(lines, 1):
        comment = _COMMENT.search(line)
        if comment is not None:
            of_template = int(comment.group(1))
            # Python of the template's own begins where that does, with an empty line.
            is_block = not ''.join(lines[number:number + 1]).strip()
        elif line and not line[0].isspace() or is_block and line.lstrip().startswith('__M_'):
            of_template = None
        elif of_template is not None:
            if line.strip():
                found[number] = of_template
            of_template += is_block
    return found
