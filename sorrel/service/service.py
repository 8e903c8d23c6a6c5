"""The service between the native core and the front ends.

It owns the core's callbacks and knows which threads are stopped. A front end has one method,
`stopped(stop)`, called in the thread that stopped; the Resume that it returns is carried out in
that thread, and None lets it go on as before the stop. While it runs, nothing that the thread does
is traced. The program's other threads wait meanwhile, see `gate`, unless set_all_stop() has said
otherwise. A front end that runs code of the program for long lets them run with let_others_run(),
so that this may wait for one of them; a thread that does not come back from there it leaves behind.
A second method, `ended(outcome)`, is called at the very end of a program that is still debugged.
A third, `ending(stop)`, may be there, too: it is called instead of `stopped` when an exception
that the front end has been told of, or is not to be, is about to end its thread.
So may be `idle()`, called about once a second while the program runs, in one of its threads, and
`thread_ended(ident)`, called in a thread that has run its last: the ident may come again.
And `log(breakpoint, frame)`, which writes what a breakpoint with a message says, in its thread; it
returns what `stopped` does.
And a fifth, `imported()`: there are other modules than before; the thread that has imported them
goes on when it returns. And `template_begun(path)`, called in a thread of the program's that begins
with a template whose file has breakpoints: it may be known only now which of its lines can stop a
thread. And `interrupt()`, called at Ctrl-C while another thread than the main one
is stopped: whether that was for what is done there. And `nothing_runs()`, called in a thread of the
server's at Ctrl-C where no thread has got to a line since the last one: how the program is to go
on, a Resume that is DETACH, QUIT or INTERRUPT, or None for no other way. Threads wait at their next
lines until then. And `wants_post_mortem()`: the program has ended by an exception that the front
end does not know of; whether that is to be a stop, though all that can follow is the end. And
`detached()`: the service has let the program go. And `replaced()`: another front end is about to
take the program. And `tracing_taken()`: the calling thread is about to have a trace function of the
program's own. And `in_child()`, called in a process that the program has forked, in its only
thread: what is to be the front end there, or None to let it go.

`breakpoints`, `watches` and `exceptions` say where else than at steps the program stops, `passing`
where these do not end; `modules` knows what the program has loaded.
"""

from __future__ import absolute_import

import __builtin__
import dis
import os
import sys

import _sorrel
import tmorvik26_vs2012_x64 as core

from sorrel.common import errors
from sorrel.common.originals import thread, time
from sorrel.inspection import frames, modules, raised, source
from sorrel.languages import engines, sublanguages
from sorrel.service import (
    breakpoints, exceptions, living, own_tracing, signal_handlers, thread_hooks)
from sorrel.service.breaking_in import BreakingIn, CTRL_C
from sorrel.service.exceptions import NO_JUDGEMENT
from sorrel.service.gate import Gate
from sorrel.service.interrupts import Interrupts
from sorrel.service.passing import Passing
from sorrel.service.steps import Steps
from sorrel.service.stops import (
    CALLED, CONTINUE, DETACH, INTERRUPTED, POST_MORTEM, QUIT, RAISED, Resume, RETURNED, STEP_INTO,
    STEPPED, Stop, Thread, TRACEBACK)
from sorrel.service.watches import Watches

_IDLE_PERIOD = 1.0
# Taken now: a program may replace what the interpreter's modules offer.
_sleep = time.sleep
_ANY_THREAD = object()
# What a front end may need where the program has used up its own.
_STACK_ROOM = 100
# By processes: a forked one holds what is its parent's, too.
_services = {}


# A server that comes to the process finds it among the kinds of object.
class Service(BreakingIn, object):
    """One for the life of a process, made in its main thread or told which that is."""

    def __init__(self, front_end, catch_ctrl_c=True, main_thread=None):
        # The one there is now, and the one while no other has taken the program.
        self._front_end = self._resident = front_end
        self._process = os.getpid()
        # By processes that were forked from it, of which this is one: the thread that has seen to
        # that. Whether it is let go.
        self._adopters = {}
        self._is_let_go = False
        for other in _services.values():
            other.detach()  # What is left here of the parent's.
        # Has an item while nobody has taken the program.
        self._vacant = [None]
        self._ignored = set()
        # By the threads that are stopped. What each makes the others wait for, if it does.
        self._stops = {}
        self._holds = {}
        self._asks_about_thread = self._callback(self._debugs_thread)
        self._gate = Gate(self._asks_about_thread, self._raise_later)
        self._stops_all = True
        # How many threads need more of the stack just now, and how much there is without that.
        self._in_need = 0
        self._stack_limit = None
        # How many imports had brought others when the modules were last looked at.
        self._imports_seen = 0
        # Changes whenever what was stopped before has become nobody's business.
        self._era = 0
        self.passing = Passing()
        self._steps = Steps(self.passing)
        # The program's namespace until its code has begun to run.
        self._entering = None
        self._interrupts = Interrupts(self._interrupt, self._interrupt_elsewhere) \
            if catch_ctrl_c else None
        # Threads that were told to stop wherever they are, each with who was asked for, and who is
        # still to be told.
        self._interrupted = {}
        self._to_interrupt = None
        # For threads of the program that have called for a stop, the id() of the frame that has, and
        # how far that had got.
        self._callers = {}
        self.attached = False
        # Whether it has been carried out that it is attached: threads can be made to stop.
        self.is_tracing = False
        # Called by threads that tracing has not begun in from their first frame on.
        self._thread_end = thread_hooks.ThreadEnd(self._on_thread_end)
        # The signal that the main thread is to have before it runs anything more of the program.
        self._owed_signal = []
        # Has an item from when it is attached until a thread takes that to detach.
        self._attachment = []
        frames.learn_own_modules()
        notice_import, self._import_count = _sorrel.import_watch(
            core.set_debug_thread_cb, self._asks_about_thread)
        core.init(_IDLE_PERIOD, 0, self._hook_threads, self._callback(self._on_idle),
                  self._callback(self._on_line), self._callback(self._on_return),
                  self._callback(self._on_exception), self._on_quit, notice_import,
                  __builtin__.__import__, None, frames.own_files())
        self.main_thread = living.current() if main_thread is None else main_thread
        self.breakpoints = breakpoints.Breakpoints()
        self.watches = Watches(
            self.breakpoints.new_number, self._callback, self._with_room, self._stop_at_event)
        self.exceptions = exceptions.Exceptions(self.breakpoints, self.passing)
        self.modules = modules.Modules()
        sublanguages.when_begun(lambda path: self._call_if_there('template_begun', path))
        _services[self._process] = self

    @staticmethod
    def of_this_process():
        """The Service that there is, or None."""
        return _services.get(os.getpid())

    # For whoever runs the program.

    def run(self, path, namespace, code=None, attached=True):
        """Executes the code, or else the file at `path`, in the namespace.

        If attached, it stops at its first line.
        """
        frames.set_entry(sys._getframe())
        self.exceptions.set_own_frames(frames.callers(sys._getframe()))
        if (attached or self.attached) and self._interrupts is not None:
            self._interrupts.install()
        if attached:
            self._entering = namespace
            self._be_attached()
            core.start_trace()
            self.is_tracing = True
            self._steps.expect_stop(self.main_thread)
            _leave_bottom_frame()
            core.step_into()
        try:
            # None of the frames here is to be seen below the program's.
            if code is not None:
                _sorrel.run_outermost(code, namespace)
            else:
                _sorrel.run_file_outermost(path, namespace)
        finally:
            self.end_alone(lambda ident, others, since: ident == self.main_thread)
            if self.attached:
                # What is left on this thread is not the program's.
                self._steps.give_up(self.main_thread)

    def post_mortem(self, error, status):
        """The main thread has ended by this exception, (type, value, traceback): a stop, if wanted.

        status: what the exit status will be.
        """
        wants = getattr(self._front_end, 'wants_post_mortem', None)
        if wants is None or self._is_forked() or frames.of_program(error[2]) is None \
                or self.exceptions.has_told(self.main_thread, error[2]) or not wants():
            return
        self._without_events(self._at_end, error, status)

    def _without_events(self, function, *arguments):
        """Calls it in turn as a callback of the core's does, attached."""
        core.add_to_tstate_tracing(1)
        owed = None
        try:
            if not self.attached:
                self._trace_all()
            # The core comes to know the thread by an event.
            core.trace_dispatch(sys._getframe(), 'line', None)
            core.acquire_sorrel_mutex()
            owed = self._in_turn(function, *arguments)
        finally:
            core.release_sorrel_mutex()
            core.add_to_tstate_tracing(-1)
        if owed is not None:
            os.kill(os.getpid(), -owed)

    def _at_traceback(self, error):
        thread = living.current()
        frame = frames.innermost(error[2]).tb_frame
        resume = self._ask(Stop(thread, frame, RAISED, error, TRACEBACK, False, False))
        if resume is not None and resume.action not in (DETACH, QUIT):
            # The frames that it was looking at are gone: steps count from the caller on.
            resume = Resume(resume.action if resume.action == CONTINUE else STEP_INTO)
        self._resume(thread, sys._getframe(), resume)

    def _at_end(self, error, status):
        thread = self.main_thread
        self._interrupted.pop(thread, None)
        frame = frames.innermost(error[2]).tb_frame
        resume = self._ask(Stop(
            thread, frame, RAISED, error, POST_MORTEM, False, False))
        self._steps.give_up(thread)
        if resume is not None and resume.action == DETACH:
            self.detach()
        elif resume is not None and resume.action == QUIT:
            self.quit(status)

    def ended(self, outcome):
        """Nothing of the program will run any more."""
        # Otherwise another thread may still be about to detach.
        if self._attachment:
            self.detach()
            self._front_end.ended(outcome)

    # For front ends.

    def take(self, front_end):
        """Has this front end from now on, until it leaves: whether no other one is there."""
        try:
            self._vacant.pop()
        except IndexError:
            return False
        if front_end is not self._front_end:
            self._call_if_there('replaced')
        self._front_end = front_end
        return True

    def leave(self):
        """The one that has taken it leaves, and nothing is attached any more."""
        if self._resident is not None:
            self._front_end = self._resident
        self._vacant.append(None)

    @property
    def front_end(self):
        return self._front_end

    def has_client(self):
        """Whether the front end is one with clients, and has one that debugs the program."""
        return getattr(self._front_end, 'has_client', False)

    def ignore_thread(self, ident):
        """Never debug this thread (an interpreter's thread ident): it is a front end's own."""
        self._ignored.add(ident)
        core.set_debug_thread_cb(self._asks_about_thread)

    def heed_thread(self, ident):
        """To be called by such a thread when it ends: the next one may get the same ident."""
        self._ignored.discard(ident)

    def start_own_thread(self, function, *arguments):
        """Calls it in a new thread that is never debugged."""
        def run():
            ident = living.current()
            self.ignore_thread(ident)
            try:
                function(*arguments)
            finally:
                self.heed_thread(ident)
        thread_hooks.start_own(run)

    def threads(self):
        """A Thread for each one that runs code of the program, and the main one.

        They come in the order of their start.
        """
        # By a generator: a frame of this thread's that stays in a variable here would keep all.
        found = list(self._thread(ident, frame) for ident, frame in living.in_order_of_start()
                     if ident not in self._ignored)
        # Others are the server's own, or have not begun yet, or are ending.
        return [thread for thread in found
                if thread.ident == self.main_thread or frames.is_program(thread.frame)]

    def attach(self, *left_out):
        """Debugs the program from now on, its threads wherever they are. For an ignored thread.

        left_out: the namespaces, by their id(), in which threads begin that are not meant.
        """
        self._trace_all(*left_out)
        # What was given to all others is not for this one.
        own_tracing.end()

    def attach_from_program(self):
        """The same, for a thread of the program, which is debugged, too. Raises thread.error."""
        is_done = thread.allocate_lock()
        is_done.acquire()

        def attach():
            try:
                self.attach(frames.own_namespaces)
            finally:
                is_done.release()
        self.start_own_thread(attach)
        is_done.acquire()

    def _trace_all(self, *left_out):
        self._be_attached()
        core.set_debug_thread_cb(self._asks_about_thread)
        core.start_trace()
        _sorrel.trace_all_threads(self._thread_end, core.trace_dispatch, *left_out)
        self.is_tracing = True

    def trace_new_threads(self):
        """Debugs those that code in C has made and that run Python code by now. In any thread.

        The others are seen to as they begin.
        """
        if self.attached:
            _sorrel.trace_all_threads(
                self._thread_end, core.trace_dispatch, frames.own_namespaces)

    def _be_attached(self):
        self.attached = True
        self._era += 1
        self._attachment.append(None)
        self.modules.begin()

    def detach(self):
        """The program runs on at full speed, and the core forgets what it was told."""
        # A pause can be asked for before there is anything to stop.
        self._to_interrupt = None
        try:
            self._attachment.pop()
        except IndexError:
            return  # It is not attached, or another thread is at it.
        self._era += 1
        self.is_tracing = False
        self.watches.forget()
        core.reset()
        _sorrel.untrace_all_threads(core.trace_dispatch)
        self._stops_all = True
        self._gate.open()
        self.breakpoints.forget()
        self.exceptions.forget()
        self.passing.forget()
        self._steps.forget_all()
        self._interrupted.clear()
        self._callers.clear()
        if self._interrupts is not None:
            self._interrupts.remove()
        self.attached = False
        self._call_if_there('detached')

    def show_templates(self, on):
        """Whether engines' templates are shown, or the Python that they are made into."""
        sublanguages.turn_off([] if on else engines.names())

    def set_all_stop(self, on):
        """Whether all threads wait while one is stopped, or only that one does."""
        # Not the core's doing: it would pass over what other threads come to during any event.
        self._stops_all = bool(on)

    def has_other_threads(self):
        """Whether any could be made to wait by one that is stopped."""
        return len(self.threads()) > 1

    def hold(self, stop):
        """For a thread at its Stop: what makes the others wait, to be named in what follows."""
        return self._holds[stop.thread]

    def let_others_run(self, hold, tell):
        """The others go on, each up to a stop of its own, while the stopped thread evaluates.

        tell: called before they can be made to wait again, and if they had to wait at all. This
        and the following may be called in any thread.
        """
        self._gate.let_pass(hold, tell)

    def make_others_wait(self, hold):
        """As before. Whether they had been let run."""
        return self._gate.shut(hold)

    def leave_behind(self, hold):
        """The others go on as if the stopped thread had, which does so when it comes back."""
        self._gate.leave(hold)

    def decide_of_others(self, hold, others):
        """What becomes of them when the stopped thread goes on; until this is called, as before.

        others: ALL_GO, OTHERS_WAIT or OTHERS_WAIT_FIRST.
        """
        self._gate.decide(hold, others)

    def let_others_go(self):
        """No thread makes the others wait that goes on alone or is about to; in any thread.

        Whether one did.
        """
        return self._gate.let_others_go()

    def end_alone(self, is_over):
        """The threads go on that one which goes on alone makes wait; in any thread. See Gate."""
        return self._gate.end_alone(is_over)

    def pause_alone(self):
        """Stops the thread that goes on alone, when it runs Python code. Whether there is one."""
        found = []
        self._gate.end_alone(lambda ident, others, since: found.append(ident))
        if found:
            self.pause(found[0])
            core.set_debug_thread_cb(self._asks_about_thread)
        return bool(found)

    def is_left_behind(self, ident):
        hold = self._holds.get(ident)
        return hold is not None and self._gate.is_left(hold)

    def pause(self, ident=_ANY_THREAD):
        """Stops this thread, by default the next one that runs Python code: within a second."""
        self._to_interrupt = ident

    def stop_here(self):
        """The calling thread, one of the program's, stops at its next line, or as it returns."""
        ident = living.current()
        if not self.is_tracing or ident in self._ignored or ident in self._stops:
            return  # What is evaluated at a stop does not stop.
        era = self._era
        self.trace_new_threads()
        frame = frames.without_own_calls(sys._getframe())
        self._callers[ident] = id(frame), frame.f_lasti
        self._steps.arrive(ident)
        self._steps.stop_anywhere(ident)
        self._end_steps_of(era)

    def look_at(self, error):
        """The calling thread stops as if (type, value, traceback) had just been raised in it."""
        ident = living.current()
        if not self.is_tracing or ident in self._ignored or ident in self._stops:
            return
        self.trace_new_threads()
        self._without_events(self._at_traceback, error)

    def owe_signal(self, number):
        """The main thread goes on, be it from a stop or from waiting for one, with this signal.

        The program's handler is what it runs first then, where the program is.
        """
        self._owed_signal[:] = [number]

    def is_signal_owed(self):
        return bool(self._owed_signal)

    def take_owed_signal(self):
        """What has become of it: None where it has been sent, or there was none."""
        try:
            return self._owed_signal.pop()
        except IndexError:
            return None

    def raise_here(self, exception):
        """The calling thread, which is stopped, raises it at its next event; None for none."""
        core.raise_exception(living.current(), exception)

    def defer(self, type, error, traceback):
        """Whether an exception that was raised in the server is not the server's own.

        A signal handler of the program's may be called, and raise, between any two instructions
        that the main thread runs here. Its thread raises it when it is outside again.
        """
        if isinstance(error, Exception) and not signal_handlers.have_raised(traceback):
            return False
        self._raise_later(error)
        return True

    def _raise_later(self, error):
        if self.attached:
            self.raise_here(error)

    def quit(self, status=0):
        """Ends the process at once, whatever the program's threads are doing."""
        self.flush()
        os._exit(status)

    @staticmethod
    def flush():
        """What the program has written is not lost with the process."""
        for stream in (sys.stdout, sys.stderr, sys.__stdout__):
            try:
                stream.flush()
            except Exception:
                pass  # The program's own object, or closed: nothing more to save.

    # The core's callbacks. An error in one would be lost, and end the tracing of its thread. A
    # negative number is a signal that is sent when it has been left.

    def _callback(self, method):
        return _sorrel.deferring(method, self.defer)

    def _on_line(self, frame, changed_bps):
        if not self._with_room(self._passes_by, frame) \
                and not self._with_room(self._goes_through, frame, changed_bps):
            return self._in_turn(self._at_line, frame, changed_bps)

    def _on_return(self, frame, value, changed_bps):
        return self._in_turn(self._stopped, frame, RETURNED, value)

    def _on_exception(self, frame, error, changed_bps):
        if self._with_room(self._is_of_concern, frame, error):
            return self._in_turn(self._raised, frame, error)

    def _on_idle(self):
        if self._to_interrupt is not None and not self._interrupt_here():
            # Each thread is asked for at its next event.
            core.set_debug_thread_cb(self._asks_about_thread)
        self.trace_new_threads()
        self._call_if_there('idle')

    def _on_quit(self):
        """The runner sees the end of the program by itself."""

    def _look_at_modules(self):
        """Where others have come, before the thread that has imported them goes on.

        Not while the core tells of the import, when no thread stops for its step: it asks each one
        after that whether it is debugged.
        """
        count = self._import_count()
        if count == self._imports_seen:
            return
        for look in self.exceptions.print_calls.look_for_modules, engines.look:
            try:
                look()
            except Exception:
                errors.print_error()
        self._call_if_there('imported')
        # Not before: another thread may come here meanwhile.
        self._imports_seen = count

    def _hook_threads(self, on):
        if on:
            thread_hooks.install(self._on_thread_end)
            own_tracing.install(self._on_tracing_taken, self._on_tracing_returned)
        else:
            thread_hooks.remove()
            own_tracing.remove()

    def _on_tracing_taken(self):
        if living.current() not in self._ignored:
            self._call_if_there('tracing_taken')

    def _on_tracing_returned(self):
        """The program traces the calling thread no more: this is debugged again."""
        ident = living.current()
        if not self.is_tracing or ident in self._ignored or self._is_forked():
            return
        was_stepped = self._steps.is_on_step(ident)
        core.bootstrap_new_thread(sys._getframe(), 'line', None)
        if was_stepped:
            self._steps.stop_anywhere(ident)
        else:
            self._steps.give_up(ident)

    def _on_thread_end(self):
        """The next thread may get the same ident."""
        if living is None or living.current is None:
            return  # The interpreter is ending, and has emptied the modules.
        ident = living.current()
        self._steps.forget(ident)
        self._callers.pop(ident, None)
        self.exceptions.forget_thread(ident)
        if self._interrupted.pop(ident, None) is _ANY_THREAD:
            # It has had no line since it was told: another one is to stop.
            self._to_interrupt = _ANY_THREAD
        thread_ended = getattr(self._front_end, 'thread_ended', None)
        if thread_ended is not None:
            thread_ended(ident)

    def _debugs_thread(self, ident):
        if ident in self._ignored:
            return 0
        if not self._is_forked():
            if not self._gate.wait():
                return 0
            if self._owed_signal and ident == self.main_thread:
                return self._signal_to_send()
            self._look_at_modules()
            self._interrupt_here()
        return 1

    def _interrupt_here(self):
        """Whether it is the calling thread that was to be stopped."""
        era = self._era
        ident = living.current()
        asked = self._to_interrupt
        if asked is None or asked not in (_ANY_THREAD, CTRL_C, ident):
            return False
        self._to_interrupt = None
        if asked is CTRL_C:
            if not _sorrel.take_interrupts():
                return False  # The main thread has had it.
            asked = _ANY_THREAD
        self._interrupted[ident] = asked
        self._steps.stop_anywhere(ident)
        self._end_steps_of(era)
        return True

    def _stop_at_event(self, thread):
        """The calling thread, whose ident this is, stops at the event of the core's that it is at.
        """
        self._steps.arrive(thread)
        self._steps.stop_anywhere(thread)

    def _end_steps_of(self, era):
        """The calling thread runs on if who has told it to stop, or to step, has left meanwhile.

        Whoever came next would be told of its stop. The era ends before what is left of it in the
        core: a step that is begun after that is seen here.
        """
        if self._era != era:
            ident = living.current()
            self._interrupted.pop(ident, None)
            self._callers.pop(ident, None)
            self._steps.give_up(ident)

    # Stops.

    def _at_line(self, frame, changed_bps):
        thread = living.current()
        due = self._due_checked(thread, frame)
        if due is None and source.is_made_up(frame) and thread not in self._interrupted \
                and not self._steps.stops_at(thread, frame) \
                and sublanguages.location(sublanguages.at_work(thread), frame) is None:
            return  # For the core it is code of the module's file, whose lines are not these.
        if self.exceptions.print_calls.is_at(frame) and self._is_print(thread, frame):
            return
        if due is not None and not due and thread not in self._interrupted \
                and not self._steps.stops_at_line(thread, frame):
            return
        if due:
            self._steps.arrive(thread)
        elif (self._steps.is_awaited(thread) or self._steps.passes(thread, frame)) and \
                self.breakpoints.have_fired(thread, frame, changed_bps):
            due = True
            self._steps.arrive(thread)
        self._stopped(frame, STEPPED, None, NO_JUDGEMENT, bool(due))

    def _passes_by(self, frame):
        """Whether a line event is there only for functions that don't begin at it.

        There may be one in each turn of a loop: this is asked before the thread waits for its turn.
        """
        checked = self.breakpoints.checked_at(core.get_frame_file(frame), frame.f_lineno)
        if not checked or self.breakpoints.may_be_due(checked, frame):
            return False
        thread = living.current()
        return thread not in self._interrupted and not self._steps.stops_at_line(thread, frame) \
            and not self.exceptions.print_calls.is_at(frame)

    def _goes_through(self, frame, changed_bps):
        """Whether a line event is there only since the thread's step had not met such code before.

        There is one in each function that a step goes through: this is asked before the thread
        waits for its turn.
        """
        thread = living.current()
        if changed_bps != ([], []) or self._steps.is_awaited(thread) \
                or thread in self._interrupted or thread in self._callers or self._is_forked():
            return False
        era = self._era
        try:
            return self._steps.goes_through(thread, frame)
        finally:
            self._end_steps_of(era)

    def _due_checked(self, thread, frame):
        """Breakpoints that stop the thread, of a line where that is decided here; else None.

        What others of them say is written.
        """
        if not self.breakpoints.any_checked():
            return None
        path, line = sublanguages.location(sublanguages.at_work(thread), frame) \
            or (core.get_frame_file(frame), frame.f_lineno)
        checked = self.breakpoints.checked_at(path, line)
        if not checked:
            return None
        due = self.breakpoints.reach(checked, thread, frame)
        for breakpoint in due:
            if breakpoint.message is not None:
                self._resume(thread, frame, self._guarded(self._front_end.log, breakpoint, frame))
        return [breakpoint for breakpoint in due if breakpoint.message is None]

    def _is_print(self, thread, frame):
        """Whether a line event is there only for an exception that is printed, and done with."""
        error = self.exceptions.print_calls.printed(frame)
        judgement = self.exceptions.judge_print(thread, error) if error else NO_JUDGEMENT
        if judgement.policy is not None:
            self._stopped(frame, RAISED, error, judgement)
            return True
        return thread not in self._interrupted and not self._steps.stops_at(thread, frame) \
            and not self.breakpoints.at(source.file_name(frame), frame.f_lineno)

    def _is_of_concern(self, frame, error):
        """Asked before the thread waits for its turn: most exceptions are none of anybody's."""
        thread = living.current()
        # In any case: it learns of the event.
        is_of_concern = self.exceptions.is_of_concern(thread, frame, error)
        return is_of_concern or self._steps.stops_at(thread, frame)

    def _raised(self, frame, error):
        thread = living.current()
        is_step = thread not in self._interrupted and self._steps.stops_at(thread, frame)
        judgement = self.exceptions.judge(thread, frame, error, is_step)
        if is_step or judgement.policy is not None:
            if not self._stopped(frame, RAISED, error, judgement) and judgement.policy is None:
                # For the front end its step has not met it: it may be a stop all the same.
                judgement = self.exceptions.judge(thread, frame, error, False)
                if judgement.policy is not None:
                    self._stopped(frame, RAISED, error, judgement)
        elif judgement.is_end:
            self._resume(thread, frame, self._tell_end(
                Stop(thread, frame, RAISED, raised.normalised(error), None, True, False)))

    def _stopped(self, frame, reason, argument, judgement=NO_JUDGEMENT, is_due=False):
        """Whether the front end knows now of the exception that it may be.

        is_due: whether it is a stop of breakpoints'.
        """
        if self._is_forked():
            return
        if judgement.policy is None and not frames.is_program(frame):
            self._pass_over(frame)
            return
        if self._entering is not None:
            if self._entering is not frame.f_globals:
                return
            self._entering = None
        thread = living.current()
        if thread in self._interrupted:
            if reason != STEPPED and judgement.policy is None:
                return  # It is to stop at its next line.
            self._interrupted.pop(thread, None)
            if reason == STEPPED:
                reason = INTERRUPTED
        elif thread in self._callers and reason in (STEPPED, RETURNED):
            if reason == STEPPED and _is_amid_line(frame, *self._callers[thread]):
                return
            reason, argument = CALLED, reason == RETURNED
        if judgement.policy is not None:
            self._steps.arrive(thread)
        elif self._steps.is_on_its_way(thread, frame, reason):
            return
        elif reason in (STEPPED, RETURNED) and not is_due \
                and self._steps.goes_through(thread, frame):
            return
        if reason == RAISED:
            argument = raised.normalised(argument)
        self._callers.pop(thread, None)
        stop = Stop(thread, judgement.frame or frame, reason, argument, judgement.policy,
                    judgement.is_end, judgement.called_by_c)
        resume = self._ask(stop)
        self._resume(thread, frame, resume, reason == RETURNED)
        is_told = judgement.policy is not None or reason == RAISED and resume is not None
        if is_told:
            self.exceptions.told(thread, argument)
        return is_told

    def _call_if_there(self, name, *arguments):
        method = getattr(self._front_end, name, None)
        if method is not None and not self._is_forked():
            try:
                method(*arguments)
            except Exception:
                # The core would let the program have the error of an import.
                errors.print_error()

    # Processes that the program forks. Each has a copy of its parent's service.

    def _is_forked(self):
        """Whether this is one that is let go. Two processes cannot share one front end."""
        pid = os.getpid()
        if pid != self._process:
            own = living.current()
            if self._adopters.setdefault(pid, own) == own:
                in_child = getattr(self._front_end, 'in_child', None)
                self._adopt(own, in_child if self.attached else None)
                self._process = pid
            while self._process != pid:
                _sleep(0.001)  # Another thread is at it.
        return self._is_let_go

    def adopt(self, in_child):
        """What becomes of a process that the program has forked, in its only thread, at once.

        in_child: as the front end's, but it is called where nobody debugs the program, too. Returns
        what that does.
        """
        own = living.current()
        self._adopters[os.getpid()] = own
        front_end = self._adopt(own, in_child)
        self._process = os.getpid()
        return front_end

    def _adopt(self, own, in_child):
        """Here breakpoints, exceptions and the step of the only thread are what they were.

        own: the thread's ident. Of the others nothing is left.
        """
        self._forget_threads_but(own)
        front_end = self._call(in_child)
        if front_end is None:
            self._is_let_go = True
            self.detach()
        else:
            self._front_end = self._resident = front_end
            self._vacant = [None]
            _services[os.getpid()] = self
        return front_end

    def _forget_threads_but(self, own):
        _sorrel.disown_other_threads()
        self.main_thread = own
        self._ignored.clear()
        self._to_interrupt = None
        self.take_owed_signal()
        for of_threads in self._stops, self._holds, self._interrupted, self._callers:
            for thread in of_threads.keys():
                if thread != own:
                    del of_threads[thread]
        self._gate.forget_holds_but(self._holds.get(own))
        self.breakpoints.forget_other_threads()
        self.watches.forget_threads_but(own)
        self._steps.keep_living()
        self.exceptions.keep_living()
        if self._in_need and not self._stops:
            self._in_need = 0
            sys.setrecursionlimit(self._stack_limit)
        core.set_debug_thread_cb(self._asks_about_thread)

    @staticmethod
    def _call(in_child):
        try:
            return in_child() if in_child is not None else None
        except Exception:
            errors.print_error()
            return None

    def _tell_end(self, stop):
        ending = getattr(self._front_end, 'ending', None)
        if ending is not None and not self._is_forked():
            return self._guarded(ending, stop)

    def _pass_over(self, frame):
        """A step request has met code that is not the program's."""
        if self._entering is not None or frames.is_entry(frame):
            return  # On its way into the program or out of it.
        thread = living.current()
        if thread in self._interrupted:
            return  # It is to stop in the program.
        for caller in frames.callers(frame):
            if frames.is_program(caller):
                return  # The program is being interrupted, and goes on to its own next line.
        self._steps.give_up(thread)

    def _ask(self, stop):
        thread, era = stop.thread, self._era
        self._steps.keep_living()
        self.exceptions.keep_living()
        try:
            self._stops[thread] = stop
            self._absorb_interrupts()
            resume = self._guarded(self._front_end.stopped, stop)
        finally:
            self._stops.pop(thread, None)
        # Detached meanwhile, it is not to detach whoever came next.
        return resume if era == self._era else None

    def _guarded(self, function, *arguments):
        """Asks the front end; whatever goes wrong there, the program goes on."""
        while True:
            try:
                return function(*arguments)
            except KeyboardInterrupt:
                pass  # Ctrl-C at a moment when the front end was not ready for it.
            except:
                if not self.defer(*sys.exc_info()):
                    errors.print_error()
                    return Resume(DETACH)

    def _in_turn(self, function, *arguments):
        """Calls it when no other thread is stopped, unless the program is let go meanwhile.

        Returns what the callback is to return.
        """
        if self._is_forked():
            return None
        era = self._era
        self._gate.take_turn()
        if era != self._era:
            return None
        try:
            self._with_room(self._with_hold, function, *arguments)
        finally:
            self._end_steps_of(era)
        return self._signal_to_send()

    def _signal_to_send(self):
        """For a callback to return; None for none."""
        if not self._owed_signal or living.current() != self.main_thread:
            return None
        owed = self.take_owed_signal()
        return None if owed is None else -owed

    def _with_hold(self, function, *arguments):
        thread = living.current()
        hold = self._gate.new_hold(self._stops_all)
        try:
            try:
                self._holds[thread] = hold
                # At once: who comes to an event from now on waits there, and not for the core's
                # mutex.
                self._gate.close(hold)
                function(*arguments)
            finally:
                self._end_hold(thread, hold)
        except:
            self._end_hold(thread, hold)  # The first time may be what has been interrupted.
            raise

    def _end_hold(self, thread, hold):
        self._holds.pop(thread, None)
        self._gate.end(hold)

    def _with_room(self, function, *arguments):
        """Calls what may need more of the stack than the program has left; what that returns."""
        # A thread comes and goes here with the core's mutex, but others may be here meanwhile.
        if not self._in_need:
            self._stack_limit = sys.getrecursionlimit()
            sys.setrecursionlimit(self._stack_limit + _STACK_ROOM)
        self._in_need += 1
        try:
            return function(*arguments)
        finally:
            self._in_need -= 1
            if not self._in_need and sys.getrecursionlimit() == self._stack_limit + _STACK_ROOM:
                sys.setrecursionlimit(self._stack_limit)

    def _resume(self, thread, frame, resume, is_leaving=False):
        if resume is None:
            return
        if resume.action == DETACH:
            self.detach()
        elif resume.action == QUIT:
            self.quit()
        else:
            self._steps.request(thread, frame, resume, is_leaving)

    def guard_ctrl_c(self, guard):
        """guard: called whenever what Ctrl-C does has been set, in the main thread."""
        if self._interrupts is not None:
            self._interrupts.guard(guard)

    def _is_in_front(self):
        is_in_front = getattr(self._front_end, 'is_in_front', None)
        return is_in_front is None or is_in_front()

    # Threads.

    def _thread(self, ident, frame):
        stop = self._stops.get(ident)
        return Thread(ident, living.name(ident, frame),
                      stop.frame if stop is not None else frame, stop)


def _is_amid_line(frame, caller, offset):
    """Whether a line event is none: the frame, of this id(), was at this offset, and still is there.

    Where it was traced before, the interpreter takes what it has passed meanwhile for a jump.
    """
    return id(frame) == caller and frame.f_lasti > offset and not [
        start for start, _ in dis.findlinestarts(frame.f_code) if offset < start <= frame.f_lasti]


def _leave_bottom_frame():
    """For the core, the frames below the program are left: its first one will be the bottom.

    Tracing begins in frames of the server, and the bottom frame tells what ends the program.
    """
    for bottom in frames.callers(sys._getframe()):
        pass
    core.trace_dispatch(bottom, 'return', None)
