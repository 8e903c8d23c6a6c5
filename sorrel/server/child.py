"""The front end in a process that the program has started, for the client that its parent has."""

from __future__ import absolute_import

import atexit
import os

from sorrel.common.originals import time
from sorrel.processes.forks import call_in_children
from sorrel.protocol import launch_handshake, secrets
from sorrel.protocol.descriptors import Descriptor
from sorrel.server.frontend import Program
from sorrel.server.network.listening import InUse, Listening, Path
from sorrel.server.network.network_thread import Server
from sorrel.service.stops import DETACH, Resume

# How long a client may take to come once it has been told of a stop, in seconds.
_PATIENCE = 60.0
# After so many seconds a process is one that has come to stay.
_A_WHILE = 1.0
# How long it may take to be told that the thread goes on.
_SENT_PATIENCE = 0.5
# How often is looked whether it has.
_LOOK = 0.005
# Taken now: a program may replace what the interpreter's modules offer.
_now, _sleep, _getpid = time.time, time.sleep, os.getpid


class Tree(object):
    """The processes that one client debugs, each as it comes to be."""

    def __init__(self, handshaker):
        """handshaker: by which the client's adapter is told of them."""
        self._handshaker = handshaker
        # The Descriptor that forked processes inherit.
        self._held = None

    # Whether processes take part that no client has asked for.
    is_open = False

    @classmethod
    def of_settings(cls, settings):
        """The same in a new program."""
        return cls(launch_handshake.Handshaker(*[said.encode('latin-1') for said in settings]))

    @property
    def folder(self):
        """For its sockets: the adapter sees to it that nothing stays there."""
        return self._handshaker.folder

    def new_child(self, parent):
        """The front end in a process that has been forked, or None. parent: that of its parent."""
        if parent.session is None or not parent.session.follows(parent.name()):
            return None
        child = self.child(parent.path)
        child.inherit(parent.service, parent.session)
        return child

    def child(self, path):
        return Child(path, self)

    def settings(self):
        """What a new program is to be told of it, each byte as a letter."""
        return [said.decode('latin-1') for said in (self._handshaker.said, self.folder)]

    def watch_forks(self, program):
        """Has the adapter know of processes that have not said a word yet.

        program: the front end of the calling process, the first one or a new program.
        """
        try:
            held = self._handshaker.hold()
            held.setblocking(False)
            self._held = Descriptor(held)
        except EnvironmentError:
            return  # The adapter has just gone.
        call_in_children(lambda: self._tell_fork(program))

    def leave(self):
        """The client has left the calling process."""
        held, self._held = self._held, None
        if held is not None:
            held.close()

    def _tell_fork(self, program):
        held = self._held
        if held is None or not held.is_there():
            return
        session = program.session
        if session is not None and session.follows(program.name()):
            try:
                held.socket.send('.')
            except EnvironmentError:
                pass  # The adapter is gone, or has not read the others yet.
        else:
            held.leave_to_parent()

    def announce(self, place):
        """Tells of the calling process. place: where it listens."""
        self._handshaker.announce(dict(place, type='child'))


class Child(Program):
    """Has what the parent's client wants: where the program stops, though no client has come yet.

    One is sent for when there is something to show, and also when the process has run for a while,
    so that it can be paused and be given other breakpoints.
    """

    def __init__(self, path, tree):
        Program.__init__(self, path, 'attach', False)
        self.tree = tree
        # What the parent's client has asked for, until the client has said here what it wants.
        self._parents_session = self._inherited = None
        self._since = _now()
        self._server = None
        # Whether nobody will come, or has come and left.
        self._is_forsaken = False
        # Whether it listens where nobody sees to what stays there.
        self._is_apart = False

    def inherit(self, service, parents_session):
        """The service does by now what the parent's client, whose session this is, wants of it."""
        self.service = service
        self._parents_session = parents_session
        self._inherited = service.breakpoints.all()

    @property
    def session(self):
        return Program.session.fget(self) or self._parents_session

    def new_session(self, server):
        session = Program.new_session(self, server)
        if self._parents_session is not None:
            session.stops.inherit(self._parents_session.stops)
        return session

    def is_busy(self):
        return self._inherited is None and Program.is_busy(self)

    def debug(self, stops_all):
        if self._inherited is None:
            Program.debug(self, stops_all)
            return
        self.service.set_all_stop(stops_all)
        inherited, self._inherited, self._parents_session = self._inherited, None, None
        for breakpoint in inherited:
            self.service.breakpoints.remove(breakpoint)
        self.has_client = True
        if self._is_apart:
            self.clear_up()  # Nobody else is to come, and it may end by os._exit.

    def left(self, session):
        Program.left(self, session)
        self._is_forsaken = True
        self.forget_parents()

    def forget_parents(self):
        """Nobody comes for what the parent's client wants."""
        if self._inherited is not None:
            self._inherited = self._parents_session = None
            self.service.detach()

    # Somebody has come in another way.
    replaced = forget_parents

    def stopped(self, stop):
        if not self._has_come():
            return Resume(DETACH)
        session = self._session
        resume = Program.stopped(self, stop)
        # Such a process often ends at once, without a word to anybody.
        self._server.wait_until_sent(session, _SENT_PATIENCE)
        return resume

    def idle(self):
        session = self.session
        if session is not None and not session.waits_for_stops \
                and _now() > self._since + _A_WHILE:
            self._send_for_client()
        Program.idle(self)

    def _has_come(self):
        """Waits for the client."""
        self._send_for_client()
        end = _now() + _PATIENCE
        while not self.has_client:
            if self._is_forsaken or self.session is None or _now() > end \
                    or self._server is None or self._server.is_lost:
                return False
            _sleep(_LOOK)
        return True

    def _send_for_client(self):
        if self._server is not None or self._is_forsaken:
            return
        try:
            place = os.path.join(self.tree.folder, str(_getpid()))
            listening = self._listening_at(place)
            if listening is None:
                folder = os.path.join(os.environ.get('TMPDIR') or '/tmp', 'sorrel-' + secrets.new())
                os.mkdir(folder, 0700)
                self._is_apart = True
                self.at_end.append(lambda: _remove_folder(folder))
                place = os.path.join(folder, 'socket')
                listening = Listening(Path(place))
            self.at_end.insert(0, listening.remove)
            self._server = Server(self.new_session, listening.socket)
            call_in_children(self._server.forget)
            self._server.start(self.service.start_own_thread)
            self._see_to_its_end()
            self.tree.announce({
                'processId': _getpid(), 'parentProcessId': os.getppid(),
                'name': self.name(), 'socket': place})
        except (EnvironmentError, InUse, launch_handshake.Impostor):
            self._is_forsaken = True
            self.clear_up()

    def _see_to_its_end(self):
        # To run after the program's own exit functions, and after who tells of its end.
        atexit._exithandlers.insert(0, (self._end, (_getpid(),), {}))

    def _end(self, process):
        if _getpid() == process:
            self.end()
            if self._server is not None:
                self._server.stop()
            self.clear_up()

    def _listening_at(self, place):
        """None where it cannot: as another user than its parent, or with another root, perhaps."""
        try:
            return Listening(Path(place))
        except (EnvironmentError, InUse):
            return None


def _remove_folder(path):
    try:
        os.rmdir(path)
    except OSError:
        pass  # Somebody else has put something there.
