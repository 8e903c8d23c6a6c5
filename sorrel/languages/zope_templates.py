"""The hook for Zope's page templates, those that zope.tal interprets.

They are made into no code but into lists of instructions, each with what it needs; some of these
say where in the template what follows is. A frame of the interpreter's that carries one of these out is
where a line begins, and each that goes through a list stands for the line that it has got to.
"""

from __future__ import absolute_import

import os
import sys

import tmorvik26_vs2012_x64 as core

from sorrel.common.originals import thread
from sorrel.languages import sublanguages

# Events, as the core numbers them.
EXCEPTION, CALL, LINE, RETURN = -1, 0, 1, 2

# Instructions that say where they are; and the methods that carry them out.
_PLACING = ('setPosition', 'rawtextBeginScope')
_PLACERS = ('do_setPosition', 'do_rawtextBeginScope', 'do_rawtextBeginScope_tal')
# What goes through a list whose text is another template's, a macro's or the program's for a slot.
_BOUNDARIES = ('__call__', 'do_useMacro', 'do_defineSlot')
# What each list for one of these begins with.
_FILE = 'setSourceFile'
_PACKAGES = ('zope.tal', 'zope.tales', 'zope.pagetemplate')
# What is there in every template, beside its own.
_CONSTANTS = ('nothing', 'default', 'modules', 'loop')

_ident = thread.get_ident


def hook(engine):
    """engine: zope.tal.talinterpreter; None where it is not all there yet."""
    interpreter = getattr(engine, 'TALInterpreter', None)
    return Hook(interpreter) if hasattr(interpreter, 'do_onError_tal') else None


class Hook(sublanguages.EngineHook):

    def __init__(self, interpreter):
        """interpreter: the class that goes through templates."""
        sublanguages.EngineHook.__init__(self)
        self._call = _code(interpreter.__call__)
        self._interpret = _code(interpreter.interpret)
        self._placers = [_code(getattr(interpreter, name)) for name in _PLACERS
                         if hasattr(interpreter, name)]
        # By threads: the place that was asked about last, with the answer for breakpoints; the
        # return that was; the place of the line that was begun last.
        self._asked = {}
        self._returns = {}
        self._begun = {}
        # Threads whose step out, which is none, leads only out of where a line is noted.
        self._going_on = set()

    # What only sorrel asks.

    def is_template(self, frame):
        return frame.f_code is self._interpret or frame.f_code in self._placers

    def end_in(self, frame):
        return self._root(frame)

    # What the core asks.

    def _GetMarkerFrames(self):
        return [self._call]

    def _GetModulePaths(self):
        files = [getattr(sys.modules.get(name), '__file__', None) for name in _PACKAGES]
        # What expressions in Python run as is nobody's own code.
        return ['<string>'] + [os.path.dirname(os.path.abspath(path)) + os.sep
                               for path in files if path is not None]

    def _GetSubLanguageFrames(self):
        return [self._interpret] + self._placers

    def _StopHere(self, frame, event, kind):
        """A line is where it is about to be noted. Stepping asks first; then breakpoints do, as if
        there were a step, unless that was to stop.
        """
        self.say_where(frame.f_code, self._lines_to_ask_at)
        ident = _ident()
        if event == RETURN:
            if self._is_first(ident, frame) and kind > sublanguages.STEP_INTO:
                self._return(ident, frame)
            return False
        self._returns.pop(ident, None)
        if frame.f_code is self._interpret:
            return event == EXCEPTION and kind == sublanguages.RUNNING \
                and self._own_place(frame) is not None
        asked, begins = self._asked.pop(ident, (None, False))
        if event != CALL:
            return False
        if asked == id(frame):
            return begins
        begins = self._begins_line(ident, frame)
        if begins and self.ends_step(ident, frame, kind):
            return True
        self._asked[ident] = id(frame), begins
        return False

    def _lines_to_ask_at(self, code):
        return (code.co_firstlineno,) if code in self._placers else ()

    def _begins_line(self, ident, frame):
        """A place to the left of the last one in its line is of another turn of a loop."""
        last, place = self._begun.get(ident), self._file_and_position(frame)
        self._begun[ident] = place
        return last is None or last[:2] != place[:2] or place[2] <= last[2]

    def _is_first(self, ident, frame):
        """Whether stepping asks about a return."""
        is_first = self._returns.pop(ident, None) != id(frame)
        if is_first:
            self._returns[ident] = id(frame)
        return is_first

    def _return(self, ident, frame):
        """A step over a line goes on in the frame that goes through the template, and further out
        when that is left.
        """
        if not self.is_end(ident, self._root(frame)):
            return
        if frame.f_code is not self._interpret:
            self._going_on.add(ident)
        try:
            if ident in self._going_on or self.is_end(ident, frame):
                core.step_out()
        finally:
            self._going_on.discard(ident)

    def _GetStepOutFrame(self, frame):
        """The macro, or the template, that has asked for this one; or what of the program has."""
        if _ident() in self._going_on:
            return self._root(frame)
        return self.end_outside(_ident(), self._root(frame).f_back, self.is_of_engine)

    # Where a frame is.

    def _TranslateFrame(self, frame, for_exception):
        place = self._own_place(frame)
        if place is None:
            raise LookupError('another frame stands for the line')
        return place

    def _own_place(self, frame):
        if frame.f_code is not self._interpret:
            return self._file_and_position(frame)[:2]
        position = self._position_in(frame)
        return position and (self._file(frame), position[0])

    def _file_and_position(self, frame):
        """(file, line, column) of what a frame notes."""
        line, column = _noted(frame)
        return self._file(frame.f_back), line, column

    def _position_in(self, frame):
        """The (line, column) that a frame has got to in its list; None where it is at the next one,
        or knows none.
        """
        variables = frame.f_locals
        opcode, arguments = variables.get('opcode'), variables.get('args')
        if opcode in _PLACING:
            return None
        last = None
        for name, what in variables['program']:
            if what is arguments:
                return last
            if name in _PLACING:
                last = what[2] if name == 'rawtextBeginScope' else what
        return None

    def _file(self, frame):
        root = self._root(frame)
        for name, what in root.f_locals['program']:
            if name == _FILE:
                return sublanguages.path_of_template(what)
        return sublanguages.path_of_template(root.f_locals['self'].sourceFile)

    def _root(self, frame):
        """The frame that goes through the whole of the template, the macro or what fills a slot."""
        while frame.f_code is not self._interpret:
            frame = frame.f_back
        while not self._is_boundary(frame.f_back):
            frame = frame.f_back
            while frame.f_code is not self._interpret:
                frame = frame.f_back
        return frame

    def _is_boundary(self, caller):
        name = caller.f_code.co_name
        if name == 'do_defineSlot':
            return caller.f_locals.get('slot') is not None
        return name in _BOUNDARIES

    # Values.

    def _Variables(self, frame):
        found = {}
        for name, value in _variables(frame).items():
            if name not in _CONSTANTS:
                found[str(name)] = value
        return found

    def _SetVariable(self, frame, name, value):
        variables = _variables(frame)
        if name not in variables:
            raise LookupError('no variable %s here' % name)
        variables[name] = value

    def _Eval(self, text, frame):
        """An expression of the engine's, a path if it does not say what else it is; or what is
        none, in Python.
        """
        engine = frame.f_locals['self'].engine
        try:
            expression = engine._engine.compile(text)
        except Exception, error:
            try:
                code = compile(text.strip(), '<string>', 'eval')
            except SyntaxError:
                raise SyntaxError(str(error))
            variables = self._Variables(frame)
            return eval(code, variables, variables)
        scope, engine.vars = engine.vars, _variables(frame)
        try:
            return engine.evaluate(expression)
        finally:
            engine.vars = scope


def _code(method):
    return method.im_func.func_code


def _noted(frame):
    """The (line, column) that a frame of a method for a place is given."""
    given = frame.f_locals[frame.f_code.co_varnames[1]]
    return given if frame.f_code.co_name == 'do_setPosition' else given[2]


def _variables(frame):
    """Where the engine keeps those of the scope. An instruction may end one and begin the next."""
    engine = frame.f_locals['self'].engine
    if frame.f_code.co_name.startswith('do_rawtextBeginScope'):
        ends_scope = frame.f_locals[frame.f_code.co_varnames[1]][3]
        stack = getattr(engine, '_vars_stack', ())
        if ends_scope and len(stack) > 1:
            return stack[-2]
    return engine.vars
