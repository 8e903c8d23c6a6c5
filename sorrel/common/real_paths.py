"""The real names of many files at once."""

from __future__ import absolute_import

import os


class RealPaths(object):
    """os.path.realpath, which looks at every folder on the way, where each folder is met but once.

    To be dropped soon: a link may lead elsewhere tomorrow.
    """

    def __init__(self):
        self._folders = {}

    def of(self, path):
        folder, name = os.path.split(path)
        if name in ('', '.', '..') or os.path.islink(path):
            return os.path.realpath(path)
        real = self._folders.get(folder)
        if real is None:
            real = self._folders[folder] = os.path.realpath(folder)
        return os.path.join(real, name)
