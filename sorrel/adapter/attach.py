"""What a client's request to attach means for the adapter: where the program is, and its token."""

from __future__ import absolute_import

import errno
import os
import socket

from sorrel.adapter import interpreters
from sorrel.common.decoding import text
from sorrel.protocol import schema, tokens
from sorrel.protocol.messages import Refused

_CONNECT_PATIENCE = 10.0
# What the program wants to know: not what is for the adapter alone, or for the editor.
_PASSED_ON = frozenset(name.rstrip('?') for name in schema.ATTACH).difference(
    ('connect', 'host', 'port', 'socket', 'tokenFile', 'processId', 'python', 'build',
     'logToFile', 'listen'))
# Where a program is found, and what is to be shown there.
_PLACE = ('connect', 'host', 'port', 'socket', 'token', 'tokenFile')
# What a process has no first line for is not passed on to it.
_FOR_CHILDREN = frozenset(name.rstrip('?') for name in schema.DEBUGGING).difference(
    ('stopOnEntry',))


def connect(arguments):
    """A socket that is connected to the program. Raises Refused."""
    place = arguments.get('connect', arguments)
    if ('port' in place) == ('socket' in arguments):
        raise Refused('attach needs either a port, a socket, a processId or listen')
    if 'socket' in arguments:
        name = _path(arguments['socket'])
        make = lambda: _connected_to_path(name)
    else:
        address = place.get('host', u'127.0.0.1').encode('utf-8'), place['port']
        name = '%s:%s' % address
        make = lambda: socket.create_connection(address, _CONNECT_PATIENCE)
    try:
        connection = make()
    except (EnvironmentError, OverflowError, TypeError) as error:  # TypeError: a NUL in a path.
        raise Refused(u'cannot connect to %s: %s%s' % (
            text(name), text(getattr(error, 'strerror', None) or error), _advice(error, arguments)))
    if connection.family != getattr(socket, 'AF_UNIX', None):
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    return connection


def request_with_token(request, arguments, connection):
    """The client's request as the program is to have it. Raises Refused."""
    passed = for_program(request, arguments)
    token = _token(arguments, connection)
    if token is not None:
        passed['arguments']['token'] = token
    return passed


def for_program(request, arguments):
    """The client's request with what the program wants to know."""
    passed = dict((name, value) for name, value in arguments.items() if name in _PASSED_ON)
    # Others may not know what to do when a program tells of its processes.
    passed.setdefault('subProcess', True)
    return dict(request, arguments=passed)


def for_proven(request, arguments):
    """The same for a program to which no token is to be shown any more."""
    passed = for_program(request, arguments)
    passed['arguments'].pop('token', None)
    return passed


def settings_of_child(arguments):
    """Of what a client has begun a program with, what holds for what that starts, too."""
    return dict((name, value) for name, value in arguments.items() if name in _FOR_CHILDREN)


def place_of_child(arguments, arrival):
    """What says where a process of a program's tree is. arguments: by which that was found."""
    place = dict((name, arguments[name]) for name in _PLACE if name in arguments)
    if not place or os.path.exists(arrival.socket.encode('utf-8')):
        return {'socket': arrival.socket}
    # On another machine: it is reached where the program was.
    return dict(place, subProcessId=arrival.pid)


def _advice(error, arguments):
    """How to make a program listen, where none does."""
    if getattr(error, 'errno', None) not in (errno.ECONNREFUSED, errno.ENOENT):
        return u''
    if 'socket' in arguments:
        place = u'unix:' + arguments['socket']
    else:
        found = arguments.get('connect', arguments)
        host = found.get('host')
        place = u'%d' % found['port']
        if host not in (None, u'127.0.0.1', u'localhost'):
            place = u'%s:%s' % (host, place)
    return u'. No program listens there; one does that is started with: %s --listen %s PROGRAM' % (
        text(interpreters.command_of_person()), place)


def _token(arguments, connection):
    if 'token' in arguments:
        return arguments['token']
    try:
        if 'tokenFile' in arguments:
            return tokens.read_token(_path(arguments['tokenFile']))
        if connection.family == getattr(socket, 'AF_UNIX', None):
            return None
        return tokens.find_token(connection)
    except (EnvironmentError, tokens.NoToken) as error:
        raise Refused(str(error))


def _connected_to_path(path):
    if not hasattr(socket, 'AF_UNIX'):
        raise Refused('there are no such sockets on this platform')
    connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    try:
        connection.settimeout(_CONNECT_PATIENCE)
        connection.connect(path)
    except BaseException:
        connection.close()
        raise
    return connection


def _path(named):
    return os.path.expanduser(named.encode('utf-8'))
