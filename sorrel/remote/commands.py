"""Commands that the protocol has a request for, or that it has none for."""

from __future__ import absolute_import

import re

from sorrel.common.decoding import text
from sorrel.protocol.messages import Refused

_RAISED_AT = re.compile(r'  File "(.*)", line (\d+), in ')
_IGNORED = re.compile(r' raised at (.*):(\d+)\.$')


def _unavailable(name):
    def refuse(self, argument):
        self._say('*** "%s" cannot be had over a connection' % name)
    refuse.__doc__ = '%s: cannot be had over a connection.' % name
    return refuse


class RemoteCommands(object):

    do_interact, do_raise, do_run = map(_unavailable, ('interact', 'raise', 'run'))
    do_skip, do_watch = map(_unavailable, ('skip', 'watch'))
    do_processes, do_process, do_follow = map(_unavailable, ('processes', 'process', 'follow'))

    def list_watchpoints(self):
        self.do_watch('')

    def do_jump(self, argument):
        """jump, j LINE: go on at another line of this function, without running those between.

        Only in the innermost frame, and where the interpreter allows it: not into a loop, say.
        """
        if self._frame() is not self._innermost() or self._shown_thread != self._stop.thread:
            self._say('*** Can only jump in the innermost frame of the thread that has stopped')
            return
        targets = self._session.ask(
            'gotoTargets', source={'path': text(self._frame().path)},
            line=int(argument))['targets']
        if not targets:
            self._say('*** Cannot jump: there is no code from that line on, or no way to it')
            return
        try:
            self._session.ask('goto', threadId=self._stop.thread, targetId=targets[0]['id'])
        except Refused as error:
            self._say('*** Cannot jump: %s' % text(error).encode('utf-8'))
            return
        self._look_at(self._stop.thread)
        self._show_frame(self._index)

    def do_longlist(self, argument):
        """longlist, ll: show all lines of this function, or of the module."""
        entry = self._entry()
        function = self._sources.function(entry)
        number, last = 1, None
        if function is not None:
            number, last = function.lineno, self._sources.end(entry, function.lineno)
        line = self._source_line(entry, number)
        if not line:
            self._say('*** The source is not there')
        while line and (last is None or number <= last):
            self._say_line(number, self._painted(entry, number, line), number == entry.line)
            number += 1
            line = self._source_line(entry, number)

    def do_exceptions(self, argument):
        """exceptions: list the exception at hand, and those that were being handled then."""
        if self._stop.reason != 'exception':
            self._say('*** The program has not stopped at an exception')
            return
        for number, details in enumerate(self._exceptions_at_hand()):
            self._say('%d  %s' % (number, details.get('message', u'').encode('utf-8').strip()
                                  .rpartition('\n')[2]))
            places = _RAISED_AT.findall(details.get('stackTrace', u'').encode('utf-8'))
            if places:
                self._say('   raised at %s:%s' % places[-1])

    def _exceptions_at_hand(self):
        """What the protocol says of each, the one that has stopped the thread first."""
        details = self._session.ask('exceptionInfo', threadId=self._stop.thread).get('details')
        while details is not None:
            yield details
            details = (details.get('innerException') or [None])[0]

    def do_threads(self, argument):
        """threads: list the program's threads; * marks the one shown here."""
        for thread in self._session.ask('threads')['threads']:
            number, name = thread['id'], thread['name'].encode('utf-8')
            mark = '*' if number == self._shown_thread else ' '
            state = 'stopped' if number == self._stop.thread else 'running'
            stack = self._stack_of(number, 1)
            place = '  ' + self._place(stack[-1]) if stack else ''
            self._say('%s %d  %s  %s%s' % (mark, number, name, state, place))

    def do_thread(self, argument):
        """thread [NUMBER]: look at the stack of another thread, or again at the one stopped."""
        number = int(argument) if argument else self._stop.thread
        if number not in [thread['id'] for thread in self._session.ask('threads')['threads']]:
            self._say('*** No thread %d' % number)
        elif not self._stack_of(number, 1):
            self._say('*** Thread %d runs no code of the program' % number)
        else:
            self._look_at(number)
            self._show_frame(self._index)

    def do_modules(self, argument):
        """modules: list the files whose modules were loaded since the last such list."""
        while self._loaded:
            self._say('%-8s  %s' % self._loaded.pop(0))

    # Parts of "catch" and "ignore" whose types and places are the program's.

    def _set_types(self, word, rest):
        names = [name.strip() for name in rest.split(',')]
        unknown = self.service.exceptions.choose(word, names)
        for name in unknown:
            if '.' in name:
                self._say('%s is not loaded yet: this holds as soon as it is.' % name)
            else:
                self._say('*** Not a known exception: %s' % name)
        self.service.exceptions.forget([name for name in unknown if '.' not in name])

    def _ignore_place(self):
        said = self._command('catch ignore')
        place = _IGNORED.search(said)
        if place is not None:
            self.service.exceptions.ignored.append((place.group(1), int(place.group(2))))
        self._say(said)

    def clear_ignored_places(self, numbers):
        if numbers:
            self._say('*** Only all of them can be cleared over a connection: ignore clear')
            return
        self._command('ignore clear')
        del self.service.exceptions.ignored[:]

    def _command(self, typed):
        """What the program's console says to one of its own commands."""
        return self._session.evaluate(
            typed, 'repl', self._innermost().id)['result'].encode('utf-8')
