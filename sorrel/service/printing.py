"""Whether a handler of the program prints the exception that it takes, told before it runs.

A handler does where it is one of those of the standard library that are known to, or where its
clause, or a function in Python that this calls, calls one of the functions that print tracebacks
or make texts of them. Nothing of the program's is run to find out.
"""

from __future__ import absolute_import

import __builtin__
import types

import _sorrel

from sorrel.common.records import record
from sorrel.inspection import bytecode, try_statements
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
# What follows the name of a function that is not called there.
_NO_CALL = ('STORE_', 'POP_TOP', 'COMPARE_OP', 'RAISE_', 'RETURN_', 'JUMP_', 'POP_JUMP_', 'BINARY_')
_UNKNOWN = object()

# What may be called. scopes: in which of them the name is looked up; None where there is none, but
# the value of an expression. attributes: the names that follow it.
_Chain = record('_Chain', 'scopes name attributes')
_LOCAL, _ANY, _GLOBAL = (0, 1), (0, 3), (1, 3)
# Stands among the chains for a call with "exc_info".
_SAYS_EXC_INFO = _Chain(None, 'exc_info', ())

# What was read from clauses and functions: by the ids of their code, which is kept.
_known = {}
_KNOWN_LIMIT = 500


def clause_prints(frame, offset, type):
    """Whether the except clause at this offset in the frame's code does, which takes this type."""
    code = frame.f_code
    if library_handlers.prints(frame, type, try_statements.is_bare_clause(code, offset)):
        return True
    chains = _chains(code, offset)
    return bool(chains) and _any_prints(
        chains, (frame.f_locals, frame.f_globals, frame.f_builtins), True)


def _any_prints(chains, scopes, goes_deeper):
    """scopes: where local variables, global and built-in ones are looked up."""
    for chain in chains:
        if chain is _SAYS_EXC_INFO:
            return True
        found = _UNKNOWN
        if chain.scopes is not None:
            found = _variable(chain.name, scopes[slice(*chain.scopes)])
        for name in chain.attributes:
            found = _attribute(found, name)
        if _prints(found, (chain.attributes or (None,))[-1], goes_deeper):
            return True
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
    return goes_deeper and _any_prints(
        _chains(found.func_code), ({}, variables, __builtin__.__dict__), False)


def _chains(code, clause=None):
    """What the except clause at this offset, or else the whole function, may call."""
    key = id(code), clause
    known = _known.get(key)
    if known is None:
        if len(_known) >= _KNOWN_LIMIT:
            _known.clear()
        read = bytecode.of_code(code).instructions if clause is None else \
            try_statements.clause_body(code, clause)
        known = _known[key] = list(_read(code, read)), code
    return known[0]


def _read(code, instructions):
    chain = None
    says_exc_info = False
    for one in instructions:
        if one.name == 'LOAD_ATTR' and chain is not None:
            name = code.co_names[one.argument]
            chain = chain._replace(attributes=chain.attributes + (name,))
            continue
        if chain is not None and not one.name.startswith(_NO_CALL):
            yield chain
        if says_exc_info and not _is_false(code, one):
            yield _SAYS_EXC_INFO
        says_exc_info = one.name == 'LOAD_CONST' and code.co_consts[one.argument] == 'exc_info'
        chain = _begun(code, one)


def _begun(code, one):
    if one.name == 'LOAD_NAME':
        return _Chain(_ANY, code.co_names[one.argument], ())
    if one.name == 'LOAD_GLOBAL':
        return _Chain(_GLOBAL, code.co_names[one.argument], ())
    if one.name == 'LOAD_FAST':
        return _Chain(_LOCAL, code.co_varnames[one.argument], ())
    if one.name == 'LOAD_DEREF':
        return _Chain(_LOCAL, (code.co_cellvars + code.co_freevars)[one.argument], ())
    # The value of a call, say, of which a method may be called next.
    return _Chain(None, None, ()) if one.name in ('CALL_FUNCTION', 'BINARY_SUBSCR') else None


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


def _is_false(code, one):
    """Whether this loads a value that is known to be false."""
    if one.name == 'LOAD_CONST':
        return not code.co_consts[one.argument]
    return one.name in ('LOAD_NAME', 'LOAD_GLOBAL') and code.co_names[one.argument] == 'False'
