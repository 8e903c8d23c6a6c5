"""Modules of the program's that are called like such as the server has imported.

The interpreter would not look for them any more. What the server has keeps working: it holds all
that it uses of a module.
"""

from __future__ import absolute_import

import os
import pkgutil
import sys

import sorrel

# What is not in sys.modules any more: the interpreter empties a module that nothing refers to.
_kept = []


def make_way(folder):
    """The program, whose modules are looked for in this folder first, is to find those there."""
    known = set([_top(name) for name in sys.modules])
    known.difference_update([_top(name) for name in sorrel.imported_before], _top(__name__),
                            sys.builtin_module_names)
    importer = pkgutil.get_importer(folder)
    found = [name for name in known.intersection(_offered(folder, known))
             if _is_another(importer.find_module(name), name)]
    for name in sys.modules.keys():
        if _top(name) in found:
            _kept.append(sys.modules.pop(name))


def _top(name):
    return name.partition('.')[0]


def _offered(folder, names):
    """What there may be: those of the names that there are, and others."""
    try:
        return [_top(name) for name in os.listdir(folder or os.curdir)]
    except OSError:
        return names  # An archive knows all that it has.


def _is_another(loader, name):
    """Whether what the loader, if it is one, would load is not what is loaded."""
    if loader is None:
        return False
    get_filename = getattr(loader, 'get_filename', None) or loader._get_filename
    path = getattr(sys.modules.get(name), '__file__', None)
    return path is not None and _stem(get_filename(name)) != _stem(path)


def _stem(path):
    return os.path.splitext(os.path.realpath(path))[0]
