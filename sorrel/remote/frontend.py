"""Asks a person at each stop of a program elsewhere what to do, and has that do it."""

from __future__ import absolute_import

import signal
from cmd import Cmd

from sorrel.common.decoding import text
from sorrel.common.records import record
from sorrel.protocol.messages import Refused as RefusedByProgram
from sorrel.remote.announcing import Announcing
from sorrel.remote.breakpoints import Breakpoints
from sorrel.remote.commands import RemoteCommands
from sorrel.remote.connection import Lost
from sorrel.remote.exceptions import Exceptions
from sorrel.remote.going_on import GoingOn
from sorrel.remote.looking import RemoteLooking
from sorrel.remote.places import Places
from sorrel.remote.session import Interrupted, PATIENCE, Session, Silent
from sorrel.remote.sources import Sources
from sorrel.remote.values import ValueCommands
from sorrel.service.breakpoints import Refused
from sorrel.service.stops import DETACH, Resume
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

# How long the program may take to stop before a person is told of it, in seconds.
_MOMENT = 1.0

# reason: a word of the protocol's. thread: its number. body: of the event.
Stop = record('Stop', 'reason thread body')


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


class _NoWatches(object):

    @staticmethod
    def all():
        return []


class _Service(object):
    """What the service is to the prompt in a program."""

    watches = _NoWatches()

    def __init__(self, session, command):
        self.breakpoints = Breakpoints(session)
        self.exceptions = Exceptions(session, command)


class _Evaluation(object):
    """Nothing is evaluated in this process."""

    def call(self, stop, function, *arguments):
        return function(*arguments)


class RemoteTerminal(
        Announcing, GoingOn, RemoteCommands, RemoteLooking, ValueCommands, AliasCommands,
        BreakpointCommands, CatchCommands, CommandFiles, CommandLists, Completion, DisplayCommands,
        ListingCommands, LogpointCommands, LookingCommands, PromptLines, SaveCommands,
        StackCommands, SteppingCommands, TypedLines, Cmd):
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

    def _say(self, said):
        self._console.write(self._placed(said) + '\n')

    def _try(self, function, *arguments):
        function(*arguments)

