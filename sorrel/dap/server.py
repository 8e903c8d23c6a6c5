"""The network thread: takes one client at a time, reads its messages and sends what it is to get.

The thread is none of the program's. It imports nothing once it runs, since the program may be
stopped in the middle of an import.
"""

import collections
import errno
import os
import select
import socket
import sys
import thread
import time
import traceback

try:
    import fcntl
except ImportError:
    fcntl = None  # Another platform: nothing is inherited there.

from sorrel.dap import protocol
from sorrel.dap.mailbox import Mailbox
from sorrel.dap.wakeup import Wakeup

# How long a client may take to introduce itself, to finish a message, and to read what it is sent.
_PATIENCE = 10.0
# What a client has not read yet may not grow without end.
_UNREAD_LIMIT = 64 * 1024 * 1024
_RECEIVED_AT_ONCE = 65536


def listen(host, port):
    """A listener. Raises socket.error."""
    family, kind, protocol_number, _, address = socket.getaddrinfo(
        host, port, 0, socket.SOCK_STREAM, 0, socket.AI_PASSIVE)[0]
    listener = socket.socket(family, kind, protocol_number)
    keep_from_children(listener)
    if os.name == 'posix':  # Elsewhere it would let others take the port.
        listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(address)
    listener.listen(1)
    return listener


def keep_from_children(socket_):
    """Programs that the program starts don't inherit it."""
    if fcntl is not None:
        flags = fcntl.fcntl(socket_.fileno(), fcntl.F_GETFD)
        fcntl.fcntl(socket_.fileno(), fcntl.F_SETFD, flags | fcntl.FD_CLOEXEC)


def _set_up(client):
    keep_from_children(client)
    client.setblocking(False)
    # A stop is told at once; a client that is gone without a word is noticed some day.
    client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    client.setsockopt(socket.SOL_SOCKET, socket.SO_KEEPALIVE, 1)


def _would_block(error):
    return error.args[0] in (errno.EAGAIN, errno.EWOULDBLOCK, errno.EINTR)


class Server(object):

    def __init__(self, new_session, listener=None, client=None):
        """Sockets: a listener that clients come to, or the connection to the one there will be.

        new_session: called with this server for each client. A session has `handle(message)`,
        `closed()`, `deadline()` (a time or None) and `deadline_passed()`, all called in this
        thread, and the attribute `is_known`: whether the client has introduced itself.
        """
        self._new_session = new_session
        self._listener = listener
        self._wakeup = Wakeup()
        self._messages = collections.deque()
        self._running = False
        self._finished = Mailbox()
        self._client = None
        self._session = None
        self._first = client

    def start(self):
        """Returns the ident of the thread."""
        started = Mailbox()
        thread.start_new_thread(self._run, (started,))
        return started.take()

    def send(self, session, message):
        """Sends a message, from any thread, if the session's client is still there."""
        self._messages.append((session, message))
        self._wakeup.wake()

    def when_sent(self, function):
        """Calls the function, in the network thread, when everything until now has been sent.

        For the network thread.
        """
        self._when_sent.append(function)

    def stop(self):
        """Sends what is left to send, then ends the thread and waits for that."""
        self._running = False
        self._wakeup.wake()
        self._finished.take()

    def drop_client(self):
        """Ends the connection when all has been sent. For the network thread."""
        self._closing = True

    # The thread.

    def _run(self, started):
        self._running = True
        if self._first is not None:
            self._welcome(self._first)
        started.put(thread.get_ident())
        try:
            while self._running and (self._client or self._listener):
                self._turn()
            if self._client:
                self._flush()
                self._drop()
        except Exception:
            traceback.print_exc(file=sys.__stderr__)
        finally:
            for socket_ in (self._client, self._listener, self._wakeup):
                if socket_ is not None:
                    socket_.close()
            self._finished.put(None)

    def _welcome(self, client):
        _set_up(client)
        self._client = client
        self._decoder = protocol.Decoder()
        self._seq = 0
        self._unsent = ''
        self._closing = False
        self._when_sent = []
        self._deaf_since = None
        self._amid_since = time.time()
        self._session = self._new_session(self)

    def _turn(self):
        reading = [self._wakeup]
        writing = []
        if self._listener is not None:
            reading.append(self._listener)
        if self._client is not None:
            reading.append(self._client)
            if self._unsent:
                writing.append(self._client)
        try:
            readable, writable, _ = select.select(reading, writing, [], self._timeout())
        except select.error:
            return  # Interrupted.
        if self._wakeup in readable:
            self._wakeup.clear()
        if self._client is not None and self._client in readable:
            self._receive()
        if self._listener is not None and self._listener in readable:
            self._accept()
        if self._client is not None:
            self._check_deadlines()
            self._send_waiting()

    def _timeout(self):
        if self._client is None:
            return None
        moments = [moment for moment in (self._client_deadline(), self._session.deadline())
                   if moment is not None]
        return max(0.0, min(moments) - time.time()) if moments else None

    def _client_deadline(self):
        moments = [since + _PATIENCE for since in (self._deaf_since, self._amid_since)
                   if since is not None]
        return min(moments) if moments else None

    def _check_deadlines(self):
        now = time.time()
        deadline = self._client_deadline()
        if deadline is not None and now >= deadline:
            self._drop()
            return
        deadline = self._session.deadline()
        if deadline is not None and now >= deadline:
            self._session.deadline_passed()

    def _accept(self):
        try:
            client = self._listener.accept()[0]
        except socket.error:
            return
        if self._client is not None:
            client.close()  # One at a time.
        else:
            self._welcome(client)

    def _receive(self):
        try:
            data = self._client.recv(_RECEIVED_AT_ONCE)
        except socket.error:
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
            self._amid_since = time.time()

    def _send_waiting(self):
        while self._messages and self._client is not None:
            session, message = self._messages.popleft()
            if session is self._session:
                self._seq += 1
                message['seq'] = self._seq
                self._unsent += protocol.encode(message)
        if self._client is None:
            return
        self._send_some()

    def _send_some(self):
        if self._unsent:
            try:
                sent = self._client.send(self._unsent)
            except socket.error as error:
                if not _would_block(error):
                    self._drop()
                    return
                sent = 0
            self._unsent = self._unsent[sent:]
            if sent or not self._unsent:
                self._deaf_since = None
        if self._unsent:
            if self._deaf_since is None:
                self._deaf_since = time.time()
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
        end = time.time() + 1.0
        self._send_waiting()
        while self._client is not None and self._unsent and time.time() < end:
            try:
                select.select([], [self._client], [], 0.1)
            except select.error:
                pass
            self._send_waiting()

    def _drop(self):
        client, session = self._client, self._session
        self._client = self._session = None
        try:
            # Processes that the program has forked may hold the connection, too.
            client.shutdown(socket.SHUT_RDWR)
        except socket.error:
            pass
        client.close()
        session.closed()
