"""The variables of a template at one of its lines, and expressions over them."""

from __future__ import absolute_import

import tmorvik26_vs2012_x64 as core

from sorrel.languages import jinja_code

# Of expressions that were compiled, as they may be conditions of breakpoints in loops.
_MOST = 64
_compiled = {}


def evaluate(text, frame):
    """The value of an expression of Jinja2's. Raises what it does, SyntaxError for no expression."""
    return _function(frame.f_globals['environment'], text)(of_frame(frame, True))


def of_frame(frame, with_globals=False):
    """The variables' values, by names. with_globals: also what the environment gives everybody."""
    context = frame.f_locals.get('context')
    found = {}
    if context is not None:
        common = frame.f_globals['environment'].globals
        for name, value in context.get_all().items():
            if with_globals or name not in common or common[name] is not value:
                found[name] = value
    variables = frame.f_locals
    for name, spellings in jinja_code.spelt(variables).items():
        for spelling in spellings:
            if not _is_missing(variables[spelling], frame):
                found[name] = variables[spelling]
                break
    return found


def assign(frame, name, value):
    """Gives a variable another value for what the template does from here on, its blocks and what it
    includes as well. Raises LookupError for one that it has not got.
    """
    variables, context = frame.f_locals, frame.f_locals.get('context')
    spellings = jinja_code.spelt(variables).get(name, [])
    of_template = [spelling for spelling in spellings if jinja_code.is_of_template(spelling)]
    is_in_context = context is not None and name in context.get_all()
    if not spellings and not is_in_context:
        raise LookupError('there is no variable %s here' % name)
    if spellings:
        there = [spelling for spelling in spellings
                 if not _is_missing(variables[spelling], frame)]
        spelling = (there or spellings)[0]
        variables[spelling] = value
        core.locals_to_fast(frame)
    if is_in_context and (not spellings or spelling in of_template):
        context.vars[name] = value


def _is_missing(value, frame):
    """What stands in a variable that the template has not set."""
    return value is frame.f_globals.get('missing', frame)


def _function(environment, text):
    key = id(environment), text
    # With the environment, so that no other one is ever at its address.
    known = _compiled.get(key)
    if known is None:
        if len(_compiled) >= _MOST:
            _compiled.clear()
        known = _compiled[key] = environment, _new_function(environment, text)
    return known[1]


def _new_function(environment, text):
    if isinstance(text, str):
        text = text.decode('utf-8')
    try:
        return environment.compile_expression(text, undefined_to_none=False)
    except Exception as error:
        # The engine's, with the line of a text that is none of the template's.
        raise SyntaxError(getattr(error, 'message', None) or str(error))
