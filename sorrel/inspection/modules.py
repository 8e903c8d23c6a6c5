"""Modules that the program has loaded since they were last asked for."""

import os
import sys
import types

import tmorvik26_vs2012_x64 as core


class Modules(object):

    def __init__(self, own_files):
        """own_files: those of the server, some of which are loaded when they are first needed."""
        self._own = frozenset(map(_key, own_files))
        self._known = set()

    def begin(self):
        """The modules that are loaded now are none of the program's."""
        for name, module in sys.modules.items():
            path = namespace(module).get('__file__')
            if isinstance(path, str) and name != '__main__':
                self._known.add(_key(path))

    def take_new(self):
        """(path, whether it was loaded before) of each that has run since the last call."""
        taken = []
        for path in core.get_new_imports():
            key = _key(path)
            if key not in self._own:
                taken.append((path, key in self._known))
                self._known.add(key)
        return taken


def namespace(module):
    """The variables of a module; {} of anything else that stands in its place.

    Nothing of the program's is run, as asking some modules for them does.
    """
    return _namespace(module) if isinstance(module, types.ModuleType) else {}


def _key(path):
    if path.endswith(('.pyc', '.pyo')):
        path = path[:-1]
    return os.path.realpath(path)


_namespace = types.ModuleType.__dict__['__dict__'].__get__
