"""What stands in the module `os` for functions of it in C while the program is debugged."""

from __future__ import absolute_import

import os
import posix


class Replacement(object):
    """Stands for a function of C code: it is none that a class would bind."""

    def __init__(self, original, call):
        """call: is given the arguments, and returns those for the original."""
        self.__name__ = original.__name__
        self.__doc__ = original.__doc__
        self.__module__ = original.__module__
        self.__self__ = original.__self__
        self._original, self._call = original, call

    def __call__(self, *args, **keywords):
        if not keywords:
            args = self._call(*args)
        # Its errors are for what the program has asked for, whatever has come of the other.
        return self._original(*args, **keywords)

    def __repr__(self):
        return repr(self._original)

    def __reduce__(self):
        return self.__name__


def replace(old, new):
    """Puts functions in the places of others that have the same names."""
    for module in (os, posix):
        for before, after in zip(old, new):
            if getattr(module, before.__name__, None) is before:
                setattr(module, before.__name__, after)
