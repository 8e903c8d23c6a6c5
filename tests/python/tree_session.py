"""Sessions with a program and the processes that it forks, by somebody in place of the adapter."""

import re
import select
import subprocess
import time

import dap_session
from dap_session import PATIENCE
from sorrel.protocol.launch_callers import Handshake


class Connected(dap_session.Client):
    """A client over a connection that is there already."""

    def __init__(self, connected):
        dap_session.Peer.__init__(self)
        self._token = None
        self.socket = connected
        self._send = connected.sendall


class Tree(dap_session.Process):
    """A program that is launched, which tells of the processes that it forks."""

    def __init__(self, path, *arguments):
        self.path = path
        self._handshake = Handshake()
        self.folder = self._handshake.folder
        dap_session.Process.__init__(
            self, ['-m', 'sorrel.main', 'serve', '--handshake', self._handshake.path, '--', path]
            + list(arguments), stderr=subprocess.PIPE)
        self.client = Connected(self._next(time.time() + PATIENCE))
        # What forked processes inherit.
        self._held = [self._next(time.time() + PATIENCE)]

    def child(self):
        """What is told of the next child."""
        told = self._told(time.time() + PATIENCE)
        if told is None:
            raise AssertionError('nobody comes')
        return told

    def nobody_comes(self):
        """Whether no child tells of itself within a moment."""
        return self._told(time.time() + 0.2) is None

    def client_of_child(self):
        told = self.child()
        client = dap_session.Client(str(told['socket']))
        client.process_id = told['processId']
        return client

    def line(self, mark):
        return [number for number, line in enumerate(open(self.path), 1) if mark in line][0]

    def errors(self):
        # Without what debug builds say at their ends.
        return re.sub(r'\[\d+ refs\]\n', '', self.process.stderr.read())

    def close(self):
        for held in self._held:
            held.close()
        self._handshake.close()
        dap_session.Process.close(self)

    def _told(self, end):
        while True:
            connected = self._next(end)
            if connected is None:
                return None
            told = Connected(connected)
            while not told.messages:
                told._read(time.time() + PATIENCE)
            if told.messages[0]['type'] == 'child':
                told.close()
                return told.messages[0]
            self._held.append(told)

    def _next(self, end):
        """Who comes next; None where nobody has by then."""
        while time.time() < end:
            connected = self._handshake.look(
                select.select(self._handshake.sockets(), [], [], 0.1)[0])
            if connected is not None:
                return connected
        return None


class TestCase(dap_session.TestCase):

    def launch(self, text, *marks, **settings):
        """A Tree whose program runs, with breakpoints on the lines with these marks."""
        self.tree = self.opened(Tree(self.script(text, 'prog.py')))
        client = self.opened(self.tree.client)
        exceptions = settings.pop('exceptions', ())
        client.begin(settings, 'launch')
        self._configure(client, marks, exceptions)
        return client

    def child(self, *marks, **settings):
        """A client of the next child, which has said what it wants; and the process id."""
        client = self.opened(self.tree.client_of_child())
        exceptions = settings.pop('exceptions', ())
        client.begin(dict(settings, subProcess=True))
        self._configure(client, marks, exceptions)
        return client, client.process_id

    def _configure(self, client, marks, exceptions):
        self.break_at(client, self.tree, *marks)
        client.ask('setExceptionBreakpoints', filters=list(exceptions))
        client.ask('configurationDone')
