"""Reads a template into a tree of statements, each with the line that it begins in."""

import re

from weft.expressions import translate

# A statement or comment that is alone on its line has the line end with it.
_PIECE = re.compile(r'''(^[ \t]*(?:\{%%%(rest)s%%\}|\{\#%(rest)s\#\})[ \t]*\n
                        | \{\{%(rest)s\}\} | \{%%%(rest)s%%\} | \{\#%(rest)s\#\})'''
                    % {'rest': r'(?:(?![%}\#]\}).)*'}, re.DOTALL | re.MULTILINE | re.VERBOSE)
_LINE = re.compile(r'[^\n]*\n|[^\n]+')
_NAME = '([A-Za-z_][A-Za-z_0-9]*)'
_STATEMENT = re.compile(
    r'(?:(set) +%s *=(.*)|(if) +(.*)|(for) +%s +in +(.*)|(include) +%s|(else)|(end))$'
    % (_NAME, _NAME, _NAME), re.DOTALL)


class TemplateError(Exception):
    """A template that cannot be read: file, line, what is wrong."""

    def __init__(self, path, line, reason):
        Exception.__init__(self, '%s, line %d: %s' % (path, line, reason))
        self.path = path
        self.line = line


class Output(object):
    """A line's text, with the blank lines around it."""

    def __init__(self, line):
        self.line = line
        self.is_blank = True
        self.parts = []     # Python source

    def add(self, source, is_blank=False):
        self.is_blank = self.is_blank and is_blank
        self.parts.append(source)


class Block(object):
    """Anything else; `source` is the Python statement, bodies are lists of statements."""

    def __init__(self, line, source, bodies=()):
        self.line = line
        self.source = source
        self.bodies = bodies


class Parser(object):

    def __init__(self, path, text):
        self.path = path
        self.line = 1
        self.open = []      # (block, the body around it) of each "if" and "for"
        self.body = self.statements = []
        for piece in _PIECE.split(text):
            line_after = self.line + piece.count('\n')
            self.piece(piece)
            self.line = line_after
        if self.open:
            self.line = self.open[-1][0].line
            self.fail('no {% end %}')

    def fail(self, reason):
        raise TemplateError(self.path, self.line, reason)

    def piece(self, piece):
        tag = piece.strip()
        if tag.startswith('{{'):
            self.output().add(self.expression(tag[2:-2]))
        elif tag.startswith('{%'):
            self.statement(tag[2:-2].strip())
        elif not tag.startswith('{#'):
            for line in _LINE.findall(piece):
                is_blank = not line.strip()
                self.output(is_blank).add(repr(line), is_blank)
                self.line += 1

    def output(self, is_blank=False):
        """The output that this line's next part belongs to."""
        last = self.body and self.body[-1]
        if not isinstance(last, Output) or not (last.line == self.line or last.is_blank
                                                or is_blank):
            last = Output(self.line)
            self.body.append(last)
        if last.is_blank:
            last.line = self.line
        return last

    def expression(self, text):
        try:
            return translate(text)
        except SyntaxError, error:
            self.fail('%s in %r' % (error.msg, text.strip().encode('utf-8')))

    def statement(self, text):
        match = _STATEMENT.match(text)
        if match is None:
            self.fail('no statement: %r' % text.encode('utf-8'))
        groups = match.groups()
        if groups[0]:
            self.add('scope[%r] = %s' % (str(groups[1]), self.expression(groups[2])))
        elif groups[3]:
            self.begin('if %s:' % self.expression(groups[4]))
        elif groups[5]:
            self.begin('for scope[%r] in %s:' % (str(groups[6]), self.expression(groups[7])))
        elif groups[8]:
            self.add('include(%r, scope, write)' % str(groups[9]))
        elif groups[10]:
            self.other_body()
        else:
            self.end()

    def add(self, source):
        self.body.append(Block(self.line, source))

    def begin(self, source):
        block = Block(self.line, source, [[]])
        self.body.append(block)
        self.open.append((block, self.body))
        self.body = block.bodies[0]

    def other_body(self):
        block = self.open and self.open[-1][0]
        if not block or not block.source.startswith('if ') or len(block.bodies) == 2:
            self.fail('{% else %} without {% if %}')
        self.body = []
        block.bodies.append(self.body)

    def end(self):
        if not self.open:
            self.fail('{% end %} of nothing')
        self.body = self.open.pop()[1]


def parse(path, text):
    """The statements of a template; TemplateError."""
    return Parser(path, text).statements
