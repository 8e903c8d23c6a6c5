"""The server in a program that ran before it came, for the one client that has brought it.

Nothing of it runs any more when that has left; the next client brings it again.
"""

from __future__ import absolute_import

import atexit
import os

from sorrel.common.originals import thread, time
from sorrel.processes import programs
from sorrel.processes.forks import call_in_children
from sorrel.protocol import launch_handshake
from sorrel.server.child import Tree
from sorrel.server.frontend import Program
from sorrel.server.network.network_thread import Server
from sorrel.server.shared import sources
from sorrel.service import late

# How long the end of the program waits for that of the server, in seconds.
_END_PATIENCE = 2.0
# Taken now: a program may replace what the interpreter's modules offer.
_now, _sleep = time.time, time.sleep
# By processes: a forked one holds what is its parent's, too.
_programs = {}
# The Server while there is a client, which can be only one.
_servers = []


def run(handshake_file, ready):
    """Serves the client in the calling thread, which is none of the program's, until it leaves.

    ready: called when the end of the program waits for this thread.
    """
    program = _programs.get(os.getpid())
    if program is None:
        program = _Program(sources.main_path(), 'attach', False)
    program.service = late.take(program)
    server = None
    try:
        if os.getpid() not in _programs:
            _programs[os.getpid()] = program
            _see_to_its_end(program)
        ready()
        handshaker = launch_handshake.Handshaker.of_file(handshake_file)
        server = Server(program.new_session, client=handshaker.connect())
        _servers.append(server)
        program.tree = Tree(handshaker)
        program.tree.watch_forks(program)
        programs.install(program.describe_new)
        _serve(program.service, server)
    finally:
        programs.remove()
        if program.tree is not None:
            program.tree.leave()
            program.tree = None
        late.leave()
        if server in _servers:
            _servers.remove(server)


def _serve(service, server):
    ident = thread.get_ident()
    service.ignore_thread(ident)
    try:
        server.run()
    finally:
        service.heed_thread(ident)


def _see_to_its_end(program):
    atexit.register(_stop)
    atexit.register(program.end)
    call_in_children(_forget)


def _stop():
    for server in list(_servers):
        server.stop()
    # The thread is to be done with all of this before the modules are emptied.
    end = _now() + _END_PATIENCE
    while _servers and _now() < end:
        _sleep(0.001)


def _forget():
    for server in list(_servers):
        server.forget()
    del _servers[:]


class _Program(Program):
    """Takes the service before its client is there, and for as long as that is."""

    def take(self):
        return True

    def leave(self):
        pass
