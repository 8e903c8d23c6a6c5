"""Templates, what they are made into, and what they are rendered with."""

import re

from django import HAS_TOKENS
from django.utils.html import escape

TOKEN_TEXT, TOKEN_VAR, TOKEN_BLOCK = 0, 1, 2
_TAG = re.compile(r'(\{%.*?%\}|\{\{.*?\}\})')


class TemplateSyntaxError(Exception):
    pass


class VariableDoesNotExist(Exception):
    pass


class Origin(object):

    def __init__(self, name, source):
        self.name, self.source = name, source

    def reload(self):
        return self.source


class Engine(object):

    debug = False
    template_libraries = {}
    template_builtins = []


class Template(object):

    def __init__(self, source, origin=None, name=None):
        self.origin = origin or Origin('<unknown source>', unicode(source))
        self.name = name
        self.engine = Engine
        if HAS_TOKENS:
            parser = Parser(tokens(unicode(source)), {}, [], self.origin)
        else:
            from django.template.debug import DebugParser
            parser = DebugParser(tokens(unicode(source)), {}, [], self.origin)
        self.nodelist = parser.parse()

    def _render(self, context):
        return self.nodelist.render(context)

    def render(self, context):
        before, context.template = context.template, self
        context.blocks.append({})
        try:
            return self._render(context)
        finally:
            context.blocks.pop()
            context.template = before


class Context(object):

    template = None

    def __init__(self, given=None):
        self.dicts = [{'True': True, 'False': False, 'None': None}, given or {}]
        self.blocks = []

    def push(self):
        self.dicts.append({})

    def pop(self):
        self.dicts.pop()

    def __getitem__(self, name):
        for scope in reversed(self.dicts):
            if name in scope:
                return scope[name]
        raise KeyError(name)

    def __setitem__(self, name, value):
        self.dicts[-1][name] = value


class Token(object):

    def __init__(self, kind, contents, position=None, lineno=None):
        self.token_type, self.contents = kind, contents
        self.position, self.lineno = position, lineno

    def split_contents(self):
        return self.contents.split()


def tokens(source):
    found, at, line = [], 0, 1
    for text in _TAG.split(source):
        kind = {'{{': TOKEN_VAR, '{%': TOKEN_BLOCK}.get(text[:2], TOKEN_TEXT)
        if text:
            contents = text if kind == TOKEN_TEXT else text[2:-2].strip()
            found.append(Token(kind, contents, (at, at + len(text)), line))
        at += len(text)
        line += text.count('\n')
    return found


class Library(object):

    def __init__(self):
        self.tags, self.filters = {}, {}

    def tag(self, name, function):
        self.tags[name] = function

    def inclusion_tag(self, name):
        def decorate(function):
            class InclusionNode(Node):
                def render(self, context):
                    from django.template.loader import get_template
                    inner = Context(function())
                    if HAS_TOKENS:
                        return get_template(name).render(inner)
                    return get_template(name).nodelist.render(inner)
            self.tags[function.__name__] = lambda parser, token: InclusionNode()
            return function
        return decorate


register = Library()
register.filters.update(upper=lambda value: value.upper(), length=len)


class Parser(object):

    def __init__(self, tokens, libraries=None, builtins=None, origin=None):
        self.tokens, self.origin = tokens, origin
        self.tags, self.filters = dict(register.tags), dict(register.filters)

    def parse(self, until=()):
        found = NodeList() if HAS_TOKENS else self.create_nodelist()
        while self.tokens:
            token = self.tokens.pop(0)
            if token.token_type == TOKEN_TEXT:
                node = TextNode(token.contents)
            elif token.token_type == TOKEN_VAR:
                node = VariableNode(self.compile_filter(token.contents))
            else:
                word = token.contents.split()[0]
                if word in until:
                    return found
                node = self.tags[word](self, token)
            self.extend_nodelist(found, node, token)
        return found

    def extend_nodelist(self, nodelist, node, token):
        node.token = token
        node.origin = self.origin
        nodelist.append(node)

    def compile_filter(self, text):
        return FilterExpression(text, self)


class FilterExpression(object):

    def __init__(self, text, parser):
        names = text.split('|')
        if not re.match(r'[\w.]+$|"[\w.]+"$', names[0]) \
                or [name for name in names[1:] if name not in parser.filters]:
            raise TemplateSyntaxError('Could not parse the remainder of %r' % text)
        self.var = Variable(names[0])
        if names[0].isdigit() or names[0][0] == '"':
            self.var = eval(names[0])
        self.filters = [parser.filters[name] for name in names[1:]]

    def resolve(self, context):
        value = self.var
        if isinstance(value, Variable):
            try:
                value = value.resolve(context)
            except VariableDoesNotExist:
                value = u''
        for function in self.filters:
            value = function(value)
        return value


class Variable(object):

    def __init__(self, text):
        self.names = text.split('.')

    def resolve(self, context):
        value = context
        for name in self.names:
            try:
                value = value[name]
            except (TypeError, KeyError, AttributeError):
                if name.isdigit():
                    value = value[int(name)]
                elif not hasattr(value, name):
                    raise VariableDoesNotExist('Failed lookup for key [%s]' % name)
                else:
                    value = getattr(value, name)
            if callable(value):
                value = value()
        return value


class Node(object):

    token = None

    def render(self, context):
        raise NotImplementedError

    def get_nodes_by_type(self, kind):
        found = [self] * isinstance(self, kind)
        if hasattr(self, 'nodelist'):
            found.extend(self.nodelist.get_nodes_by_type(kind))
        return found

    if HAS_TOKENS:
        def render_annotated(self, context):
            try:
                return self.render(context)
            except Exception, error:
                if context.template.engine.debug:
                    error.template_debug = self.token
                raise


class NodeList(list):

    def render(self, context):
        bits = []
        for node in self:
            if HAS_TOKENS:
                bit = node.render_annotated(context)
            else:
                bit = self.render_node(node, context)
            bits.append(unicode(bit))
        return u''.join(bits)

    def render_node(self, node, context):
        return node.render(context)

    def get_nodes_by_type(self, kind):
        found = []
        for node in self:
            found.extend(node.get_nodes_by_type(kind))
        return found


class TextNode(Node):

    def __init__(self, s):
        self.s = s

    def render(self, context):
        return self.s


class VariableNode(Node):

    def __init__(self, filter_expression):
        self.filter_expression = filter_expression

    def render(self, context):
        return escape(unicode(self.filter_expression.resolve(context)))


from django.template import defaulttags, loader_tags  # They need what is above.
if HAS_TOKENS:
    from django.template import library
