"""The folders that the server's own modules are found in, which are no business of the program's."""

from __future__ import absolute_import

import os

try:
    import tmorvik26_vs2012_x64 as core
except ImportError:
    core = None  # The adapter needs none.

_SORREL = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def _own():
    folder = os.path.dirname(_SORREL)
    if core is None:
        return [folder]
    of_core = os.path.dirname(os.path.abspath(core.__file__))
    if of_core == folder:
        return []
    # One that is installed is there for others.
    is_installed = os.path.isdir(os.path.join(of_core, os.path.basename(_SORREL)))
    return [folder] if is_installed else [folder, of_core]


_FOLDERS = _own()


def hide(environment, path=None):
    """Takes them out of the PYTHONPATH of an environment, and out of a sys.path that has them by it.

    Where both are one, the server is installed, and what else lies there may be the program's.
    """
    if not _FOLDERS:
        return
    folders = environment.get('PYTHONPATH', '').split(os.pathsep)
    left = [folder for folder in folders if folder not in _FOLDERS]
    if left == folders:
        return
    if left and left != ['']:
        environment['PYTHONPATH'] = os.pathsep.join(left)
    else:
        del environment['PYTHONPATH']
    if path is not None:
        path[:] = path[:1] + [folder for folder in path[1:] if folder not in _FOLDERS]
