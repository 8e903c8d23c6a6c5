import os

from mako.template import Template


class TemplateLookup(object):

    def __init__(self, directories):
        self._folder = directories[0]
        self._known = {}

    def get_template(self, uri):
        path = os.path.join(self._folder, uri)
        stamp = os.path.getmtime(path)
        known = self._known.get(uri)
        if known is None or known[0] != stamp:
            known = self._known[uri] = stamp, Template(open(path).read(), path, self)
        return known[1]
