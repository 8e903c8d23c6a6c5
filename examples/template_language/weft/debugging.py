"""Lets a debugger show templates, and not the Python that they are made into."""

import os

from weft import expressions, loader, runtime

# Events and step kinds, as the debugger numbers them.
EXCEPTION, CALL, LINE, RETURN = -1, 0, 1, 2
RUNNING = -1

_FOLDER = os.path.dirname(os.path.abspath(__file__)) + os.sep


def is_template(frame):
    """Whether a frame runs a template."""
    return '__lines__' in frame.f_globals and frame.f_code.co_name == 'render'


class Hook(object):
    """A sub-language hook of the debugger's."""

    def __init__(self):
        self._place = None
        self._questions = 0

    def _GetMarkerFrames(self):
        return [runtime.render.func_code]

    def _GetModulePaths(self):
        return [(_FOLDER, 1)]

    def _GetSubLanguageFrames(self):
        return loader.compiled[:]

    def _StopHere(self, frame, event, kind):
        """Stepping needs no help: a line of a template's code is a statement of the template.

        The first question at a place comes from stepping.  The others are whether a breakpoint,
        or an exception, would be at the right place here; they come as if the thread were
        stepping over a line, or running, whatever it does.
        """
        place = id(frame), frame.f_lasti, event
        if place != self._place:
            self._place, self._questions = place, 0
        self._questions += 1
        first = self._questions == 1
        if event == LINE and self._questions == 3:
            self._place = None
        if event == LINE:
            return not first and self._begins_line(frame)
        return event == EXCEPTION and not first and kind == RUNNING

    def _begins_line(self, frame):
        """Whether this is the first statement of its line: there its breakpoints stop."""
        lines = frame.f_globals['__lines__']
        return lines.index(self._line(frame)) == frame.f_lineno - 1

    def _line(self, frame):
        return frame.f_globals['__lines__'][frame.f_lineno - 1]

    def _TranslateFrame(self, frame, for_exception):
        return frame.f_globals['__template__'], self._line(frame)

    def _GetStepOutFrame(self, frame):
        """The template that includes this one, or the code that has it rendered."""
        frame = frame.f_back
        while frame is not None and not is_template(frame) and self._is_hidden(frame):
            frame = frame.f_back
        return frame

    def _is_hidden(self, frame):
        return os.path.abspath(frame.f_code.co_filename).startswith(_FOLDER)

    def _Variables(self, frame):
        return frame.f_locals['scope']

    def _SetVariable(self, frame, name, value):
        frame.f_locals['scope'][name] = value

    def _Eval(self, text, frame):
        return expressions.evaluate(text, frame.f_locals['scope'])
