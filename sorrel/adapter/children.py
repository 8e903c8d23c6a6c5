"""The processes that a launched program starts.

A client that knows how begins a session of its own for each. For others they are merged into the
one of the program.
"""

from __future__ import absolute_import

import functools
import os
import time

from sorrel.adapter import attach
from sorrel.adapter.answers import event
from sorrel.adapter.arrivals import arrivals, Arrivals
from sorrel.adapter.connection import ToProgram
from sorrel.common.alive import is_alive
from sorrel.protocol.messages import Refused

# Every descriptor more is one more to wait for, and of these there cannot be any number.
_MOST = 200
# How long the client may take to say whether it begins a session, in seconds. The process, which
# may have stopped, waits longer than that.
ANSWER_PATIENCE = 10.0


class Children(object):

    def __init__(self, merging, send):
        """send: sends the client a message; returns its number."""
        self._merging = merging
        self._send = send
        self._arrivals = None
        self._initialize = self._arguments = None
        # Those that the client has been asked to debug, and until when it may answer, by the
        # numbers of the requests.
        self._asked = {}
        # The Debuggees by their connections, and the processes that have sessions of their own.
        self._debuggees = {}
        self._elsewhere = set()

    def expect(self, initialize, arguments, handshake=None):
        """arguments: those of the client's request that has begun the program.

        handshake: by which processes come; by default the program tells of them.
        """
        self._arrivals = Arrivals(handshake) if handshake is not None else None
        self._initialize = initialize
        self._arguments = arguments

    def folder(self):
        """Where they listen; None where none are to come."""
        return self._arrivals.folder if self._arrivals is not None else None

    def sources(self):
        """What to wait for."""
        return list(self._debuggees) + (self._arrivals.sockets() if self._arrivals else [])

    def need_looks(self):
        """Whether look() is to be called though nothing comes."""
        return bool(self._elsewhere or self._asked) \
            or self._arrivals is not None and self._arrivals.is_amid_any()

    def are_any(self):
        """Whether any is there, as far as the session is concerned."""
        self._elsewhere = set(pid for pid in self._elsewhere if is_alive(pid))
        self._asked = dict((seq, (arrival, until)) for seq, (arrival, until) in self._asked.items()
                           if is_alive(arrival.pid))
        return bool(self._debuggees or self._elsewhere or self._asked) \
            or self._arrivals is not None and self._arrivals.are_any_to_come()

    def look(self, readable):
        for connection, debuggee in list(self._debuggees.items()):
            if connection in readable:
                for message in connection.read():
                    if not self.hears(message):
                        self._merging.hear(debuggee, message)
            if connection.is_lost or not self._merging.has(debuggee):
                self._leave(connection)
        for arrival in self._arrivals.look(readable) if self._arrivals else ():
            self._begin(arrival)
        for seq, (arrival, until) in list(self._asked.items()):
            if time.time() > until:
                del self._asked[seq]
                # The client may have begun the session all the same. Who attaches first has it.
                self._merge(arrival, lambda why, pid=arrival.pid: self._elsewhere.add(pid))

    def hears(self, message):
        """Whether a process tells of another one by this message."""
        if message.get('event') != 'childProcess':
            return False
        for arrival in arrivals(message['body']):
            if not self._knows(arrival.pid):
                self._begin(arrival)
        return True

    def heard(self, response):
        """The client has answered a request. What it says too late changes nothing."""
        arrival, _ = self._asked.pop(response.get('request_seq'), (None, None))
        if arrival is not None and response.get('success'):
            self._elsewhere.add(arrival.pid)
        elif arrival is not None:
            self._merge(arrival)

    def signal(self, number):
        """Sends a signal to those of this session that are still there."""
        for debuggee in self._debuggees.values():
            try:
                os.kill(debuggee.pid, number)
            except OSError:
                pass  # It has just ended, or is another user's by now.

    def leave(self):
        """Whatever happens to them, nobody is told of it any more."""
        for connection in list(self._debuggees):
            self._leave(connection)
        self._asked.clear()
        self._elsewhere.clear()
        arrivals, self._arrivals = self._arrivals, None
        if arrivals is not None:
            arrivals.close()

    def _knows(self, pid):
        asked = [arrival for arrival, _ in self._asked.values()]
        return pid in self._elsewhere or pid in [
            known.pid for known in self._debuggees.values() + asked]

    def _begin(self, arrival):
        if self._initialize.get('supportsStartDebuggingRequest'):
            self._asked[self._ask_client(arrival)] = arrival, time.time() + ANSWER_PATIENCE
        else:
            self._merge(arrival)

    def _ask_client(self, arrival):
        kind = self._arguments.get('type')
        configuration = dict(
            self._settings(), type=kind if isinstance(kind, unicode) else u'sorrel',
            name=u'%s [%d]' % (arrival.name, arrival.pid),
            **attach.place_of_child(self._arguments, arrival))
        return self._send({'type': 'request', 'command': 'startDebugging', 'arguments': {
            'request': 'attach', 'configuration': configuration}})

    def _settings(self):
        return attach.settings_of_child(self._arguments)

    def _merge(self, arrival, refused=None):
        """refused: called where the process has another client; by default that is told."""
        refuse = functools.partial(self._tell_refusal, arrival)
        try:
            if len(self._debuggees) >= _MOST:
                raise Refused('there are %d others' % _MOST)
            place = attach.place_of_child(self._arguments, arrival)
            connected = attach.connect(place)
            request = attach.request_with_token({}, dict(self._settings(), **place), connected)
            connection = ToProgram(connected)
        except Refused as error:
            refuse(error.args[0])
            return
        self._debuggees[connection] = self._merging.add(
            connection.send, arrival.pid, arrival.name, self._initialize, request['arguments'],
            refused or refuse)

    def _tell_refusal(self, arrival, why):
        if is_alive(arrival.pid):
            self._send(event('output', {
                'category': 'important', 'output': u'process %d, %s, is not debugged: %s\n' % (
                    arrival.pid, arrival.name, why)}))

    def _leave(self, connection):
        self._merging.gone(self._debuggees.pop(connection))
        connection.close()
