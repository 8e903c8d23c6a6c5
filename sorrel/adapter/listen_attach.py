"""Attaching to a program that connects to the adapter, which waits for it."""

from __future__ import absolute_import

import os
import socket

from sorrel.adapter import interpreters
from sorrel.adapter.token_callers import TokenCallers
from sorrel.common.decoding import text
from sorrel.protocol import tokens
from sorrel.protocol.launch_callers import Handshake
from sorrel.protocol.messages import Refused

_OWN_MACHINE = '127.0.0.1'
_ELSEWHERE = ('connect', 'host', 'port', 'socket', 'processId', 'subProcessId')


class ListenAttach(object):
    """A program on its way, as a Launch is: where it connects to is there, it is not yet."""

    def __init__(self, arguments, tell):
        """arguments: those of the client's request to attach. Raises Refused.

        tell: called with what is to be done next, in lines for people, and the token among them or
        None.
        """
        for other in _ELSEWHERE:
            if other in arguments:
                raise Refused('listen and %s do not go together' % other)
        self._follows = arguments.get('subProcess', True)
        self._handshake = self._token = None
        listener = _listener(arguments['listen'])
        address = listener.getsockname()
        try:
            word = self._find_token(arguments, address)
            if self._follows:
                self._handshake = Handshake()
        except (EnvironmentError, tokens.NoToken) as error:
            listener.close()
            self._remove_token()
            raise Refused(text(error))
        self._callers = TokenCallers(
            listener, word, self._handshake.path if self._handshake is not None else '')
        tell(*self._words(address))

    def sockets(self):
        """Those that look() is to be called for."""
        return self._callers.sockets()

    def look(self, readable):
        """The connection to the program when it is there, else None."""
        connection = self._callers.look(readable)
        if connection is not None:
            self._end_waiting()
        return connection

    def handshake_for_children(self):
        """As a Launch has it."""
        handshake, self._handshake = self._handshake, None
        return handshake

    def close(self):
        self._end_waiting()
        if self._handshake is not None:
            self._handshake.close()
            self._handshake = None

    def _find_token(self, arguments, address):
        if 'token' in arguments:
            return arguments['token'].encode('utf-8')
        self._token = tokens.Token(os.path.expanduser(arguments['tokenFile'].encode('utf-8'))) \
            if 'tokenFile' in arguments else tokens.new_token(address)
        return self._token.word

    def _words(self, address):
        host, port = address[:2]
        place = str(port) if host == _OWN_MACHINE else '%s:%d' % (
            '[%s]' % host if ':' in host else host, port)
        said = u'waiting for the program: %s --connect %s PROGRAM\n' % (
            text(interpreters.command_of_person()), text(place))
        if self._token is None:
            return said, None
        return said + u'the token is %s, also in %s\n' % (
            text(self._token.word), text(self._token.path)), text(self._token.word)

    def _end_waiting(self):
        self._callers.close()
        self._remove_token()

    def _remove_token(self):
        if self._token is not None:
            self._token.remove()


def _listener(place):
    """Where the program connects to. Raises Refused."""
    host, port = place.get('host', text(_OWN_MACHINE)).encode('utf-8'), place['port']
    listener = None
    try:
        family, kind, number, _, address = socket.getaddrinfo(
            host, port, 0, socket.SOCK_STREAM, 0, socket.AI_PASSIVE)[0]
        listener = socket.socket(family, kind, number)
        if os.name == 'posix':  # Elsewhere it would let others take the port.
            listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        listener.bind(address)
    except (EnvironmentError, OverflowError, TypeError, UnicodeError) as error:
        if listener is not None:
            listener.close()
        raise Refused(u'cannot listen at %s:%d: %s' % (
            text(host), port, text(getattr(error, 'strerror', None) or error)))
    return listener
