"""Commands about breakpoints, with the standard debugger's names and argument forms."""

from __future__ import absolute_import

import os

from sorrel.inspection import evaluation
from sorrel.service import breakpoints, locations


class BreakpointCommands(object):

    def do_break(self, argument):
        """break, b [PLACE [, CONDITION]]: set a breakpoint, or list them all.

        PLACE is a line of the file shown, FILE:LINE, or a function. On a line without code, the
        next one with code is taken. With a condition, the program stops only where it is true or
        cannot be evaluated.
        """
        if argument:
            self._asking(self._set_breakpoint, argument, False)
        else:
            self._list_breakpoints()

    def do_tbreak(self, argument):
        """tbreak [PLACE [, CONDITION]]: as break, for a breakpoint that goes when it has stopped."""
        if argument:
            self._asking(self._set_breakpoint, argument, True)
        else:
            self._list_breakpoints()

    def do_clear(self, argument):
        """clear, cl [NUMBER... | FILE:LINE]: remove breakpoints, by default all."""
        if ':' in argument:
            self._asking(self._clear_place, argument)
        else:
            self.do_delete(argument)

    def do_delete(self, argument):
        """delete [NUMBER...]: remove breakpoints, by default all."""
        if argument or self._agreed('Clear all breaks? '):
            for breakpoint in self._named_breakpoints(argument):
                self._delete_breakpoint(breakpoint)

    def do_enable(self, argument):
        """enable [NUMBER...]: let breakpoints stop the program again, by default all."""
        for breakpoint in self._named_breakpoints(argument):
            self.service.breakpoints.enable(breakpoint, True)

    def do_disable(self, argument):
        """disable [NUMBER...]: keep breakpoints, by default all, but don't stop there."""
        for breakpoint in self._named_breakpoints(argument):
            self.service.breakpoints.enable(breakpoint, False)

    def do_ignore(self, argument):
        """ignore [NUMBER [COUNT] | clear [NUMBER...]]: about what the program does not stop at.

        ignore                   list the places whose exceptions are ignored ("catch ignore")
        ignore clear [NUMBER...] stop at exceptions there again, by default at all
        ignore NUMBER [COUNT]    don't stop at a breakpoint the next COUNT times, by default 0
        """
        number, _, count = argument.partition(' ')
        if not number:
            self.list_ignored_places()
        elif number == 'clear':
            self.clear_ignored_places(count)
        else:
            self._ignore_breakpoint(number, count.strip() or '0')

    def _ignore_breakpoint(self, number, count):
        if not count.isdigit():
            self._say('*** Not a count: %s' % count)
            return
        for breakpoint in self._one_breakpoint(number):
            self.service.breakpoints.set_ignore_count(breakpoint, int(count))
            if int(count):
                self._say('Will ignore next %s of breakpoint %d.' % (
                    _counted(int(count), 'crossing'), breakpoint.number))
            else:
                self._say('Will stop next time breakpoint %d is reached.' % breakpoint.number)

    def do_condition(self, argument):
        """condition NUMBER [EXPRESSION]: stop only where this is true, or always again."""
        number, _, condition = argument.partition(' ')
        for breakpoint in self._one_breakpoint(number):
            self._asking(self._set_condition, breakpoint, condition)

    def _asking(self, function, *arguments):
        """Calls what may refuse to set a breakpoint, and says why."""
        try:
            function(*arguments)
        except breakpoints.Refused as error:
            self._say('*** %s' % error)

    def _set_breakpoint(self, argument, temporary):
        place, _, condition = argument.partition(',')
        path, line = self._find_place(place.strip())
        breakpoint = self.service.breakpoints.add(path, line, condition, temporary)
        self._say('Breakpoint %d at %s:%d' % (
            breakpoint.number, breakpoint.path, breakpoint.line))

    def _find_place(self, place):
        file, _, rest = place.rpartition(':')
        path = locations.find_file(os.path.expanduser(file.strip())) if file else self._entry().path
        rest = rest.strip()
        if rest.isdigit():
            return path, int(rest)
        if not file:
            try:
                value = evaluation.expression(rest, self._frame())
            except Exception:
                pass  # Not defined yet, perhaps.
            else:
                return breakpoints.place_of(value)
        return locations.find_function(rest, path)

    def _clear_place(self, place):
        path, line = self._find_place(place)
        there = self.service.breakpoints.at(path, line)
        if not there:
            self._say('*** There are no breakpoints at %s:%d' % (path, line))
        for breakpoint in there:
            self._delete_breakpoint(breakpoint)

    def _delete_breakpoint(self, breakpoint):
        self.service.breakpoints.remove(breakpoint)
        self._say('Deleted breakpoint %d' % breakpoint.number)

    def _set_condition(self, breakpoint, condition):
        self.service.breakpoints.set_condition(breakpoint, condition)
        if not condition.strip():
            self._say('Breakpoint %d is now unconditional.' % breakpoint.number)

    def _named_breakpoints(self, argument):
        """The breakpoints of these numbers, or all; says which there are not."""
        if not argument:
            return self.service.breakpoints.all()
        found = []
        for number in argument.split():
            found += self._one_breakpoint(number)
        return found

    def _one_breakpoint(self, number):
        for breakpoint in self.service.breakpoints.all():
            if str(breakpoint.number) == number:
                return [breakpoint]
        self._say('*** No breakpoint %s' % number)
        return []

    def _list_breakpoints(self):
        known = self.service.breakpoints.all()
        if known:
            self._say('Num Type         Disp Enb   Where')
        for breakpoint in known:
            self._say('%-4dbreakpoint   %s %s at %s:%d' % (
                breakpoint.number, 'del ' if breakpoint.temporary else 'keep',
                'yes  ' if breakpoint.enabled else 'no   ', breakpoint.path, breakpoint.line))
            if breakpoint.condition:
                self._say('\tstop only if ' + breakpoint.condition)
            if breakpoint.ignore_count:
                self._say('\tignore next %s' % _counted(breakpoint.ignore_count, 'hit'))
            if breakpoint.hits:
                self._say('\tbreakpoint already hit %s' % _counted(breakpoint.hits, 'time'))


def _counted(number, word):
    return '%d %s%s' % (number, word, '' if number == 1 else 's')
