"""Where a person types and reads, whatever the program makes of sys.stdin and sys.stdout."""

import sys


class Closed(Exception):
    """Nothing more can be written."""


class Console(object):

    def __init__(self, stdin=None, stdout=None):
        """stdin, stdout: by default what the program's are now."""
        self._stdin = stdin or sys.stdin
        self._stdout = stdout or sys.stdout
        self._readline = None
        try:
            if self._stdin.isatty() and self._stdout.isatty():
                import readline
                self._readline = readline
        except (ImportError, ValueError):
            # A host built without it: lines are then read as they come. Or a stream that the
            # program has closed, which is found out where it is needed.
            pass

    def write(self, text):
        try:
            self._stdout.write(text)
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
        sys.stdin, sys.stdout = self._stdin, self._stdout
        self._readline.set_completer(complete)
        self._readline.parse_and_bind('tab: complete')
        try:
            return raw_input(prompt)
        except EOFError:
            return None
        finally:
            self._readline.set_completer(program_completer)
            sys.stdin, sys.stdout = program_files

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
