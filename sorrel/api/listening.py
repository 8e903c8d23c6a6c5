"""Programs that listen for clients because they have said so."""

from __future__ import absolute_import

import atexit
import os

from sorrel.api import addresses, connecting, Error
from sorrel.common.originals import thread, time
from sorrel.processes.forks import call_in_children
from sorrel.protocol import tokens
from sorrel.server import access
from sorrel.server.frontend import Program
from sorrel.server.network.listening import InUse, place
from sorrel.server.shared import sources
from sorrel.service import late
from sorrel.service.service import Service

# How long one call of listen or stop may wait for another one, in seconds.
_PATIENCE = 5.0
# How often is looked whether a client has come.
_LOOK = 0.05
# Taken now: a program may replace what the interpreter's modules offer.
_now, _sleep, _new_lock = time.time, time.sleep, thread.allocate_lock
# By processes: a forked one holds what is its parent's, too.
_places = {}


class _Program(Program):

    def new_session(self, server):
        # Where it listens from the interpreter's start on, this was not known before.
        self.path = sources.main_path()
        return Program.new_session(self, server)


class _Place(object):
    """Where a process listens, if it does."""

    def __init__(self):
        self._changing = _new_lock()
        self._program = self._server = None
        # What it was asked for, and what has come of that.
        self._asked = self._address = None

    def listen(self, *asked):
        self._change(self._listen, asked)
        return self._address

    def stop(self):
        self._change(self._stop)

    def is_open(self):
        server = self._server
        return server is not None and server.can_be_reached()

    def forget(self):
        """The process is the parent's."""
        if self._server is not None:
            self._server.forget()

    def _change(self, function, *arguments):
        # A signal handler may call this in the middle of another call, in the same thread.
        end = _now() + _PATIENCE
        while not self._changing.acquire(False):
            if _now() > end:
                raise Error('another call of listen() or stop() is under way')
            _sleep(_LOOK)
        try:
            function(*arguments)
        finally:
            self._changing.release()

    def _listen(self, asked):
        if self.is_open():
            if asked != self._asked:
                raise Error('this program listens already, in another way: at %s' % (
                    self._address if isinstance(self._address, str) else '%s:%d' % self._address))
            return
        self._stop()  # What the program has closed.
        program = _Program(sources.main_path(), 'attach', False)
        program.service = late.service()
        try:
            server, address = access.listening_server(program, *asked)
            server.start(program.service.start_own_thread)
        except (EnvironmentError, InUse, tokens.NoToken, thread.error) as error:
            program.clear_up()
            raise Error('cannot listen: %s' % error)
        self._program, self._server = program, server
        self._asked, self._address = asked, address

    def _stop(self):
        program, server = self._program, self._server
        self._program = self._server = None
        if server is not None:
            # First: where this is typed at a stop, it is ended when the client has gone.
            program.clear_up()
            server.stop(ends_kin=True)


def listen(address, token, token_file):
    wanted = addresses.wanted(address)
    if token_file is not None and not isinstance(token_file, basestring):
        raise TypeError('token_file must be the name of a file')
    if token_file is not None and not token:
        raise ValueError('a file for a token, and no token')
    return _place().listen(wanted, token_file, bool(token))


def listen_at(text):
    """The same at a place that is written [HOST:]PORT or unix:PATH."""
    return _place().listen(place(text), None, True)


def wait_for_client(timeout):
    end = None if timeout is None else _now() + timeout
    while not is_client_connected():
        if not _can_come():
            raise Error('no client can come: the program does not listen')
        if end is not None and _now() >= end:
            return False
        _sleep(_LOOK)
    return True


def is_client_connected():
    service = Service.of_this_process()
    return service is not None and service.has_client()


def stop():
    known = _places.get(os.getpid())
    if known is not None:
        known.stop()


def _place():
    return _places.setdefault(os.getpid(), _Place())


def _can_come():
    known = _places.get(os.getpid())
    if known is not None and known.is_open() or connecting.is_connected():
        return True
    # A program that was started to listen.
    service = Service.of_this_process()
    can_be_reached = getattr(service and service.front_end, 'can_be_reached', None)
    return can_be_reached is not None and can_be_reached()


def _forget():
    for known in _places.values():
        known.forget()
    _places.clear()


# Once: processes that the program forks have their parent's.
atexit.register(stop)
call_in_children(_forget)
