"""A program that has connected to an adapter, which waited for it: the one client it has."""

from __future__ import absolute_import

from sorrel.protocol import launch_handshake, token_proof
from sorrel.server.child import Tree
from sorrel.server.frontend import Program
from sorrel.server.network.network_thread import Server


class ConnectedProgram(Program):

    def __init__(self, path, waits):
        """waits: whether the program waits for what the client wants before it runs."""
        Program.__init__(self, path, 'attach', waits)

    def left(self, session):
        Program.left(self, session)
        tree, self.tree = self.tree, None
        if tree is not None:
            tree.leave()
        if self.is_waiting:
            # Nobody else can come.
            self.is_debugged = False
            self._go_on()


def connected_server(program, place, token=None, token_file=None):
    """A Server for the program, a ConnectedProgram, whose client is the adapter at this Port.

    token, token_file: by default the token is the one that is found on this machine. Raises
    EnvironmentError, tokens.NoToken or token_proof.Unproven.
    """
    adapter, handshake_file = token_proof.connect(tuple(place), token, token_file)
    server = Server(program.new_session, client=adapter)
    if handshake_file:
        _begin_tree(program, handshake_file)
    program.can_be_reached = server.can_be_reached
    return server


def complaint(place, error):
    """What has been wrong with the adapter there, for people."""
    return 'cannot connect to %s:%d: %s' % (
        place.host, place.number, getattr(error, 'strerror', None) or error)


def _begin_tree(program, handshake_file):
    """What the program starts comes to the adapter, too, where that runs on the same machine."""
    try:
        handshaker = launch_handshake.Handshaker.of_file(handshake_file)
    except EnvironmentError:
        return
    program.tree = Tree(handshaker)
    program.tree.watch_forks(program)
