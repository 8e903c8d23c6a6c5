"""Asks a person at each stop what to do, and carries it out."""

from __future__ import absolute_import

import __future__
import os
import pprint
import repr as shortened
import sys
import types
from cmd import Cmd

from sorrel.common import errors
from sorrel.inspection import causes, evaluation, source, stacks, views
from sorrel.inspection.time_limit import Overtime
from sorrel.service import exceptions
from sorrel.service.service import Service
from sorrel.service.stops import (
    DETACH, INTERRUPTED, POST_MORTEM, QUIT, RAISED, Resume, RETURNED, evaluator)
from sorrel.service.thread_numbers import Threads
from sorrel.terminal import layout, titles
from sorrel.terminal.aliases import AliasCommands
from sorrel.terminal.breakpoint_stops import BreakpointStops
from sorrel.terminal.breakpoints import BreakpointCommands
from sorrel.terminal.command_files import CommandFiles
from sorrel.terminal.command_lists import CommandLists
from sorrel.terminal.completion import Completion
from sorrel.terminal.console import Closed
from sorrel.terminal.displays import DisplayCommands
from sorrel.terminal.evaluation import PromptEvaluation
from sorrel.terminal.exceptions import CatchCommands
from sorrel.terminal.handing_on import HandingOn
from sorrel.terminal.interaction import InteractCommand
from sorrel.terminal.jumping import JumpCommand
from sorrel.terminal.listings import ListingCommands
from sorrel.terminal.logpoints import LogpointCommands
from sorrel.terminal.looking import LookingCommands
from sorrel.terminal.processes import ProcessCommands
from sorrel.terminal.prompt import PromptLines
from sorrel.terminal.restarting import RestartCommand
from sorrel.terminal.saving import SaveCommands
from sorrel.terminal.skipping import SkipCommands
from sorrel.terminal.stack import StackCommands
from sorrel.terminal.stepping import SteppingCommands
from sorrel.terminal.threads import ThreadCommands
from sorrel.terminal.typed import TypedLines
from sorrel.terminal.waiting import WaitingPrompt
from sorrel.terminal.watching import WatchCommands

_PRINTS_BY_FUNCTION = __future__.print_function.compiler_flag
# Flags of code.
_VARARGS, _VARKEYWORDS = 0x4, 0x8
# In place of the thread that stopped last, when that has ended.
_ENDED = object()


def over_service(console, post_mortem=False):
    """A Terminal with a Service of its own, that stops at what the program does not catch.

    post_mortem: whether it stops at what has ended the program, if it has not stopped before.
    """
    terminal = Terminal(console, post_mortem)
    terminal.use(Service(terminal))
    terminal.service.exceptions.set_mode(exceptions.UNHANDLED)
    return terminal


class Terminal(
        AliasCommands, BreakpointCommands, BreakpointStops, CatchCommands, CommandFiles,
        CommandLists, Completion, DisplayCommands, HandingOn, InteractCommand, JumpCommand,
        ListingCommands, LogpointCommands, LookingCommands, ProcessCommands, PromptLines,
        RestartCommand, SaveCommands, SkipCommands, StackCommands, SteppingCommands, ThreadCommands,
        TypedLines, WaitingPrompt, WatchCommands, Cmd):
    """Commands find here: `_stop`, where the program has stopped; `_evaluator`, for what is typed
    there; `_stack`, the entries of the stack that is looked at, and `_index`, which of them;
    `_shown_thread`, whose stack that is.
    """

    prompt = '(sorrel) '

    def __init__(self, console, post_mortem):
        Cmd.__init__(self, stdout=console)
        self._console = console
        self._post_mortem = post_mortem
        self._thread = None
        self._shown_thread = None
        self._stop = None
        self._evaluator = None
        self._stack = []
        self._index = 0
        self._next_listed = None
        self._resume = None
        # Of modules that are not loaded yet: "always" or "never" by their names.
        self._awaited_types = {}
        self._aliases = {}
        self._displays = {}
        self._command_lists = {}
        # What there is to be told of breakpoints at the next stop that is shown.
        self._news = []
        self._refusals = {}

    def use(self, service, has_ctrl_c=True):
        """has_ctrl_c: whether Ctrl-C raises KeyboardInterrupt in the program's main thread."""
        self.service = service
        self._threads = Threads(service)
        self._evaluation = PromptEvaluation(service, has_ctrl_c)

    # For the service.

    def stopped(self, stop):
        if self._is_let_go():
            return Resume(DETACH)
        process = os.getpid()
        self._look_at_breakpoints(stop)
        self._look_at_watches(stop)
        next_step = self._next_step(stop)
        if next_step is not None:
            return next_step
        self._stop = stop
        self._evaluator = evaluator(stop)
        self._look_at(stop.thread, stacks.at_stop(stop))
        self._resume = None
        try:
            self._take_turn()
            self._evaluation.call(stop, self._announce)
            self._run_lists()
            while self._resume is None:
                self._one_command()
            self._renew_watches(stop)
        except Closed:
            self._resume = Resume(DETACH)
        finally:
            if os.getpid() == process:
                self._give_turn(self._resume)
            # Nothing of the program is kept alive while it runs.
            self._stop = self._evaluator = self._namespace = None
            self._stack = []
        return self._resume

    def ending(self, stop):
        try:
            self._say('About to end %s: %s' % (
                self._what_ends(stop), errors.error_text(*stop.argument[:2])))
        except Closed:
            return Resume(DETACH)
        return None

    def interrupt(self):
        return self._evaluation.interrupt() or self.interrupt_looking() or self._is_at_prompt()

    def wants_post_mortem(self):
        return self._post_mortem

    def thread_ended(self, ident):
        if ident == self._thread:
            self._thread = _ENDED
        self._threads.forget(ident)

    def ended(self, outcome):
        if not self._is_first():
            return  # That is for the first process to say.
        if outcome.exception is not None:
            text = 'an uncaught %s' % outcome.exception.__name__
        else:
            text = 'exit status %d' % outcome.status
        try:
            self._say('The program ended with %s.' % text)
        except Closed:
            pass

    # One stop.

    def _is_at_prompt(self):
        return self._stop is not None and self._resume is None

    def _announce(self):
        if self._stop.thread != self._thread:
            if self._thread is not None:
                self._say('[%s]' % self._thread_of(self._stop.thread).name)
            self._thread = self._stop.thread
        self._tell_of_breakpoints()
        self._tell_of_watches()
        if self._stop.reason == INTERRUPTED:
            self._say('--Interrupted--')
        elif self._stop.reason == RETURNED and not self._is_silent():
            self._say('--Return--')
        elif self._stop.reason == RAISED:
            if self._stop.policy is not None:
                self._say(titles.RAISED[self._stop.policy])
            self._say(errors.whole_text(*self._stop.argument[:2]))
            for cause in causes.of(self._stop.argument):
                self._say('Raised while handling ' + errors.error_text(*cause[:2]))
            if self._stop.is_end:
                self._say('It is about to end %s.' % self._what_ends(self._stop))
            elif self._stop.called_by_c:
                self._say('No handler in Python code; called by C code.')
        if self._is_silent():
            return
        self._show_frame(self._index)
        if self._is_sticky:
            self.do_longlist('')
        self._show_displays()

    def _one_command(self):
        process = os.getpid()
        try:
            if self._namespace is not None:
                self._interact()
                return
            line = self._next_line()
            if line is None:
                self._end_of_input()
            else:
                self._carry_out(line)
        except (KeyboardInterrupt, Overtime):
            del self.cmdqueue[:]
            self._say('\n--KeyboardInterrupt--')
        if os.getpid() != process:
            raise Closed  # It has been forked, here: the person talks to its parent.

    def _execute(self, text):
        view = self._view()
        if view is not None:
            self._try(self._evaluator.call, view.run, text, self._show_value)
        else:
            self._try(self._evaluator.statement, text, self._frame(), self._show_value)

    def _is_known(self, name):
        return name in self._evaluator.names or evaluation.is_of_program(name, self._frame()) \
            or self._is_variable(name)

    def _is_whole(self, text):
        return evaluation.is_whole(text, self._frame())

    def _is_begun(self, text):
        return evaluation.is_begun(text, self._frame())

    def _is_variable(self, name):
        view = self._view()
        if view is not None:
            return name in view.known()
        frame = self._frame()
        return name in frame.f_locals or name in frame.f_globals \
            or name == 'print' and bool(frame.f_code.co_flags & _PRINTS_BY_FUNCTION)

    def do_quit(self, argument):
        """quit, q, exit: end the program at once, with exit status 0."""
        self._end_others()
        self._resume = Resume(QUIT)

    def do_detach(self, argument):
        """detach: let the program run on by itself, at full speed."""
        self._say('Detached: the program runs on.')
        self._resume = Resume(DETACH)

    def _end_of_input(self):
        self._say('')
        if self._has_ended():
            self._resume = Resume(DETACH)
            return
        self._leave_at_end_of_input()

    # Commands that show.

    def do_args(self, argument):
        """args, a: show this function's arguments."""
        if self._view() is not None:
            self._try(self._show_locals, self._frame())
            return
        code = self._frame().f_code
        count = code.co_argcount
        count += bool(code.co_flags & _VARARGS) + bool(code.co_flags & _VARKEYWORDS)
        values = self._frame().f_locals
        for name in code.co_varnames[:count]:
            if name in values:
                self._try(self._show_argument, name, values[name])
            else:
                self._say('%s: deleted' % name)

    def do_print(self, argument):
        """print, p EXPRESSION: show its value."""
        self._try(lambda: self._say(repr(self._value(argument))))

    def do_pp(self, argument):
        """pp, pretty-print EXPRESSION: show its value over several lines, laid out to be read."""
        self._try(lambda: self._say(pprint.pformat(self._value(argument))))

    def do_whatis(self, argument):
        """whatis EXPRESSION: show its type."""
        self._try(lambda: self._say(_kind(self._value(argument))))

    # Helpers.

    def _say(self, text):
        self._console.write(self._colours().answer(self._placed(text)) + '\n')

    def _look_at(self, thread, stack):
        self._shown_thread = thread
        self._stack = stack
        self._index = len(stack) - 1
        self._next_listed = None

    def _frame(self):
        return self._entry().frame

    def _view(self):
        """Of the frame that is shown, if a language has variables of its own there; else None."""
        return views.view(self._shown_thread, self._frame())

    def _step_frame(self):
        """Where steps count: only the thread that has stopped can be stepped."""
        return self._frame() if self._shown_thread == self._stop.thread else self._stop.frame

    def _value(self, expression):
        value = self._computed(expression)
        self._evaluator.remember(value)
        return value

    def _computed(self, expression):
        in_its_language = views.evaluator(self._shown_thread, self._frame())
        if in_its_language is not None:
            return self._evaluator.call(in_its_language, expression)
        return self._evaluator.expression(expression, self._frame())

    def _show_value(self, value):
        self._evaluator.remember(value)
        self._say(repr(value))

    def _show_argument(self, name, value):
        self._say(layout.after(name + ' = ', value))

    def _try(self, function, *arguments):
        """Calls what may run code of the program, and shows the error that this ends with."""
        try:
            function(*arguments)
        except (Closed, Overtime):
            raise
        except:
            self._say('*** ' + errors.error_text(*sys.exc_info()[:2]))

    def _place(self, entry):
        return source.place(entry)

    def _source_line(self, entry, number):
        return source.line(entry, number)

    def _is_python(self, entry):
        return entry.path == source.file_name(entry.frame)

    def _returned(self, entry):
        if self._stop.reason == RETURNED and entry.frame is self._stop.frame:
            return _short(self._stop.argument)
        return ''

    def _has_ended(self):
        """Whether the stop is one at the end of the program."""
        return self._stop.policy == POST_MORTEM

    def _thread_of(self, ident):
        return [thread for thread in self.service.threads() if thread.ident == ident][0]

    def _what_ends(self, stop):
        if stop.thread == self.service.main_thread:
            return 'the program'
        return 'thread ' + self._thread_of(stop.thread).name


def _short(value):
    try:
        return shortened.repr(value)
    except Exception:
        return '<%s that cannot be shown>' % type(value).__name__


def _kind(value):
    if isinstance(value, types.MethodType):
        return 'Method ' + value.__name__
    if isinstance(value, types.FunctionType):
        return 'Function ' + value.__name__
    return repr(type(value))
