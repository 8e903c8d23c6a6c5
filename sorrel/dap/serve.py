"""Runs a program that clients of the protocol can debug."""

import atexit
import sys

from sorrel import runner
from sorrel.dap import forks, greeting, guard, sources
from sorrel.dap.program import Program
from sorrel.dap.server import Server, listen
from sorrel.service import Service


class CannotServe(Exception):
    """There will be no client; the text says why, in one line."""


def serve(name, args, is_module, address=None, wait=False, greeting_file=None, hooks=()):
    """Runs the program; returns its exit status. Raises CannotServe or runner.CannotRead.

    address: host and port to listen at; or greeting_file: where to find the one client there is,
    which has started this process. hooks: as for
    runner.prepare.
    """
    script = runner.find_module(name) if is_module else runner.find_script(name)
    path = sources.full_name(script.path)
    waits = bool(wait or greeting_file)
    program = Program(path, 'launch' if greeting_file else 'attach', waits)
    program.service = Service(program, catch_ctrl_c=False)
    runner.prepare(script, args, hooks)
    try:
        if greeting_file:
            guard.have_own_group()
            server = Server(program.new_session, client=greeting.connect(greeting_file))
        else:
            listener = listen(*address)
            host, port = listener.getsockname()[:2]
            sys.stderr.write('sorrel: listening on %s:%d\n' % (
                '[%s]' % host if ':' in host else host, port))
            server = Server(program.new_session, listener)
    except (EnvironmentError, greeting.Impostor) as error:
        raise CannotServe(str(error))
    program.service.ignore_thread(server.start())
    # Runs after the program's own exit functions.
    atexit.register(server.stop)
    atexit.register(program.end)
    forks.call_in_children(server.forget)
    if waits and not program.wait_for_client():
        return 0
    return runner.run(script, program.service, program.is_debugged)
