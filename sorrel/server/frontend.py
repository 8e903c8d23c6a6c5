"""The front end of the service for one process, whichever clients come and go."""

from __future__ import absolute_import

import json
import os
import signal
import stat
import sys

from sorrel.common.originals import time
from sorrel.languages import sublanguages
from sorrel.processes import programs
from sorrel.server.network.polling import wait
from sorrel.server.network.wakeup import Wakeup
from sorrel.server.session import Session
from sorrel.service import living
from sorrel.service.stops import DETACH, Resume

# How long the main thread may take to go on with the program, in seconds.
_TERMINATE_PATIENCE = 1.0
# How often is looked whether a client has come.
_LOOK = 0.05
# Taken now: a program may replace what the interpreter's modules offer.
_now, _sleep, _getsignal = time.time, time.sleep, signal.getsignal


class Program(object):
    """What a client debugs. `service` is set by who makes it.

    at_end: functions to call when clients are not to find it any more.
    is_waiting: whether it has not begun to run, since a client is to say how, or has ended and
    waits for one. is_debugged: whether it is to be debugged from its first line on.
    can_be_reached: a function, whether clients can still come. has_client: whether there is one that
    has said all that it wants before the program runs, or runs on.
    """

    def __init__(self, path, start_method, waits, post_mortem=False):
        """start_method: 'launch' for a client's own program, else 'attach'.

        waits: whether the program waits for a client before it runs. post_mortem: whether it does
        when it has ended by an exception, to be looked at.
        """
        self.path = path
        self.start_method = start_method
        self.service = None
        self.at_end = []
        self.can_be_reached = None
        self.has_client = False
        # Its OutputMarks; None where nobody reads those.
        self.output_marks = None
        # The Tree of processes that this one is the first of; None where there is none.
        self.tree = None
        # The Kin of this process; None where clients do not come to all of a tree's by one.
        self.kin = None
        self._post_mortem = post_mortem
        self.is_waiting = self.is_debugged = waits
        self._session = None
        self._start = Wakeup() if waits else None
        self._is_given_up = False
        self._is_at_its_end = False

    def new_session(self, server):
        self._session = Session(server, self)
        return self._session

    @property
    def session(self):
        """What the client wants, who is there or is yet to come; None for nobody."""
        return self._session

    # For the main thread.

    def wait_for_client(self):
        """Waits until a client has said all that it wants before the start.

        False when the one client there could be has left instead.
        """
        while self.is_waiting:
            wait([self._start.descriptor.number], [], None)
            self._start.clear()
        return not self._is_given_up

    def _wait_at_end(self):
        """Whether a client is there, which is waited for."""
        self.is_waiting = True
        try:
            tell('the program has ended by an exception; waiting for a client that looks at it')
            # By the clock alone: the program may have closed any descriptor.
            while self.is_waiting and not self.service.attached:
                if not self.can_be_reached():
                    return False
                _sleep(_LOOK)
            return True
        except KeyboardInterrupt:
            return False
        finally:
            self.is_waiting = False

    # For the session.

    def take(self):
        """Whether nobody else debugs the program, from now until leave()."""
        return self.service.take(self)

    def leave(self):
        self.service.leave()

    def debug(self, stops_all):
        """The client has said what it wants before the program runs, or runs on."""
        self.service.set_all_stop(stops_all)
        if self.is_waiting:
            self._go_on()
        else:
            self.service.attach()
        self.has_client = True

    def run_undebugged(self):
        """The client only wants to see what the program writes."""
        self.is_debugged = False
        self._go_on()
        self.has_client = True

    def end_at_once(self):
        self.clear_up()
        os._exit(0)

    def clear_up(self):
        """Removes what its clients find it by, in the order in which it came."""
        for function in self.at_end:
            function()
        del self.at_end[:]

    def terminate(self, let_go):
        """As kill(1) does it, so that the program can still clear up.

        let_go: lets a thread that is stopped go on, which is called only where a handler of the
        program's in Python code is to be.
        """
        if not hasattr(os, 'kill'):
            os._exit(1)
        if self.is_waiting or not callable(_getsignal(signal.SIGTERM)):
            os.kill(os.getpid(), signal.SIGTERM)
            return
        # The handler would be called, and could raise an exception, in whatever the main thread is
        # just doing: that has to be the program's.
        self.service.owe_signal(signal.SIGTERM)
        let_go()
        end = _now() + _TERMINATE_PATIENCE
        while self.service.is_signal_owed() and _now() < end \
                and living.is_in_server(self.service.main_thread):
            _sleep(0.001)
        if self.service.take_owed_signal() is not None:
            os.kill(os.getpid(), signal.SIGTERM)

    def is_being_left(self):
        """To be called before the program goes on without its client."""
        if self.start_method == 'launch':
            _write_to_nobody()

    def ends_with_client(self):
        """Whether a client that is gone ends it: what it has launched, unless that is ending."""
        return self.start_method == 'launch' and not self._is_at_its_end

    def end(self):
        """The program has ended, and its exit functions have run."""
        self._is_at_its_end = True

    def left(self, session):
        if self._session is session:
            self._session = None
            self.has_client = False
        if self.start_method == 'launch' and self.is_waiting:
            self._is_given_up = True
            self._go_on()

    def _go_on(self):
        self.is_waiting = False
        if self._start is not None:
            self._start.wake()

    def is_busy(self):
        """Whether what the last client has asked for is still going on."""
        return self.service.attached

    # For other processes of its tree.

    def name(self):
        return os.path.basename(self.path)

    def has_heirs(self):
        """Whether clients can still come when this process has ended."""
        return self.kin is not None and self.kin.has_others()

    def wants_others(self):
        """Whether there is a client that wants to hear of them."""
        session = self._session
        return session is not None and self.has_client and session.wants_others()

    def tell_of(self, member):
        """Tells the client of another process."""
        session = self._session
        if session is not None and self.has_client and member.wants_client \
                and session.follows(member.name):
            session.event('childProcess', {
                'processId': member.pid, 'parentProcessId': member.parent, 'name': member.name,
                'socket': self.tree.socket_of(member.pid)})

    def tell_of_others(self):
        for member in self.kin.members() if self.kin is not None else ():
            self.tell_of(member)

    def in_child(self):
        """The front end in a process that has been forked, or None."""
        return self.tree.new_child(self) if self.tree is not None else None

    def describe_new(self, name):
        """The Settings for a new program of this name that this one is about to start, or None."""
        if self.tree is None:
            return None
        follows = self.session is not None and self.session.follows(name)
        if not follows and not self.tree.is_open:
            return None
        return programs.Settings('sorrel.server.new_program', json.dumps(
            {'tree': self.tree.settings(), 'hooks': sublanguages.loaded,
             'requests': self.session.said() if follows else None}))

    # For the service.

    def stopped(self, stop):
        session = self._session
        return session.stopped(stop) if session is not None else Resume(DETACH)

    def idle(self):
        session = self._session
        if session is not None:
            session.look_around()

    def ended(self, outcome):
        session = self._session
        if session is not None:
            session.ended(outcome)

    def wants_post_mortem(self):
        session = self._session
        if self.service.attached and session is not None:
            return self._post_mortem or session.post_mortem
        return self._post_mortem and self._wait_at_end()

    def thread_ended(self, ident):
        session = self._session
        if session is not None:
            session.thread_ended(ident)

    def imported(self):
        session = self._session
        if session is not None:
            session.imported()

    def template_begun(self, path):
        session = self._session
        if session is not None:
            session.breakpoints.loaded_anew([path])


def tell(line):
    """Says something to whoever reads the program's standard error."""
    try:
        sys.stderr.write('sorrel: %s\n' % line)
    except (EnvironmentError, ValueError):
        pass  # A full device, or none: the program can be found all the same.


def _write_to_nobody():
    """Whoever has read what the program writes has left: writing is not to fail."""
    for stream in (1, 2):
        try:
            if stat.S_ISFIFO(os.fstat(stream).st_mode):
                nothing = os.open(os.devnull, os.O_WRONLY)
                os.dup2(nothing, stream)
                os.close(nothing)
        except OSError:
            pass  # The program has closed it.
