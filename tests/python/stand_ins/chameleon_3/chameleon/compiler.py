import __builtin__
import keyword
import re

from chameleon import NOTES_IN_VARIABLE, exc, noting

_TAG = re.compile(r'<(/?)(\w+)((?:\s+[\w:-]+="[^"]*")*)\s*>')
_ATTRIBUTE = re.compile(r'([\w:-]+)="([^"]*)"')
_PLACEHOLDER = re.compile(r'\$\{([^}]*)\}')
# Outside of strings, as far as the tests go.
_NAME = re.compile(r'(?<![\w.\'"])[A-Za-z_]\w*(?![\w\'"])')
_BEGIN = '''
from sys import exc_info as _exc_info
from collections import deque as _deque
from chameleon.utils import Markup as _Markup
import re
__marker = object()
g_re_amp = re.compile('&')
g_re_needs_escape = re.compile('[&<>]').search

def initialize(%s):
'''
_QUOTE = '''\
def __quote(target):
    if hasattr(target, '__html__'):
        return target.__html__()
    return unicode(target).replace('&', '&amp;').replace('<', '&lt;')
'''
_PARAMETERS = '(__stream, econtext, rcontext, __i18n_domain=None, __i18n_context=None):'


def expression(text):
    """What evaluates an expression, in Python."""
    kind, colon, rest = text.partition(':')
    if kind.strip() == 'load' and colon:
        return '__loader(%r)' % rest
    if kind.strip() == 'structure' and colon:
        return '_Markup(%s)' % expression(rest)
    if kind.strip() == 'string' and colon:
        parts = _PLACEHOLDER.split(rest)
        parts[::2] = [repr(part) for part in parts[::2]]
        parts[1::2] = ['unicode(%s)' % expression(part) for part in parts[1::2]]
        return "u''.join([%s])" % ', '.join(parts)
    try:
        compile(text.strip(), '<string>', 'eval')
    except SyntaxError, error:
        raise exc.TemplateError('%s\n\n - String: %r' % (error.msg, text))
    return '(%s)' % _NAME.sub(_looked_up, text.strip())


def _looked_up(match):
    name = match.group()
    if keyword.iskeyword(name) or hasattr(__builtin__, name):
        return name
    return 'econtext[%r]' % name


class Function(object):

    def __init__(self, name):
        self.name = name
        self.lines = []

    def write(self, indent, text):
        self.lines.append('    ' * indent + text)


class Writer(object):

    def __init__(self, source, filename):
        self.source, self.filename = source, filename
        self.tokens = {}
        self.open = []
        self.function = Function('render')
        self.functions = [self.function]
        self.indent = 0
        self.read()

    def read(self):
        at = 0
        for match in _TAG.finditer(self.source):
            self.interpolate(self.source[at:match.start()], self.line_at(at))
            ends, name, attributes = match.groups()
            if ends:
                self.end(name)
            else:
                self.start(name, dict(_ATTRIBUTE.findall(attributes)), self.line_at(match.start()))
            at = match.end()

    def line_at(self, offset):
        return self.source.count('\n', 0, offset) + 1

    def write(self, indent, text):
        self.function.write(self.indent + indent, text)

    def noted(self, text, line, statements):
        token = text, line, 0, 100 * line + len(self.tokens) + 1
        note = noting.in_variable if NOTES_IN_VARIABLE else noting.in_clause
        note(self.write, token, self.tokens, self.filename, statements)

    def put(self, text):
        self.write(0, '__append(%r)' % text)

    def interpolate(self, text, line):
        for odd, part in enumerate(_PLACEHOLDER.split(text)):
            if odd % 2:
                self.noted(part, line, ['__content = __quote(%s)' % expression(part)])
                self.write(0, '__append(__content)')
            elif part:
                self.put(part)
            line += part.count('\n')

    def start(self, name, attributes, line):
        closing = []
        self.open.append((closing, name))
        for attribute in ('metal:define-macro', 'metal:fill-slot', 'metal:use-macro',
                          'metal:define-slot', 'tal:define', 'tal:condition', 'tal:repeat'):
            if attribute in attributes:
                method = getattr(self, attribute.partition(':')[2].replace('-', '_'))
                closing.insert(0, method(attributes.pop(attribute), self.line_of(attribute, line)))
        content = attributes.pop('tal:content', None)
        self.put('<%s>' % name)
        if content:
            self.interpolate('${%s}' % content, self.line_of('tal:content', line))
        if 'class' in attributes:
            self.interpolate(attributes['class'], self.line_of('class', line))

    def line_of(self, attribute, line):
        lines = self.source.split('\n')
        while attribute not in lines[line - 1]:
            line += 1
        return line

    def end(self, name):
        closing, _ = self.open.pop()
        self.put('</%s>' % name)
        for close in closing:
            close()

    def begin_function(self, name):
        self.function, before = Function(name), self.function
        self.functions.append(self.function)
        indent, self.indent = self.indent, 0

        def close():
            self.function, self.indent = before, indent
        return close

    def block(self, first):
        self.write(0, first)
        self.indent += 1
        self.write(0, 'pass')

        def close():
            self.indent -= 1
        return close

    def define_macro(self, name, line):
        self.write(0, 'render_%s(__stream, econtext.copy(), rcontext)' % name)
        return self.begin_function('render_' + name)

    def fill_slot(self, name, line):
        close = self.begin_function('__fill_' + name)
        made = self.function

        def fill():
            close()
            self.functions.remove(made)
            text = ['def %s%s' % (made.name, _PARAMETERS)] + [
                '    ' + part for part in _body(made)]
            self.function.lines[0:0] = text + [
                "econtext['__slot_%s'] = _deque((%s, ))" % (name, made.name)]
        return fill

    def use_macro(self, text, line):
        inside = Function('inside')
        function, self.function, indent, self.indent = self.function, inside, self.indent, 0

        def close():
            self.function, self.indent = function, indent
            # What fills slots comes first; the rest is nobody's.
            at = [place for place, part in enumerate(inside.lines) if '_deque(' in part]
            for part in inside.lines[:at[-1] + 1] if at else ():
                self.write(0, part)
            self.noted(text, line, ['__macro = %s' % expression(text)])
            self.write(0, '__macro.include(__stream, econtext.copy(), rcontext)')
            self.write(0, 'econtext.update(rcontext)')
        return close

    def define_slot(self, name, line):
        self.write(0, "__slot = econtext.get('__slot_%s')" % name)
        close = self.block('if not __slot:')

        def fill():
            close()
            self.write(0, 'else:')
            self.write(1, '__slot.pop()(__stream, econtext.copy(), rcontext)')
        return fill

    def define(self, text, line):
        name, _, text = text.partition(' ')
        self.noted(text, line, ['__value = %s' % expression(text)])
        backup = '__backup_%d' % line
        self.write(0, '%s = econtext.get(%r)' % (backup, name))
        self.write(0, 'econtext[%r] = __value' % name)
        return lambda: self.write(0, 'econtext[%r] = %s' % (name, backup))

    def condition(self, text, line):
        self.noted(text, line, ['__condition = %s' % expression(text)])
        return self.block('if __condition:')

    def repeat(self, text, line):
        name, _, text = text.partition(' ')
        self.noted(text, line, ['__iterator = %s' % expression(text)])
        close = self.block('for __item in __iterator:')
        self.write(0, 'econtext[%r] = __item' % name)
        return close


def _body(function):
    yield '__append = __stream.append'
    if NOTES_IN_VARIABLE:
        yield '__token = None'
        if function.name.startswith('render'):
            yield 'try:'
            for line in function.lines:
                yield '    ' + line
            yield 'except:'
            yield '    if (__token is not None):'
            yield ("        rcontext.setdefault('__error__', []).append((__tokens[__token] "
                   "+ (__filename, _exc_info()[1], )))")
            yield '    raise'
            return
    for line in function.lines:
        yield line


def code(source, filename, names):
    writer = Writer(source, filename)
    lines = []
    if NOTES_IN_VARIABLE:
        lines = ['__filename = %r' % filename, '__tokens = %r' % writer.tokens]
    lines += (_BEGIN % ', '.join(names)).split('\n')
    lines += ['    ' + line for line in _QUOTE.split('\n')]
    for function in writer.functions:
        lines.append('    def %s%s' % (function.name, _PARAMETERS))
        lines += ['        ' + line for line in _body(function)]
    lines.append('    return {%s}' % ', '.join(
        ['%r: %s' % (function.name, function.name) for function in writer.functions]))
    return '\n'.join(lines) + '\n'


class ExpressionEvaluator(object):

    def __init__(self, engine, builtins):
        self.builtins = builtins

    def __call__(self, econtext, rcontext, kind, text):
        econtext['_Markup'] = unicode
        names = dict(self.builtins, econtext=econtext, _Markup=unicode)
        return eval(expression('%s:%s' % (kind, text) if kind != 'python' else text), names)
