"""Writes the breakpoints as the commands that set them."""

from __future__ import absolute_import

import os

from sorrel.common import text_files
from sorrel.service.watches import Watchpoint
from sorrel.terminal.breakpoints import LAST, shown_place


class SaveCommands(object):

    def do_save(self, argument):
        """save breakpoints FILE: write commands that set the breakpoints that there are now."""
        path = os.path.expanduser(argument.partition(' ')[2].strip())
        lines = []
        for breakpoint in self._all_points():
            if isinstance(breakpoint, Watchpoint):
                if breakpoint.frame is not None:
                    self._say('*** Watchpoint %d is left out: it lasts as long as its function'
                              % breakpoint.number)
                    continue
            elif breakpoint.is_in_no_file():
                self._say('*** Breakpoint %d is left out: its code is in no file' %
                          breakpoint.number)
                continue
            lines += _commands(breakpoint)
            if breakpoint.number in self._command_lists:
                lines += ['commands ' + LAST] + self._command_lists[breakpoint.number] + ['end']
        try:
            text_files.write(path, ''.join([line + '\n' for line in lines]))
        except text_files.Unreadable as error:
            self._say('*** cannot write %s: %s' % (path, error))
        else:
            self._say('Saved to %s' % os.path.abspath(path))


def _commands(breakpoint):
    if isinstance(breakpoint, Watchpoint):
        return _watch_commands(breakpoint)
    if breakpoint.waits_for is not None:
        place = breakpoint.waits_for
    elif breakpoint.name is not None:
        place = '%s:%s' % (breakpoint.path, breakpoint.name)
    else:
        place = shown_place(breakpoint)
    if breakpoint.message is not None:
        commands = ['logpoint %s, %s' % (place, breakpoint.message)]
        if breakpoint.condition:
            commands.append('condition %s %s' % (LAST, breakpoint.condition))
    else:
        commands = [('tbreak ' if breakpoint.temporary else 'break ') + place
                    + (', ' + breakpoint.condition if breakpoint.condition else '')]
    return commands + _further_commands(breakpoint)


def _watch_commands(watchpoint):
    commands = ['watch ' + watchpoint.expression]
    if watchpoint.condition:
        commands.append('condition %s %s' % (LAST, watchpoint.condition))
    return commands + _further_commands(watchpoint)


def _further_commands(point):
    commands = []
    if point.ignore_count:
        commands.append('ignore %s %d' % (LAST, point.ignore_count))
    if not point.enabled:
        commands.append('disable ' + LAST)
    return commands
