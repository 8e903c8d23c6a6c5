"""Starting a program for a client, in a process of its own or in a terminal of the client's."""

import os
import subprocess
import sys

import tmorvik26_vs2012_x64 as core

from sorrel.dap.greeting import Greeting

_FOLDER = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
_MORVIK = os.path.join(_FOLDER, 'morvik')
_TERMINALS = {'integratedTerminal': 'integrated', 'externalTerminal': 'external'}


class CannotLaunch(Exception):
    """The text says why."""


class Launch(object):
    """A program on its way: its process is there, but not yet the connection to it."""

    def __init__(self, arguments):
        """arguments: those of the client's launch request."""
        self._arguments = arguments
        self._greeting = None
        self.process = None
        self._command = self._make_command()

    @property
    def listener(self):
        """Becomes readable when the program has connected."""
        return self._greeting.listener

    def terminal(self):
        """The kind of terminal that the client wants; None for none."""
        return _TERMINALS.get(self._arguments.get('console'))

    def start(self):
        self._greet()
        try:
            self.process = subprocess.Popen(
                self._full_command(), cwd=self._arguments.get('cwd') or None,
                env=self._environment(), stdin=open(os.devnull), stdout=subprocess.PIPE,
                stderr=subprocess.PIPE, close_fds=True)
        except EnvironmentError as error:
            self.close()
            raise CannotLaunch('cannot start it: %s' % error)

    def terminal_request(self):
        """The arguments of the request that has the client start the program."""
        self._greet()
        return {'kind': self.terminal(), 'title': 'Morvik',
                'cwd': self._arguments.get('cwd') or os.getcwd(), 'args': self._full_command(),
                'env': dict(self._arguments.get('env') or {})}

    def accept(self):
        """The connection to the program; None when it was somebody else who connected."""
        connection = self._greeting.accept()
        if connection is not None:
            self.close()
        return connection

    def close(self):
        if self._greeting is not None:
            self._greeting.close()
            self._greeting = None

    def _greet(self):
        self._greeting = Greeting()

    def _make_command(self):
        program, module = self._arguments.get('program'), self._arguments.get('module')
        if bool(program) == bool(module):
            raise CannotLaunch('name either a program or a module')
        command = ['--module'] if module else []
        command += ['--', program or module] + list(self._arguments.get('args') or ())
        return [word.encode('utf-8') for word in command]

    def _full_command(self):
        python = (self._arguments.get('python') or sys.executable)
        return [_MORVIK, 'python', '--python', python.encode('utf-8'), '--', '-u',
                '-m', 'sorrel.main', 'serve', '--greeting', self._greeting.path] + self._command

    def _environment(self):
        environment = dict(os.environ)
        # Without what made this process find its own modules.
        own = (_FOLDER, os.path.dirname(os.path.abspath(core.__file__)))
        paths = [path for path in environment.get('PYTHONPATH', '').split(os.pathsep)
                 if path and path not in own]
        environment['PYTHONPATH'] = os.pathsep.join(paths)
        for name, value in (self._arguments.get('env') or {}).items():
            if value is None:
                environment.pop(name.encode('utf-8'), None)
            else:
                environment[name.encode('utf-8')] = unicode(value).encode('utf-8')
        if not environment['PYTHONPATH']:
            del environment['PYTHONPATH']
        return environment
