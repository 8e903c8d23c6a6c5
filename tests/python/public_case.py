"""Programs under the interpreter alone that call the functions of the package sorrel."""

import os
import re
import subprocess
import sys

import dap_session
import harness


class Program(dap_session.Process):

    line = dap_session.Program.line.im_func
    errors = dap_session.Program.errors.im_func

    def __init__(self, path, *arguments):
        self.path = path
        dap_session.Process.__init__(self, [path] + list(arguments), stderr=subprocess.PIPE)

    def listens(self):
        """Waits until it has said where it listens, and what clients have to show."""
        self.port, = self._says(r'sorrel: listening on 127\.0\.0\.1:(\d+)\n$')
        self.port = int(self.port)
        self.token, self.token_path = self._says(r'sorrel: token (\w+), also in (.*)\n$')

    def _says(self, pattern):
        said = self.process.stderr.readline()
        while said.endswith(' refs]\n'):
            said = self.process.stderr.readline()  # What a debug build says at its end.
        found = re.match(pattern, said)
        if found is None:
            raise AssertionError('%r: %s' % (said, self.process.stderr.read()))
        return found.groups()


class TestCase(dap_session.TestCase):

    def setUp(self):
        harness.need_interpreter_alone(self)
        dap_session.TestCase.setUp(self)
        os.environ['MORVIK_PYTHON_EXE'] = sys.executable
        # That of a person whose own files are in the test's folder.
        os.environ['HOME'] = self.folder

    def begin(self, text, *arguments):
        """A program that is running."""
        return self.opened(Program(self.script(text, 'prog.py'), *arguments))

    def begin_listening(self, text, *arguments):
        program = self.begin(text, *arguments)
        program.listens()
        return program

    def run_to_end(self, text, typed='', *arguments):
        """What it has written, when these lines were typed: (stdout, stderr, exit status)."""
        program = self.begin(text, *arguments)
        program.process.stdin.write(typed)
        program.process.stdin.close()
        program.process.stdin = None
        out, status = program.ended()
        return out.replace(self.folder + os.sep, ''), program.errors(), status

    def refusals(self, text):
        """What a program has printed that does nothing but that."""
        out, err, status = self.run_to_end('''\
import sorrel, sys
def refused(function, *arguments, **named):
    try:
        print 'done: %r' % (function(*arguments, **named),)
    except Exception:
        kind, error = sys.exc_info()[:2]
        print '%s: %s' % (kind.__name__, error)
''' + text)
        self.assertEqual(status, 0, err)
        return out
