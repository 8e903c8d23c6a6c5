"""Asks a person at each stop what to do, and carries it out."""

from __future__ import absolute_import

import inspect
import itertools
import os
import pprint
import re
import repr as shortened
import rlcompleter
import sys
from cmd import Cmd

from sorrel.common import errors
from sorrel.inspection import causes, evaluation, source, stacks
from sorrel.inspection.time_limit import Overtime
from sorrel.languages import sublanguages
from sorrel.service import exceptions
from sorrel.service.service import Service
from sorrel.service.stops import (
    CONTINUE, DETACH, INTERRUPTED, POST_MORTEM, QUIT, RAISED, Resume, RETURNED, STEP_INTO, STEP_OUT,
    STEP_OVER, STEP_OVER_RANGE, TRACEBACK, evaluator)
from sorrel.service.thread_numbers import Threads
from sorrel.terminal import syntax
from sorrel.terminal.breakpoint_stops import BreakpointStops
from sorrel.terminal.breakpoints import BreakpointCommands
from sorrel.terminal.command_lists import CommandLists
from sorrel.terminal.console import Closed
from sorrel.terminal.evaluation import PromptEvaluation
from sorrel.terminal.exceptions import CatchCommands
from sorrel.terminal.logpoints import LogpointCommands
from sorrel.terminal.processes import ProcessCommands
from sorrel.terminal.saving import SaveCommands
from sorrel.terminal.threads import ThreadCommands

_LINES_SHOWN = 11
# In place of the thread that stopped last, when that has ended.
_ENDED = object()

_RAISED = {
    exceptions.UNHANDLED: '--Unhandled exception--',
    exceptions.USER_UNHANDLED: '--Exception that leaves your own code--',
    exceptions.PRINTED: '--Exception that is printed--',
    exceptions.ALWAYS: '--Exception--',
    POST_MORTEM: '--Post-mortem: the program has ended--',
    TRACEBACK: '--Post-mortem--'}


def over_service(console, post_mortem=False):
    """A Terminal with a Service of its own, that stops at what the program does not catch.

    post_mortem: whether it stops at what has ended the program, if it has not stopped before.
    """
    terminal = Terminal(console, post_mortem)
    terminal.use(Service(terminal))
    terminal.service.exceptions.set_mode(exceptions.UNHANDLED)
    return terminal


class Terminal(BreakpointCommands, BreakpointStops, CommandLists, LogpointCommands, SaveCommands,
               CatchCommands, ProcessCommands, ThreadCommands, Cmd):
    """Commands find here: `_stop`, where the program has stopped; `_evaluator`, for what is typed
    there; `_stack`, the entries of the stack that is looked at, and `_index`, which of them;
    `_shown_thread`, whose stack that is.
    """

    prompt = '(sorrel) '

    def __init__(self, console, post_mortem):
        Cmd.__init__(self, stdout=console)
        BreakpointStops.__init__(self)
        CommandLists.__init__(self)
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
        self._stop = stop
        self._evaluator = evaluator(stop)
        self._look_at(stop.thread, stacks.at_stop(stop))
        self._resume = None
        try:
            self._take_turn()
            self._evaluation.call(stop, self._announce)
            self._run_commands()
            while self._resume is None:
                self._one_command()
                if os.getpid() != process:
                    raise Closed  # It has been forked, here: the person talks to its parent.
        except Closed:
            self._resume = Resume(DETACH)
        finally:
            if os.getpid() == process:
                self._give_turn(self._resume)
            # Nothing of the program is kept alive while it runs.
            self._stop = self._evaluator = None
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
        return self._evaluation.interrupt()

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

    def _announce(self):
        if self._stop.thread != self._thread:
            if self._thread is not None:
                self._say('[%s]' % self._thread_of(self._stop.thread).name)
            self._thread = self._stop.thread
        self._look_at_breakpoints()
        if self._stop.reason == INTERRUPTED:
            self._say('--Interrupted--')
        elif self._stop.reason == RETURNED:
            self._say('--Return--')
        elif self._stop.reason == RAISED:
            if self._stop.policy is not None:
                self._say(_RAISED[self._stop.policy])
            self._say(errors.whole_text(*self._stop.argument[:2]))
            for cause in causes.of(self._stop.argument):
                self._say('Raised while handling ' + errors.error_text(*cause[:2]))
            if self._stop.is_end:
                self._say('It is about to end %s.' % self._what_ends(self._stop))
            elif self._stop.called_by_c:
                self._say('No handler in Python code; called by C code.')
        if not self._is_silent():
            self._show_frame(self._index)

    def _agreed(self, question):
        answer = self._console.read_line(question, None)
        return answer is not None and answer.strip().lower() in ('y', 'yes')

    def _one_command(self):
        try:
            line = self._console.read_line(self.prompt, self.complete)
            if line is None:
                self._detach()
            else:
                self._evaluation.call(self._stop, self.onecmd, line)
        except (KeyboardInterrupt, Overtime):
            self._say('\n--KeyboardInterrupt--')
            self._drop_command_list()

    def parseline(self, line):
        line = line.strip()
        if line.startswith('pretty-print'):  # No name of a command for the base class.
            line = line.replace('pretty-print', 'pp', 1)
        command, argument, line = Cmd.parseline(self, line)
        command = syntax.ALIASES.get(command, command)
        if not command or not syntax.is_command(command, argument):
            return '', None, line
        return command, argument, line

    def default(self, line):
        if line.startswith('!'):
            line = line[1:]
        self._try(self._evaluator.statement, line, self._frame(), self._show_value)

    def completedefault(self, text, line, begin, end):
        try:
            evaluation.check_size(text)
        except SyntaxError:
            return []  # What is before its last dot would be evaluated.
        names = dict(self._frame().f_globals)
        names.update(self._frame().f_locals)
        names = dict(self._evaluator.names, **names)
        completer = rlcompleter.Completer(names)
        return completer.attr_matches(text) if '.' in text else completer.global_matches(text)

    # Commands that go on.

    def do_step(self, argument):
        """step, s: run to the next line, in whatever function it is."""
        self._resume = Resume(STEP_INTO)

    def do_next(self, argument):
        """next, n: run to the next line of this function, or to its return."""
        self._resume = Resume(STEP_OVER, self._step_frame())

    def do_until(self, argument):
        """until, unt: as next, but only forward: a loop is run to its end."""
        self._resume = Resume(
            STEP_OVER_RANGE, self._step_frame(), 0, self._step_frame().f_lineno)

    def do_return(self, argument):
        """return, r: run until this function returns."""
        self._resume = Resume(STEP_OUT, self._step_frame())

    def do_continue(self, argument):
        """continue, cont, c: run on."""
        self._resume = Resume(CONTINUE)

    def do_quit(self, argument):
        """quit, q, exit: end the program at once, with exit status 0."""
        self._end_others()
        self._resume = Resume(QUIT)

    def _detach(self):
        self._say('' if self._has_ended() else '\nDetached: the program runs on.')
        self._resume = Resume(DETACH)

    # Commands that show.

    def do_where(self, argument):
        """where, w, bt: show the stack, the innermost frame last."""
        for index in range(len(self._stack)):
            self._show_frame(index)

    def do_up(self, argument):
        """up, u [COUNT]: go to the frame that called this one."""
        self._go_to(self._index - int(argument or 1), 'Oldest frame')

    def do_down(self, argument):
        """down, d [COUNT]: go to the frame that this one has called."""
        self._go_to(self._index + int(argument or 1), 'Newest frame')

    def do_list(self, argument):
        """list, l [FIRST [LAST]]: show source lines, by default around this one, then those after.

        A LAST smaller than FIRST is a number of lines.
        """
        numbers = [int(number) for number in re.findall(r'\d+', argument)]
        first = self._first_listed(numbers)
        last = first + _LINES_SHOWN - 1
        if len(numbers) == 2:
            last = numbers[1] if numbers[1] >= first else first + numbers[1]
        self._list(first, last)

    def do_args(self, argument):
        """args, a: show this function's arguments."""
        code = self._frame().f_code
        count = code.co_argcount
        count += bool(code.co_flags & inspect.CO_VARARGS)
        count += bool(code.co_flags & inspect.CO_VARKEYWORDS)
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

    def do_help(self, argument):
        """help, h, ? [COMMAND]: this list, or more about a command."""
        if argument:
            command = getattr(self, 'do_' + syntax.ALIASES.get(argument, argument), None)
            self._say(inspect.getdoc(command) if command else '*** No command %s' % argument)
            return
        for name in sorted(set(name for name in self.get_names() if name.startswith('do_'))):
            self._say(inspect.getdoc(getattr(self, name)).splitlines()[0])
        self._say('Anything else is executed as a statement, and so is what follows a "!".')
        self._say('An empty line repeats the last command. End of input lets the program run on.')

    # Helpers.

    def _say(self, text):
        self._console.write(text + '\n')

    def _look_at(self, thread, stack):
        self._shown_thread = thread
        self._stack = stack
        self._index = len(stack) - 1
        self._next_listed = None

    def _entry(self):
        return self._stack[self._index]

    def _frame(self):
        return self._entry().frame

    def _step_frame(self):
        """Where steps count: only the thread that has stopped can be stepped."""
        return self._frame() if self._shown_thread == self._stop.thread else self._stop.frame

    def _value(self, expression):
        in_its_language = sublanguages.evaluator(
            sublanguages.at_work(self._shown_thread), self._frame())
        if in_its_language is not None:
            value = self._evaluator.call(in_its_language, expression)
        else:
            value = self._evaluator.expression(expression, self._frame())
        self._evaluator.remember(value)
        return value

    def _show_value(self, value):
        self._evaluator.remember(value)
        self._say(repr(value))

    def _show_argument(self, name, value):
        self._say('%s = %r' % (name, value))

    def _try(self, function, *arguments):
        """Calls what may run code of the program, and shows the error that this ends with."""
        try:
            function(*arguments)
        except (Closed, Overtime):
            raise
        except:
            self._say('*** ' + errors.error_text(*sys.exc_info()[:2]))

    def _show_frame(self, index):
        entry = self._stack[index]
        mark = '>' if index == self._index else ' '
        returned = ''
        if self._stop.reason == RETURNED and entry.frame is self._stop.frame:
            returned = '->' + _short(self._stop.argument)
        self._say('%s %s%s' % (mark, source.place(entry), returned))
        line = source.line(entry, entry.line).strip()
        if line:
            self._say('-> ' + line)

    def _go_to(self, index, end):
        index = min(max(index, 0), len(self._stack) - 1)
        if index == self._index:
            self._say('*** ' + end)
            return
        self._index = index
        self._next_listed = None
        self._show_frame(index)

    def _first_listed(self, numbers):
        if len(numbers) == 2:
            return numbers[0]
        if not numbers and self._next_listed is not None:
            return self._next_listed
        middle = numbers[0] if numbers else self._entry().line
        return max(1, middle - _LINES_SHOWN // 2)

    def _list(self, first, last):
        for number in itertools.count(first):
            if number > last:
                break
            line = source.line(self._entry(), number)
            if not line:
                self._say('[EOF]')
                break
            mark = '->' if number == self._entry().line else '  '
            self._say(('%3d  %s\t%s' % (number, mark, line)).rstrip())
            self._next_listed = number + 1

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
    if inspect.ismethod(value):
        return 'Method ' + value.__name__
    if inspect.isfunction(value):
        return 'Function ' + value.__name__
    return repr(type(value))
