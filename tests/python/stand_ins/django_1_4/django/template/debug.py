from django.template.base import NodeList, Parser


class DebugParser(Parser):

    def create_nodelist(self):
        return DebugNodeList()

    def extend_nodelist(self, nodelist, node, token):
        node.source = self.origin, token.position
        nodelist.append(node)


class DebugNodeList(NodeList):

    def render_node(self, node, context):
        try:
            return node.render(context)
        except Exception, error:
            error.django_template_source = node.source
            raise
