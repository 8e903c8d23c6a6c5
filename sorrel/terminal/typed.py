"""What is typed, or read from a file, before it is carried out.

A line may have several commands, and a statement several lines.
"""

from __future__ import absolute_import

import re

from sorrel.common.records import record

# file, number: where it was read; None for what was typed.
Line = record('Line', 'text file number', None, None)

_MORE = '... '
_PIECE = re.compile(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\'|;;|.', re.DOTALL)


def parts(text):
    """The commands in a line, which ";;" stands between."""
    if ';;' not in text:
        return [text]
    found = [[]]
    for piece in _PIECE.findall(text):
        if piece == ';;':
            found.append([])
        else:
            found[-1].append(piece)
    return [''.join(pieces).strip() for pieces in found]


class TypedLines(object):
    """`cmdqueue` has the Lines that are carried out before the person is asked again.

    The front end has `_is_whole(text)` and `_is_begun(text)`: whether a text is a statement, or the
    beginning of one, where the program is.
    """

    # The one that is being carried out.
    _line = None

    def _next_line(self):
        """A Line; None at the end of input."""
        if self.cmdqueue:
            return self.cmdqueue.pop(0)
        text = self._console.read_line(self.prompt, self.completions)
        return None if text is None else Line(text)

    def _carry_out(self, line):
        commands = [line._replace(text=text) for text in self.commands_in(line.text)]
        if line.file is not None or len(commands) > 1:
            # Only typed alone, nothing is the last command once more.
            commands = [command for command in commands if command.text.strip()]
        if not commands or commands[0].text.strip().startswith('#'):
            return
        self.cmdqueue[:0] = commands[1:]
        whole = self._whole(commands[0])
        if whole is None:
            self._say('')
            return
        repeated = self.lastcmd
        self._line = line
        try:
            self._evaluation.call(self._stop, self.onecmd, whole)
            self._read_list(line)
        finally:
            self._line = None
            if line.file is not None:
                self.lastcmd = repeated

    def _whole(self, line):
        """The text of a command, with the further lines of a statement; None where they end."""
        text = line.text.strip()
        if not self.is_statement(text) or self._is_whole(text.lstrip('!')):
            return text
        while self._is_begun(text.lstrip('!')):
            if line in [following._replace(text=line.text) for following in self.cmdqueue[:1]]:
                break  # What comes next is another command.
            more = self._following(line, _MORE)
            if more is None:
                return None if line.file is None else text
            text += '\n' + more
        return text

    def _following(self, line, prompt, complete=None):
        """The text of what comes after a Line from the same place; None at the end of that."""
        if self.cmdqueue and self.cmdqueue[0].file == line.file:
            return self.cmdqueue.pop(0).text
        return self._console.read_line(prompt, complete) if line.file is None else None

    def _placed(self, text):
        """A complaint about what a file has says where that is."""
        if self._line is None or self._line.file is None or not text.startswith('*** '):
            return text
        return '*** %s:%d: %s' % (self._line.file, self._line.number, text[4:])
