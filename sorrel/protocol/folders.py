"""Folders as clients name them: of this system or of Windows."""

from __future__ import absolute_import

import os

from sorrel.protocol.messages import Refused


def is_of_windows(path):
    return '\\' in path or path[1:2] == ':'


def is_full(path):
    """Whether a name of a folder, or an address of one, says by itself where that is."""
    return path.startswith('/') or is_of_windows(path) or '://' in path


def in_home(path):
    """A path that may begin with "~". Raises Refused where it is not known what that means."""
    if path != '~' and not path.startswith('~/'):
        return path
    # The library's function may import a module, which the calling thread must not wait for.
    home = os.environ.get('HOME')
    if not home:
        raise Refused('%s: there is no home folder' % path)
    return home + path[1:]
