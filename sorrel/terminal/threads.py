"""Commands that look at the program's other threads and at its modules."""

from __future__ import absolute_import

from sorrel.inspection import source, stacks
from sorrel.service import living
from sorrel.service.stops import WAITING
from sorrel.terminal.console import Closed


class ThreadCommands(object):

    _has_told_of_tracing = False

    def do_threads(self, argument):
        """threads: list the program's threads; * marks the one shown here."""
        for number, thread in self._threads.all():
            mark = '*' if thread.ident == self._shown_thread else ' '
            state = 'running' if thread.stop is None else 'stopped'
            stack = stacks.of_thread(thread)
            place = '  ' + source.place(stack[-1]) if stack else ''
            self._say('%s %d  %s  %s%s' % (mark, number, thread.name, state, place))

    def do_thread(self, argument):
        """thread [NUMBER]: look at the stack of another thread, or again at the one stopped."""
        number = int(argument) if argument else self._threads.number(self._thread_in_front())
        thread = self._threads.find(number)
        if thread is None:
            self._say('*** No thread %d' % number)
            return
        stopped = thread.ident == self._stop.thread
        stack = stacks.at_stop(self._stop) if stopped else stacks.of_thread(thread)
        if not stack:
            self._say('*** Thread %d runs no code of the program' % number)
            return
        self._look_at(thread.ident, stack)
        self._show_frame(self._index)

    def _thread_in_front(self):
        return self.service.main_thread if self._stop.reason == WAITING else self._stop.thread

    def do_modules(self, argument):
        """modules: list the files whose modules were loaded since the last such list."""
        for path, was_loaded in self.service.modules.take_new():
            self._say('%-8s  %s' % ('reloaded' if was_loaded else 'new', path))

    # For the service.

    def tracing_taken(self):
        """The calling thread gets a trace function of the program's own."""
        if self._has_told_of_tracing:
            return
        self._has_told_of_tracing = True
        try:
            self._say('The program traces %s itself now (sys.settrace): what is called there is '
                      'not debugged until it ends that.' % self._thread_of(living.current()).name)
        except Closed:
            pass
