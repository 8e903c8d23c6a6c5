"""How a program that connects to an adapter, and that adapter, prove to each other that they know
the same token: the proofs, and the program's side.

Each says a new word, the program first. Then each shows what only who knows the token can make of
the two words: again the program first, since it is a stranger to the adapter. Nobody says the token
itself: who only listens, or pretends to be the other one, does not learn it.
"""

from __future__ import absolute_import

import hashlib
import hmac

from sorrel.common.originals import socket
from sorrel.protocol import secrets, tokens
from sorrel.protocol.descriptors import above_streams

PROOF_SIZE = 2 * hashlib.sha256().digest_size
# In letters: of the length of the path that follows the adapter's proof.
LENGTH_SIZE = 4
_PATIENCE = 10.0


class Unproven(Exception):
    """Who is there is not the one that the token is shared with; the text says so."""


def of_program(token, program_word, adapter_word):
    return _proof(token, 'program', program_word, adapter_word)


def of_adapter(token, program_word, adapter_word):
    return _proof(token, 'adapter', program_word, adapter_word)


def connect(address, token=None, token_file=None):
    """The connection to an adapter that waits there, and where it says that it has a handshake.

    That is the path of the handshake's file for the processes that the program starts; '' for none.
    address: (host, port). token: by default the one in the file, or that is found on this machine.
    Raises EnvironmentError, tokens.NoToken or Unproven.
    """
    adapter = above_streams(lambda: _connected(*address))
    try:
        adapter.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return adapter, _prove(adapter, _token_for(adapter, token, token_file))
    except BaseException:
        adapter.close()
        raise


def _connected(host, port):
    """To the first of a machine's addresses that answers, as the library does it."""
    places = socket.getaddrinfo(host, port, 0, socket.SOCK_STREAM)
    for left, (family, kind, protocol, _, place) in zip(range(len(places))[::-1], places):
        connected = socket.socket(family, kind, protocol)
        try:
            connected.settimeout(_PATIENCE)
            connected.connect(place)
            return connected
        except BaseException:
            connected.close()
            if not left:
                raise


def _token_for(adapter, token, token_file):
    if token is not None:
        return token
    if token_file is not None:
        return tokens.read_token(token_file)
    found = tokens.find_token(adapter)
    if found is None:
        raise tokens.NoToken('no token is found for %s:%d' % adapter.getpeername()[:2])
    return found


def _prove(adapter, token):
    own = secrets.new()
    adapter.sendall(own)
    words = own, _read(adapter, secrets.SIZE)
    adapter.sendall(of_program(token, *words))
    if not secrets.is_same(_read(adapter, PROOF_SIZE), of_adapter(token, *words)):
        raise Unproven('who waits there does not know the token')
    return _read(adapter, int(_read(adapter, LENGTH_SIZE), 16))


def _read(adapter, size):
    said = ''
    while len(said) < size:
        more = adapter.recv(size - len(said))
        if not more:
            raise Unproven('no adapter waits there that knows the token')
        said += more
    return said


def _proof(token, speaker, *words):
    return hmac.new(token, ' '.join((speaker,) + words), hashlib.sha256).hexdigest()
