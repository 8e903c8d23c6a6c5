"""Lists of commands that are carried out at breakpoints."""

from __future__ import absolute_import

from sorrel.terminal.breakpoints import LAST
from sorrel.terminal.typed import Line

_PROMPT = '(com) '
_END, _SILENT = 'end', 'silent'


class CommandLists(object):
    """Commands find here: `_command_lists`, the lines by the numbers of the breakpoints."""

    # The Breakpoint whose list comes next in what is typed.
    _to_list = None

    def do_commands(self, argument):
        """commands [NUMBER]: type commands to be carried out at each stop at a breakpoint.

        They end with a line "end". Where the first one is "silent", the stop is not shown. A
        command by which the program goes on ends them. Without any, there are none any more.
        NUMBER is by default that of the breakpoint set last.
        """
        for breakpoint in self._one_breakpoint(argument or LAST):
            if breakpoint.message is not None:
                self._say('*** The program does not stop at logpoint %d' % breakpoint.number)
            else:
                self._to_list = breakpoint

    def described_commands(self):
        """What set_as() takes, in another process: the list of each breakpoint."""
        return [self._command_lists.get(breakpoint.number)
                for breakpoint in self.service.breakpoints.all()]

    def _read_list(self, line):
        """Takes what follows this Line for the list that has been begun there, if one has."""
        breakpoint, self._to_list = self._to_list, None
        if breakpoint is None:
            return
        # No other list is begun by an empty line.
        self.lastcmd = ''
        lines = []
        text = self._following(line, _PROMPT, self.completions)
        while text is not None and text.strip() != _END:
            lines.append(text.rstrip())
            text = self._following(line, _PROMPT, self.completions)
        if text is None:
            if line.file is None:
                self._say('')
            self._say('*** No "%s": breakpoint %d has the commands that it had' % (
                _END, breakpoint.number))
        elif ''.join(lines):
            self._command_lists[breakpoint.number] = lines
        else:
            self._command_lists.pop(breakpoint.number, None)

    def _lists_due(self):
        return [(breakpoint.number, self._command_lists.get(breakpoint.number, ()))
                for breakpoint in self._due]

    def _is_silent(self):
        """Whether all breakpoints that have stopped the program want it so."""
        return bool(self._due) and all(_is_silent(lines) for _, lines in self._lists_due())

    def _run_lists(self):
        waiting = self.cmdqueue
        self.cmdqueue = [line for number, lines in self._lists_due()
                         for line in _to_carry_out(number, lines)]
        try:
            while self.cmdqueue and self._resume is None:
                self._one_command()
        finally:
            self.cmdqueue = waiting


def _to_carry_out(number, lines):
    found = [Line(text, 'commands %d' % number, place) for place, text in enumerate(lines, 1)]
    return found[1:] if _is_silent(lines) else found


def _is_silent(lines):
    return [line.strip() for line in lines[:1]] == [_SILENT]
