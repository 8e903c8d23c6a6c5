"""The network thread: takes one client at a time, reads its messages and sends what it is to get.

The thread is none of the program's. It imports nothing once it runs, since the program may be
stopped in the middle of an import; and it relies on nothing that the program may close or replace.
Nobody it talks to can keep it from its other work: what it does in one turn is bounded.
"""

from __future__ import absolute_import

import os

from sorrel.common.errors import print_error
from sorrel.common.originals import thread, time
from sorrel.protocol import messages
from sorrel.server.network.connection import Connection, Gone
from sorrel.server.network.output_queue import LOG_LIMIT, OutputQueue
from sorrel.server.network.polling import wait
from sorrel.server.network.reception import Reception
from sorrel.server.network.wakeup import Wakeup
from sorrel.common.work_queue import WorkQueue

# How long a client may take to introduce itself, to attach, to finish a message, and to read what
# it is sent; and how long, having attached, to say that it is done with its configuration, while it
# holds the one place; in seconds.
PATIENCE = 10.0
BEGIN_PATIENCE = 60.0
# What a client has not read yet may not grow without end.
_UNREAD_LIMIT = 64 * 1024 * 1024
# What is done in one turn: messages handled, messages and bytes made ready to send.
_HANDLED_AT_ONCE, _MADE_READY_AT_ONCE, _BYTES_AT_ONCE = 100, 500, 256 * 1024
# Taken now: a program may replace what the interpreter's modules offer.
_now, _sleep, _get_ident, _getpid = time.time, time.sleep, thread.get_ident, os.getpid


class Server(object):
    """is_lost: whether the program has closed what its clients are reached by, for good."""

    def __init__(self, new_session, listener=None, client=None, is_token_shown=None, kin=None,
                 is_for_kin=False):
        """Sockets: a listener that clients come to, or the connection to the one there will be.

        new_session: called with this server for each client. A session has `handle(message)`,
        `introduce(arguments)`, which stands for an initialize request, `closed()`, before that
        `cut_off()` when the program has closed the connection, `deadline()` (a time or None) and
        `deadline_passed()`, all called in this thread, and the attributes `is_known`, `has_begun`
        and `is_configured`: whether the client has introduced itself, attached, and said that its
        configuration is done.
        is_token_shown: called with the arguments of a request to attach: whether to carry it out.
        kin: the Kin of this process, where clients come to all of them by one. is_for_kin: whether
        the listener is where they come from another of them.
        """
        self.is_lost = False
        self._new_session = new_session
        self._receptions = []
        self._kin = kin
        if listener is not None:
            self.listen_at(listener, is_token_shown, is_for_kin)
        if kin is not None:
            kin.begin(self)
        self._wakeup = Wakeup()
        self._output_queue = OutputQueue()
        self._running = self._ends_kin = False
        self._finished = WorkQueue()
        # The Connection and the session of the client there is.
        self._client = self._session = None
        self._first = client

    def start(self, start_thread):
        """start_thread: calls what follows in a new thread, which nobody debugs."""
        started = WorkQueue()
        start_thread(self._run, started)
        started.take()

    def run(self):
        """Is the thread, until the end."""
        self._run(WorkQueue())

    def send(self, session, message):
        """Sends a message, from any thread, if the session's client is still there.

        What a log message says is left out, and that is said, while the client reads too slowly.
        """
        self._output_queue.put(session, message)
        if not self._wakeup.wake():
            self.is_lost = True
        self._output_queue.give_way(session)

    def has_room(self):
        """Whether the client has read enough to be sent more that could be left out."""
        return self._output_queue.has_room()

    def can_be_reached(self):
        """Whether clients can still come, as far as is known; for any thread."""
        if not self._wakeup.wake():
            self.is_lost = True
        return not self.is_lost

    def when_sent(self, function):
        """Calls the function, in the network thread, when the answer to this request has been sent.

        For the network thread, while a request is handled.
        """
        self._when_answered.append(function)

    def wait_until_sent(self, session, patience):
        """Waits until the session's client has been sent all there is, for so many seconds at most.

        For any thread but the network thread.
        """
        sent = []
        self._output_queue.mark(session, lambda: sent.append(None))
        end = _now() + patience
        while not sent and self._session is session and self._wakeup.wake() and _now() < end:
            _sleep(0.0005)

    def stop(self, ends_kin=False):
        """Sends what is left to send, then ends the thread and waits for that.

        ends_kin: whether clients are not to come to other processes of the tree any more, either.
        """
        self._ends_kin = ends_kin
        self._running = False
        # A thread that cannot be woken up ends with the process.
        if not self.is_lost and self._wakeup.wake():
            self._finished.take()

    def forget(self):
        """Called in a process that the program has forked, and in which there is no such thread."""
        self.is_lost = True
        for descriptor in self._needed() + [
                connection.descriptor for connection in self._connections()] + (
                    self._kin.descriptors() if self._kin is not None else []):
            descriptor.leave_to_parent()

    def listen_at(self, listener, is_token_shown=None, is_kin=False):
        """From now on clients can come there, too. For the network thread, or before it."""
        self._receptions.append(Reception(listener, PATIENCE, is_token_shown, is_kin))

    def drop_client(self):
        """Ends the connection. For the network thread."""
        self._is_closing = True

    # The thread.

    def _run(self, started):
        self._running = True
        self._output_queue.owner = _get_ident()
        if self._first is not None:
            self._welcome(Connection(self._first, messages.FROM_CLIENT))
        started.put(None)
        while self._running and not self.is_lost and (self._client or self._receptions):
            self._guarded(self._turn)
        if self._client:
            self._guarded(self._flush)
        if self._client:
            self._drop()
        for reception in self._receptions:
            reception.close()
        if self._kin is not None:
            self._guarded(self._leave_kin)
        self._wakeup.descriptor.close()
        self._finished.put(None)

    def _leave_kin(self):
        if self._ends_kin:
            self._kin.end_all()
        self._kin.close()

    def _guarded(self, function):
        """Whatever goes wrong with a client, the next one can come."""
        try:
            function()
        except Exception:
            print_error()
            if self._client:
                self._drop()

    def _welcome(self, connection):
        session = self._new_session(self)
        self._output_queue.begin(session)
        self._client, self._session = connection, session
        self._when_answered = []
        self._is_closing = False
        self._since = self._amid_since = _now()
        # Whether there may be more to do without waiting for anything, and whether that is what
        # the client has asked.
        self._has_more = self._has_requests = False

    def _turn(self):
        self._look_after_descriptors()
        if self.is_lost:
            return
        client = self._client and self._client.descriptor.number
        reading = [self._wakeup.descriptor.number]
        writing = [connection.descriptor.number for connection in self._connections()
                   if connection.unsent()]
        if client is not None and self._takes_requests():
            reading.append(client)
        for reception in self._receptions:
            reading += reception.reading()
        if self._kin is not None:
            reading += self._kin.reading()
            writing += self._kin.writing()
        readable = wait(reading, writing, self._timeout())[0]
        self._look_after_descriptors()
        if self.is_lost:
            return
        if self._wakeup.descriptor.number in readable:
            self._wakeup.clear()
        if self._client is not None:
            self._serve_client(client in readable)
        else:
            self._output_queue.take()  # What the last one will not get.
        for reception in list(self._receptions):
            reception.look(readable, self._let_in)
        if self._kin is not None:
            self._kin.look(readable)

    def _needed(self):
        return [self._wakeup.descriptor] + [
            reception.descriptor for reception in self._receptions]

    def _connections(self):
        connections = [self._client] if self._client is not None else []
        for reception in self._receptions:
            connections += reception.connections()
        return connections

    def _look_after_descriptors(self):
        """What the program has closed, and may use for itself, is not touched."""
        for descriptor in self._needed():
            if not descriptor.is_there():
                self.is_lost = True
        for reception in self._receptions:
            reception.look_after_descriptors()
        if self._kin is not None:
            self._kin.look_after_descriptors()
        if self._client is not None and not self._client.descriptor.is_there():
            self._session.cut_off()
            self._drop()

    def _timeout(self):
        if self._client is not None and (self._has_more or self._has_requests):
            return 0.0
        moments = [reception.deadline() for reception in self._receptions]
        if self._kin is not None:
            moments.append(self._kin.deadline())
        if self._client is not None:
            moments += [self._client_deadline(), self._session.deadline()]
        moments = [moment for moment in moments if moment is not None]
        return max(0.0, min(moments) - _now()) if moments else None

    def _let_in(self, stranger):
        """Whether this stranger, who asks to attach, is a client now, here or elsewhere."""
        if stranger.wanted_process() not in (None, _getpid()):
            if self._kin is not None and self._kin.relay(stranger):
                return True
            stranger.refuse_to_attach(u'there is no such process here')
            return False
        if self._client is not None:
            return False
        stranger.connection.decoder.limits = messages.FROM_CLIENT
        self._welcome(stranger.connection)
        self._session.introduce(stranger.introduction)
        self._handle(stranger.attach)
        self._serve_client(False)
        return True

    # The client.

    def _serve_client(self, has_said_something):
        try:
            self._has_more = False
            if has_said_something and not self._has_requests:
                self._client.receive()
            self._take_requests()
            self._make_ready()
            self._client.send()
            self._output_queue.unsent = self._client.unsent()
        except (Gone, messages.Broken):
            self._drop()
            return
        if self._is_closing or self._client.unsent() > _UNREAD_LIMIT:
            self._drop()
        else:
            self._check_deadlines()

    def _takes_requests(self):
        """Not before it has read most of the answers to the last ones."""
        return self._client.unsent() < LOG_LIMIT and not self._output_queue.has_many() \
            and not self._is_closing

    def _take_requests(self):
        decoder = self._client.decoder
        handled = 0
        self._has_requests = False
        while self._takes_requests():
            if handled == _HANDLED_AT_ONCE:
                self._has_requests = True
                break
            message = decoder.take()
            if message is None:
                break
            self._handle(message)
            self._make_ready()
            handled += 1
        if not self._session.is_known:
            return
        if not decoder.is_amid_message() or not self._takes_requests():
            self._amid_since = None
        elif handled or self._amid_since is None:
            self._amid_since = _now()

    def _handle(self, message):
        self._session.handle(message)
        functions, self._when_answered = self._when_answered, []
        for function in functions:
            self._output_queue.mark(self._session, function)

    def _make_ready(self):
        made = size = 0
        while made < _MADE_READY_AT_ONCE and size < _BYTES_AT_ONCE:
            message = self._output_queue.take()
            if message is None:
                break
            made += 1
            if callable(message):
                self._client.when_sent(message)
            else:
                size += self._client.say(message)
        self._has_more = self._has_more or not self._output_queue.is_empty()

    def _client_deadline(self):
        moments = [since + PATIENCE for since in (self._client.deaf_since, self._amid_since)
                   if since is not None]
        if self._receptions and not self._session.is_configured:
            moments.append(self._since + (
                BEGIN_PATIENCE if self._session.has_begun else PATIENCE))
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

    def _flush(self):
        """Sends what is left, as long as the client reads it."""
        end = _now() + 1.0
        while self._client is not None and _now() < end:
            self._has_more = False
            self._make_ready()
            try:
                self._client.send()
            except Gone:
                return
            self._output_queue.unsent = self._client.unsent()
            if not self._has_more and not self._client.unsent():
                return
            wait([], [self._client.descriptor.number], 0.1)
            self._look_after_descriptors()

    def _drop(self):
        connection, session = self._client, self._session
        self._client = self._session = None
        self._output_queue.begin(None)
        connection.close()
        session.closed()
