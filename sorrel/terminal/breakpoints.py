"""Commands about breakpoints, with the standard debugger's names and argument forms."""

from __future__ import absolute_import

from sorrel.inspection import evaluation
from sorrel.service.breakpoints import Refused
from sorrel.service.places import NotLoaded, Places
from sorrel.service.stops import NUMBER_LIMIT
from sorrel.service.watches import Watchpoint

# What stands for the number of the breakpoint that was set last, as in gdb.
LAST = '$bpnum'


class BreakpointCommands(object):

    # Its number.
    _last_breakpoint = None

    def do_break(self, argument):
        """break, b [PLACE [, CONDITION]]: set a breakpoint, or list them all.

        PLACE is a line of the file shown, FILE:LINE, or a function, MODULE.FUNCTION where it is
        elsewhere. Of FILE, the end of its path is enough. On a line without code, the next one
        with code is taken. What is not loaded yet is waited for. With a condition, the program
        stops only where it is true or cannot be evaluated.
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
            self._owner(breakpoint).enable(breakpoint, True)

    def do_disable(self, argument):
        """disable [NUMBER...]: keep breakpoints, by default all, but don't stop there."""
        for breakpoint in self._named_breakpoints(argument):
            self._owner(breakpoint).enable(breakpoint, False)

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
        if not count.isdigit() or int(count) > NUMBER_LIMIT:
            self._say('*** Not a count: %s' % count)
            return
        for breakpoint in self._one_breakpoint(number):
            self._owner(breakpoint).set_ignore_count(breakpoint, int(count))
            if int(count):
                self._say('Will ignore next %s of %s %d.' % (
                    _counted(int(count), 'crossing'), _word(breakpoint), breakpoint.number))
            else:
                self._say('Will stop next time %s %d is reached.' % (
                    _word(breakpoint), breakpoint.number))

    def do_condition(self, argument):
        """condition NUMBER [EXPRESSION]: stop only where this is true, or always again."""
        number, _, condition = argument.partition(' ')
        for breakpoint in self._one_breakpoint(number):
            self._asking(self._set_condition, breakpoint, condition)

    def _asking(self, function, *arguments):
        """Calls what may refuse to set a breakpoint, and says why."""
        try:
            function(*arguments)
        except Refused as error:
            self._say('*** %s' % error)

    def _set_breakpoint(self, argument, temporary):
        named, _, condition = argument.partition(',')
        self._say_set(*self._add_breakpoint(named.strip(), condition, temporary))

    def _add_breakpoint(self, named, *settings):
        """The Breakpoint and, where it is pending, what there is not yet. Raises Refused."""
        lack = None
        try:
            breakpoint = self.service.breakpoints.add_at(self._find_place(named), *settings)
        except NotLoaded as error:
            lack = str(error)
            breakpoint = self.service.breakpoints.add_pending(named, *settings)
        self._last_breakpoint = breakpoint.number
        return breakpoint, lack

    def _say_set(self, breakpoint, lack=None):
        self._say('%s %d %s' % (
            'Breakpoint' if breakpoint.message is None else 'Logpoint', breakpoint.number,
            'at ' + shown_place(breakpoint) if lack is None else 'is pending: %s yet' % lack))

    def _find_place(self, named):
        return Places(self.service.breakpoints).find(
            named, self._entry().path, lambda name: evaluation.expression(name, self._frame()))

    def _clear_place(self, named):
        there = [breakpoint for breakpoint in self.service.breakpoints.pending()
                 if breakpoint.waits_for == named]
        if not there:
            place = self._find_place(named)
            there = self.service.breakpoints.at(place.path, place.line)
            if not there:
                self._say('*** There are no breakpoints at %s:%d' % (place.path, place.line))
        for breakpoint in there:
            self._delete_breakpoint(breakpoint)

    def _delete_breakpoint(self, breakpoint):
        self._owner(breakpoint).remove(breakpoint)
        self._say('Deleted %s %d' % (_word(breakpoint), breakpoint.number))

    def _set_condition(self, breakpoint, condition):
        self._owner(breakpoint).set_condition(breakpoint, condition)
        if not condition.strip():
            self._say('%s %d is now unconditional.' % (
                _word(breakpoint).capitalize(), breakpoint.number))

    def _named_breakpoints(self, argument):
        """The breakpoints of these numbers, or all; says which there are not."""
        if not argument:
            return self._all_points()
        found = []
        for number in argument.split():
            found += self._one_breakpoint(number)
        return found

    def _one_breakpoint(self, number):
        wanted = str(self._last_breakpoint) if number == LAST else number
        for breakpoint in self._all_points():
            if str(breakpoint.number) == wanted:
                return [breakpoint]
        self._say('*** No breakpoint %s' % number)
        return []

    def _all_points(self):
        """Breakpoints and watchpoints, by number."""
        return sorted(self.service.breakpoints.all() + self.service.watches.all(),
                      key=lambda point: point.number)

    def _owner(self, point):
        """What changes it: both know the same ways."""
        return self.service.watches if isinstance(point, Watchpoint) else self.service.breakpoints

    def _list_breakpoints(self):
        self._list_points(self._all_points())

    def _list_points(self, known):
        if known:
            self._say('Num Type         Disp Enb   Where')
        for breakpoint in known:
            self._say('%-4d%-13s%s %s %s' % (
                breakpoint.number, _kind(breakpoint),
                'del ' if breakpoint.temporary else 'keep',
                'yes  ' if breakpoint.enabled else 'no   ', _what(breakpoint)))
            if breakpoint.message is not None:
                self._say('\tlogs ' + breakpoint.message)
            if breakpoint.condition:
                self._say('\tstop only if ' + breakpoint.condition)
            if breakpoint.ignore_count:
                self._say('\tignore next %s' % _counted(breakpoint.ignore_count, 'hit'))
            if breakpoint.hits:
                self._say('\tbreakpoint already hit %s' % _counted(breakpoint.hits, 'time'))
            for line in self._command_lists.get(breakpoint.number, ()):
                self._say('\t' + line)


def _word(point):
    return 'watchpoint' if isinstance(point, Watchpoint) else 'breakpoint'


def _kind(point):
    return _word(point) if point.message is None else 'logpoint'


def _what(point):
    if isinstance(point, Watchpoint):
        return point.expression
    return 'at ' + shown_place(point) if point.waits_for is None else 'pending ' + point.waits_for


def shown_place(breakpoint):
    return '%s:%d' % (breakpoint.path, breakpoint.line)


def _counted(number, word):
    return '%d %s%s' % (number, word, '' if number == 1 else 's')
