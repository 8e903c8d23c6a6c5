"""The variables of one of Chameleon's templates at one of its lines, and expressions over them."""

from __future__ import absolute_import

import re
import sys
import weakref

_TYPE = re.compile(r'\s*([a-z][a-z0-9_-]*):(.*)$', re.S)
# How an expression of a template spells what its values are converted with.
_CONVERTING = ('decode', 'convert', 'translate')
# By templates, what evaluates expressions of theirs; it keeps what it has compiled.
_evaluators = weakref.WeakKeyDictionary()


def of_frame(frame):
    """The variables' values, by names."""
    found = {}
    for scope in reversed(_scopes(frame)):
        for name in list(dict.keys(scope)):
            # The others are the engine's own.
            if not name.startswith('__'):
                found[str(name)] = dict.__getitem__(scope, name)
    return found


def assign(frame, name, value):
    """Gives a variable another value. Raises LookupError where there is none of that name."""
    for scope in _scopes(frame):
        if dict.__contains__(scope, name) and not name.startswith('__'):
            dict.__setitem__(scope, name, value)
            return
    raise LookupError('no variable %s here' % name)


def evaluate(text, frame, template):
    """The value of an expression. Raises what it does, SyntaxError for none of the template's.

    template: None where it is not known; there is no expression then.
    """
    if template is None:
        raise SyntaxError('the template is not known')
    kind, expression = _kind_and_expression(text, template)
    scope = _scopes(frame)[0].copy()
    try:
        return _evaluator(template, scope)(scope, {}, kind, _decoded(expression))
    except sys.modules['chameleon.exc'].TemplateError, error:
        # The others of its lines are about a place in a text that is none of the template's.
        raise SyntaxError(str(error).split('\n')[0])


def _scopes(frame):
    """Where variables are looked for; what is defined for all of a rendering is in the last one."""
    scope = frame.f_locals['econtext']
    root = getattr(scope, '_root', None)
    return [scope] if root is None or root is scope else [scope, root]


def _kind_and_expression(text, template):
    match = _TYPE.match(text)
    if match and match.group(1) in template.expression_types:
        return match.groups()
    return template.default_expression, text.strip()


def _evaluator(template, scope):
    known = _evaluators.get(template)
    if known is None:
        names = dict(template.builtins)
        names.update(template.extra_builtins)
        # A template's own functions have these in variables.
        names.update([(name, scope['__' + name]) for name in _CONVERTING])
        compiler = sys.modules['chameleon.compiler']
        known = compiler.ExpressionEvaluator(template.engine, names)
        _evaluators[template] = known
    return known


def _decoded(text):
    return text if isinstance(text, unicode) else text.decode('utf-8')
