"""Expressions whose values are compared with what they were: what each reads, and when it changed.

Values are compared by what `repr` shows of them: two of the program's could be compared by its code
alone, and an object that has changed is the same one as before.
"""

from __future__ import absolute_import

import sys

from sorrel.common import errors
from sorrel.common.records import record
from sorrel.inspection import evaluation, trees

# Characters of a value that are shown.
_SHOWN = 1000
_OPTIMIZED = 1
# What can be changed in no place but the frame whose variable holds it.
_ATOMS = frozenset([bool, int, long, float, complex, str, unicode, type(None)])
# In an expression with none of these, only variables are read.
_REACHING = frozenset([
    'Attribute', 'Subscript', 'Call', 'Lambda', 'ListComp', 'SetComp', 'DictComp', 'GeneratorExp',
    'Repr', 'Yield'])
_NOTHING = object()
# What is raised for something that is not there, and tells of it by texts alone.
_FAILURES = frozenset([NameError, UnboundLocalError, AttributeError])

# text: as it is shown. mark: with it, tells the value from others.
Look = record('Look', 'text mark')
# What has the same meaning in a frame and outside of it has it here.
_Module = record('_Module', 'f_code f_globals f_locals')


class Watched(object):
    """frame: the one in which the expression has its meaning, until that is left; None where it
    reads only what is global. is_own: whether its value can be changed by code of the frame alone.
    atom: the value, where this one object cannot change. code, globals, variables: what gives the
    value, quickly; no code where more is to be done, and no variables where they are the frame's.
    """

    def __init__(self, source, frame):
        """Raises what compiling the expression raises."""
        self.atom = _NOTHING
        self._failure = None
        expression = evaluation.Expression(source, frame)
        nodes = trees.nodes(expression.tree())
        self._names = set([node.id for node in nodes if trees.name_of(node) == 'Name'])
        self._is_plain = not [node for node in nodes if trees.name_of(node) in _REACHING]
        self.frame = frame if _reads_variables(self._names, frame) else None
        self._place = self.frame or _Module(frame.f_code, frame.f_globals, frame.f_globals)
        self._is_plain = self._is_plain and self.frame is not None and _are_own(self._names, frame)
        self._value = self.understood(source)
        self.code = expression.code if expression.is_simple() else None
        self.globals = frame.f_globals
        self.variables = frame.f_globals if self.frame is None else None
        self.is_own = False
        # The Look that it is compared with.
        self.known = None
        self.known = self.changed()

    def fails_as_before(self):
        """Whether the exception that is being handled, of the quick way, shows no change."""
        type, error = sys.exc_info()[:2]
        return type in _FAILURES and (type, error.args) == self._failure

    def may_have_changed(self):
        """A wrong yes does no harm."""
        try:
            value = self._value()
            if repr(value) != self.known.text:
                return True
        except:
            return True
        self.atom = value if type(value) in _ATOMS else _NOTHING
        return False

    def changed(self):
        """The Look of the value, if it is another one than `known`; else None."""
        failure = None
        try:
            text = repr(self._value())
        except:
            type, error = sys.exc_info()[:2]
            text = '<not there: %s>' % errors.error_text(type, error)
            failure = type, getattr(error, 'args', None)
        self.is_own = self._is_plain and self._reads_atoms()
        look = Look(text, None) if len(text) <= _SHOWN \
            else Look(text[:_SHOWN] + '...', (len(text), hash(text)))
        if look == self.known:
            self._failure = failure
            return None
        self.atom, self._failure = _NOTHING, None
        return look

    def understood(self, source):
        """What gives the value of an expression in the same place. Raises what compiling raises."""
        return evaluation.Expression(source, self._place).value

    def _reads_atoms(self):
        variables = self.frame.f_locals
        return not [name for name in self._names
                    if name in variables and type(variables[name]) not in _ATOMS]


def _reads_variables(names, frame):
    if frame.f_locals is frame.f_globals:
        return False
    code = frame.f_code
    if not code.co_flags & _OPTIMIZED:
        return True  # Any name may be one.
    return bool(names.intersection(code.co_varnames + code.co_cellvars + code.co_freevars))


def _are_own(names, frame):
    """Whether no other code can give any of these another value."""
    code = frame.f_code
    return bool(code.co_flags & _OPTIMIZED) \
        and names.issubset(code.co_varnames + code.co_cellvars)
