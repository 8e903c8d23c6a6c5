"""Runs a program that clients of the protocol can debug."""

from __future__ import absolute_import

import atexit

from sorrel.processes import guard, programs
from sorrel.processes.forks import call_in_children
from sorrel.protocol import launch_handshake, token_proof, tokens
from sorrel.server import access, connected
from sorrel.server.child import Tree
from sorrel.server.frontend import Program
from sorrel.server.network.listening import InUse
from sorrel.server.network.network_thread import Server
from sorrel.server.output_marks import OutputMarks
from sorrel.server.shared import sources
from sorrel.service import runner
from sorrel.service.service import Service


class CannotServe(Exception):
    """There will be no client; the text says why, in one line."""


def serve(what, args, kind='', place=None, wait=False, handshake_file=None, hooks=(),
          token_file=None, has_token=True, post_mortem=False, adapter=None, mark_word=None):
    """Runs the program; returns its exit status. Raises CannotServe or runner.CannotRead.

    what, kind: as for runner.find. place: where to listen, a Port or a Path; or handshake_file:
    where to find the one client there is, which has started this process; or adapter: where that
    waits for it, a Port. hooks: as for
    runner.prepare. token_file, has_token: what clients who come have to show. post_mortem: whether
    the process waits for a client where the program has ended by an exception that none has seen.
    mark_word: the one in OutputMarks, where who has started the program reads those.
    """
    script = runner.find(what, kind)
    path = sources.full_name(script.path)
    waits = bool(wait or handshake_file or adapter)
    program = connected.ConnectedProgram(path, waits) if adapter else Program(
        path, 'launch' if handshake_file else 'attach', waits, post_mortem)
    program.service = Service(program, catch_ctrl_c=False)
    runner.prepare(script, args, hooks)
    atexit.register(program.clear_up)
    try:
        if handshake_file:
            guard.have_own_group()
            handshaker = launch_handshake.Handshaker.of_file(handshake_file)
            program.tree = Tree(handshaker)
            if mark_word:
                program.output_marks = OutputMarks(mark_word)
            server = Server(program.new_session, client=handshaker.connect())
            program.tree.watch_forks(program)
        elif adapter:
            server = connected.connected_server(program, adapter, token_file=token_file)
        else:
            server, _ = access.listening_server(program, place, token_file, has_token)
    except (EnvironmentError, launch_handshake.Impostor, InUse, tokens.NoToken,
            token_proof.Unproven) as error:
        if handshake_file:
            launch_handshake.remove(handshake_file)
        raise CannotServe(connected.complaint(adapter, error) if adapter else str(error))
    programs.install(program.describe_new)
    program.can_be_reached = server.can_be_reached
    server.start(program.service.start_own_thread)
    # Runs after the program's own exit functions.
    atexit.register(server.stop)
    atexit.register(program.end)
    call_in_children(server.forget)
    if waits and not program.wait_for_client():
        if handshake_file:
            launch_handshake.remove(handshake_file)
        return 0
    return runner.run(script, program.service, program.is_debugged)
