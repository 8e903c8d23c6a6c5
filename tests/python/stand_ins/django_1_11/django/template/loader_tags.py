from django.template.base import Node, register


class BlockNode(Node):

    def __init__(self, name, nodelist, parent=None):
        self.name, self.nodelist, self.parent = name, nodelist, parent

    def render(self, context):
        block = context.blocks[-1].get(self.name, [self])[0]
        block = BlockNode(self.name, block.nodelist, block)
        block.context = context
        context.push()
        context['block'] = block
        said = block.nodelist.render(context)
        context.pop()
        return said

    def super(self):
        known = self.context.blocks[-1]
        before = known[self.name]
        known[self.name] = before[1:]
        said = self.render(self.context)
        known[self.name] = before
        return said


class ExtendsNode(Node):

    def __init__(self, nodelist, name):
        self.nodelist, self.name = nodelist, name
        self.blocks = dict([(node.name, node) for node in nodelist.get_nodes_by_type(BlockNode)])

    def render(self, context):
        from django.template.loader import get_template
        parent = get_template(self.name)
        for node in self.nodelist.get_nodes_by_type(BlockNode) \
                + parent.nodelist.get_nodes_by_type(BlockNode):
            known = context.blocks[-1].setdefault(node.name, [])
            if node not in known:
                known.append(node)
        return parent._render(context)


class IncludeNode(Node):

    def __init__(self, name):
        self.name = name

    def render(self, context):
        from django.template.loader import get_template
        return get_template(self.name.resolve(context)).render(context)


def _name(token):
    return token.split_contents()[1].strip('"')


def _block(parser, token):
    return BlockNode(_name(token), parser.parse(('endblock',)))


register.tags.update(
    block=_block, extends=lambda parser, token: ExtendsNode(parser.parse(), _name(token)),
    include=lambda parser, token: IncludeNode(
        parser.compile_filter(token.split_contents()[1])))
