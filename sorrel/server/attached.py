"""The server in a program that ran before it came, for the one client that has brought it.

Nothing of it runs any more when that has left; the next client brings it again.
"""

import atexit
import os
import sys
import thread

from sorrel.protocol import launch_handshake
from sorrel.server.frontend import Program
from sorrel.server.network.network_thread import Server
from sorrel.server.serve import call_in_children
from sorrel.server.shared import sources
from sorrel.service import late

# By processes: a forked one holds what is its parent's, too.
_programs = {}
# The Server while there is a client, which can be only one.
_servers = []


def run(handshake_file):
    """Serves the client in the calling thread, which is none of the program's, until it leaves."""
    program = _programs.get(os.getpid())
    if program is None:
        program = Program(_main_path(), 'attach', False)
    program.service = late.take(program)
    try:
        if os.getpid() not in _programs:
            _programs[os.getpid()] = program
            _see_to_its_end(program)
        _serve(program, launch_handshake.connect(handshake_file))
    finally:
        late.leave()


def _serve(program, connection):
    ident = thread.get_ident()
    server = Server(program.new_session, client=connection)
    _servers.append(server)
    program.service.ignore_thread(ident)
    try:
        server.run()
    finally:
        _servers.remove(server)
        program.service.heed_thread(ident)


def _see_to_its_end(program):
    atexit.register(_stop)
    atexit.register(program.end)
    call_in_children(_forget)


def _stop():
    for server in list(_servers):
        server.stop()


def _forget():
    for server in list(_servers):
        server.forget()
    del _servers[:]


def _main_path():
    path = getattr(sys.modules.get('__main__'), '__file__', None) or sys.argv[0]
    return sources.full_name(path)
