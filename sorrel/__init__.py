"""The debug server: runs a program under the native core and lets front ends debug it.

The functions here are for programs that want to be debugged, whoever has started them. Each can be
called in any thread, again, and after a fork; docs/api.md tells more. Importing this costs next to
nothing: what a function needs is loaded when it is first called.
"""

from __future__ import absolute_import

import sys

# The names of the modules that there were before any of the server's.
imported_before = frozenset(sys.modules)

from sorrel.api import Error

__all__ = ['Error', 'listen', 'connect', 'wait_for_client', 'is_client_connected', 'stop',
           'breakpoint', 'set_trace', 'post_mortem', 'pm', 'debug_this_thread']
__version__ = '0.1.0'


def listen(address, token=True, token_file=None):
    """Lets clients of the Debug Adapter Protocol connect at this address, from now on.

    address: (host, port), where port 0 takes a free one and no host means this machine alone; or
    'unix:PATH', a socket in the file system that only its user can connect to. token: whether
    clients who come to a port must show a token; it is written to sys.stderr with the address.
    token_file: the file to keep it in; it is asked for at a socket then, too.

    Returns where it listens: (host, port) or 'unix:PATH'. Called again with the same arguments,
    it returns that again. Raises Error where that cannot be, or while the program listens in
    another way; TypeError or ValueError for what is no address.
    """
    return _loaded('listening').listen(address, token, token_file)


def connect(address, token=None, token_file=None):
    """Has a client debug the program from now on: the adapter that waits at (host, port).

    token: what the adapter has shown its user; by default what is in token_file, or found on this
    machine. The program can wait_for_client() then, until that has said where to stop; when the
    client goes, the program runs on. Called again while the adapter is there, it does nothing.

    Raises Error where no adapter waits there that knows the token, or while somebody else debugs
    the program; TypeError or ValueError for what is no address.
    """
    _loaded('connecting').connect(address, token, token_file)


def wait_for_client(timeout=None):
    """Waits until a client is connected and has said where to stop.

    timeout: for so many seconds at most. Returns whether there is one. Raises Error when none can
    come, since the program does not listen.
    """
    return _loaded('listening').wait_for_client(timeout)


def is_client_connected():
    """Whether a client debugs the program just now, however it has come. Raises nothing."""
    return 'sorrel.service.service' in sys.modules and _loaded('listening').is_client_connected()


def stop():
    """Ends what listen() or connect() has begun: the client is let go, and no other can come.

    Does nothing where the program does not listen. Either can be called again afterwards.
    """
    for name in 'listening', 'connecting':
        if 'sorrel.api.' + name in sys.modules:
            _loaded(name).stop()


def breakpoint():
    """Stops here, before the next line: in the client that is connected, else in the terminal."""
    _loaded('stopping').stop_here(False)


def set_trace():
    """Stops here, before the next line, in the terminal.

    Raises Error while a client debugs the program, which can stop in one of the two alone.
    """
    _loaded('stopping').stop_here(True)


def post_mortem(traceback=None):
    """Shows where an exception was raised, with the variables that there were.

    In the client that is connected, else in the terminal. traceback: by default that of the
    exception which is being handled. Raises ValueError where there is none, TypeError for what is
    no traceback.
    """
    error = sys.exc_info()
    _loaded('stopping').post_mortem(traceback, error)


def pm():
    """Is post_mortem for the last exception that nothing has caught, as the prompt keeps it.

    Raises ValueError where there is none.
    """
    error = [getattr(sys, 'last_' + name, None) for name in ('type', 'value', 'traceback')]
    _loaded('stopping').post_mortem(error[2], error)


def debug_this_thread():
    """Has the calling thread debugged from now on, which code in C has made.

    Such threads are found without this, but not at once. Returns whether anybody debugs the
    program; where nobody does yet, the thread is debugged when somebody comes.
    """
    return 'sorrel.service.service' in sys.modules and _loaded('stopping').debug_this_thread()


def _loaded(name):
    """A module of sorrel.api. Raises Error where the native core cannot be loaded."""
    try:
        from sorrel.service import first_thread
        first_thread.be_main()
        name = 'sorrel.api.' + name
        __import__(name)
    except ImportError:
        raise Error('cannot load the debugger: %s' % sys.exc_info()[1])
    return sys.modules[name]
