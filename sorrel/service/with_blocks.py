"""Whether what a with statement calls at its end will swallow an exception."""

from __future__ import absolute_import

import __builtin__
import contextlib
import types

import _sorrel

from sorrel.service import code_paths
from sorrel.service.code_paths import RAISES, RAISES_OTHER, RETURNS_FALSE, RETURNS_TRUE, Ways

# One may ask another, or wait in the midst of a with statement of its own.
_DEPTH = 3

_VARARGS, _GENERATOR = 0x4, 0x20

# Types in C that never swallow, as "module.name".
_NEVER = ('__builtin__.file', 'thread.lock', '_multiprocessing.SemLock', 'bz2.BZ2File',
          '_io._IOBase', 'zipimport.zipimporter', '_socket.socket')


def swallows(exit, kind, depth=0):
    """Whether it will swallow an exception of this class; None where that cannot be told.

    exit: a bound __exit__.
    """
    if depth > _DEPTH:
        return None
    function, owner = exit, ()
    if isinstance(exit, types.MethodType):
        function, owner = exit.im_func, (exit.im_self,)
    if isinstance(function, types.BuiltinMethodType):
        return False if _is_of_never(type(function.__self__)) else None
    if not isinstance(function, types.FunctionType):
        return None
    if function is contextlib.GeneratorContextManager.__exit__.im_func and owner:
        return _generator_swallows(code_paths.attribute(owner[0], 'gen'), kind, depth)
    if function.func_code.co_flags & _GENERATOR:
        return True
    return _function_swallows(function, owner, kind, depth)


def ends_of(frame, kind, to_clause, depth=0):
    """Where an exception leads that has come up in a frame: see Ways.from_raise."""
    def ask(exit, other):
        return swallows(exit, other, depth + 1)
    blocks = _sorrel.active_blocks(frame)
    if not blocks:
        return set([RAISES])
    return Ways(frame.f_code, variables_of(frame), namespaces_of(frame), kind, ask,
                to_clause).from_raise(blocks, frame.f_lasti)


def variables_of(frame):
    return lambda number: _sorrel.variable(frame, number)


def namespaces_of(frame):
    if frame.f_code.co_flags & 0x1:
        return frame.f_globals, frame.f_builtins
    return frame.f_locals, frame.f_globals, frame.f_builtins


def _is_of_never(kind):
    return any('%s.%s' % (base.__module__, base.__name__) in _NEVER for base in kind.__mro__)


def _generator_swallows(generator, kind, depth):
    if not isinstance(generator, types.GeneratorType) or generator.gi_frame is None:
        return None
    frame = generator.gi_frame
    if frame.f_code is _NESTED:
        return _nested_swallows(frame, kind, depth)
    ends = ends_of(frame, kind, False, depth)
    if ends == set([RAISES]):
        return False
    # Where it returns, waits once more or raises another one, this one is gone.
    return None if RAISES in ends or code_paths.UNCLEAR in ends else True


def _nested_swallows(frame, kind, depth):
    """contextlib.nested asks each in turn, the innermost first."""
    answer = False
    exits = code_paths.value_or_unknown(
        _sorrel.variable, frame, frame.f_code.co_varnames.index('exits'))
    for exit in reversed(exits if isinstance(exits, list) else ()):
        one = swallows(exit, kind, depth + 1)
        if one:
            return True
        answer = answer if one is False else None
    return answer


def _function_swallows(function, owner, kind, depth):
    def ask(exit, other):
        return swallows(exit, other, depth + 1)
    code = function.func_code
    arguments = owner + (kind, code_paths.THE_EXCEPTION, code_paths.UNKNOWN)
    if code.co_flags & _VARARGS and code.co_argcount < len(arguments):
        arguments = arguments[:code.co_argcount] + (arguments[code.co_argcount:],)
    ends = Ways(code, _cells_of(function), (function.func_globals, __builtin__.__dict__), kind,
                ask).from_start(arguments)
    # An error of its own on some way is none of its answers.
    answers = ends.difference([RAISES_OTHER])
    if not answers or answers == set([RETURNS_TRUE]):
        return True
    return False if answers.issubset([RETURNS_FALSE, RAISES]) else None


def _cells_of(function):
    code = function.func_code
    first = code.co_nlocals + len(code.co_cellvars)

    def load(number):
        try:
            return function.func_closure[number - first].cell_contents
        except (ValueError, IndexError, TypeError):
            raise LookupError
    return lambda number: load(number) if number >= first else _nothing()


def _nothing():
    raise LookupError


_NESTED = None
for _cell in getattr(contextlib.nested, 'func_closure', None) or ():
    if isinstance(_cell.cell_contents, types.FunctionType):
        _NESTED = _cell.cell_contents.func_code
