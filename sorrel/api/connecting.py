"""Programs that connect to an adapter because they have said so."""

from __future__ import absolute_import

import atexit
import os

from sorrel.api import addresses, Error
from sorrel.common.originals import thread
from sorrel.processes.forks import call_in_children
from sorrel.protocol import token_proof, tokens
from sorrel.server import connected
from sorrel.server.network.listening import Port
from sorrel.server.shared import sources
from sorrel.service import late

# The Server and what it was asked for, by processes: a forked one holds what is its parent's, too.
_connections = {}


def connect(address, token, token_file):
    place = addresses.wanted(address)
    if not isinstance(place, Port):
        raise ValueError('an adapter waits at (host, port), not at %r' % (address,))
    for name, value in ('token', token), ('token_file', token_file):
        if value is not None and not isinstance(value, basestring):
            raise TypeError('%s must be a string' % name)
    if is_connected():
        if _connections[os.getpid()][1] != place:
            raise Error('this program is connected to an adapter already, elsewhere')
        return
    service = late.service()
    if service.has_client():
        raise Error('a client debugs this program already')
    program = connected.ConnectedProgram(sources.main_path(), False)
    program.service = service
    try:
        server = connected.connected_server(program, place, token and str(token), token_file)
        server.start(service.start_own_thread)
    except (EnvironmentError, tokens.NoToken, token_proof.Unproven, thread.error) as error:
        raise Error(connected.complaint(place, error))
    _connections[os.getpid()] = server, place


def is_connected():
    """Whether the calling process has a client in this way, or one that is on its way."""
    server, _ = _connections.get(os.getpid(), (None, None))
    return server is not None and server.can_be_reached()


def stop():
    server, _ = _connections.pop(os.getpid(), (None, None))
    if server is not None:
        server.stop()


def _forget():
    for server, _ in _connections.values():
        server.forget()
    _connections.clear()


# Once: processes that the program forks have their parent's.
atexit.register(stop)
call_in_children(_forget)
