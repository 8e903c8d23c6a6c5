"""Lists of commands that are carried out at breakpoints."""

from __future__ import absolute_import

from cmd import Cmd

from sorrel.inspection.time_limit import Overtime
from sorrel.terminal.breakpoints import LAST

_PROMPT = '(com) '
_END, _SILENT = 'end', 'silent'


class CommandLists(object):
    """Commands find here: `_command_lists`, the lines by the numbers of the breakpoints."""

    # The number of the breakpoint whose list is being typed, and what has been typed of it.
    _listed_number = None
    _listed_lines = ()

    def __init__(self):
        self._command_lists = {}

    def do_commands(self, argument):
        """commands [NUMBER]: type commands to be carried out at each stop at a breakpoint.

        They end with a line "end". Where the first one is "silent", the stop is not shown. A
        command by which the program goes on ends them. Without any, there are none any more.
        NUMBER is by default that of the breakpoint set last.
        """
        for breakpoint in self._one_breakpoint(argument or LAST):
            if breakpoint.message is not None:
                self._say('*** The program does not stop at logpoint %d' % breakpoint.number)
                return
            self._listed_number = breakpoint.number
            self._listed_lines = []
            self.prompt = _PROMPT

    def described_commands(self):
        """What set_as() takes, in another process: the list of each breakpoint."""
        return [self._command_lists.get(breakpoint.number)
                for breakpoint in self.service.breakpoints.all()]

    def onecmd(self, line):
        if self._listed_number is None:
            return Cmd.onecmd(self, line)
        line = line.strip()
        if line == _END:
            self._command_lists[self._listed_number] = self._listed_lines
            if not self._listed_lines:
                del self._command_lists[self._listed_number]
            self._drop_command_list()
        elif line:
            self._listed_lines.append(line)

    def _drop_command_list(self):
        """What has been typed of a list that is not complete is forgotten."""
        self._listed_number = None
        self._listed_lines = ()
        self.prompt = type(self).prompt

    def _is_silent(self):
        """Whether all breakpoints that have stopped the program want it so."""
        lists = [self._command_lists.get(breakpoint.number, ()) for breakpoint in self._due]
        return lists != [] and [lines for lines in lists if list(lines[:1]) != [_SILENT]] == []

    def _run_commands(self):
        last = self.lastcmd
        for breakpoint in self._due:
            for line in self._command_lists.get(breakpoint.number, ()):
                if self._resume is not None:
                    break
                if line != _SILENT:
                    self._run_command(line)
        # An empty line repeats what was typed.
        self.lastcmd = last

    def _run_command(self, line):
        try:
            self._evaluation.call(self._stop, self.onecmd, line)
        except (KeyboardInterrupt, Overtime):
            self._say('\n--KeyboardInterrupt--')
