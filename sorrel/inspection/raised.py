"""Exceptions of the program that are still on their way."""

from __future__ import absolute_import

import sys
import types

_MADE_IN_C = {'__init__': type(BaseException.__init__), '__new__': type(BaseException.__new__)}


def normalised(error):
    """An exception, (type, value, traceback), with the value that a handler would get.

    The interpreter makes that late, from what its C code has given as the value. It stays as it is
    where to make one would run code of the program.
    """
    kind, value, traceback = error
    if _is_made(value) or not _is_made_in_c(kind):
        return error
    try:
        raise kind, value, traceback
    except:
        made = sys.exc_info()
        return made if made[0] is kind else error


def during(error, function, *arguments):
    """Calls the function where sys.exc_info() is this exception, None for none.

    What the calling thread handles itself is the same as before when this is done. An exception
    that normalised() has left as it is makes no difference: to handle it would make its value.
    """
    if error is None or error[2] is None or not _is_made(error[1]):
        return function(*arguments)
    try:
        # With a traceback of its own it gets no entry for this frame.
        raise error[0], error[1], error[2]
    except:
        if sys.exc_info()[2] is not error[2]:
            raise  # Ended before it has begun.
        return function(*arguments)


def _is_made(value):
    return type(value) is types.InstanceType or issubclass(type(value), BaseException)


def _is_made_in_c(kind):
    if type(kind) is not type:
        return False
    for name, made_in_c in _MADE_IN_C.items():
        for base in kind.__mro__:
            if name in base.__dict__:
                if type(base.__dict__[name]) is not made_in_c:
                    return False
                break
    return issubclass(kind, BaseException)
