"""Where the program's threads wait while one of them is stopped.

The core lets one thread at a time into the debug server and has the others wait for its mutex. Only
the thread that holds it could let them go, and that one may be waiting itself, in what it evaluates
for the user, for what another thread holds. A thread that stops therefore gives the mutex back, and
the others are kept here, where any thread can let them go: at their next event the core asks each
of them whether it is debugged, and the answer waits. Where the others are to run on meanwhile, the
answer is no.

They may be kept waiting while the thread goes on alone. That lasts until it stops again, where what
makes them wait then takes the place, or until anybody ends it.
"""

from __future__ import absolute_import

import collections
import sys

import tmorvik26_vs2012_x64 as core

from sorrel.common.originals import thread, time
from sorrel.service.stops import ALL_GO

# Taken now: a program may replace what the interpreter's modules offer.
_new_lock, _current, _now = thread.allocate_lock, thread.get_ident, time.time


class _Latch(object):
    """Threads wait at it until it is opened, once and for all."""

    def __init__(self):
        self._is_open = False
        self._waiting = collections.deque()

    def is_open(self):
        return self._is_open

    def open(self):
        self._is_open = True
        try:
            while True:
                self._waiting.popleft().release()
        except IndexError:
            pass  # Whoever comes now sees that it is open.

    def wait(self):
        """Returns what a signal handler of the program has raised meanwhile; else None."""
        error = None
        while not self._is_open:
            try:
                own = _new_lock()
                own.acquire()
                self._waiting.append(own)
                if not self._is_open:
                    own.acquire()
            except:
                error = sys.exc_info()[1]
        return error


class _Hold(object):
    """What one stopped thread makes the others wait for, or run by."""

    def __init__(self, is_for_all):
        self.is_for_all = is_for_all
        self.is_over = _Latch()
        self.lets_pass = _Latch()
        # Has an item while the others are let pass, which whoever takes it shuts the gate for.
        self.passing = []
        # Once the thread goes on alone, its ident. others, since: see Gate.decide().
        self.alone = None
        self.others = ALL_GO
        self.since = None


class Gate(object):

    def __init__(self, debugs_thread, raised):
        """debugs_thread: what the core is to ask, which calls wait(). raised: called in a thread
        that has waited, with what a signal handler has raised there.
        """
        self._debugs_thread = debugs_thread
        self._raised = raised
        # The one there is, and with it every step a single one: threads may be switched anywhere.
        self._holds = []

    # For the thread that stops, in a callback of the core's.

    def take_turn(self):
        """Waits until no other thread is stopped, or goes on alone."""
        hold = self._hold()
        while hold is not None and hold.alone != _current():
            core.release_sorrel_mutex()
            self._wait_at(hold.is_over)
            core.acquire_sorrel_mutex()
            hold = self._hold()

    def new_hold(self, is_for_all):
        """What the others are to wait by or, if it is not for all, to run by undebugged."""
        return _Hold(is_for_all)

    def close(self, hold):
        """It begins. The caller must have taken its turn, and calls end() whatever happens."""
        before = self._holds[:]  # Its own at most.
        for kept in before:
            hold.others, hold.since = kept.others, kept.since
        self._holds.append(hold)
        self._ask_all()
        for kept in before:
            self._remove(kept)
        core.release_sorrel_mutex()

    def end(self, hold):
        """The thread is about to go on."""
        core.acquire_sorrel_mutex()
        if hold.is_for_all and hold.others != ALL_GO and not self.is_left(hold):
            hold.alone = _current()
            # let_others_go() looks at the two in the other order.
            if hold.others != ALL_GO:
                return
        self.leave(hold)
        # Where it was left behind, another one may have stopped since.
        self.take_turn()

    # For any thread.

    def decide(self, hold, others):
        """What becomes of the others when the stopped thread goes on, which it is told to now."""
        hold.since = _now()
        hold.others = others

    def let_others_go(self):
        """Lets go whom a thread makes wait that goes on alone, or is about to. Whether one does."""
        for hold in self._holds[:]:
            if hold.others != ALL_GO:
                hold.others = ALL_GO
                if hold.alone is not None:
                    self._remove(hold)
                return True
        return False

    def end_alone(self, is_over):
        """Lets go whom a thread that goes on alone makes wait, where the function says so of it.

        It is given (the thread's ident, what was decided of the others, since when). Returns what
        it was given where it has said so, else None.
        """
        for hold in self._holds[:]:
            told = hold.alone, hold.others, hold.since
            if hold.alone is not None and is_over(*told):
                self._remove(hold)
                return told
        return None

    def leave(self, hold):
        """The others go on as if the stopped thread had."""
        self._remove(hold)
        if not hold.is_for_all:
            self._ask_all()

    def open(self):
        """Nobody need wait any longer: the core has been reset."""
        for hold in self._holds[:]:
            self._remove(hold)

    def forget_holds_but(self, hold):
        """In a forked process, whose only thread has this hold, or None."""
        self._holds[:] = [one for one in self._holds if one is hold]

    def is_left(self, hold):
        return hold not in self._holds

    def let_pass(self, hold, tell):
        """Lets the others run on, up to where they stop themselves.

        tell: called before anybody can shut the gate again.
        """
        if hold.is_for_all:
            hold.lets_pass.open()
            tell()
            hold.passing.append(None)

    def shut(self, hold):
        """The others wait again. Whether they had been let pass, and were not yet told to wait."""
        try:
            hold.passing.pop()
        except IndexError:
            return False
        if self.is_left(hold):
            return False
        hold.lets_pass = _Latch()
        self._ask_all()
        return True

    def wait(self):
        """For a thread that has come to an event. Whether it is debugged."""
        hold = self._hold()
        while hold is not None and not hold.lets_pass.is_open():
            if not hold.is_for_all:
                return False
            if hold.alone == _current():
                return True
            self._wait_at(hold.lets_pass)
            hold = self._hold()
        return True

    def _wait_at(self, latch):
        error = latch.wait()
        if error is not None:
            self._raised(error)

    def _hold(self):
        for hold in self._holds[:1]:
            return hold
        return None

    def _remove(self, hold):
        try:
            self._holds.remove(hold)
        except ValueError:
            pass  # Another thread has.
        hold.is_over.open()
        hold.lets_pass.open()

    def _ask_all(self):
        # The core forgets what it was answered.
        core.set_debug_thread_cb(self._debugs_thread)
