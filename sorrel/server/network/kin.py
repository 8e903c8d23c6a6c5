"""The processes of one tree, which clients reach at one address.

One of them leads: it listens there, and passes clients on to the others, which hold a connection to
it. When it is gone, another one that has noticed does that.
"""

from __future__ import absolute_import

from sorrel.common.originals import socket, time
from sorrel.protocol import messages
from sorrel.protocol.descriptors import above_streams
from sorrel.server.network.connection import Connection, Gone
from sorrel.server.network.hub import Hub
from sorrel.server.network.listening import InUse

# How soon is tried again to find who leads, or to listen at an address that is not free, in
# seconds.
_SOON, _LATER = 0.05, 1.0
# Taken now: a program may replace what the interpreter's modules offer.
_now = time.time


class Kin(object):
    """For the network thread of one of them."""

    def __init__(self, folder, process, listen=None):
        """folder: the SharedFolder.

        process: this one, with describe(), what the others are told of it, a message;
        hear_of_client(is_there), called when the process that leads has said whether it has a
        client that wants to hear of others; wants_others(), whether that holds for this one; and
        tell_of(member), called with each Member that is new or has changed while this one leads.
        listen: called when this process is to lead, returns the listener at the address and what a
        Server wants to know of tokens there; raises EnvironmentError or InUse.
        """
        self._folder = folder
        self._process = process
        self._listen = listen
        self._server = None
        # What there is of it: neither while it is not known who leads.
        self._hub = self._leader = None
        self._said = None
        self._next = _now()
        self._had_others = False

    def lead(self):
        """For the first process, which listens already. Raises EnvironmentError or InUse."""
        if not self._folder.lock():
            raise InUse('somebody else leads')
        self._hub = Hub(self._folder, self._process.tell_of)

    def begin(self, server):
        """server: that of the network thread."""
        self._server = server

    def members(self):
        return self._hub.members() if self._hub is not None else []

    def has_others(self):
        """Whether there are any, as far as this process knows or knew last."""
        return self._had_others or self._leader is not None or bool(self.members())

    def connections(self):
        if self._hub is not None:
            return self._hub.connections()
        return [self._leader] if self._leader is not None else []

    def descriptors(self):
        held = [self._folder.held] if self._folder.held is not None else []
        if self._hub is not None:
            return held + self._hub.descriptors()
        return held + [connection.descriptor for connection in self.connections()]

    def reading(self):
        if self._hub is not None:
            return self._hub.reading()
        return [connection.descriptor.number for connection in self.connections()]

    def writing(self):
        return [connection.descriptor.number for connection in self.connections()
                if connection.unsent()]

    def deadline(self):
        if self._hub is not None:
            return self._hub.deadline()
        return self._next if self._leader is None else None

    def relay(self, stranger):
        """As Hub has it."""
        return self._hub is not None and self._hub.relay(stranger)

    def look(self, readable):
        if self._hub is not None:
            self._hub.look(readable, self._process.wants_others())
            return
        if self._leader is None and _now() >= self._next:
            self._seek()
        if self._leader is not None:
            try:
                self._follow(readable)
            except (Gone, messages.Broken):
                self._lose_leader()

    def look_after_descriptors(self):
        if self._hub is not None and not self._hub.look_after_descriptors():
            self._server.is_lost = True
        if self._leader is not None and not self._leader.descriptor.is_there():
            self._lose_leader()

    def end_all(self):
        """The others are not to be reached any more, either."""
        if self._hub is not None:
            self._hub.end_all()

    def close(self):
        self._had_others = self._hub.close() if self._hub is not None else self.has_others()
        self._hub = None
        if self._leader is not None:
            self._leader.close()
        self._folder.leave()
        self._folder.unlock()

    def _follow(self, readable):
        if self._leader.descriptor.number in readable:
            self._leader.receive()
            for message in iter(self._leader.decoder.take, None):
                self._hear(message)
        message = self._process.describe()
        if message != self._said:
            self._said = dict(message)
            self._leader.say(message)
        self._leader.send()

    def _hear(self, message):
        if message['type'] == 'end':
            self._server.is_lost = True
        else:
            self._process.hear_of_client(message['isThere'])

    def _lose_leader(self):
        self._leader.close()
        self._leader = None
        self._next = _now()

    def _seek(self):
        self._next = _now() + _SOON
        try:
            self._folder.make()
            if self._folder.lock():
                self._next = _now() + _LATER
                self._lead()
            else:
                self._find_leader()
        except (EnvironmentError, InUse):
            pass  # Another one is about to lead, or the address is not free yet.
        if self._hub is None:
            self._folder.unlock()

    def _lead(self):
        listener, is_token_shown = self._listen()
        try:
            hub = Hub(self._folder, self._process.tell_of)
        except (EnvironmentError, InUse):
            listener.close()
            raise
        self._server.listen_at(listener, is_token_shown)
        self._hub = hub
        self._process.hear_of_client(self._process.wants_others())

    def _find_leader(self):
        connected = above_streams(lambda: socket.socket(socket.AF_UNIX, socket.SOCK_STREAM))
        try:
            connected.setblocking(False)
            connected.connect(self._folder.hub)
            self._leader = Connection(connected, messages.FROM_STRANGER)
        except EnvironmentError:
            connected.close()
            raise
        self._said = None
