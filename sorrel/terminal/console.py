"""Where a person types and reads, whatever the program makes of sys.stdin and sys.stdout."""

from __future__ import absolute_import

import os
import sys

try:
    import fcntl
except ImportError:
    fcntl = None  # Another platform: nothing is forked there.

from sorrel.common import temporary
from sorrel.common.line_editing import LineEditor
from sorrel.common.terminal_encoding import is_terminal, TerminalEncoding
from sorrel.protocol.descriptors import above_streams
from sorrel.terminal.colours import Plain
from sorrel.terminal.plain_input import PlainInput


# The name that every process has for the terminal from which its signals come.
CONTROLLING = '/dev/tty'


class Closed(Exception):
    """Nothing more can be written."""


class NoTerminal(Exception):
    """There is none of a name; the text says why, in one line."""


class Console(object):

    def __init__(self, stdin=None, stdout=None):
        """stdin, stdout: by default what the program's are now."""
        self._stdin = stdin or sys.stdin
        self._stdout = stdout or sys.stdout
        self._editor = None
        self._encoding = TerminalEncoding(self._stdin, self._stdout)
        self.colours = Plain()
        # Of the terminal, if it is one; None else.
        self.name = None
        try:
            if is_terminal(self._stdin) and is_terminal(self._stdout):
                self.name = os.ttyname(self._stdin.fileno())
                import readline
                self._editor = LineEditor(readline)
        except (ImportError, EnvironmentError, ValueError):
            # A host built without it: lines are then read as they come. Or a stream that the
            # program has closed, which is found out where it is needed.
            pass

    def descriptor(self):
        return self._stdin.fileno()

    def is_terminal(self):
        """Whether a process that is forked can come to it, too."""
        return fcntl is not None and self.name is not None

    @staticmethod
    def of_person(stdin, stdout):
        """One where the person is who has started the process with these streams.

        Who types at a terminal is answered there, wherever the program's output goes.
        """
        if fcntl is not None and is_terminal(stdin) and not is_terminal(stdout):
            for name in _names(stdin):
                try:
                    return Console(stdin, os.fdopen(_opened(name), 'w'))
                except NoTerminal:
                    pass  # One of another user's can be opened by its other name alone.
        return Console(stdin, stdout)

    @staticmethod
    def at(name):
        """One at the terminal of this name. Raises NoTerminal."""
        return Console(os.fdopen(_opened(name), 'r'), os.fdopen(_opened(name), 'w'))

    @staticmethod
    def of_child(name):
        """One for the calling process, which is not the first, at the terminal of this name.

        The program may have closed or replaced what its parent's streams were. None where the
        terminal cannot be reached.
        """
        try:
            return Console.at(name)
        except NoTerminal:
            return None

    def write(self, text):
        try:
            self._stdout.write(self._encoding.shown(text))
        except (IOError, ValueError):
            raise Closed

    def write_at_once(self, text):
        self.write(text)
        self.flush()

    def flush(self):
        """Has the person see what was written."""
        try:
            self._stdout.flush()
        except (IOError, ValueError):
            raise Closed

    def read_line(self, prompt, complete):
        """The next line without its line end; None at the end of input.

        complete: as a LineEditor has it.
        """
        if self._editor is not None:
            line = self._edit_line(prompt, complete)
        else:
            self.write(prompt)
            try:
                self._stdout.flush()
                line = self._plain_line()
            except IOError:
                raise Closed
        return None if line is None else self.as_typed(line)

    def as_typed(self, line):
        """A line as the terminal has given it, in the encoding that texts have here."""
        return self._encoding.typed(line)

    def _edit_line(self, prompt, complete):
        try:
            return self._editor.edit(prompt, complete, self._stdin, self._stdout)
        except RuntimeError:
            # The thread has stopped in the midst of the program's own raw_input().
            return self._read_again(prompt)

    def _read_again(self, prompt):
        return PlainInput(self.descriptor()).read_line(lambda: self.write_at_once(prompt))

    def hand_over(self):
        """The process is about to begin anew, with the same input.

        What has been read of it and not been used is left to be read again where that is possible;
        else it is returned.
        """
        if self.name is not None:
            return ''
        number = self._stdin.fileno()
        try:
            os.lseek(number, self._stdin.tell(), os.SEEK_SET)
            return ''
        except EnvironmentError:
            pass  # It is a pipe.
        rest, has_ended = self._rest(number)
        if not has_ended:
            return self._encoding.typed(rest)
        path, file = temporary.new_file()
        os.unlink(path)
        written = os.fdopen(file, 'w+')
        written.write(rest)
        written.seek(0)
        os.dup2(file, number)
        return ''

    def _rest(self, number):
        """What a pipe has just now, and whether nothing can follow."""
        flags = fcntl.fcntl(number, fcntl.F_GETFL)
        fcntl.fcntl(number, fcntl.F_SETFL, flags | os.O_NONBLOCK)
        rest = ''
        try:
            rest = self._stdin.read()
            return rest, not os.read(number, 1)
        except (EnvironmentError, ValueError):
            return rest, False
        finally:
            fcntl.fcntl(number, fcntl.F_SETFL, flags)

    def _plain_line(self):
        try:
            line = self._stdin.readline()
        except ValueError:
            # The program is in the middle of "for line in sys.stdin", which reads ahead.
            try:
                line = next(self._stdin, '')
            except ValueError:
                line = ''  # The program has closed it.
        return line.rstrip('\r\n') if line else None


def _names(terminal):
    """What it may be opened by."""
    try:
        return [os.ttyname(terminal.fileno()), CONTROLLING]
    except EnvironmentError:
        return [CONTROLLING]  # Its own name is not known here, as in some containers.


def _opened(name):
    """The number of a descriptor of the terminal of this name. Raises NoTerminal."""
    try:
        number = above_streams(lambda: os.open(name, os.O_RDWR | os.O_NOCTTY))
    except EnvironmentError as error:
        raise NoTerminal('cannot open the terminal %s: %s' % (name, error.strerror))
    if not os.isatty(number):
        os.close(number)
        raise NoTerminal('%s is no terminal' % name)
    fcntl.fcntl(number, fcntl.F_SETFD, fcntl.FD_CLOEXEC)
    return number
