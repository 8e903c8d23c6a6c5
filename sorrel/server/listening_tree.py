"""The processes of a program that listens: all are reached where the first one does."""

from __future__ import absolute_import

import os

from sorrel.common import errors
from sorrel.common.originals import thread, time
from sorrel.processes.forks import call_in_children
from sorrel.protocol import tokens
from sorrel.server.child import Child
from sorrel.server.network.kin import Kin
from sorrel.server.network.listening import InUse, Listening, Path, Port
from sorrel.server.network.network_thread import Server
from sorrel.server.network.shared_folder import SharedFolder

# A process that is there for less than that, in seconds, or that runs something else by then, is
# not made one that clients can come to.
_WHILE = 0.3
# How long what a process does may wait until it is one, in seconds.
_BEGIN_PATIENCE = 10.0
# Taken now: a program may replace what the interpreter's modules offer.
_now, _sleep, _getpid = time.time, time.sleep, os.getpid
# Of the calling process; in one that has just been forked, of its parent.
_programs = []
# Whether forks are seen here.
_watched = []


class ListeningTree(object):
    """What its processes have in common."""

    def __init__(self, folder, place, token):
        """folder: a SharedFolder. place: the Port or Path. token: a Token; None for none."""
        self._folder = folder
        self._place = place
        self._token = token

    @classmethod
    def new(cls, listening, token):
        """Of the first process, which listens there. Raises EnvironmentError or NoToken."""
        place = Path(listening.name[len('unix:'):]) if listening.is_for_own_user() \
            else Port(*listening.address[:2])
        return cls(SharedFolder.new(tokens.own_folder()), place, token)

    def settings(self):
        """What of_settings() makes one of in a new program."""
        return {'folder': self._folder.path, 'place': list(self._place),
                'token': self._token and self._token.described()}

    @classmethod
    def of_settings(cls, settings):
        place = [part.encode('utf-8') if isinstance(part, unicode) else part
                 for part in settings['place']]
        return cls(SharedFolder(settings['folder'].encode('utf-8')),
                   Path(*place) if len(place) == 1 else Port(*place),
                   settings['token'] and tokens.Token.of_description(settings['token']))

    # Whether processes take part that no client has asked for.
    is_open = True

    def new_kin(self, program):
        """The Kin of the first process, which listens there. Raises EnvironmentError or InUse."""
        kin = Kin(self._folder, program)
        kin.lead()
        process = _getpid()
        # Exit functions are for processes that are forked, too.
        program.at_end.append(lambda: _getpid() != process or program.has_heirs()
                              or self._folder.remove_all())
        self.watch_forks(program)
        return kin

    def watch_forks(self, program):
        """program: the front end of the calling process, the first one or a new program."""
        if not _watched:
            _watched.append(True)
            call_in_children(_begin_child)
        _programs[:] = [program]
        program.at_end.append(_forget_programs)

    def socket_of(self, pid):
        """The path at which a process can be reached."""
        return self._folder.socket_of(pid)

    def new_child(self, parent):
        """The front end in a process that has been forked. parent: that of its parent."""
        child = self.child(parent.path)
        child.service = parent.service
        if parent.service.attached and parent.session is not None \
                and parent.session.follows(parent.name()):
            child.inherit(parent.service, parent.session)
        return child

    def child(self, path):
        return _Child(path, self)

    def serve(self, child):
        """Clients can come to this process. Raises EnvironmentError or InUse."""
        self._folder.make()
        listening = Listening(Path(self._folder.socket_of(_getpid())))
        child.at_end += [listening.remove, self._folder.leave]
        child.kin = Kin(self._folder, child, lambda: self._lead(child))
        server = Server(child.new_session, listening.socket, kin=child.kin, is_for_kin=True)
        call_in_children(server.forget)
        server.start(child.service.start_own_thread)
        return server

    def _lead(self, child):
        """The listener at the address, and what a Server wants to know of tokens there."""
        listening = Listening(self._place)
        try:
            if self._token is not None:
                self._token.keep()
        except tokens.NoToken as error:
            listening.socket.close()
            raise InUse(str(error))
        child.at_end[:0] = [listening.remove, lambda: child.has_heirs() or self._remove_token()]
        return listening.socket, self._token and self._token.is_shown_by

    def _remove_token(self):
        if self._token is not None:
            self._token.remove()


def _forget_programs():
    del _programs[:]


def _begin_child():
    """In a process that has been forked: it has a copy of the front end of its parent."""
    for parent in _programs[:]:
        del _programs[:]
        try:
            child = parent.service.adopt(parent.in_child)
            _programs.append(child)
            child.begin()
        except Exception:
            errors.print_error()


class _Child(Child):
    """Can be reached whether the parent has a client or not, and whichever clients come and go."""

    def __init__(self, path, tree):
        Child.__init__(self, path, tree)
        # Has an item until it can be reached, or is about to be.
        self._unreached = [None]
        # Whether it has stopped for who has not come yet.
        self._has_stopped = False

    def begin(self):
        """In the process's only thread."""
        if self.service.attached and self._inherited is None:
            self.service.detach()  # The client does not want it.
        self._see_to_its_end()
        try:
            self.service.start_own_thread(self._come)
        except thread.error:
            pass  # There are too many: it can be reached when it stops.

    def _come(self):
        _sleep(_WHILE)
        self._be_reached()

    def describe(self):
        """What the other processes are told."""
        session = self.session
        waits = self._inherited is not None and session is not None and session.waits_for_stops
        return {'type': 'child', 'processId': _getpid(), 'parentProcessId': os.getppid(),
                'name': self.name(),
                'wantsClient': not self.has_client and (self._has_stopped or not waits)}

    def hear_of_client(self, is_there):
        """Whether there is a client that could come for what the parent's has asked for."""
        if not is_there:
            self.forget_parents()

    def idle(self):
        session = self.session
        if session is not None:
            session.look_around()

    def left(self, session):
        Child.left(self, session)
        # Others can come.
        self._is_forsaken = self._has_stopped = False

    def _end(self, process):
        try:
            self._unreached.pop()
        except IndexError:
            self._wait_until_reached()  # The other thread is not to meet with the end.
        Child._end(self, process)

    def _send_for_client(self):
        self._be_reached()
        self._wait_until_reached()
        self._has_stopped = True
        if self._server is not None:
            self._server.can_be_reached()  # The thread looks at what has changed.

    def _wait_until_reached(self):
        """Where another thread is about to see to that."""
        end = _now() + _BEGIN_PATIENCE
        while self._server is None and not self._is_forsaken and _now() < end:
            _sleep(0.001)

    def _be_reached(self):
        try:
            self._unreached.pop()
        except IndexError:
            return  # Another thread has seen to it.
        try:
            self._server = self.tree.serve(self)
        except (EnvironmentError, InUse, thread.error):
            self._is_forsaken = True
            self.clear_up()
