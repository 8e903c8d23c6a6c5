"""Asks a person at each stop of a program elsewhere what to do, and has that do it."""

from __future__ import absolute_import

import signal
from cmd import Cmd

from sorrel.common.decoding import text
from sorrel.common.records import record
from sorrel.inspection import evaluation
from sorrel.protocol.messages import Refused as RefusedByProgram
from sorrel.remote import steps
from sorrel.remote.breakpoints import Breakpoints
from sorrel.remote.commands import RemoteCommands
from sorrel.remote.connection import Lost
from sorrel.remote.exceptions import Exceptions
from sorrel.remote.places import Places
from sorrel.remote.session import Interrupted, PATIENCE, Session, Silent
from sorrel.remote.sources import entry_of, Sources
from sorrel.remote.values import ValueCommands
from sorrel.service import exceptions
from sorrel.service.breakpoints import Refused
from sorrel.service.stops import (
    CONTINUE, DETACH, POST_MORTEM, Resume, STEP_INTO, STEP_OUT, STEP_OVER, STEP_OVER_RANGE,
    TRACEBACK)
from sorrel.terminal import titles
from sorrel.terminal.aliases import AliasCommands
from sorrel.terminal.breakpoints import BreakpointCommands, shown_place
from sorrel.terminal.command_files import CommandFiles
from sorrel.terminal.command_lists import CommandLists
from sorrel.terminal.completion import Completion
from sorrel.terminal.console import Closed, Console
from sorrel.terminal.displays import DisplayCommands
from sorrel.terminal.exceptions import CatchCommands
from sorrel.terminal.listings import ListingCommands
from sorrel.terminal.logpoints import LogpointCommands
from sorrel.terminal.looking import LookingCommands
from sorrel.terminal.prompt import PromptLines
from sorrel.terminal.saving import SaveCommands
from sorrel.terminal.stack import StackCommands
from sorrel.terminal.stepping import SteppingCommands
from sorrel.terminal.typed import TypedLines

# What exceptionInfo and the event of a stop say, as the ways of stopping of the service.
_POLICIES = {u'unhandled': exceptions.UNHANDLED, u'userUnhandled': exceptions.USER_UNHANDLED}
_CALLED_BY_C = u'called by C code'
_POST_MORTEM = u'Post-mortem: the program has ended'
_TRACEBACK = u'Post-mortem: '
# How long the program may take to stop before a person is told of it, in seconds.
_MOMENT = 1.0

# reason: a word of the protocol's. thread: its number. body: of the event.
Stop = record('Stop', 'reason thread body')
# Where steps count: how many frames there are, down to this one; its line.
StepFrame = record('StepFrame', 'depth f_lineno')


class _PersonsConsole(Console):
    """is_asking: whether a person is asked for a line."""

    is_asking = False

    def write(self, text):
        Console.write(self, text)
        # Nobody may be asked for long.
        self.flush()

    def read_line(self, prompt, complete):
        self.is_asking = True
        try:
            return Console.read_line(self, prompt, complete)
        finally:
            self.is_asking = False


class _Service(object):
    """What the service is to the prompt in a program."""

    def __init__(self, session, command):
        self.breakpoints = Breakpoints(session)
        self.exceptions = Exceptions(session, command)


class _Evaluation(object):
    """Nothing is evaluated in this process."""

    def call(self, stop, function, *arguments):
        return function(*arguments)


class RemoteTerminal(
        ValueCommands, RemoteCommands, AliasCommands, BreakpointCommands, CatchCommands,
        CommandFiles, CommandLists, Completion, DisplayCommands, ListingCommands, LogpointCommands,
        LookingCommands, PromptLines, SaveCommands, StackCommands, SteppingCommands, TypedLines,
        Cmd):
    """Commands find here what they do in the terminal's own: `_stop`, `_stack` of Entries, and so
    on; `_session`, by which the program is asked; `_loaded`, of which modules it has told.
    """

    prompt = '(sorrel) '

    def __init__(self, reached, console=None):
        """reached: a Reached."""
        self._console = console or _PersonsConsole()
        Cmd.__init__(self, stdout=self._console)
        self._session = Session(reached.socket, self._console.write)
        self._reached = reached
        self._sources = Sources(self._session)
        self._places = Places(self._session, self._sources, self._value_text)
        self.service = _Service(self._session, self._command)
        self._evaluation = _Evaluation()
        self._stop = self._thread = self._shown_thread = self._resume = self._step = None
        self._stack = []
        self._index = 0
        self._next_listed = self._exit_status = None
        self._aliases, self._displays, self._command_lists, self._awaited_types = {}, {}, {}, {}
        self._news, self._loaded = [], []
        self._due = ()
        self._has_left = self._has_begun = self._is_interruption = False
        # Whether the program was told to stop since it runs, and has not had its time for that.
        self._has_paused = self._pause_is_new = False

    def run(self):
        """Returns the exit status, when the program is left or has ended.

        Raises RefusedByProgram where it lets nobody in, KeyboardInterrupt after Ctrl-C till then.
        """
        before = signal.signal(signal.SIGINT, self._interrupted)
        try:
            self._attach()
            return self._debug()
        except Closed:
            return 0  # There is nobody any more; the program runs on.
        finally:
            signal.signal(signal.SIGINT, before)
            self._session.close()

    def _debug(self):
        try:
            while not self._has_left:
                self._wait_for_event()
        except Lost as error:
            if self._exit_status is None:
                self._say('*** The connection is lost: %s.' % text(error).encode('utf-8'))
                return 1
            self._say_end()
        return 0

    def _interrupted(self, number, frame):
        if self._console.is_asking:
            raise KeyboardInterrupt
        self._session.interrupt()

    # Beginning and end.

    def _attach(self):
        try:
            self._session.ask('initialize', adapterID='sorrel', clientID='sorrel')
            self._session.ask('attach', **self._reached.arguments)
            program = self._introduction()
            self.service.exceptions.tell()
            self._session.ask('configurationDone')
        except (Lost, Silent) as error:
            raise RefusedByProgram(u'no program that can be debugged answers at %s: %s' % (
                text(self._reached.name), error))
        except Interrupted:
            raise KeyboardInterrupt
        self._say('Connected to process %s. It stops at the next line of Python code that it runs, '
                  'Ctrl-D leaves it.' % program)

    def _introduction(self):
        """What the program says of itself, up to where it is told of breakpoints."""
        program = 'elsewhere'
        while True:
            event = self._session.next_event(PATIENCE)
            if event is None:
                raise Lost(u'it is not ready for breakpoints within %d seconds' % PATIENCE)
            if event[0] == 'initialized':
                return program
            if event[0] == 'process' and isinstance(event[1], dict):
                program = '%s, %s' % (event[1].get('systemProcessId'),
                                      text(event[1].get('name')).encode('utf-8'))

    def _say_end(self):
        self._has_left = True
        if self._exit_status is None:
            self._say('The program has ended.')
        else:
            self._say('The program ended with exit status %d.' % self._exit_status)

    def do_quit(self, argument):
        """quit, q, exit: leave the program, which runs on."""
        self.do_detach('')

    def do_detach(self, argument):
        """detach: let the program run on by itself, at full speed."""
        self._resume = Resume(DETACH)

    def _leave(self):
        self._has_left = True
        try:
            self._session.ask('disconnect', terminateDebuggee=False)
        except (RefusedByProgram, Interrupted, Lost):
            pass  # The end of the connection says the same.
        self._say('Detached: the program runs on.')

    # While the program runs.

    def _wait_for_event(self):
        try:
            event = self._session.next_event(_MOMENT if self._pause_is_new else None)
        except Interrupted:
            self._pause()
            return
        was_new, self._pause_is_new = self._pause_is_new, False
        if event is not None:
            self._take_event(*event)
        elif was_new:
            self._say('\nNo line of Python code has run since. Ctrl-C asks whether to leave it.')

    def _take_event(self, name, body):
        if name == 'stopped':
            # Others that wait again are none of a person's business, and jumps are shown already.
            if not body.get('preserveFocusHint') and body['reason'] != 'goto':
                self._stopped(Stop(body['reason'], body['threadId'], body))
        elif name == 'breakpoint':
            self._breakpoint_changed(body['breakpoint'])
        elif name == 'module':
            self._loaded.append((
                'new' if body['reason'] == 'new' else 'reloaded',
                body['module'].get('path', u'').encode('utf-8')))
        elif name == 'exited':
            self._exit_status = body['exitCode']
        elif name == 'terminated':
            self._say_end()

    def _pause(self):
        """The first Ctrl-C stops the program at its next line, the next one asks what to do."""
        self._step = None
        if not self._has_paused:
            self._has_paused = self._pause_is_new = True
            self._session.tell('pause', threadId=self._thread or 1)
            return
        self._say('')
        try:
            self._leave_at_end_of_input()
        except KeyboardInterrupt:
            self._say('')
        if self._resume is not None:
            self._resume = None
            self._leave()

    def _breakpoint_changed(self, answer):
        found = self.service.breakpoints.changed(answer)
        if found is not None:
            self._news.append('Breakpoint %d is at %s now' % (found.number, shown_place(found)))

    # One stop.

    def _stopped(self, stop):
        self._stop, self._stack = stop, []
        step, self._step = self._step, None
        is_interrupted = self._session.take_interrupt()
        # Ends of steps that are nowhere else are told as pauses, too.
        self._is_interruption = is_interrupted or stop.reason == 'pause' and (
            self._has_paused or not self._has_begun)
        self._has_paused = False
        if step is None or is_interrupted or not self._goes_on(step):
            self._prompt_at_stop()

    def _goes_on(self, step):
        """Whether this stop is only one on the way of a step, which is sent on."""
        if self._stop.reason != 'step' or self._stop.thread != self._thread:
            return False
        try:
            self._look_at(self._stop.thread)
            self._send_on(step, step.send(self._here()))
        except (Interrupted, StopIteration, RefusedByProgram):
            return False
        return True

    def _prompt_at_stop(self):
        self._carry_safely(self._arrive)
        if not self._has_begun:
            self._has_begun = True
            self.read_start_files()
        self._run_lists()
        while self._stop is not None and not self._has_left:
            while self._resume is None:
                self._one_command()
            self._carry_safely(self._go_on)

    def _arrive(self):
        self._look_at(self._stop.thread)
        self._look_at_breakpoints()
        self._announce()

    def _go_on(self):
        """As the commands of this stop have said."""
        resume, self._resume = self._resume, None
        if resume.action == DETACH:
            self._leave()
            return
        step = self._planned(resume)
        for command in step:
            self._send_on(step, command)
            break

    def _send_on(self, step, command):
        try:
            self._session.ask(command, threadId=self._stop.thread)
        except Interrupted:
            self._pause()
        else:
            self._step = step
        self._stop = None

    def _planned(self, resume):
        here = self._here()
        count = self._repeated[1] + 1
        depth = resume.frame.depth if resume.frame is not None else None
        return {STEP_INTO: lambda: steps.into(here, count),
                STEP_OVER: lambda: steps.over(here, depth, count),
                STEP_OVER_RANGE: lambda: steps.until(here, depth, resume.last),
                STEP_OUT: lambda: steps.out(here, depth),
                CONTINUE: lambda: steps.on(here)}[resume.action]()

    def _here(self):
        stack = self._stack
        if self._shown_thread != self._stop.thread:
            stack = self._stack_of(self._stop.thread)
        return steps.Here(len(stack), stack[-1].line if stack else 0)

    def _step_frame(self):
        if self._shown_thread == self._stop.thread:
            return StepFrame(self._index + 1, self._frame().line)
        return StepFrame(*self._here())

    def _look_at_breakpoints(self):
        known = self.service.breakpoints
        self._due = known.of_ids(self._stop.body.get('hitBreakpointIds', ()))
        for breakpoint in self._due:
            if known.stopped_at(breakpoint):
                self._news.append('Deleted breakpoint %d' % breakpoint.number)

    def _announce(self):
        if self._stop.thread != self._thread:
            if self._thread is not None:
                self._say('[%s]' % self._thread_name())
            self._thread = self._stop.thread
        while self._news:
            self._say(self._news.pop(0))
        if self._is_interruption:
            self._say('--Interrupted--')
        elif self._stop.reason == 'exception':
            self._announce_exception()
        if self._is_silent():
            return
        if not self._stack:
            self._say('*** The thread runs no code of the program')
            return
        self._show_frame(self._index)
        if self._is_sticky:
            self.do_longlist('')
        self._show_displays()

    def _announce_exception(self):
        described = self._stop.body.get('description', u'')
        self._say(titles.RAISED[self._policy(described)])
        self._say(self._stop.body.get('text', u'').encode('utf-8'))
        for details in list(self._exceptions_at_hand())[1:]:
            self._say('Raised while handling '
                      + details.get('message', u'').encode('utf-8').strip().rpartition('\n')[2])
        if _CALLED_BY_C in described:
            self._say('No handler in Python code; called by C code.')

    def _policy(self, described):
        """For the sake of which way of stopping it has stopped at an exception."""
        if described.startswith(_TRACEBACK):
            return POST_MORTEM if described.startswith(_POST_MORTEM) else TRACEBACK
        mode = self._session.ask('exceptionInfo', threadId=self._stop.thread)['breakMode']
        if mode == u'userUnhandled' and exceptions.PRINTED in self.service.exceptions.modes:
            return exceptions.PRINTED
        return _POLICIES.get(mode, exceptions.ALWAYS)

    def _thread_name(self):
        for thread in self._session.ask('threads')['threads']:
            if thread['id'] == self._stop.thread:
                return thread['name'].encode('utf-8')
        return 'thread %d' % self._stop.thread

    def _one_command(self):
        self._carry_safely(self._next_command)

    def _next_command(self):
        if self._session.take_interrupt():
            raise Interrupted  # While the last one was shown.
        line = self._next_line()
        if line is None:
            self._say('')
            self._leave_at_end_of_input()
        else:
            self._carry_out(line)

    def _carry_safely(self, function):
        """Calls what asks the program and the person."""
        try:
            function()
        except (KeyboardInterrupt, Interrupted):
            del self.cmdqueue[:]
            self._say('\n--KeyboardInterrupt--')
        except RefusedByProgram as refusal:
            self._say('*** ' + text(refusal).encode('utf-8'))
        except Refused as refusal:
            self._say('*** %s' % refusal)

    # What commands of the terminal ask the front end for.

    def _say(self, said):
        self._console.write(self._placed(said) + '\n')

    def _try(self, function, *arguments):
        function(*arguments)

    def _entry(self):
        if not self._stack:
            raise RefusedByProgram(u'the thread runs no code of the program')
        return self._stack[self._index]

    def _innermost(self):
        return self._entry() and self._stack[-1]

    _frame = _entry

    def _look_at(self, thread):
        self._shown_thread = thread
        self._stack = self._stack_of(thread)
        self._index = len(self._stack) - 1
        self._next_listed = None

    def _stack_of(self, thread, count=0):
        """The Entries of a thread, the innermost last; count: of the innermost, 0 for all."""
        try:
            shown = self._session.ask('stackTrace', threadId=thread, levels=count)['stackFrames']
        except Silent:
            raise
        except RefusedByProgram:
            return []  # It is running.
        return [entry_of(frame) for frame in reversed(shown)]

    def _place(self, entry):
        return '%s(%d)%s()' % (entry.path, entry.line, entry.name)

    def _source_line(self, entry, number):
        return self._sources.line(entry, number)

    def _returned(self, entry):
        return ''  # The program stops in the caller.

    def _is_variable(self, name):
        # Most lines begin with no name of a command, and need not be asked about.
        try:
            return bool(name) and self._value_text(
                '%r in locals() or %r in globals()' % (name, name)) == 'True'
        except RefusedByProgram:
            return False

    def _is_known(self, name):
        return name in self._names(name)

    def _is_whole(self, typed):
        return evaluation.is_whole(typed, None)

    def _is_begun(self, typed):
        return evaluation.is_begun(typed, None)

    def _names(self, typed):
        """What may follow what is typed of a name."""
        try:
            targets = self._session.ask(
                'completions', text=text(typed), column=len(text(typed)) + 1,
                frameId=self._frame().id)['targets']
        except RefusedByProgram:
            return []
        before = typed[:typed.rfind('.') + 1]
        return [before + target['label'].encode('utf-8') for target in targets]

    def _find_place(self, named):
        return self._places.find(named, self._frame())

    def _add_breakpoint(self, named, *settings):
        made = self.service.breakpoints.add_at(self._find_place(named), named, *settings)
        self._last_breakpoint = made.number
        return made, made.lack
