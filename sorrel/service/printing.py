"""Whether a handler of the program prints the exception that it takes, told before it runs.

A handler does where it is one of those of the standard library that are known to, or where its
clause, or a function in Python that this calls, calls one of the functions that print tracebacks
or make texts of them. Nothing of the program's is run to find out.
"""

import __builtin__
import types

import _sorrel

from sorrel.inspection import try_statements
from sorrel.service import library_handlers

# By the modules that have them. They are known by their names alone where it cannot be told whose
# method is called.
_PRINTERS = {
    'traceback': ('print_exc', 'print_exception', 'print_last', 'print_tb',
                  'format_exc', 'format_exception', 'format_tb'),
    'logging': ('exception',),
    'sys': ('excepthook', '__excepthook__'),
    'cgitb': ('handle', 'handler', 'html', 'text'),
    'code': ('showtraceback',),
}
_NAMES = frozenset(_PRINTERS['traceback'] + _PRINTERS['logging'] + ('excepthook', 'showtraceback'))
_LOADS_NAME = ('LOAD_NAME', 'LOAD_GLOBAL')
# What follows the name of a function that is not called there.
_NO_CALL = ('STORE_', 'POP_TOP', 'COMPARE_OP', 'RAISE_', 'RETURN_', 'JUMP_', 'POP_JUMP_', 'BINARY_')
_UNKNOWN = object()


def clause_prints(frame, offset, type):
    """Whether the except clause at this offset in the frame's code does, which takes this type."""
    if library_handlers.prints(frame, type, try_statements.is_bare_clause(frame.f_code, offset)):
        return True
    scopes = frame.f_locals, frame.f_globals, frame.f_builtins
    body = try_statements.clause_body(frame.f_code, offset)
    return _calls_printer(frame.f_code, body, scopes, True)


def _calls_printer(code, instructions, scopes, goes_deeper):
    """scopes: where local variables, global and built-in ones are looked up."""
    found, name = _UNKNOWN, None
    is_chain = False
    says_exc_info = False
    for instruction in instructions:
        kind = instruction.name
        if kind == 'LOAD_ATTR' and is_chain:
            name = code.co_names[instruction.argument]
            found = _attribute(found, name)
            continue
        if is_chain and not kind.startswith(_NO_CALL) and _prints(found, name, goes_deeper):
            return True
        if says_exc_info and not _is_false(code, instruction):
            return True
        says_exc_info = kind == 'LOAD_CONST' and code.co_consts[instruction.argument] == 'exc_info'
        is_chain = True
        if kind in _LOADS_NAME:
            found = _variable(code.co_names[instruction.argument],
                              scopes if kind == 'LOAD_NAME' else scopes[1:])
            name = None
        elif kind == 'LOAD_FAST':
            found, name = _variable(code.co_varnames[instruction.argument], scopes[:1]), None
        elif kind == 'LOAD_DEREF':
            cells = code.co_cellvars + code.co_freevars
            found, name = _variable(cells[instruction.argument], scopes[:1]), None
        else:
            # The value of a call, say, whose attribute may be called next.
            is_chain = kind in ('CALL_FUNCTION', 'BINARY_SUBSCR')
            found = name = _UNKNOWN
    return False


def _prints(found, name, goes_deeper):
    """Whether a function that is called does. name: the attribute that it was found as, if any."""
    if found is _UNKNOWN:
        return name in _NAMES
    found = _function_in(found)
    if type(found) is types.BuiltinFunctionType:
        return found.__name__ in _PRINTERS.get(found.__module__, ())
    if type(found) is not types.FunctionType:
        return False
    variables = found.func_globals
    if found.func_name in _PRINTERS.get(variables.get('__name__'), ()):
        return True
    code = found.func_code
    return goes_deeper and _calls_printer(
        code, try_statements.instructions(code), ({}, variables, __builtin__.__dict__), False)


def _variable(name, scopes):
    for scope in scopes:
        found = scope.get(name, _UNKNOWN) if type(scope) is dict else _UNKNOWN
        if found is not _UNKNOWN:
            return found
    return _UNKNOWN


def _attribute(owner, name):
    if owner is _UNKNOWN:
        return _UNKNOWN
    try:
        return _function_in(_sorrel.static_attribute(owner, name))
    except LookupError:
        pass
    # What is computed may be no more than the method that a function of its class makes.
    kind = owner.__class__ if type(owner) is types.InstanceType else type(owner)
    try:
        found = _function_in(_sorrel.static_attribute(kind, name))
    except LookupError:
        return _UNKNOWN
    return found if type(found) is types.FunctionType else _UNKNOWN


def _function_in(found):
    if type(found) in (staticmethod, classmethod):
        found = found.__get__(None, object)
    return found.im_func if type(found) is types.MethodType else found


def _is_false(code, instruction):
    """Whether this loads a value that is known to be false."""
    if instruction.name == 'LOAD_CONST':
        return not code.co_consts[instruction.argument]
    return instruction.name in _LOADS_NAME and code.co_names[instruction.argument] == 'False'
