"""Attaching to a program that runs already and does not listen: its server is brought into it."""

import os
import subprocess
import time

from sorrel.adapter.launch import MORVIK
from sorrel.processes import running
from sorrel.protocol.launch_handshake import Handshake
from sorrel.protocol.messages import Refused

# How long the program may take to connect when the server has begun in it, in seconds.
_PATIENCE = 10.0


class ProcessAttach(object):
    """A program on its way, as a Launch is: its server may be there, the connection is not yet."""

    def __init__(self, arguments):
        """arguments: those of the client's request to attach. Raises Refused."""
        for other in 'connect', 'host', 'port', 'socket', 'token', 'tokenFile':
            if other in arguments:
                raise Refused('processId and %s do not go together' % other)
        self._pid = arguments['processId']
        self._handshake = Handshake()
        self._complaint = running.complaint_file(self._handshake.path)
        self._until = None
        command = [MORVIK, 'attach', '--handshake', self._handshake.path]
        if 'python' in arguments:
            command += ['--python', arguments['python'].encode('utf-8')]
        command.append(str(self._pid))
        output = open(self._complaint + '.command', 'w')
        try:
            self._command = subprocess.Popen(
                command, stdin=open(os.devnull), stdout=output, stderr=output, close_fds=True)
        except EnvironmentError as error:
            self._handshake.close()
            raise Refused('cannot start %s: %s' % (MORVIK, error))
        finally:
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
            self.close()
        return connection

    def close(self):
        if self._command.poll() is None:
            self._command.terminate()
            self._command.wait()
        self._handshake.close()

    def _check(self):
        status = self._command.poll()
        if status is None:
            return
        if status != 0:
            raise Refused(_last_complaint(self._complaint + '.command')
                          or 'the command to attach has ended with %d' % status)
        why = running.complaint(self._pid, self._handshake.path)
        if why:
            raise Refused(why)
        if self._until is None:
            self._until = time.time() + _PATIENCE
        elif time.time() > self._until:
            raise Refused(running.why_no_answer(self._pid))


def _last_complaint(path):
    lines = open(path).read().splitlines()
    return lines[-1].partition(': ')[2] or lines[-1] if lines else ''
