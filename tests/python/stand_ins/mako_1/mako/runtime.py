UNDEFINED = object()


class Context(object):

    def __init__(self, **data):
        self._data = data
        self._kwargs = data.copy()
        self._pieces = []

    def get(self, name, default=None):
        return self._data.get(name, default)

    def writer(self):
        return self._pieces.append

    def text(self):
        return u''.join(self._pieces)


def _include_file(context, uri):
    context.get('lookup_').get_template(uri).module.render_body(context)


def _render(template, data):
    context = Context(lookup_=template.lookup, **data)
    del context._kwargs['lookup_']
    module = template.module
    while module._inherited:
        context = _within(context, module)
        module = template.lookup.get_template(module._inherited).module
    module.render_body(context)
    return context.text()


def _within(context, module):
    """What the parent of a template has, with what writes the template's own body."""
    parents = Context(**context._data)
    parents._kwargs, parents._pieces = context._kwargs, context._pieces
    parents._data['body_'] = lambda: module.render_body(context)
    return parents
