"""The folders that the server's own modules are found in, which are no business of the program's."""

import os

import tmorvik26_vs2012_x64 as core

_SORREL = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
_FOLDERS = (os.path.dirname(_SORREL), os.path.dirname(os.path.abspath(core.__file__)))


def hide(environment):
    """Takes them out of the PYTHONPATH of an environment.

    Where both are one, the server is installed, and what else lies there may be the program's.
    """
    if _FOLDERS[0] == _FOLDERS[1]:
        return
    folders = environment.get('PYTHONPATH', '').split(os.pathsep)
    left = [folder for folder in folders if folder not in _FOLDERS]
    if left and left != ['']:
        environment['PYTHONPATH'] = os.pathsep.join(left)
    elif 'PYTHONPATH' in environment:
        del environment['PYTHONPATH']
