"""Starting a program for a client, in a process of its own or in a terminal of the client's."""

from __future__ import absolute_import

import os
import subprocess

from sorrel.adapter import checks, environment_files, interpreters, wrappers
from sorrel.common.decoding import text
from sorrel.processes import commands, guard, own_folders
from sorrel.protocol import secrets
from sorrel.protocol.launch_callers import Handshake

_TERMINALS = {'integratedTerminal': 'integrated', 'externalTerminal': 'external'}


class CannotLaunch(Exception):
    """The text says why."""


class Launch(object):
    """A program on its way: its process is there, but not yet the connection to it.

    mark_word: the one in the marks that it writes to the pipes of its streams.
    """

    def __init__(self, arguments):
        """arguments: those of the client's launch request. Raises CannotLaunch and Refused."""
        self._arguments = arguments
        self._handshake = None
        self.mark_word = secrets.new()
        self._folder = self._find_folder()
        self._variables_of_file = self._read_variables()
        # Those that a wrapper of the interpreter sets, and None for those that it removes.
        self._variables_of_wrapper = {}
        self._unwrap()
        self._interpreter = interpreters.command(
            self._arguments, interpreters.own(), may_build=True)
        self._command = self._make_command()
        self._check()

    def sockets(self):
        """Those that look() is to be called for."""
        return self._handshake.sockets()

    def terminal(self):
        """The kind of terminal that the client wants; None for none."""
        return _TERMINALS.get(self._arguments.get('console'))

    def start(self):
        """Returns the process, as a subprocess.Popen. Raises CannotLaunch."""
        self._greet()
        environment = self._environment()
        # No terminal says what the client, which is told it as text, reads.
        environment.setdefault('PYTHONIOENCODING', 'UTF-8')
        try:
            return subprocess.Popen(
                self._full_command('--mark', self.mark_word), cwd=self._folder, env=environment,
                stdin=open(os.devnull), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                close_fds=True, preexec_fn=guard.OWN_SESSION)
        except (EnvironmentError, TypeError) as error:  # TypeError: a NUL in a word.
            self.close()
            raise CannotLaunch('cannot start it: %s' % error)

    def terminal_request(self):
        """The arguments of the request that has the client start the program."""
        self._greet()
        return {'kind': self.terminal(), 'title': 'Morvik',
                'cwd': self._folder, 'args': self._full_command(),
                'env': self._variables_in_terminal()}

    def look(self, readable):
        """The connection to the program when it is there, else None."""
        return self._handshake.look(readable)

    def refusal(self):
        """Why it cannot be run, where what was to start it has said so."""
        return self._handshake.refusal()

    def handshake_for_children(self):
        """To be called when the program is there: what it starts is to come by the same Handshake.

        None where that is not wanted. Whoever has called closes it.
        """
        if self._arguments.get('noDebug') or not self._arguments.get('subProcess', True):
            self.close()
        handshake, self._handshake = self._handshake, None
        return handshake

    def close(self):
        if self._handshake is not None:
            self._handshake.close()
            self._handshake = None

    def _greet(self):
        self._handshake = Handshake()

    def _find_folder(self):
        """Where it is started: by default where the program is."""
        folder, program = self._arguments.get('cwd'), self._arguments.get('program')
        if folder:
            return os.path.abspath(folder.encode('utf-8'))
        return os.path.dirname(_absolute(program)) if program else os.getcwd()

    def _read_variables(self):
        """Those of the file that the client names."""
        path = self._arguments.get('envFile')
        return environment_files.variables(
            os.path.join(self._folder, path.encode('utf-8'))) if path else {}

    def _unwrap(self):
        """Where a wrapper is named, what it becomes is the interpreter."""
        python = self._arguments.get('python')
        if not python or not os.path.isdir(self._folder):
            return
        try:
            wrapped = wrappers.unwrapped(python, self._environment(), self._folder)
        except TypeError:
            return  # A NUL in a word: it cannot be started.
        if wrapped is not None:
            self._variables_of_wrapper = wrapped.variables
            self._arguments = dict(self._arguments, python=wrapped.python)

    def _variables_in_terminal(self):
        variables = dict(
            (text(name), text(value)) for name, value in self._variables_of_file.items())
        variables.update(self._arguments.get('env') or {})
        variables.update((text(name), value and text(value))
                         for name, value in self._variables_of_wrapper.items())
        return variables

    def _check(self):
        """Raises Refused where it cannot be started."""
        program, python = self._arguments.get('program'), interpreters.named(self._arguments)
        try:
            if self._arguments.get('cwd'):
                checks.check_folder(self._folder)
            if program and program != '-':
                given = program.encode('utf-8')
                checks.check_program(
                    given, self._folder if self._arguments.get('cwd') else os.getcwd())
            if python is not None:
                checks.check_interpreter(python, self._environment(), self._folder)
        except TypeError as error:  # A NUL in a word.
            raise CannotLaunch('cannot start it: %s' % error)

    def _make_command(self):
        program, module = self._arguments.get('program'), self._arguments.get('module')
        code = u'\n'.join(self._arguments.get('code', ()))
        if [bool(program), bool(module), bool(code)].count(True) != 1:
            raise CannotLaunch('name either a program, a module or code')
        if program and program != '-' and not self._arguments.get('cwd'):
            program = _absolute(program).decode('utf-8')
        # The interpreter gets them from the server: -E and -S would have that not be found.
        command = self._options()
        command += ['--module'] if module else ['--text'] if code else []
        for hook in self._arguments.get('hooks', ()):
            command += ['--hook', hook]
        command += ['--', program or module or code] + self._arguments.get('args', [])
        return [word.encode('utf-8') for word in command]

    def _options(self):
        options = interpreters.options(self._arguments)
        if commands.options_of(options) != options:
            raise CannotLaunch('pythonArgs: no options of the interpreter: %s' % ' '.join(options))
        return options

    def _full_command(self, *options):
        return self._interpreter + ['-u', '-m', 'sorrel.main', 'serve',
                                    '--handshake', self._handshake.path] + list(options) \
            + self._command

    def _environment(self):
        environment = dict(os.environ)
        own_folders.hide(environment)
        environment.update(self._variables_of_file)
        for name, value in (self._arguments.get('env') or {}).items():
            if value is None:
                environment.pop(name.encode('utf-8'), None)
            else:
                environment[name.encode('utf-8')] = value.encode('utf-8')
        for name, value in self._variables_of_wrapper.items():
            if value is None:
                environment.pop(name, None)
            else:
                environment[name] = value
        return environment


def _absolute(path):
    """What it means to the adapter, for the operating system."""
    return os.path.abspath(path.encode('utf-8'))
