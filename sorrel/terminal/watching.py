"""Watchpoints: the command, and what a stop tells of them."""

from __future__ import absolute_import

from sorrel.common import errors
from sorrel.inspection import frames, views
from sorrel.inspection.time_limit import Overtime
from sorrel.service import living
from sorrel.service.breakpoints import Refused
from sorrel.service.stops import RETURNED

# The module whose variables are the same ones when the program runs again.
_MAIN = '__main__'


class WatchCommands(object):
    """Commands find here: `_changes`, the Changes of what is watched that the program has stopped
    for.
    """

    _changes = ()
    # What was watched when the program was run again, until its first stop.
    _watched_before = ()

    def do_watch(self, argument):
        """watch EXPRESSION: stop where its value has changed, at the next line or return.

        With variables of this function it lasts until that is left. Values are compared as they
        are shown.
        """
        if argument:
            self._asking(self._watch, argument)
        else:
            self._say('*** What is to be watched? watch EXPRESSION')

    def described_watches(self):
        """What watch_as_before() takes, in this program when it is run again."""
        return [[watchpoint.module, watchpoint.expression, watchpoint.condition,
                 watchpoint.ignore_count, watchpoint.enabled,
                 self._command_lists.get(watchpoint.number)]
                for watchpoint in self.service.watches.all() if watchpoint.frame is None]

    def watch_as_before(self, described):
        self._watched_before = described

    def list_watchpoints(self):
        known = self.service.watches.all()
        self._list_points(known)
        if not known:
            self._say('No watchpoints.')

    def _watch(self, expression):
        if self._has_ended():
            raise Refused('The program has ended')
        if views.evaluator(self._shown_thread, self._frame()) is not None:
            raise Refused('Only expressions of Python can be watched')
        watchpoint = self.service.watches.add(expression, self._frame())
        if watchpoint.frame is not None and not self._is_to_go_on(watchpoint.frame):
            self.service.watches.remove(watchpoint)
            raise Refused('This function is left already: its variables do not change any more')
        self._last_breakpoint = watchpoint.number
        self._say('Watchpoint %d: %s' % (watchpoint.number, expression))

    def _is_to_go_on(self, frame):
        """Whether code of the frame that is shown is still to be run."""
        if frame is self._stop.frame and self._stop.reason == RETURNED:
            return False
        return frame in frames.callers(living.current_frames().get(self._shown_thread))

    # At a stop.

    def _look_at_watches(self, stop):
        if self._watched_before:
            self._set_as_before(stop)
        self._changes = self._evaluation.call(stop, self.service.watches.take, stop.thread)
        self._due = list(self._due) + [
            change.watchpoint for change in self._changes if change.new is not None]

    def _renew_watches(self, stop):
        """What was changed at the stop is not the program's doing."""
        try:
            self._evaluation.call(stop, self.service.watches.renew)
        except (KeyboardInterrupt, Overtime):
            pass

    def _set_as_before(self, stop):
        before, self._watched_before = self._watched_before, ()
        for module, expression, condition, ignore_count, is_enabled, lines in before:
            expression = expression.encode('utf-8')
            if module != _MAIN or stop.frame.f_globals.get('__name__') != _MAIN:
                self._news.append('*** No watchpoint any more: %s' % expression)
                continue
            watches = self.service.watches
            watchpoint = watches.add(expression, stop.frame)
            self._last_breakpoint = watchpoint.number
            watches.set_condition(watchpoint, condition and condition.encode('utf-8'))
            watches.set_ignore_count(watchpoint, ignore_count)
            watches.enable(watchpoint, is_enabled)
            if lines:
                self._command_lists[watchpoint.number] = [line.encode('utf-8') for line in lines]

    def _tell_of_watches(self):
        for change in self._changes:
            if change.error is not None:
                self._say('Condition of watchpoint %d: %s' % (
                    change.watchpoint.number, errors.error_text(*change.error)))
            if change.new is not None and not self._is_silent():
                self._say('Watchpoint %d: %s' % (
                    change.watchpoint.number, change.watchpoint.expression))
                self._say('Old value = ' + change.old)
                self._say('New value = ' + change.new)
            if change.is_left:
                self._say('Deleted watchpoint %d: its function is left' %
                          change.watchpoint.number)
        self._changes = ()
