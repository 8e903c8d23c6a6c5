"""Expressions and statements of the user, run in a frame of the program."""

import __future__
import _ast
import sys

import tmorvik26_vs2012_x64 as core

from sorrel.inspection import nesting

# Of a text that is evaluated, in characters.
_TEXT_LIMIT = 64 * 1024
_FUTURE_FLAGS = reduce(
    lambda flags, name: flags | getattr(__future__, name).compiler_flag,
    __future__.all_feature_names, 0)


def compiled(source, name, mode, flags=0, limit=_TEXT_LIMIT, branches=nesting.IN_THREAD):
    """The code of a text that is not the server's own: no other function compiles one.

    limit, branches: how much of it there may be. Raises as compile() does, which writes nothing
    then and does not end the process; nesting.TooMuch for what it is not given.
    """
    check_size(source, mode, limit, branches)
    return compile(source, name, mode, flags, True)


def check_expression(source):
    """Raises SyntaxError or TypeError, or MemoryError, for what is none."""
    # No more than the tree is made: in code, the compiler would compute what is constant.
    compiled(source, '<condition>', 'eval', _ast.PyCF_ONLY_AST)


def check_size(source, mode='eval', limit=_TEXT_LIMIT, branches=nesting.IN_THREAD):
    """Raises SyntaxError for what `compiled` does not try, in whatever language it is."""
    if len(source) > limit:
        raise nesting.TooMuch('longer than %d kB' % (limit >> 10))
    nesting.check(source, mode == 'eval', branches)


def _compile(source, mode, frame):
    # Understood as the frame's own module understands its source.
    return compiled(source, '<stdin>', mode, frame.f_code.co_flags & _FUTURE_FLAGS)


def expression(source, frame):
    """The value of an expression. Raises whatever evaluating it raises."""
    return eval(_compile(source.strip(), 'eval', frame), frame.f_globals, frame.f_locals)


def statement(source, frame, display):
    """Executes a statement, then gives the frame the values that its variables have now.

    The value of a statement that is an expression is given to `display`, if both aren't None.
    Raises whatever executing it raises.
    """
    code = _compile(source.strip() + '\n', 'single', frame)
    displayhook = sys.displayhook
    # Once: asking for f_locals again would bring back the old values.
    variables = frame.f_locals
    sys.displayhook = lambda value: display and value is not None and display(value)
    try:
        exec code in frame.f_globals, variables
    finally:
        sys.displayhook = displayhook
        core.locals_to_fast(frame)


def assigner(frame):
    """A function that gives a variable of the frame (name, value) another value."""
    def assign(name, value):
        variables = frame.f_locals
        variables[name] = value
        core.locals_to_fast(frame)
    return assign
