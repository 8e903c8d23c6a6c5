"""A prompt over threads none of which has stopped, since none of them runs Python code.

It is carried out in a thread of the debugger's own: what it evaluates runs there.
"""

from __future__ import absolute_import

from sorrel.inspection import libraries, source, stacks
from sorrel.inspection.time_limit import Overtime
from sorrel.service import living
from sorrel.service.stops import DETACH, evaluator, INTERRUPT, Resume, Stop, WAITING
from sorrel.terminal.console import Closed
from sorrel.terminal.plain_input import InterruptibleConsole

_COMMANDS = (
    'args', 'continue', 'detach', 'down', 'frame', 'help', 'info', 'list', 'longlist', 'pp',
    'print', 'quit', 'source', 'thread', 'threads', 'up', 'whatis', 'where')
_SHOWN = 40
_REFUSED = '*** The thread has to stop first. Here are: ' + ', '.join(_COMMANDS)
_RAISED = 'KeyboardInterrupt is raised in the main thread as soon as that goes on.'


class WaitingPrompt(object):

    # Where is typed meanwhile.
    _looking = None

    # For the service.

    def nothing_runs(self):
        """Says where the threads wait, and asks what to do; a Resume, or None to go on waiting."""
        try:
            self._tell_where_threads_wait()
            if not self._console.is_terminal():
                self._console.write_at_once(_RAISED + '\n')
                return Resume(INTERRUPT)
            return self._look()
        except Closed:
            return Resume(DETACH)

    def interrupt_looking(self):
        """Ctrl-C. Whether it was for this prompt."""
        looking = self._looking
        if looking is None:
            return False
        looking.interrupt()
        return True

    # The prompt.

    def _look(self):
        main = self._thread_of(self.service.main_thread)
        console = self._console
        self._stop = Stop(living.current(), main.frame, WAITING, None, None, False, False)
        self._evaluator = evaluator(self._stop)
        self._look_at(main.ident, stacks.of_thread(main))
        self._resume = None
        looking = InterruptibleConsole(console)
        looking.open()
        try:
            self._take_turn()
            self._console = self._looking = looking
            self._show_frame(self._index)
            while self._resume is None:
                self._one_look()
        finally:
            self._looking = None
            self._console = console
            looking.close()
            self._give_turn(self._resume)
            self._stop = self._evaluator = None
            self._stack = []
        return self._resume

    def _one_look(self):
        try:
            line = self._console.read_line(self.prompt, None)
            if line is None:
                self._end_of_input()
            else:
                self._look_by(line)
        except Overtime:
            self._say('\n--KeyboardInterrupt--')
        except KeyboardInterrupt:
            self._say('\n' + _RAISED)
            self._resume = Resume(INTERRUPT)

    def _look_by(self, line):
        name = self.parseline(line)[0]
        if not line.strip() or name in _COMMANDS:
            self._evaluation.call(self._stop, self.onecmd, line.strip())
        else:
            complaint = self._complaint(line)
            self._say(_REFUSED if complaint is None or name else '*** ' + complaint)

    # Where the threads are.

    def _tell_where_threads_wait(self):
        threads = [thread for _, thread in self._threads.all()]
        for thread in threads[:_SHOWN]:
            self._say(_waits(thread))
        if len(threads) > _SHOWN:
            self._say('and %d more' % (len(threads) - _SHOWN))


def _waits(thread):
    entries = stacks.of_thread(thread)
    if not entries:
        return 'Thread %s waits' % thread.name
    text = 'Thread %s waits at %s' % (thread.name, source.place(entries[-1]))
    if libraries.is_library(entries[-1].path):
        own = [entry for entry in entries if not libraries.is_library(entry.path)]
        text += ''.join([', called from ' + source.place(entry) for entry in own[-1:]])
    return text
