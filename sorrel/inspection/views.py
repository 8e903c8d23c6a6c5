"""Frames that stand for a line of a language: its variables there, and what is evaluated there.

A hook may have `_Variables(frame)`, which answers a dict of the variables by their names, and
`_SetVariable(frame, name, value)`. What is asked of a frame is Python's then where it is no
expression of the language, over the same variables.
"""

from __future__ import absolute_import

from sorrel.inspection import evaluation
from sorrel.languages import sublanguages

# In what is executed, what an expression is to be made equal to.
_VALUE = '__value__'


class View(object):

    def __init__(self, hook, frame):
        self._hook = hook
        self._frame = frame

    def variables(self):
        """A new dict. Raises what the hook does."""
        return dict(self._hook._Variables(self._frame))

    def known(self):
        """The same; {} where the hook fails, which is told when the values are asked for."""
        try:
            return self.variables()
        except Exception:
            return {}

    def can_assign(self):
        return hasattr(self._hook, '_SetVariable')

    def assign(self, name, value):
        """For what the program does in this frame from now on. Raises LookupError where that has
        none of this name that it could give another value.
        """
        if not self.can_assign():
            raise LookupError('variables of this language cannot be changed')
        self._hook._SetVariable(self._frame, name, value)

    def set(self, expression, value):
        """Makes a variable, or a part of one, equal to a value."""
        self._execute('%s = %s' % (expression, _VALUE), None, {_VALUE: value})

    def value(self, text):
        """Of an expression. Raises whatever evaluating it raises, SyntaxError for none."""
        evaluate = getattr(self._hook, '_Eval', None)
        if evaluate is None:
            return self._python(text)
        try:
            return evaluate(text, self._frame)
        except SyntaxError, error:
            try:
                evaluation.check_expression(text.strip())
            except Exception:
                raise error
        return self._python(text)

    def run(self, text, display):
        """An expression's value, or a statement of Python's, as evaluation.statement()."""
        try:
            evaluation.check_expression(text.strip())
        except Exception:
            if evaluation.is_whole(text, None):
                self._execute(text, display, {})
                return
        value = self.value(text)
        if display and value is not None:
            display(value)

    def _python(self, text):
        variables = self.variables()
        return eval(evaluation.compiled(text.strip(), '<stdin>', 'eval'), variables)

    def _execute(self, text, display, lent):
        before = dict(self.variables(), **lent)
        after = dict(before)
        evaluation.statement_apart(text, None, after, display)
        for name, value in after.items():
            if name != '__builtins__' and (name not in before or before[name] is not value):
                self.assign(name, value)


def view(thread, frame):
    """The View of a frame of this thread (its ident), if it is one of a language's whose hook tells
    of variables; else None.
    """
    language = sublanguages.at_work(thread, frame)
    if sublanguages.location(language, frame) is None:
        return None
    hook = language.of(frame).hook
    return View(hook, frame) if hasattr(hook, '_Variables') else None


def evaluator(thread, frame):
    """A function for expressions of the language that this frame stands for, or None."""
    found = view(thread, frame)
    if found is not None:
        return found.value
    language = sublanguages.at_work(thread, frame)
    if language is None or not language.is_key(frame):
        return None
    evaluate = getattr(language.of(frame).hook, '_Eval', None)
    return evaluate and (lambda expression: evaluate(expression, frame))
