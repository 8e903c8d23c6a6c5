from django import HAS_TOKENS
from django.template.base import Node, TemplateSyntaxError, register


class ForNode(Node):

    def __init__(self, name, sequence, nodelist):
        self.name, self.sequence, self.nodelist = name, sequence, nodelist
        self.nodelist_loop = nodelist

    def render(self, context):
        nodelist = []
        context.push()
        for item in self.sequence.resolve(context):
            context[self.name] = item
            for node in self.nodelist_loop:
                if HAS_TOKENS:
                    nodelist.append(node.render_annotated(context))
                else:
                    nodelist.append(node.render(context))
        context.pop()
        return u''.join([unicode(one) for one in nodelist])


class IfNode(Node):

    def __init__(self, test, nodelist):
        self.test, self.nodelist = test, nodelist

    def render(self, context):
        return self.nodelist.render(context) if self.test.eval(context) else u''


class WithNode(Node):

    def __init__(self, name, value, nodelist):
        self.name, self.value, self.nodelist = name, value, nodelist

    def render(self, context):
        context.push()
        context[self.name] = self.value.resolve(context)
        said = self.nodelist.render(context)
        context.pop()
        return said


class TemplateIfParser(object):
    """Takes no more than a value, or two that are compared."""

    def __init__(self, parser, words):
        self.values = [parser.compile_filter(word) for word in words[::2]]
        self.words = words

    def parse(self):
        if self.words[1::2] not in ([], ['<'], ['and']):
            raise TemplateSyntaxError('Could not parse %r' % self.words)
        return self

    def eval(self, context):
        values = [value.resolve(context) for value in self.values]
        if self.words[1:2] == ['<']:
            return values[0] < values[1]
        return values[0] and values[-1]


def _for(parser, token):
    _, name, _, sequence = token.split_contents()
    return ForNode(name, parser.compile_filter(sequence), parser.parse(('endfor',)))


def _if(parser, token):
    test = TemplateIfParser(parser, token.split_contents()[1:]).parse()
    return IfNode(test, parser.parse(('endif',)))


def _with(parser, token):
    name, _, value = token.split_contents()[1].partition('=')
    return WithNode(name, parser.compile_filter(value), parser.parse(('endwith',)))


register.tags.update({'for': _for, 'if': _if, 'with': _with})
