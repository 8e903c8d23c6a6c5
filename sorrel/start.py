"""Runs the debug server by this file, so that sys.path is the program's from the beginning:

    .../sorrel/start.py FOLDER (debug | COMMAND) [OPTIONS] [--] PROGRAM [ARGS...]

FOLDER holds the native modules; the rest is for sorrel.main.start(). The interpreter's options -E,
-s and -S make no difference here.
"""

from __future__ import absolute_import

import imp
import os
import sys

_NATIVE = ('tmorvik26_vs2012_x64', '_sorrel')


def _load(name, folder):
    if name in sys.modules:
        return  # SORREL_LISTEN has brought it.
    found = imp.find_module(name, [folder])
    try:
        imp.load_module(name, *found)
    finally:
        if found[0] is not None:
            found[0].close()


def _run(words):
    package = os.path.dirname(os.path.abspath(__file__))
    # As with -m, in place of this file's folder.
    sys.path[0] = ''
    _load('sorrel', os.path.dirname(package))
    from sorrel import main
    try:
        for name in _NATIVE:
            _load(name, words[0])
    except ImportError:
        pass  # What speaks against it is said there.
    return main.start(words[1:])


if __name__ == '__main__':
    if len(sys.argv) < 2:
        sys.exit('sorrel: this is for ./morvik, and for python -m sorrel')
    sys.exit(_run(sys.argv[1:]))
