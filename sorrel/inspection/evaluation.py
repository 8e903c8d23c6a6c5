"""Expressions and statements of the user, run in a frame of the program."""

from __future__ import absolute_import

import __future__
import sys
import UserDict

import tmorvik26_vs2012_x64 as core

from sorrel.inspection import nesting, raised

# As the module _ast has it, which is a large one for a program that evaluates nothing.
_ONLY_AST = 0x400
# Of a text that is evaluated, in characters.
_TEXT_LIMIT = 64 * 1024
# Different bits, where a feature has one.
_FUTURE_FLAGS = sum(set([getattr(__future__, name).compiler_flag
                         for name in __future__.all_feature_names]))


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
    compiled(source, '<condition>', 'eval', _ONLY_AST)


def check_size(source, mode='eval', limit=_TEXT_LIMIT, branches=nesting.IN_THREAD):
    """Raises SyntaxError for what `compiled` does not try, in whatever language it is."""
    if len(source) > limit:
        raise nesting.TooMuch('longer than %d kB' % (limit >> 10))
    nesting.check(source, mode == 'eval', branches)


def _compile(source, mode, frame):
    # Understood as the frame's own module understands its source.
    return compiled(source, '<stdin>', mode, frame.f_code.co_flags & _FUTURE_FLAGS)


def expression(source, frame, lent={}):
    """The value of an expression. Raises whatever evaluating it raises.

    lent: values for names that are not the program's.
    """
    code = _compile(source.strip(), 'eval', frame)
    return eval(code, frame.f_globals, _variables(code, frame, lent))


def statement(source, frame, display, lent={}):
    """Executes a statement, then gives the frame the values that its variables have now.

    The value of a statement that is an expression is given to `display`, if both aren't None.
    Raises whatever executing it raises.
    """
    code = _compile(source.strip() + '\n', 'single', frame)
    displayhook = sys.displayhook
    # Once: asking for f_locals again would bring back the old values.
    variables = _variables(code, frame, lent)
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


class Evaluator(object):
    """Evaluates what is typed at one stop.

    names: what is lent for that, by names such as "__exception__"; the program's own come first.
    """

    def __init__(self, error=None, names=()):
        """error: what is sys.exc_info() for what is evaluated; None for what it is anyway."""
        self._error = error
        self.names = dict(names)

    def call(self, function, *arguments):
        return raised.during(self._error, function, *arguments)

    def expression(self, source, frame):
        return self.call(expression, source, frame, self.names)

    def statement(self, source, frame, display):
        self.call(statement, source, frame, display, self.names)

    def remember(self, value):
        """The value of what was typed last has a name, too."""
        if value is not None:
            self.names['_'] = value

    def forget(self):
        """Nothing of the program is kept alive while it runs."""
        self._error = None
        self.names.clear()


def is_of_program(name, frame):
    """Whether the program has something of this name, as the frame sees it."""
    return name in frame.f_locals or name in frame.f_globals or name in frame.f_builtins


def _variables(code, frame, lent):
    """The frame's own dictionary, unless the code makes use of a name that is only lent."""
    used = [name for name in code.co_names if name in lent and not is_of_program(name, frame)]
    variables = frame.f_locals
    return _Lending(variables, dict((name, lent[name]) for name in used)) if used else variables


class _Lending(UserDict.DictMixin):
    """The variables of a frame, and what is lent to the code that uses them."""

    def __init__(self, variables, lent):
        self._variables = variables
        self._lent = lent

    def __getitem__(self, name):
        try:
            return self._variables[name]
        except KeyError:
            return self._lent[name]

    def __setitem__(self, name, value):
        self._variables[name] = value

    def __delitem__(self, name):
        del self._variables[name]

    def keys(self):
        return self._variables.keys()
