"""What commands of the terminal ask the front end for, asked of the program."""

from __future__ import absolute_import

from sorrel.common.decoding import text
from sorrel.inspection import evaluation
from sorrel.protocol.messages import Refused
from sorrel.remote.session import Silent
from sorrel.remote.sources import entry_of


class RemoteLooking(object):

    def _entry(self):
        if not self._stack:
            raise Refused(u'the thread runs no code of the program')
        return self._stack[self._index]

    def _innermost(self):
        return self._entry() and self._stack[-1]

    _frame = _entry

    def _look_at(self, thread):
        self._shown_thread = thread
        self._stack = self._stack_of(thread)
        self._index = len(self._stack) - 1
        self._next_listed = None

    def _stack_of(self, thread, count=0):
        """The Entries of a thread, the innermost last; count: of the innermost, 0 for all."""
        try:
            shown = self._session.ask('stackTrace', threadId=thread, levels=count)['stackFrames']
        except Silent:
            raise
        except Refused:
            return []  # It is running.
        return [entry_of(frame) for frame in reversed(shown)]

    def _place(self, entry):
        return '%s(%d)%s()' % (entry.path, entry.line, entry.name)

    def _source_line(self, entry, number):
        return self._sources.line(entry, number)

    def _is_python(self, entry):
        return entry.path.endswith('.py')

    def _returned(self, entry):
        return ''  # The program stops in the caller.

    def _is_variable(self, name):
        # Most lines begin with no name of a command, and need not be asked about.
        try:
            return bool(name) and self._value_text(
                '%r in locals() or %r in globals()' % (name, name)) == 'True'
        except Refused:
            return False

    def _is_known(self, name):
        return name in self._names(name)

    def _is_whole(self, typed):
        return evaluation.is_whole(typed, None)

    def _is_begun(self, typed):
        return evaluation.is_begun(typed, None)

    def _names(self, typed):
        """What may follow what is typed of a name."""
        try:
            targets = self._session.ask(
                'completions', text=text(typed), column=len(text(typed)) + 1,
                frameId=self._frame().id)['targets']
        except Refused:
            return []
        before = typed[:typed.rfind('.') + 1]
        return [before + target['label'].encode('utf-8') for target in targets]

    def _find_place(self, named):
        return self._places.find(named, self._frame())

    def _add_breakpoint(self, named, *settings):
        made = self.service.breakpoints.add_at(self._find_place(named), named, *settings)
        self._last_breakpoint = made.number
        return made, made.lack
