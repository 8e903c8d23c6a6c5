"""What a stop says, as far as the protocol tells of it."""

from __future__ import absolute_import

from sorrel.service import exceptions
from sorrel.service.stops import POST_MORTEM, TRACEBACK
from sorrel.terminal import titles

# What exceptionInfo and the event of a stop say, as the ways of stopping of the service.
_POLICIES = {u'unhandled': exceptions.UNHANDLED, u'userUnhandled': exceptions.USER_UNHANDLED}
_CALLED_BY_C = u'called by C code'
_POST_MORTEM = u'Post-mortem: the program has ended'
_TRACEBACK = u'Post-mortem: '


class Announcing(object):
    """Finds here: `_is_interruption`, whether the stop is one by Ctrl-C."""

    def _look_at_breakpoints(self):
        known = self.service.breakpoints
        self._due = known.of_ids(self._stop.body.get('hitBreakpointIds', ()))
        for breakpoint in self._due:
            if known.stopped_at(breakpoint):
                self._news.append('Deleted breakpoint %d' % breakpoint.number)

    def _announce(self):
        if self._stop.thread != self._thread:
            if self._thread is not None:
                self._say('[%s]' % self._thread_name())
            self._thread = self._stop.thread
        while self._news:
            self._say(self._news.pop(0))
        if self._is_interruption:
            self._say('--Interrupted--')
        elif self._stop.reason == 'exception':
            self._announce_exception()
        if self._is_silent():
            return
        if not self._stack:
            self._say('*** The thread runs no code of the program')
            return
        self._show_frame(self._index)
        if self._is_sticky:
            self.do_longlist('')
        self._show_displays()

    def _announce_exception(self):
        described = self._stop.body.get('description', u'')
        self._say(titles.RAISED[self._policy(described)])
        self._say(self._stop.body.get('text', u'').encode('utf-8'))
        for details in list(self._exceptions_at_hand())[1:]:
            self._say('Raised while handling '
                      + details.get('message', u'').encode('utf-8').strip().rpartition('\n')[2])
        if _CALLED_BY_C in described:
            self._say('No handler in Python code; called by C code.')

    def _policy(self, described):
        """For the sake of which way of stopping it has stopped at an exception."""
        if described.startswith(_TRACEBACK):
            return POST_MORTEM if described.startswith(_POST_MORTEM) else TRACEBACK
        mode = self._session.ask('exceptionInfo', threadId=self._stop.thread)['breakMode']
        if mode == u'userUnhandled' and exceptions.PRINTED in self.service.exceptions.modes:
            return exceptions.PRINTED
        return _POLICIES.get(mode, exceptions.ALWAYS)

    def _thread_name(self):
        for thread in self._session.ask('threads')['threads']:
            if thread['id'] == self._stop.thread:
                return thread['name'].encode('utf-8')
        return 'thread %d' % self._stop.thread
