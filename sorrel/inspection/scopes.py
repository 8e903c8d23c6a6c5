"""Texts that are evaluated in a frame, understood as if they stood in its function.

The interpreter takes a text for one of a module: for the functions in it, lambdas and generators
included, the variables of a frame are neither local nor global. So the text becomes a function that
has these variables, and that those functions lie in.
"""

from __future__ import absolute_import

import __builtin__
import re
import types

from sorrel.inspection import bytecode, trees

_NAME = re.compile(r'[^\W\d]\w*$')
_STORED = 'STORE_NAME', 'DELETE_NAME'
_GLOBAL = 'LOAD_GLOBAL', 'STORE_GLOBAL', 'DELETE_GLOBAL'
# Names of a statement's function that are none of the program's.
FUNCTION, _DISPLAY, _LOCALS, _SAVE = '.function', '.display', '.locals', '.save'
# Taken now: a program may replace what the interpreter's modules offer.
_locals = locals


def names_used(code):
    """The names that this code and the functions inside it use, attributes included."""
    return set(code.co_names).union(_names_in_functions(code))


def has_functions(code):
    """Whether there are any inside this code."""
    return bool([constant for constant in code.co_consts if isinstance(constant, types.CodeType)])


def has_functions_with(code, variables):
    """Whether functions inside this code seem to use some of the variables, or what it sets."""
    names = _names_in_functions(code)
    return bool(names.intersection(_names_of_operations(code, _STORED))
                or [name for name in names if name in variables])


def value(tree, code, globals, variables, compiled):
    """Of an expression. tree, code: what it was parsed to and compiled to.

    compiled: as compile(), for a tree and a mode.
    """
    kinds = trees.Kinds()
    names = _names_of(variables, code)
    function = kinds.Lambda(_parameters(kinds, names), tree.body)
    made = eval(compiled(kinds.Expression(_placed(function)), 'eval'), globals)
    return made(*[variables[name] for name in names])


class Statement(object):

    def __init__(self, tree, code, globals, variables, compiled):
        """With the same arguments. Raises SyntaxError for what can stand in a module alone."""
        kinds = trees.Kinds()
        self._globals = globals
        self._variables = variables
        self._given = _given(code, globals, variables)
        self._names = list(self._given)
        _display_values(kinds, tree.body)
        save = _call(kinds, _SAVE, [_call(kinds, _LOCALS, [])])
        end = _placed(kinds.Expr(save), _last_line(tree))
        body = [_placed(kinds.TryFinally(tree.body, [end]))]
        parameters = _parameters(kinds, [_DISPLAY, _LOCALS, _SAVE] + self._names)
        self._code = compiled(kinds.Interactive(
            [_placed(kinds.FunctionDef(FUNCTION, parameters, body, []))]), 'single')

    def run(self, display):
        """display: called with the values of expressions that are statements."""
        made, saved = {}, []
        exec self._code in self._globals, made
        try:
            made[FUNCTION](
                display, _locals, saved.append, *[self._given[name] for name in self._names])
        finally:
            for left in saved:
                _give_back(self._variables, self._given, left)


def _names_in_functions(code):
    found = set()
    for constant in code.co_consts:
        if isinstance(constant, types.CodeType):
            found.update(names_used(constant))
    return found


def _names_of(variables, code):
    """All, since the text may ask for them in other ways, and those lent to it by name."""
    names = set([name for name in variables.keys() if type(name) is str and _NAME.match(name)])
    names.update([name for name in names_used(code) if name in variables])
    return list(names)


def _given(code, globals, variables):
    """The variables that a statement begins with."""
    declared = _names_of_operations(code, _GLOBAL)
    given = dict([(name, variables[name]) for name in _names_of(variables, code)
                  if name not in declared])
    # A name that is set in a function is a local one there from the beginning on.
    for name in _names_of_operations(code, _STORED):
        for outer in globals, __builtin__.__dict__:
            if name not in given and name in outer:
                given[name] = outer[name]
    return given


def _give_back(variables, given, left):
    for name in given:
        if name not in left and name in variables:
            del variables[name]
    for name, value in left.items():
        if not name.startswith('.') and not (name in given and given[name] is value):
            variables[name] = value


def _names_of_operations(code, operations):
    return set([code.co_names[one.argument] for one in bytecode.of_code(code).instructions
                if one.name in operations])


# Trees.

def _placed(node, line=1):
    node.lineno, node.col_offset = line, 0
    return node


def _last_line(tree):
    """The compiler of 2.6 takes no statement that stands above the one before."""
    return max([1] + [node.lineno for node in trees.nodes(tree) if hasattr(node, 'lineno')])


def _parameters(kinds, names):
    parameters = [_placed(kinds.Name(name, kinds.Param())) for name in names]
    return kinds.arguments(parameters, None, None, [])


def _call(kinds, name, arguments):
    return _placed(kinds.Call(_placed(kinds.Name(name, kinds.Load())), arguments, [], None, None))


def _display_values(kinds, statements):
    """Expressions that are statements do what they do at an interpreter's prompt."""
    for statement in statements:
        if trees.name_of(statement) == 'Expr':
            statement.value = _call(kinds, _DISPLAY, [statement.value])
        elif trees.name_of(statement) not in ('FunctionDef', 'ClassDef'):
            for name in 'body', 'orelse', 'finalbody':
                block = getattr(statement, name, None)
                if isinstance(block, list):
                    _display_values(kinds, block)
            for handler in getattr(statement, 'handlers', None) or []:
                _display_values(kinds, handler.body)
