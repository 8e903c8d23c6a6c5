"""Where clients come to, and what they have to show there."""

from __future__ import absolute_import

from sorrel.protocol import tokens
from sorrel.server.frontend import tell
from sorrel.server.listening_tree import ListeningTree
from sorrel.server.network.listening import InUse, Listening
from sorrel.server.network.network_thread import Server


def listening_server(program, place, token_file=None, has_token=True):
    """A Server for the program at a Port or Path, and where that is: (host, port) or 'unix:PATH'.

    Raises EnvironmentError, listening.InUse or tokens.NoToken; program.clear_up() is due then, too.
    token_file, has_token: what clients who come have to show.
    """
    listening = Listening(place)
    program.at_end.append(listening.remove)
    try:
        token = _token(program, listening, token_file, has_token)
    except:
        listening.socket.close()
        raise
    tell('listening on ' + listening.name)
    if token is not None:
        # Who keeps what the program writes may let others read it.
        tell('token %s, also in %s' % (token.word, token.path) if token_file is None
             else 'token in ' + token.path)
    elif not listening.is_for_own_user():
        tell('whoever can connect can debug: there is no token')
    _begin_tree(program, listening, token)
    server = Server(program.new_session, listening.socket,
                    is_token_shown=token and token.is_shown_by, kin=program.kin)
    return server, listening.name if listening.is_for_own_user() else listening.address[:2]


def _token(program, listening, token_file, has_token):
    if not has_token or token_file is None and listening.is_for_own_user():
        return None
    token = tokens.Token(token_file) if token_file is not None \
        else tokens.new_token(listening.address)
    program.at_end.append(lambda: program.has_heirs() or token.remove())
    return token


def _begin_tree(program, listening, token):
    """Processes that the program starts are reached there, too, where that is possible."""
    try:
        tree = ListeningTree.new(listening, token)
        program.kin = tree.new_kin(program)
        program.tree = tree
    except (EnvironmentError, InUse, tokens.NoToken):
        pass  # A full device, or another platform.
