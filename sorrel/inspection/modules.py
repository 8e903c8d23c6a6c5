"""Modules that the program has loaded since they were last asked for."""

from __future__ import absolute_import

import os
import sys
import types

import tmorvik26_vs2012_x64 as core

from sorrel.common.real_paths import RealPaths
from sorrel.inspection import frames


class Modules(object):

    def __init__(self):
        self._own = os.path.join(os.path.realpath(frames.OWN_FOLDER), '')
        self._known = set()

    def begin(self):
        """The modules that are loaded now are none of the program's."""
        real_paths = RealPaths()
        for name, module in sys.modules.items():
            path = namespace(module).get('__file__')
            if isinstance(path, str) and name != '__main__':
                self._known.add(_key(real_paths, path))

    def take_new(self):
        """(path, whether it was loaded before) of each that has run since the last call."""
        taken = []
        real_paths = RealPaths()
        for path in core.get_new_imports():
            key = _key(real_paths, path)
            # Some of the server's own are loaded when they are first needed.
            if not key.startswith(self._own):
                taken.append((path, key in self._known))
                self._known.add(key)
        return taken


def namespace(module):
    """The variables of a module; {} of anything else that stands in its place.

    Nothing of the program's is run, as asking some modules for them does.
    """
    return _namespace(module) if isinstance(module, types.ModuleType) else {}


def source_name(file):
    """The name of a module's source file, by that of the file that it was loaded from."""
    return file[:-1] if file.endswith(('.pyc', '.pyo')) else file


def _key(real_paths, path):
    return real_paths.of(source_name(path))


_namespace = types.ModuleType.__dict__['__dict__'].__get__
