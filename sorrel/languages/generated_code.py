"""What hooks have in common whose templates are made into functions of Python."""

from __future__ import absolute_import

import dis
import os

import tmorvik26_vs2012_x64 as core

from sorrel.common.originals import thread
from sorrel.languages import sublanguages

# Events, as the core numbers them.
EXCEPTION, CALL, LINE, RETURN = -1, 0, 1, 2

_ident = thread.get_ident


class Hook(sublanguages.EngineHook):
    """For each engine a class of its own says what is marked "of the engine" here."""

    def __init__(self, rendering, files, watched):
        """rendering: code that renders templates; while it runs, its thread is in the language.

        files: of the engine; what is in the folders of these is nobody's own code. watched: code of
        the engine, for called().
        """
        sublanguages.EngineHook.__init__(self)
        self._rendering = rendering
        self._watched = watched
        self._folders = tuple([os.path.dirname(os.path.abspath(path)) + os.sep for path in files])
        # The names of files of templates.
        self._files = set()
        # By id(), code of templates, each with all of its template's; and of any, what the core has
        # not been told of yet.
        self._code = {}
        self._new = []
        # By id(), the lines of code that has been run, the names of whose files are in the paths.
        self._lines = {}
        # Whether templates may have been loaded that the core has not been told of.
        self._is_behind = True

    # Of the engine.

    def code_of(self, namespace):
        """The code of all functions of the template whose module has these variables; [] for none.
        """
        raise NotImplementedError

    def namespaces(self):
        """The variables of the modules of all templates that are loaded."""
        raise NotImplementedError

    def lines_of(self, code, namespace):
        """Where the lines of the template are in some of its code: an object with the methods
        of_template(line), the template's line that one of the code belongs to, and begins(line),
        whether something of the template begins in one of the code.

        namespace: the variables of the template's module.
        """
        raise NotImplementedError

    def path_of(self, frame):
        """The template's file."""
        raise NotImplementedError

    def called(self, frame):
        """A frame of watched code begins."""

    def is_passing_on(self, frame):
        """Whether a frame is at its line only to hand on what another function has made."""
        return False

    def is_suspended(self, frame):
        """Whether a return of the frame's is none, as it goes on later."""
        return False

    # For those.

    def learn(self, namespace):
        """The template of a module with these variables, if it is one, is known from now on."""
        all_code = self.code_of(namespace)
        new = [code for code in all_code if id(code) not in self._code]
        self._code.update([(id(code), (code, all_code)) for code in new])
        self._new.extend(new)

    def tell_core(self):
        """The core is told of what was learnt before it comes to the next call."""
        sublanguages.renew(self)

    def hide_module(self, code, path):
        """Of a template's module, of which nothing is the template's but the functions."""
        self._new.append(code)
        self._leave_to_hook(path)
        self.tell_core()

    # What only sorrel asks.

    def is_template(self, frame):
        if id(frame.f_code) not in self._code and frame.f_locals is not frame.f_globals:
            self.learn(frame.f_globals)
        return id(frame.f_code) in self._code

    def is_module(self, frame):
        caller = frame.f_back
        return frame.f_locals is frame.f_globals and caller is not None \
            and self._is_hidden(caller)

    def begin(self):
        self._is_behind = True

    # What the core asks.

    def _GetMarkerFrames(self):
        return self._rendering

    def _GetModulePaths(self):
        return self._folders

    def _GetSubLanguageFrames(self):
        if self._is_behind:
            self._is_behind = False
            for namespace in self.namespaces():
                self.learn(namespace)
        new, self._new = self._new, []
        return new + self._watched

    def _StopHere(self, frame, event, kind):
        """The first question at a place comes from stepping, the second one is whether a breakpoint
        would be at the right place here; the third one is the second again. The first one of an
        exception is no other than of a step; the others come as if the thread were running.
        """
        if id(frame.f_code) not in self._code:
            if event == CALL and frame.f_code in self._watched:
                self.called(frame)
            return False
        number = self.count_question(_ident())
        if event == RETURN:
            # Breakpoints ask as if there were a step.
            if number == 1:
                self._return(frame, kind)
            return False
        self._of(frame)
        self.say_where(frame.f_code, lambda code: self._lines_to_ask_at(code, frame))
        if event == LINE and number < 3 and self._is_place(frame):
            return number == 2 or self.ends_step(_ident(), frame, kind)
        return event == EXCEPTION and number > 1 and kind == sublanguages.RUNNING

    def _TranslateFrame(self, frame, for_exception):
        if id(frame.f_code) not in self._code:
            raise LookupError('no frame of a template')
        return self.path_of(frame), self._of(frame).of_template(frame.f_lineno)

    def _GetStepOutFrame(self, frame):
        return self.end_outside(_ident(), frame.f_back, self._is_hidden)

    def _return(self, frame, kind):
        """A step that would have ended in a frame ends further out where that is left."""
        if kind not in (sublanguages.RUNNING, sublanguages.STEP_INTO) \
                and self.is_end(_ident(), frame) and not self.is_suspended(frame):
            core.step_out()

    def _is_place(self, frame):
        """Whether a line of the template begins here."""
        return self._of(frame).begins(frame.f_lineno) and not self.is_passing_on(frame)

    def _of(self, frame):
        code = frame.f_code
        if id(code) not in self._lines:
            self._leave_to_hook(core.get_frame_file(frame))
            self._leave_to_hook(code.co_filename)
        return self._lines_in(code, frame)

    def _lines_in(self, code, frame):
        """code: the frame's, or other code of its template's."""
        lines = self._lines.get(id(code))
        if lines is None:
            lines = self._lines[id(code)] = self.lines_of(code, frame.f_globals)
        return lines

    def _lines_to_ask_at(self, code, frame):
        """Those where a line of the template begins that has a breakpoint."""
        path = self.path_of(frame)
        if not sublanguages.lines_with_breakpoints(path):
            return ()
        begun = set()
        for other in self._code[id(code)][1]:
            begun.update([line for _, line in self._beginnings(other, frame)])
        sublanguages.begun(path, begun)
        # They may have moved.
        wanted = sublanguages.lines_with_breakpoints(path)
        return [line for line, of_template in self._beginnings(code, frame)
                if of_template in wanted]

    def _beginnings(self, code, frame):
        """Where lines of the template begin: pairs of the code's line and the template's."""
        lines = self._lines_in(code, frame)
        return [(line, lines.of_template(line)) for _, line in dis.findlinestarts(code)
                if lines.begins(line)]

    def _leave_to_hook(self, path):
        """Has the core leave to the hook where steps end in a template's file."""
        if path and path not in self._files:
            self._files.add(path)
            self.add_path(path)

    def _is_hidden(self, frame):
        return (core.get_frame_file(frame) or '').startswith(self._folders) \
            or frame.f_code.co_filename in self._files
