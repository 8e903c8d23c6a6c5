"""What a template calls while it is rendered."""

import sys


class Writer(object):
    """Collects the text."""

    def __init__(self):
        self.texts = []

    def __call__(self, *values):
        for value in values:
            self.texts.append(value if isinstance(value, unicode) else unicode(value))


def render(template, **scope):
    """The text of an imported template, with these names filled in."""
    writer = Writer()
    template.render(scope, writer)
    return u''.join(writer.texts)


def include(name, scope, write):
    """Renders another template into the same text.  It sees and may change the same scope."""
    __import__(name)
    sys.modules[name].render(scope, write)
