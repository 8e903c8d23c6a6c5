"""What stands in modules for functions of theirs in C while the program is debugged."""

from __future__ import absolute_import

import os
import posix


class Replacement(object):
    """Stands for a function of C code: it is none that a class would bind."""

    def __init__(self, original, call, answer=None):
        """call: is given the arguments, and returns those for the original.

        answer: is given what the original returns, and returns what the caller gets.
        """
        self.__name__ = original.__name__
        self.__doc__ = original.__doc__
        self.__module__ = original.__module__
        self.__self__ = original.__self__
        self._original, self._call, self._answer = original, call, answer

    def __call__(self, *args, **keywords):
        if not keywords:
            args = self._call(*args)
        # Its errors are for what the program has asked for, whatever has come of the other.
        result = self._original(*args, **keywords)
        return result if self._answer is None else self._answer(result)

    def __repr__(self):
        return repr(self._original)

    def __reduce__(self):
        return self.__name__


def replace(old, new, modules=(os, posix)):
    """Puts functions in the places of others that have the same names."""
    for module in modules:
        for before, after in zip(old, new):
            if getattr(module, before.__name__, None) is before:
                setattr(module, before.__name__, after)
