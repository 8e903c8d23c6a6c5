"""The variables of Django's templates, and expressions over them."""

from __future__ import absolute_import

import sys

# What is there in every template, beside its own.
_CONSTANTS = ('True', 'False', 'None', 'block')


def of_context(context):
    """The variables' values, by names."""
    found = {}
    for scope in context.dicts:
        for name, value in scope.items():
            if name not in _CONSTANTS:
                found[str(name)] = value
    return found


def assign(context, name, value):
    """Gives a variable another value, where the template finds it. Raises LookupError for one that
    is not there.
    """
    for scope in reversed(context.dicts):
        if name in scope:
            scope[name] = value
            return
    raise LookupError('there is no variable %s here' % name)


def evaluate(text, context, base):
    """The value of what could stand in {{ }}, or of Python; or of what could stand after "if".
    Raises SyntaxError for what is none of these.

    base: django.template.base.
    """
    text = text.strip()
    parser = _parser(context, base)
    try:
        expression = parser.compile_filter(text)
    except base.TemplateSyntaxError, error:
        return _python_or_test(text, context, base, parser, error)
    variable = expression.var
    if hasattr(variable, 'resolve') and not expression.filters:
        try:
            return variable.resolve(context)
        except base.VariableDoesNotExist, error:
            raise LookupError(str(error))
    return expression.resolve(context)


def _python_or_test(text, context, base, parser, error):
    try:
        code = compile(text, '<string>', 'eval')
    except SyntaxError:
        return _test(text, base, parser, error).eval(context)
    variables = of_context(context)
    return eval(code, variables, variables)


def _test(text, base, parser, error):
    tests = sys.modules['django.template.defaulttags'].TemplateIfParser
    try:
        words = list(base.Token(base.TOKEN_BLOCK, text).split_contents())
        return tests(parser, words).parse()
    except base.TemplateSyntaxError:
        raise SyntaxError(str(error))


def _parser(context, base):
    """One that knows the filters of all libraries; those that are built in come first."""
    engine = getattr(getattr(context, 'template', None), 'engine', None)
    if engine is None:
        parser, libraries = base.Parser([]), getattr(base, 'libraries', {})
    else:
        parser = base.Parser([], engine.template_libraries, engine.template_builtins)
        libraries = engine.template_libraries
    for library in libraries.values():
        for name, function in library.filters.items():
            parser.filters.setdefault(name, function)
    return parser
