"""Attaching to a program that runs already and does not listen: its server is brought into it."""

from __future__ import absolute_import

import os
import subprocess
import time

from sorrel.adapter import checks, complaints, interpreters
from sorrel.common.decoding import text
from sorrel.processes import own_folders, running
from sorrel.protocol.launch_callers import Handshake
from sorrel.protocol.messages import Refused

# How long the program may take to connect when the server has begun in it, in seconds.
_PATIENCE = 10.0


class ProcessAttach(object):
    """A program on its way, as a Launch is: its server may be there, the connection is not yet."""

    def __init__(self, arguments, tell):
        """arguments: those of the client's request to attach. Raises Refused.

        tell: called with what the command that attaches writes.
        """
        for other in 'connect', 'host', 'port', 'socket', 'token', 'tokenFile':
            if other in arguments:
                raise Refused('processId and %s do not go together' % other)
        self._pid = arguments['processId']
        self._follows = arguments.get('subProcess', True)
        self._tell = tell
        command = interpreters.command(arguments, interpreters.of_process(self._pid))
        named = interpreters.named(arguments)
        if named is not None:
            checks.check_interpreter(named, os.environ, os.getcwd())
        self._handshake = Handshake()
        command += ['-m', 'sorrel.main', 'attach', '--handshake', self._handshake.path,
                    str(self._pid)]
        environment = dict(os.environ)
        own_folders.hide(environment)
        self._output = os.path.join(os.path.dirname(self._handshake.path), 'output')
        self._told = 0
        self._until = None
        output = open(self._output, 'w')
        nothing = open(os.devnull)
        try:
            self._command = subprocess.Popen(command, env=environment, stdin=nothing, stdout=output,
                                             stderr=output, close_fds=True)
        except (EnvironmentError, TypeError) as error:  # TypeError: a NUL in a word.
            self._handshake.close()
            raise Refused('cannot start %s: %s' % (command[0], error))
        finally:
            nothing.close()
            output.close()

    def sockets(self):
        """Those that look() is to be called for."""
        return self._handshake.sockets()

    def look(self, readable):
        """The connection to the program when it is there, else None. Raises Refused."""
        connection = self._handshake.look(readable)
        if connection is None:
            self._check()
        else:
            self._command.wait()
        return connection

    def handshake_for_children(self):
        """As a Launch has it."""
        if not self._follows:
            self.close()
        handshake, self._handshake = self._handshake, None
        return handshake if self._follows else None

    def _written(self):
        output = open(self._output)
        try:
            return output.read()
        finally:
            output.close()

    def close(self):
        if self._command.poll() is None:
            self._command.terminate()
            self._command.wait()
        if self._handshake is not None:
            self._handshake.close()

    def _check(self):
        status = self._command.poll()
        written = self._written()
        if len(written) > self._told:
            more, self._told = written[self._told:], len(written)
            self._tell(text(more))
        if status is None:
            return
        if status != 0:
            raise Refused(complaints.complaint(text(written))
                          or 'the command to attach has ended with %d' % status)
        why = running.complaint(self._pid, self._handshake.path)
        if why:
            raise Refused(why)
        if self._until is None:
            self._until = time.time() + _PATIENCE
        elif time.time() > self._until:
            raise Refused(running.why_no_answer(self._pid))
