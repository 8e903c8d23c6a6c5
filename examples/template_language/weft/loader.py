"""Imports templates as modules of their package."""

import codecs
import imp
import linecache
import os
import sys

from weft.compiler import compile_template
from weft.runtime import include

compiled = []       # the code object of each template's render()


class Finder(object):
    """An importer, for sys.meta_path."""

    def find_module(self, name, path=None):
        for folder in path or ():
            template = os.path.join(folder, name.split('.')[-1] + '.weft')
            if os.path.isfile(template):
                return Loader(os.path.abspath(template))


class Loader(object):

    def __init__(self, path):
        self.path = path

    def load_module(self, name):
        source, lines = compile_template(self.path, codecs.open(self.path, 'r', 'utf-8').read())
        module = sys.modules.setdefault(name, imp.new_module(name))
        module.__loader__ = self
        module.__template__ = self.path
        module.__lines__ = lines
        module.include = lambda other, scope, write: include(
            name.rpartition('.')[0] + '.' + other, scope, write)
        # Nobody's file: what runs here are lines of Python that were made up.
        pseudo_name = '<template %s>' % name
        linecache.cache[pseudo_name] = len(source), None, source.splitlines(True), pseudo_name
        exec compile(source, pseudo_name, 'exec') in module.__dict__
        compiled.append(module.render.func_code)
        return module


def install():
    """Makes templates importable."""
    sys.meta_path.append(Finder())
