"""The Python of a template, of as many of the tags as the tests use."""

import re

import mako
from mako import filters

_TAG = re.compile(
    r'(?P<control>^[ ]*%(?!>)(?P<statement>[^\n]*)\n)|(?P<python><%\n.*?%>)|\$\{(?P<value>[^}]*)\}'
    r'|<%inherit file="(?P<inherit>[^"]*)"/>|<%include file="(?P<include>[^"]*)"/>'
    r'|<%def name="(?P<def>[^"]*)">|(?P<end></%def>)', re.S | re.M)
_NAME = re.compile(r'(?<![\w."\'])[A-Za-z]\w*')
_KNOWN = frozenset('for in if not and or context print unicode True False None range len'.split())


class _Function(object):

    def __init__(self, head):
        self.head = head
        self.lines = []     # (indent, text, line of the template)
        self.names = set()
        self.bound = set()
        self.indent = 1

    def write(self, text, line):
        self.lines.append((self.indent, text, line))


def module(text, filename, name):
    """A module's source."""
    functions, inherited = _functions(text)
    out = ['from mako import runtime, filters', 'UNDEFINED = runtime.UNDEFINED',
           '_magic_number = 10', '_template_filename = %r' % filename,
           '_template_uri = %r' % name, '_inherited = %r' % inherited]
    lines = {}
    defined = [function.head.partition('(')[0] for function in functions[1:]]
    for function in functions:
        _write(out, lines, function, defined)
    if mako.HAS_MAP:
        pairs = ['"%d": %d' % pair for pair in sorted(lines.items())]
        pairs.append('"%d": 1' % len(out))
        out += ['"""', '__M_BEGIN_METADATA', '{"line_map": {%s}, "uri": "x"}' % ', '.join(pairs),
                '__M_END_METADATA', '"""']
    return '\n'.join(out) + '\n'


def _write(out, lines, function, defined):
    name, _, parameters = function.head.partition('(')
    own = _NAME.findall(parameters)
    out += ['', 'def render_%s(context, %s' % (name, parameters), '    try:',
            '        __M_locals = {}']
    for other in defined:
        out.append('        def %s(*given): return render_%s(context, *given)' % (other, other))
    for used in sorted(function.names.difference(defined, own)):
        out.append('        %s = context.get(%r, UNDEFINED)' % (used, used))
    out.append('        __M_writer = context.writer()')
    last = None
    for indent, text, line in function.lines:
        if not mako.HAS_MAP and line != last:
            out.append('    ' * (indent + 1) + '# SOURCE LINE %d' % line)
        out.append('    ' * (indent + 1) + text)
        lines[len(out)] = line
        last = line
    out += ["        return u''", '    finally:', '        pass']


def _functions(text):
    stack, functions, inherited = [_Function('body(**pageargs):')], [], None
    functions.append(stack[0])
    at = 0
    for found in _TAG.finditer(text):
        _text(stack[-1], text[at:found.start()], _line(text, at))
        at = found.end()
        line = _line(text, found.start())
        function = stack[-1]
        if found.group('control') is not None:
            _control(function, found.group('statement').strip(), line)
        elif found.group('python') is not None:
            _python(function, found.group('python')[3:-2], line)
        elif found.group('value') is not None:
            _value(function, found.group('value'), line)
        elif found.group('inherit') is not None:
            inherited = found.group('inherit')
        elif found.group('include') is not None:
            function.write('runtime._include_file(context, %r)' % found.group('include'), line)
        elif found.group('def') is not None:
            stack.append(_Function(found.group('def').replace(')', ', **pageargs):')))
            functions.append(stack[-1])
        else:
            stack.pop()
    _text(stack[-1], text[at:], _line(text, at))
    return functions, inherited


def _line(text, at):
    return text.count('\n', 0, at) + 1


def _text(function, text, line):
    if text:
        function.write('__M_writer(%r)' % unicode(text), line)


def _control(function, statement, line):
    if statement.startswith('end'):
        function.indent -= 1
        return
    function.write(statement, line)
    bound = statement[4:].partition(' in ')[0] if statement.startswith('for') else ''
    _use(function, statement)
    function.names.difference_update(_NAME.findall(bound))
    function.bound.update(_NAME.findall(bound))
    function.indent += 1


def _python(function, text, line):
    for offset, statement in enumerate(text.split('\n')):
        if statement.strip():
            name, _, value = statement.strip().partition(' = ')
            _use(function, value)
            if _NAME.match(name) and '.' not in name and '[' not in name:
                function.bound.add(name)
            function.write(statement.strip(), line + offset + 1)


def _value(function, text, line):
    expression, _, used = text.partition('|')
    expression = expression.strip()
    _use(function, expression)
    for written in 'self.body()', 'next.body()':
        expression = expression.replace(written, 'context.get("body_")()')
    made = 'unicode(%s)' % expression
    for name in used.split(','):
        if name.strip():
            made = '%s(%s)' % (filters.DEFAULT_ESCAPES[name.strip()], made)
    function.write('__M_writer(%s)' % made, line)


def _use(function, text):
    function.names.update(
        set(_NAME.findall(text)) - _KNOWN - function.bound - set(['self']))
