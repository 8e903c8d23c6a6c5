"""Commands that look at the stack, and at what its frames hold."""

from __future__ import absolute_import

from sorrel.common import errors
from sorrel.inspection import causes, frames, source, views
from sorrel.service.stops import RAISED, RETURNED

_SUBJECTS = 'args', 'breakpoints', 'locals', 'threads', 'watchpoints'


class StackCommands(object):

    def do_where(self, argument):
        """where, w, bt [full] [COUNT]: show the stack, the innermost frame last.

        With COUNT, only so many of the innermost frames; with full, their local variables, too.
        """
        words = argument.replace('full', ' full ').split()
        counts = [int(word) for word in words if word != 'full']
        shown = counts[0] if counts else len(self._stack)
        for index in range(max(0, len(self._stack) - shown), len(self._stack)):
            self._show_frame(index)
            if 'full' in words:
                self._try(self._show_locals, self._stack[index].frame, '        ')

    def do_frame(self, argument):
        """frame [NUMBER]: go to a frame; 0 is the innermost one, 1 its caller."""
        index = len(self._stack) - 1 - int(argument) if argument else self._index
        if index < 0:
            self._say('*** No frame %s' % argument)
            return
        if index != self._index:
            self._index = index
            self._next_listed = None
        self._show_frame(index)

    def do_retval(self, argument):
        """retval, rv: show the value that is being returned."""
        if self._stop.reason == RETURNED and self._frame() is self._stop.frame:
            self._try(lambda: self._say(repr(self._stop.argument)))
        else:
            self._say('*** This function is not returning')

    def do_exceptions(self, argument):
        """exceptions: list the exception at hand, and those that were being handled then."""
        if self._stop.reason != RAISED:
            self._say('*** The program has not stopped at an exception')
            return
        for number, error in enumerate([self._stop.argument] + causes.of(self._stop.argument)):
            raised = frames.innermost(error[2])
            self._say('%d  %s' % (number, errors.error_text(*error[:2])))
            self._say('   raised at %s:%d' % (
                source.file_name(raised.tb_frame), raised.tb_lineno))

    def do_info(self, argument):
        """info SUBJECT: show the breakpoints, watchpoints, threads, locals or args.

        The first letters of a subject are enough.
        """
        found = [subject for subject in _SUBJECTS if subject.startswith(argument)]
        if not found:
            self._say('*** info about what? One of: %s' % ', '.join(_SUBJECTS))
        elif found[0] == 'locals':
            self._try(self._show_locals, self._frame())
        elif found[0] == 'watchpoints':
            self.list_watchpoints()
        else:
            {'args': self.do_args, 'threads': self.do_threads, 'breakpoints': self.do_break}[
                found[0]]('')

    def _show_locals(self, frame, indent=''):
        view = views.view(self._shown_thread, frame)
        values = frame.f_locals if view is None else view.variables()
        for name in sorted([name for name in values.keys() if type(name) is str]):
            # Of modules, nearly all such names are the interpreter's.
            if name in values and not (name.startswith('__') and name.endswith('__')):
                self._try(self._show_argument, indent + name, values[name])
