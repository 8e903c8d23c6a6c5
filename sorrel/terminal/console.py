"""Where a person types and reads, whatever the program makes of sys.stdin and sys.stdout."""

from __future__ import absolute_import

import os
import sys
import tempfile

try:
    import fcntl
except ImportError:
    fcntl = None  # Another platform: nothing is forked there.

from sorrel.protocol.descriptors import above_streams
from sorrel.terminal.history import History


# What a word that is completed lies between.
_DELIMITERS = ' \t\n`~!@#$%^&*()-=+[{]}\\|;:\'",<>/?'


class Closed(Exception):
    """Nothing more can be written."""


class Console(object):

    def __init__(self, stdin=None, stdout=None):
        """stdin, stdout: by default what the program's are now."""
        self._stdin = stdin or sys.stdin
        self._stdout = stdout or sys.stdout
        self._readline = None
        # Of the terminal, if it is one; None else.
        self.name = None
        try:
            if self._stdin.isatty() and self._stdout.isatty():
                self.name = os.ttyname(self._stdin.fileno())
                import readline
                self._readline = readline
                self._history = History(readline)
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
    def of_child(name):
        """One for the calling process, which is not the first, at the terminal of this name.

        The program may have closed or replaced what its parent's streams were. None where the
        terminal cannot be reached.
        """
        try:
            number = above_streams(lambda: os.open(name, os.O_RDWR | os.O_NOCTTY))
            fcntl.fcntl(number, fcntl.F_SETFD, fcntl.FD_CLOEXEC)
            return Console(os.fdopen(number, 'r'), os.fdopen(os.dup(number), 'w'))
        except EnvironmentError:
            return None

    def write(self, text):
        try:
            self._stdout.write(text)
        except (IOError, ValueError):
            raise Closed

    def flush(self):
        """Has the person see what was written."""
        try:
            self._stdout.flush()
        except (IOError, ValueError):
            raise Closed

    def read_line(self, prompt, complete):
        """The next line without its line end; None at the end of input.

        complete: a completer as readline wants it.
        """
        if self._readline is not None:
            return self._edit_line(prompt, complete)
        self.write(prompt)
        try:
            self._stdout.flush()
            return self._plain_line()
        except IOError:
            raise Closed

    def _edit_line(self, prompt, complete):
        # raw_input edits lines only on what sys.stdin and sys.stdout are.
        program_files = sys.stdin, sys.stdout
        program_completer = self._readline.get_completer()
        program_delimiters = self._readline.get_completer_delims()
        sys.stdin, sys.stdout = self._stdin, self._stdout
        self._readline.set_completer(complete)
        self._readline.set_completer_delims(_DELIMITERS)
        self._readline.parse_and_bind('tab: complete')
        self._history.enter()
        typed = None
        try:
            typed = raw_input(prompt)
        except EOFError:
            pass
        finally:
            # An answer to a question is no line to come back to.
            self._history.leave(typed if complete is not None else None)
            self._readline.set_completer_delims(program_delimiters)
            self._readline.set_completer(program_completer)
            sys.stdin, sys.stdout = program_files
        return typed

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
            return rest
        file = tempfile.TemporaryFile()
        file.write(rest)
        file.seek(0)
        os.dup2(file.fileno(), number)
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
