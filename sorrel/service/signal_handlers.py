"""The program's signal handlers, which may be called between any two instructions of the server's."""

from __future__ import absolute_import

import functools
import signal
import types

# Taken now: what stands for it later says what the program is to see.
_getsignal = signal.getsignal


def have_raised(traceback):
    """Whether one that the program has set by now was running where an exception was raised."""
    codes = [_code(_getsignal(number)) for number in range(1, signal.NSIG)]
    while traceback is not None:
        if traceback.tb_frame.f_code in codes:
            return True
        traceback = traceback.tb_next
    return False


def _code(handler):
    """What is run in a frame when it is called; None for nothing. Looks nothing up dynamically."""
    if type(handler) is functools.partial:
        return _code(handler.func)
    if type(handler) is types.MethodType:
        handler = handler.im_func
    if type(handler) is types.FunctionType:
        return handler.func_code
    is_instance = type(handler) is types.InstanceType
    for cls in old_style_mro(handler.__class__) if is_instance else type(handler).__mro__:
        if '__call__' in cls.__dict__:
            return getattr(cls.__dict__['__call__'], 'func_code', None)
    return None


def old_style_mro(cls):
    """An old-style class and its bases, in the order in which attributes are looked up."""
    yield cls
    for base in cls.__bases__:
        for one in old_style_mro(base):
            yield one
