"""What the processes of a tree tell the one that leads it, and which clients go on to them."""

from __future__ import absolute_import

from sorrel.common.alive import is_alive
from sorrel.common.originals import time
from sorrel.common.records import record
from sorrel.protocol import messages
from sorrel.server.network.connection import Connection, Gone
from sorrel.server.network.door import Door
from sorrel.server.network.listening import Listening, Path
from sorrel.server.network.relays import Relays

# How long after its connection a process may end, in seconds.
_END = 0.1
# Taken now: a program may replace what the interpreter's modules offer.
_now = time.time

# name: of what it runs. wants_client: whether it has none, and one is to come by itself.
Member = record('Member', 'pid parent name wants_client')


class _Held(object):
    """The connection to a process, which it holds for as long as it is there."""

    def __init__(self, connected):
        self.connection = Connection(connected, messages.FROM_STRANGER)
        # None until it has said who it is.
        self.member = None


class Hub(object):
    """For the process that leads."""

    def __init__(self, folder, on_member):
        """folder: the SharedFolder. on_member: called with each Member that is new or has changed.

        Raises EnvironmentError or InUse.
        """
        self._folder = folder
        self._on_member = on_member
        self._listening = Listening(Path(folder.hub))
        self._door = Door(self._listening.socket)
        self._held = []
        self._relays = Relays()
        # When to look whether they have ended, for those that have hung up.
        self._ending = {}
        # What all have been told of whether there is a client here.
        self._has_client = False

    def members(self):
        return [held.member for held in self._held if held.member is not None]

    def connections(self):
        return [held.connection for held in self._held] + self._relays.connections()

    def descriptors(self):
        return [self._door.descriptor] + [
            connection.descriptor for connection in self.connections()]

    def reading(self):
        return [self._door.descriptor.number] * (_now() >= self._door.closed_until) + [
            held.connection.descriptor.number for held in self._held] + self._relays.reading()

    def deadline(self):
        """When look() is to be called though nothing comes; None for never."""
        moments = self._ending.values()
        if _now() < self._door.closed_until:
            moments.append(self._door.closed_until)
        return min(moments) if moments else None

    def relay(self, stranger):
        """Whether this Stranger, who asks to attach to another process, goes there."""
        for member in self.members():
            if member.pid == stranger.wanted_process():
                try:
                    self._relays.begin(stranger, self._folder.socket_of(member.pid))
                    return True
                except EnvironmentError:
                    pass  # It is ending.
        return False

    def look(self, readable, has_client):
        """has_client: whether the one of this process wants to hear of others."""
        if has_client != self._has_client:
            self._has_client = has_client
            for held in self._held:
                self._tell(held)
        for held in list(self._held):
            try:
                if held.connection.descriptor.number in readable:
                    self._hear(held)
                held.connection.send()
            except (Gone, messages.Broken):
                self._leave(held)
        if self._door.descriptor.number in readable:
            self._accept()
        self._relays.look(readable)
        self._clear_up(_now())

    def look_after_descriptors(self):
        """Whether the program has left alone what is needed."""
        for held in list(self._held):
            if not held.connection.descriptor.is_there():
                self._leave(held)
        self._relays.look_after_descriptors()
        return self._door.descriptor.is_there()

    def end_all(self):
        for held in list(self._held):
            held.connection.say({'type': 'end'})
            try:
                held.connection.send()
            except Gone:
                pass
            held.connection.close()
        del self._held[:]

    def close(self):
        """Whether there are others."""
        self._relays.close()
        for held in self._held[:]:
            try:
                self._hear(held)
            except (Gone, messages.Broken):
                self._leave(held)
        self._clear_up(_now() + _END)
        has_others = bool(self._held)
        for held in self._held:
            held.connection.close()
        del self._held[:]
        self._door.descriptor.close()
        self._listening.remove()
        return has_others

    def _accept(self):
        connected = self._door.let_in()
        if connected is None:
            return
        try:
            self._held.append(_Held(connected))
        except EnvironmentError:
            connected.close()  # It has gone by now.

    def _hear(self, held):
        held.connection.receive()
        for message in iter(held.connection.decoder.take, None):
            is_first = held.member is None
            held.member = _member(message)
            if is_first:
                self._tell(held)
            self._on_member(held.member)

    def _tell(self, held):
        if held.member is not None:
            held.connection.say({'type': 'client', 'isThere': self._has_client})

    def _leave(self, held):
        self._held.remove(held)
        held.connection.close()
        if held.member is not None:
            self._ending[held.member.pid] = _now() + _END

    def _clear_up(self, until):
        for pid, moment in self._ending.items():
            if moment <= until:
                del self._ending[pid]
                if not is_alive(pid):
                    # It could not see to that.
                    self._folder.remove(str(pid))


def _member(message):
    """Raises Broken."""
    try:
        return Member(message['processId'], message['parentProcessId'], message['name'],
                      message['wantsClient'])
    except KeyError:
        raise messages.Broken('not what a process says')
