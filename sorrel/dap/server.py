"""The network thread: takes one client at a time, reads its messages and sends what it is to get.

The thread is none of the program's. It imports nothing once it runs, since the program may be
stopped in the middle of an import; and it relies on nothing that the program may close or replace.
"""

import collections
import errno
import os
import socket
import thread
import time

from sorrel.dap import protocol
from sorrel.complaint import print_error
from sorrel.dap.descriptors import Descriptor
from sorrel.dap.mailbox import Mailbox
from sorrel.dap.waiting import wait
from sorrel.dap.wakeup import Wakeup

# How long a client may take to introduce itself, to finish a message, and to read what it is sent,
# in seconds.
PATIENCE = 10.0
# What a client has not read yet may not grow without end.
_UNREAD_LIMIT = 64 * 1024 * 1024
_RECEIVED_AT_ONCE = 65536
# A client that is gone without a word is noticed after a minute and a half, where that can be set.
_KEEP_ALIVE = (('TCP_KEEPIDLE', 60), ('TCP_KEEPINTVL', 10), ('TCP_KEEPCNT', 3))
_now = time.time


def listen(host, port):
    """A listener. Raises socket.error."""
    family, kind, protocol_number, _, address = socket.getaddrinfo(
        host, port, 0, socket.SOCK_STREAM, 0, socket.AI_PASSIVE)[0]
    listener = socket.socket(family, kind, protocol_number)
    if os.name == 'posix':  # Elsewhere it would let others take the port.
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(address)
    listener.listen(1)
    listener.setblocking(False)
    return listener


def _set_up(client):
    client.setblocking(False)
    # A stop is told at once.
    client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    client.setsockopt(socket.SOL_SOCKET, socket.SO_KEEPALIVE, 1)
    for name, value in _KEEP_ALIVE:
        if hasattr(socket, name):
            client.setsockopt(socket.IPPROTO_TCP, getattr(socket, name), value)


def _will_pass(error):
    return error.args[0] in (errno.EAGAIN, errno.EWOULDBLOCK, errno.EINTR)


class Server(object):
    """is_lost: whether the program has closed what its clients are reached by, for good."""

    def __init__(self, new_session, listener=None, client=None):
        """Sockets: a listener that clients come to, or the connection to the one there will be.

        new_session: called with this server for each client. A session has `handle(message)`,
        `closed()`, before that `cut_off()` when the program has closed the connection,
        `deadline()` (a time or None) and `deadline_passed()`, all called in this thread, and the
        attribute `is_known`: whether the client has introduced itself.
        """
        self.is_lost = False
        self._new_session = new_session
        self._listener = listener and Descriptor(listener)
        self._wakeup = Wakeup()
        self._messages = collections.deque()
        self._running = False
        self._finished = Mailbox()
        # The Descriptor and the session of the client there is.
        self._client = self._session = None
        self._first = client

    def start(self):
        """Returns the ident of the thread."""
        started = Mailbox()
        thread.start_new_thread(self._run, (started,))
        return started.take()

    def send(self, session, message):
        """Sends a message, from any thread, if the session's client is still there."""
        self._messages.append((session, message))
        if not self._wakeup.wake():
            self.is_lost = True

    def when_sent(self, function):
        """Calls the function, in the network thread, when everything until now has been sent.

        For the network thread.
        """
        self._when_sent.append(function)

    def stop(self):
        """Sends what is left to send, then ends the thread and waits for that."""
        self._running = False
        # A thread that cannot be woken up ends with the process.
        if not self.is_lost and self._wakeup.wake():
            self._finished.take()

    def forget(self):
        """Called in a process that the program has forked, and in which there is no such thread."""
        self.is_lost = True
        for descriptor in self._client, self._listener, self._wakeup.descriptor:
            if descriptor is not None:
                descriptor.leave_to_parent()

    def drop_client(self):
        """Ends the connection when all has been sent. For the network thread."""
        self._closing = True

    # The thread.

    def _run(self, started):
        self._running = True
        if self._first is not None:
            self._welcome(self._first)
        started.put(thread.get_ident())
        while self._running and not self.is_lost and (self._client or self._listener):
            self._guarded(self._turn)
        if self._client:
            self._guarded(self._flush)
        if self._client:
            self._drop()
        if self._listener:
            self._listener.close()
        self._finished.put(None)

    def _guarded(self, function):
        """Whatever goes wrong with a client, the next one can come."""
        try:
            function()
        except Exception:
            print_error()
            if self._client:
                self._drop()

    def _welcome(self, client):
        _set_up(client)
        self._client = Descriptor(client)
        self._decoder = protocol.Decoder()
        self._seq = 0
        self._unsent = ''
        self._closing = False
        self._when_sent = []
        self._deaf_since = None
        self._amid_since = _now()
        self._session = self._new_session(self)

    def _turn(self):
        self._look_after_descriptors()
        if self.is_lost:
            return
        listener = self._listener and self._listener.number
        client = self._client and self._client.number
        reading = [number for number in (self._wakeup.descriptor.number, listener, client)
                   if number is not None]
        writing = [client] if client is not None and self._unsent else []
        readable = wait(reading, writing, self._timeout())[0]
        self._look_after_descriptors()
        if self.is_lost:
            return
        if self._wakeup.descriptor.number in readable:
            self._wakeup.clear()
        if self._client is not None and client in readable:
            self._receive()
        # A client that has left is noticed before the next one is shown out.
        if listener in readable and client not in readable:
            self._accept()
        if self._client is not None:
            self._send_waiting()
        if self._client is not None:
            self._check_deadlines()

    def _look_after_descriptors(self):
        """What the program has closed, and may use for itself, is not touched."""
        for descriptor in self._wakeup.descriptor, self._listener:
            if descriptor is not None and not descriptor.is_there():
                self.is_lost = True
        if self._client is not None and not self._client.is_there():
            self._session.cut_off()
            self._drop()

    def _timeout(self):
        if self._client is None:
            return None
        moments = [moment for moment in (self._client_deadline(), self._session.deadline())
                   if moment is not None]
        return max(0.0, min(moments) - _now()) if moments else None

    def _client_deadline(self):
        moments = [since + PATIENCE for since in (self._deaf_since, self._amid_since)
                   if since is not None]
        return min(moments) if moments else None

    def _check_deadlines(self):
        now = _now()
        deadline = self._client_deadline()
        if deadline is not None and now >= deadline:
            self._drop()
            return
        deadline = self._session.deadline()
        if deadline is not None and now >= deadline:
            self._session.deadline_passed()

    def _accept(self):
        try:
            client = self._listener.socket.accept()[0]
        except socket.error:
            return
        if self._client is not None:
            client.close()  # One at a time.
        else:
            self._welcome(client)

    def _receive(self):
        try:
            data = self._client.socket.recv(_RECEIVED_AT_ONCE)
        except socket.error as error:
            if _will_pass(error):
                return
            data = ''
        if not data:
            self._drop()
            return
        try:
            messages = self._decoder.feed(data)
            for message in messages:
                if not self._closing:
                    self._session.handle(message)
        except protocol.Broken:
            self._drop()
            return
        if not self._session.is_known:
            return
        if not self._decoder.is_amid_message():
            self._amid_since = None
        elif messages or self._amid_since is None:
            self._amid_since = _now()

    def _send_waiting(self):
        while self._messages:
            session, message = self._messages.popleft()
            if session is self._session:
                self._seq += 1
                message['seq'] = self._seq
                self._unsent += protocol.encode(message)
        self._send_some()

    def _send_some(self):
        if self._unsent:
            try:
                sent = self._client.socket.send(self._unsent)
            except socket.error as error:
                if not _will_pass(error):
                    self._drop()
                    return
                sent = 0
            self._unsent = self._unsent[sent:]
            if sent or not self._unsent:
                self._deaf_since = None
        if self._unsent:
            if self._deaf_since is None:
                self._deaf_since = _now()
            if len(self._unsent) > _UNREAD_LIMIT:
                self._drop()
            return
        functions, self._when_sent = self._when_sent, []
        for function in functions:
            function()
        if self._closing:
            self._drop()

    def _flush(self):
        """Sends what is left, as long as the client reads it."""
        end = _now() + 1.0
        self._send_waiting()
        while self._client is not None and self._unsent and _now() < end:
            wait([], [self._client.number], 0.1)
            self._look_after_descriptors()
            if self._client is not None:
                self._send_waiting()

    def _drop(self):
        client, session = self._client, self._session
        self._client = self._session = None
        if client.is_there():
            try:
                # Processes that the program has forked may hold the connection, too.
                client.socket.shutdown(socket.SHUT_RDWR)
            except socket.error:
                pass
        client.close()
        session.closed()
