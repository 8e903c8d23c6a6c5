"""Expressions and statements of the user, run in a frame of the program."""

from __future__ import absolute_import

import __future__
import codecs
import re
import sys
import UserDict

import tmorvik26_vs2012_x64 as core

from sorrel.inspection import nesting, pasted_texts, private_names, raised, scopes, trees

# As the module codeop has it: a block may go on after the end of the text.
_NO_END_OF_BLOCK = 0x200
# Of a text that is evaluated, in characters.
_TEXT_LIMIT = 64 * 1024
_HIGH = re.compile(r'[\x80-\xff]')
# Shown before the last one of several statements, and never else.
_LAST = '.last statement'
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


def said_to_be_utf8(source):
    """A text that was typed, as the compiler knows what its characters beyond ASCII are."""
    if isinstance(source, unicode) or not _HIGH.search(source) \
            or source.startswith(codecs.BOM_UTF8):
        return source
    try:
        source.decode('utf-8')
    except UnicodeDecodeError:
        return source
    return codecs.BOM_UTF8 + source


def _compiled(source, mode, flags, name='<stdin>'):
    """The same of what is typed."""
    return compiled(said_to_be_utf8(source), name, mode, flags)


def check_expression(source):
    """Raises SyntaxError or TypeError, or MemoryError, for what is none."""
    # No more than the tree is made: in code, the compiler would compute what is constant.
    _compiled(source, 'eval', trees.ONLY_TREE, '<condition>')


def check_size(source, mode='eval', limit=_TEXT_LIMIT, branches=nesting.IN_THREAD):
    """Raises SyntaxError for what `compiled` does not try, in whatever language it is."""
    if len(source) > limit:
        raise nesting.TooMuch('longer than %d kB' % (limit >> 10))
    nesting.check(source, mode == 'eval', branches)


def is_whole(source, frame):
    """Whether a line is a statement by itself."""
    try:
        _tree(source + '\n', 'single', frame)
    except Exception:
        return False
    return True


def is_begun(source, frame):
    """Whether a text is the beginning of a statement, which further lines may complete.

    As code.compile_command() has it: a block is complete when an empty line follows.
    """
    if not source.strip():
        return False
    errors = []
    for end in '', '\n', '\n\n':
        try:
            _tree(source + end, 'single', frame, _NO_END_OF_BLOCK)
            if not end:
                return False
            errors.append(None)
        except SyntaxError as error:
            errors.append(repr(error))
        except Exception:
            return False
    return errors[1] is None or errors[1] != errors[2]


def _tree(source, mode, frame, flags=0):
    return _compiled(source, mode, _flags(frame) | flags | trees.ONLY_TREE)


def _flags(frame):
    # Understood as the frame's own module understands its source; None where that is not here.
    return frame.f_code.co_flags & _FUTURE_FLAGS if frame is not None else 0


class _Text(object):
    """What is evaluated in a frame, with the meaning that it would have there."""

    def __init__(self, source, mode, frame):
        self._source = source
        self._mode = mode
        self._frame = frame
        self._class = private_names.class_of(frame) if private_names.are_in(source) else None
        self.code = self._code()

    def _code(self):
        if self._class is None:
            return _compiled(self._source, self._mode, _flags(self._frame))
        return self.compiled(self.tree(), self._mode)

    def tree(self):
        """A new one each time: it may be changed."""
        tree = self._parsed()
        if self._class is not None:
            private_names.of_class(tree, self._class)
        return tree

    def _parsed(self):
        return _tree(self._source, self._mode, self._frame)

    def compiled(self, tree, mode):
        return compile(tree, '<stdin>', mode, _flags(self._frame), True)

    def needs_function(self, variables):
        return self._frame.f_locals is not self._frame.f_globals \
            and scopes.has_functions_with(self.code, variables)

    def function(self, variables):
        """A statement as a function; None for one that can stand in a module alone."""
        try:
            return scopes.Statement(
                self.tree(), self.code, self._frame.f_globals, variables, self.compiled)
        except SyntaxError:
            return None


class Expression(_Text):
    """One that may be evaluated many times in its frame. Raises what compiling it raises."""

    def __init__(self, source, frame):
        _Text.__init__(self, source.strip(), 'eval', frame)
        self._has_functions = scopes.has_functions(self.code)

    def value(self, lent={}):
        """Raises whatever evaluating it raises. lent: values for names that are not the program's.
        """
        globals = self._frame.f_globals
        variables = _variables(self.code, self._frame, lent) if lent else self._frame.f_locals
        if self._has_functions and self.needs_function(variables):
            return scopes.value(self.tree(), self.code, globals, variables, self.compiled)
        return eval(self.code, globals, variables)

    def is_simple(self):
        """Whether evaluating its code over the frame's variables gives the value."""
        return not self._has_functions


class _Statements(_Text):
    """Any number of statements, as if they stood in one line at an interpreter's prompt.

    The value that tells of the last one is given to display hooks right before it.
    """

    def __init__(self, source, frame):
        _Text.__init__(self, source, 'single', frame)

    def _code(self):
        return self.compiled(self.tree(), self._mode)

    def _parsed(self):
        kinds = trees.Kinds()
        body = _tree(self._source, 'exec', self._frame).body
        if len(body) > 1:
            mark = kinds.Expr(kinds.Str(_LAST))
            for node in mark, mark.value:
                # Code that goes back to earlier lines is none for the compiler of 2.6.
                node.lineno, node.col_offset = body[-1].lineno, 0
            body.insert(-1, mark)
        return kinds.Interactive(body)


def expression(source, frame, lent={}):
    """The value of an expression. Raises whatever evaluating it raises.

    lent: values for names that are not the program's.
    """
    return Expression(source, frame).value(lent)


def statement(source, frame, display, lent={}):
    """Executes a statement, then gives the frame the values that its variables have now.

    The value of a statement that is an expression is given to `display`, if both aren't None.
    Raises whatever executing it raises.
    """
    _run(_Text(source.strip() + '\n', 'single', frame), frame, display, lent)


def statements(source, frame, display, lent={}):
    """The same for a text of several statements. Only the last one's value is for `display`."""
    values = []

    def note(value):
        if type(value) is str and value == _LAST:
            del values[:]
        else:
            values.append(value)
    _run(_Statements(pasted_texts.outdented(source) + '\n', frame), frame, note, lent)
    for value in values:
        display(value)


def _run(text, frame, display, lent):
    # Once: asking for f_locals again would bring back the old values.
    variables = _variables(text.code, frame, lent)
    function = text.needs_function(variables) and text.function(variables)
    try:
        if function:
            function.run(_shown_by(display))
        else:
            _execute(text.code, frame.f_globals, variables, display)
    finally:
        core.locals_to_fast(frame)


def statement_apart(source, frame, namespace, display):
    """The same where neither the frame nor its variables change, but a namespace of its own."""
    code = _compiled(source.strip() + '\n', 'single', _flags(frame))
    _execute(code, namespace, namespace, display)


def _execute(code, globals, variables, display):
    displayhook = sys.displayhook
    sys.displayhook = _shown_by(display)
    try:
        exec code in globals, variables
    finally:
        sys.displayhook = displayhook


def _shown_by(display):
    return lambda value: display and value is not None and display(value)


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

    def statements(self, source, frame, display):
        self.call(statements, source, frame, display, self.names)

    def statement_apart(self, source, frame, namespace, display):
        self.call(statement_apart, source, frame, namespace, display)

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
    used = [name for name in scopes.names_used(code)
            if name in lent and not is_of_program(name, frame)]
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
