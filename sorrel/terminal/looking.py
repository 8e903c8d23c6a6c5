"""Commands that go through a stack, and how its frames and the lines of their source are laid out."""

from __future__ import absolute_import

import itertools
import re

_LINES_SHOWN = 11


class LookingCommands(object):
    """Commands find here: `_stack`, the entries of the stack that is looked at, each with a `path`
    and a `line`; `_index`, which of them; `_next_listed`, the line that `list` goes on with.

    The front end has `_place(entry)`, which names where an entry is; `_source_line(entry, number)`,
    a line of its file with its line end, '' where there is none; `_is_python(entry)`, whether its
    file is not one of another language; `_returned(entry)`, the text of the value that it is about
    to return, '' where it is not; and `_console`.
    """

    def do_up(self, argument):
        """up, u [COUNT]: go to the frame that called this one."""
        self._go_to(self._index - int(argument or 1), 'Oldest frame')

    def do_down(self, argument):
        """down, d [COUNT]: go to the frame that this one has called."""
        self._go_to(self._index + int(argument or 1), 'Newest frame')

    def do_list(self, argument):
        """list, l [FIRST [LAST]]: show source lines, by default around this one, then those after.

        A LAST smaller than FIRST is a number of lines.
        """
        numbers = [int(number) for number in re.findall(r'\d+', argument)]
        first = self._first_listed(numbers)
        last = first + _LINES_SHOWN - 1
        if len(numbers) == 2:
            last = numbers[1] if numbers[1] >= first else first + numbers[1]
        self._list(first, last)

    def _entry(self):
        return self._stack[self._index]

    def _show_frame(self, index):
        entry = self._stack[index]
        mark = self._colours().mark('>') if index == self._index else ' '
        returned = self._returned(entry)
        self._say('%s %s%s' % (mark, self._place(entry), returned and '->' + returned))
        line = self._source_line(entry, entry.line).strip()
        if line:
            if self._is_python(entry):
                line = self._colours().line(line)
            self._say(self._colours().mark('->') + ' ' + line)

    def _go_to(self, index, end):
        index = min(max(index, 0), len(self._stack) - 1)
        if index == self._index:
            self._say('*** ' + end)
            return
        self._index = index
        self._next_listed = None
        self._show_frame(index)

    def _first_listed(self, numbers):
        if len(numbers) == 2:
            return numbers[0]
        if not numbers and self._next_listed is not None:
            return self._next_listed
        middle = numbers[0] if numbers else self._entry().line
        return max(1, middle - _LINES_SHOWN // 2)

    def _list(self, first, last):
        for number in itertools.count(first):
            if number > last:
                break
            line = self._source_line(self._entry(), number)
            if not line:
                self._say('[EOF]')
                break
            self._say_line(number, self._painted(self._entry(), number, line),
                           number == self._entry().line)
            self._next_listed = number + 1

    def _say_line(self, number, line, is_current):
        mark = self._colours().mark('->') if is_current else '  '
        self._say(('%3d  %s\t%s' % (number, mark, line)).rstrip())

    def _painted(self, entry, number, line):
        """A line of an entry's file among others, without its line end."""
        return self._coloured(entry.path, number, line) if self._is_python(entry) \
            else line.rstrip()

    def _coloured(self, path, number, line):
        return self._colours().listed(line.rstrip(), number, path)

    def _colours(self):
        return self._console.colours
