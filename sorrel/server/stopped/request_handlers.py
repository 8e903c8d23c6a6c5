"""One thread at a stop: what the client asks about it is answered there, in that thread.

Only there is the program's code to be run, and only until the thread goes on.
"""

from __future__ import absolute_import

import os
import sys
import __builtin__

from sorrel.common import errors
from sorrel.common.decoding import text
from sorrel.common.originals import time
from sorrel.common.records import record
from sorrel.common.work_queue import WorkQueue
from sorrel.inspection import (
    causes, child_values, code_lines, evaluation, frames, line_calls, private_names, source, stacks,
    values, views)
from sorrel.inspection.time_limit import TimeLimit
from sorrel.languages import sublanguages
from sorrel.protocol.messages import Refused
from sorrel.server.shared.requests import RUNNING, Then
from sorrel.server.stopped import completion, console_commands, console_errors, frame_names
from sorrel.server.stopped.stop_events import Told
from sorrel.server.stopped.variables import Presenter, References, TOO_LONG
from sorrel.service import returned
from sorrel.service.stops import (
    ALL_GO, CONTINUE, evaluator, is_at_line, OTHERS_WAIT, OTHERS_WAIT_FIRST, RAISED, Resume,
    RETURNED, STEP_INTO, STEP_INTO_CALL, STEP_OUT, STEP_OVER)


# The requests that are answered only here.
COMMANDS = frozenset((
    'stackTrace', 'scopes', 'variables', 'setVariable', 'setExpression', 'evaluate', 'completions',
    'exceptionInfo', 'gotoTargets', 'goto', 'stepInTargets', 'continue', 'next', 'stepIn',
    'stepOut'))
# Those of them that let the thread go.
GOING_ON = frozenset(('continue', 'next', 'stepIn', 'stepOut'))
# Taken now: a program may replace what the interpreter's modules offer.
_now, _getpid = time.time, os.getpid

# What the thread is at: a Job, and since when.
_Turn = record('_Turn', 'job since')


class StoppedThread(object):
    """limit: the TimeLimit of what is evaluated here. turn: the job that is being done; None for
    none. hold: the service's, what makes the other threads wait.
    """

    def __init__(self, session, service, stop, frame):
        """frame: the innermost one that the client is shown."""
        self.stop = stop
        self.ident = stop.thread
        self.hold = service.hold(stop)
        self.limit = TimeLimit()
        self.turn = None
        self._why_ended = TOO_LONG
        # The turns in which the others were let run, and which nobody waits for any more.
        self._let_run_in = self._given_up = None
        self._has_gone = False
        # What is evaluated may fork: nobody asks anything in the other process.
        self._process = _getpid()
        self._service = service
        self._session = session
        self._frame = frame
        self._evaluator = evaluator(stop)
        # Of an exception: asked for now, before anything is handled here.
        self._causes = causes.of(stop.argument) if stop.reason == RAISED else []
        self._work_queue = WorkQueue()
        self._frames = References(session.numbers)
        # Those of other threads, until these are let run.
        self._frames_of_others = References(session.numbers)
        # This thread's, once it has been looked at, by whether what is hidden is shown.
        self._own_stacks = {}
        self._presenter = Presenter(values.Shower(self._limited), session.numbers)
        self._jumps = References(session.numbers)
        # Pairs of a frame and one of its calls.
        self._calls = References(session.numbers)
        self._resume = self._told_to_go = None
        self.answers = {
            'stackTrace': self._stack_trace, 'scopes': self._scopes,
            'variables': self._variables, 'setVariable': self._set_variable,
            'setExpression': self._set_expression, 'evaluate': self._evaluate,
            'completions': self._completions, 'exceptionInfo': self._exception_info,
            'gotoTargets': self._goto_targets, 'goto': self._goto,
            'stepInTargets': self._step_in_targets,
            'continue': self._continue, 'next': self._next, 'stepIn': self._step_in,
            'stepOut': self._step_out}

    def put(self, job):
        """Has a job done in this thread. Whether it will be."""
        return self._work_queue.put(job)

    def resume(self, resume):
        """Lets the thread go on when its current job is done; from any thread. Whether it will."""
        self._told_to_go = resume
        return self._work_queue.put(None)

    def is_leaving(self):
        """Whether the thread has been told to go on."""
        return self._resume is not None or self._told_to_go is not None

    def serve(self):
        """Does jobs until one lets the thread go on, or resume() does: how, is returned."""
        while not self.is_leaving() and _getpid() == self._process:
            self._serve_one()
        return self._told_to_go or self._resume

    def _serve_one(self):
        # Apart: what is handled here is not to be seen by what is evaluated later.
        try:
            job = self._work_queue.take()
            if job is not None:
                self._do(job)
        except KeyboardInterrupt:
            pass  # The program's, at a moment when it does not run.
        except:
            if not self._service.defer(*sys.exc_info()):
                raise

    def _do(self, job):
        self.turn = _Turn(job, _now())
        try:
            # What the client is told of the other threads is told before the answer.
            job.do(self.settle)
        finally:
            self.turn = None
            self._why_ended = TOO_LONG
            self.settle()

    def close(self):
        """Nothing of the program is kept alive while it runs. Returns the jobs not done."""
        left = self._work_queue.close()
        self._has_gone = True
        for references in (self._frames, self._frames_of_others, self._presenter.references,
                           self._jumps, self._calls):
            references.clear()
        self._frame = self.stop = None
        self._own_stacks.clear()
        self._evaluator.forget()
        self._causes = []
        return [job for job in left if job is not None]

    # What takes long, seen from any thread.

    def is_at(self, job):
        turn = self.turn
        return turn is not None and turn.job is job

    def is_stuck(self):
        """Whether nobody waits for what it is at."""
        turn = self.turn
        return turn is not None and self._given_up is turn

    def give_up(self, turn):
        self._given_up = turn

    def end(self, why):
        """Ends what it evaluates, if it does and that can be ended."""
        self._why_ended = why
        self.limit.expire()

    def has_gone(self):
        return self._has_gone

    def let_others_run(self, turn):
        """The other threads run as long as this one is at its job: that may wait for them."""
        if self._let_run_in is not turn:
            self._let_run_in = turn
            self._service.let_others_run(self.hold, self._tell_running)
            if self.turn is not turn:
                self.settle()

    def settle(self):
        """The others wait again, if they were let run."""
        if self._service.make_others_wait(self.hold):
            self._frames_of_others.clear()
            self._session.tell_others_wait(self.ident)

    def _tell_running(self):
        self._session.tell_others_run(self.ident)

    # The stack.

    def _stack_trace(self, arguments):
        number = arguments['threadId']
        stack = self._stack(number, arguments.get('format', {}).get('includeAll', False))
        known = self._frames if self._is_this(number) else self._frames_of_others
        shown = stack.page(arguments.get('startFrame', 0), arguments.get('levels', 0))
        format = arguments.get('format', {})
        return {'stackFrames': [self._describe(entry, known, format) for entry in shown],
                'totalFrames': stack.most()}

    def _stack(self, number, with_hidden):
        if not self._is_this(number):
            thread = self._session.find_thread(number)
            if not self._session.stops_all:
                raise Refused('the thread is running')
            # It may still move before it waits.
            return _lazy_stack(thread.ident, thread.frame, with_hidden)
        if with_hidden not in self._own_stacks:
            self._own_stacks[with_hidden] = self._own_stack(with_hidden)
        return self._own_stacks[with_hidden]

    def _own_stack(self, with_hidden):
        if self.stop.policy is None:
            return _lazy_stack(self.stop.thread, self._frame, with_hidden)
        entries = list(stacks.outward_from_stop(self.stop, with_hidden))
        return stacks.LazyStack(iter(entries), len(entries))

    def _describe(self, entry, references, format):
        frame = entry.frame
        described, line = self._session.sources.of_entry(entry)
        line = self._session.to_client_line(line)
        shown = {'id': references.add(entry), 'source': described, 'line': line,
                 'name': frame_names.name(frame, line, format, self._show_in(format)),
                 'column': self._session.first_column}
        module = frame.f_globals.get('__name__')
        if isinstance(module, str):
            shown['moduleId'] = text(module)
        if self._service.passing.passes_file(entry.path, module):
            shown['presentationHint'] = 'subtle'
            shown['source']['presentationHint'] = 'deemphasize'
        return shown

    def _show_in(self, format):
        return lambda value: self._presenter.shower.show(value, format.get('hex', False))

    def _find_frame(self, arguments):
        if not arguments.get('frameId'):
            # Outermost: where everything global is to be seen.
            return stacks.at_stop(self.stop)[0].frame
        return self._known(self._frames.find(arguments['frameId']) or
                           self._frames_of_others.find(arguments['frameId'])).frame

    def _known(self, found):
        if found is None:
            raise Refused('the program has gone on since then')
        return found

    # Values.

    def _limited(self, function, *arguments):
        return self.limit.call(self._session.patience, function, *arguments)

    def _of_program(self, function, *arguments):
        """Calls what may run code of the program."""
        return self._within(self._session.patience, _in_one_line, function, *arguments)

    def _typed(self, function, *arguments):
        """The same for what is typed in the console, which may take as long as it likes."""
        return self._within(None, console_errors.formatted, function, *arguments)

    def _within(self, seconds, explain, function, *arguments):
        """explain: makes the text that a client is told of a (type, value, traceback)."""
        try:
            return self.limit.call(seconds, function, *arguments)
        except values.Overtime:
            raise Refused(self._why_ended)
        except Refused:
            raise
        except:
            raise Refused(explain(*sys.exc_info()))

    def _view(self, frame):
        return views.view(self.ident, frame)

    def _scopes(self, arguments):
        frame = self._find_frame(arguments)
        view = self._view(frame)
        if view is not None:
            variables = child_values.Variables(
                self._of_program(view.variables), (), view.assign if view.can_assign() else None,
                self._lent_to(frame), defines=None)
            return {'scopes': [self._scope('Locals', variables, frame)]}
        set_global = frame.f_globals.__setitem__
        is_module = frame.f_locals is frame.f_globals
        variables = child_values.Variables(
            frame.f_locals, frame.f_code.co_varnames,
            set_global if is_module else evaluation.assigner(frame), self._lent_to(frame),
            defines=is_module or private_names.is_class_body(frame.f_code) or None)
        scopes = [self._scope('Locals', variables, frame)]
        if not is_module:
            variables = child_values.Variables(frame.f_globals, (), set_global)
            scopes.append(self._scope('Globals', variables, frame))
        return {'scopes': scopes}

    def _scope(self, name, variables, frame):
        return {'name': name, 'expensive': name == 'Globals', 'presentationHint': name.lower(),
                'variablesReference': self._presenter.whole(variables, frame)}

    def _lent_to(self, frame):
        """(name, value) of what stands among the variables of the frame that has stopped."""
        if frame is not self._frame:
            return []
        found = [(name, value) for name, value in sorted(self._evaluator.names.items())
                 if name != '_' and value is not None
                 and not evaluation.is_of_program(name, frame)]
        if self._session.shows_returned:
            found += [('(return) ' + name, value) for name, value in self._returned_to(frame)]
        return found

    def _returned_to(self, frame):
        """(name, value) of the calls that have just returned to the frame that has stopped."""
        if self.stop.reason == RETURNED and self.stop.argument is not None:
            return [(self.stop.frame.f_code.co_name, self.stop.argument)]
        return returned.to(frame)

    def _variables(self, arguments):
        return {'variables': self._presenter.parts(
            arguments['variablesReference'], arguments.get('filter'),
            arguments.get('start', 0), arguments.get('count', 0), _in_hex(arguments))}

    def _set_variable(self, arguments):
        child, frame, expression = self._presenter.find(
            arguments['variablesReference'], arguments['name'])
        if child.assign is None:
            why = '' if child.fixed_by is None \
                else ': it is part of a ' + values.class_name(child.fixed_by)
            raise Refused('%s cannot be changed%s' % (arguments['name'], why))
        value = self._value(arguments['value'], frame)
        self._of_program(child.assign, value)
        return self._presenter.value(value, frame, expression, _in_hex(arguments))

    def _set_expression(self, arguments):
        frame = self._find_frame(arguments)
        expression = arguments['expression']
        view = self._view(frame)
        if view is not None:
            value = self._value(arguments['value'], frame)
            self._of_program(self._evaluator.call, view.set, expression, value)
        else:
            statement = '%s = (%s)' % (expression, arguments['value'])
            self._of_program(self._evaluator.statement, statement, frame, None)
        value = self._value(expression, frame)
        return self._presenter.value(value, frame, expression, _in_hex(arguments))

    def _evaluate(self, arguments):
        frame = self._find_frame(arguments)
        expression = arguments['expression']
        if arguments.get('context') in (None, 'repl'):
            return self._execute(expression, frame, _in_hex(arguments))
        value = self._value(expression, frame)
        shown = self._presenter.value(value, frame, expression, _in_hex(arguments))
        if arguments['context'] == 'clipboard':
            shown['value'] = self._presenter.shower.show_all(value)
        return _result(shown, value)

    def _value(self, expression, frame):
        in_its_language = views.evaluator(self.ident, frame)
        if in_its_language is not None:
            return self._of_program(self._evaluator.call, in_its_language, expression)
        return self._of_program(self._evaluator.expression, expression, frame)

    def _execute(self, typed, frame, in_hex):
        """What is typed in the console: it may be statements."""
        said = console_commands.execute(typed, self.stop, self._service.exceptions)
        if said is not None:
            return {'result': text(said), 'variablesReference': 0}
        view = self._view(frame)
        in_its_language = views.evaluator(self.ident, frame) if view is None else None
        if in_its_language is not None:
            value = self._typed(self._evaluator.call, in_its_language, typed)
            return self._typed_value(value, frame, in_hex)
        shown = []
        if view is not None:
            self._typed(self._evaluator.call, view.run, typed, shown.append)
        else:
            self._typed(self._evaluator.statements, typed, frame, shown.append)
        if not shown:
            return {'result': '', 'variablesReference': 0}
        return self._typed_value(shown[-1], frame, in_hex)

    def _typed_value(self, value, frame, in_hex):
        self._evaluator.remember(value)
        return _result(self._presenter.value(value, frame, None, in_hex), value)

    def _completions(self, arguments):
        frame = self._find_frame(arguments)
        first_column = self._session.first_column
        lines = arguments['text'].split('\n')
        line = arguments.get('line', self._session.first_line) - self._session.first_line
        typed = lines[line] if 0 <= line < len(lines) else u''
        start, end, found = self._of_program(
            completion.complete, typed, arguments['column'] - first_column,
            self._names_in(frame), lambda path: self._value(path, frame))
        return {'targets': [{'label': name, 'type': type, 'start': start + first_column,
                             'length': end - start} for name, type in found]}

    def _names_in(self, frame):
        """Dicts of what can be named there, the innermost first."""
        view = self._view(frame)
        if view is not None:
            return [self._of_program(view.variables), self._evaluator.names]
        return [frame.f_locals, frame.f_globals, self._evaluator.names, __builtin__.__dict__]

    def _exception_info(self, arguments):
        self._check_thread(arguments)
        if self.stop.policy is None:
            raise Refused('the thread has not stopped at an exception')

        def error_text(error):
            return self._of_program(errors.whole_text, *error[:2])
        return self._session.exceptions.describe(self.stop, error_text, self._causes)

    # Jumping.

    def _goto_targets(self, arguments):
        line = self._session.to_program_line(arguments['line'])
        path, line = self._session.sources.place(
            self._session.sources.named(arguments['source']), line)
        if not self._can_jump() or path != source.file_name(self._frame):
            return {'targets': []}
        return {'targets': [
            {'id': self._jumps.add(target), 'label': 'line %d' % shown,
             'line': self._session.to_client_line(shown)}
            for target in _jump_targets(self._frame, line)
            for shown in [self._session.sources.of_place(path, target)[1]]]}

    def _can_jump(self):
        """Elsewhere than between two lines the interpreter would be led astray."""
        return is_at_line(self.stop) and not sublanguages.location(
            sublanguages.at_work(self.ident), self._frame)

    def _goto(self, arguments):
        self._check_thread(arguments)
        line = self._known(self._jumps.find(arguments['targetId']))
        try:
            self._frame.f_lineno = line
        except ValueError as error:
            raise Refused(str(error))
        self._own_stacks.clear()
        return Then(None, lambda: self._session.tell_stop(
            Told('goto', self._frame, {}), self.ident))

    # Going on.

    def _is_this(self, number):
        return number == self._session.threads.number(self.ident)

    def _check_thread(self, arguments):
        if not self._is_this(arguments['threadId']):
            self._session.find_thread(arguments['threadId'])
            raise Refused('the thread has not stopped by itself')

    def _go_on(self, resume, others):
        # In this order: who sees that the thread leaves may already let the others go.
        self._service.decide_of_others(self.hold, others)
        self._resume = resume

    def _continue(self, arguments):
        is_single = arguments.get('singleThread', False)
        if is_single or not self._session.stops_all:
            self._check_thread(arguments)
        self._go_on(Resume(CONTINUE), OTHERS_WAIT if is_single else ALL_GO)
        return {'allThreadsContinued': self._session.stops_all and not is_single}

    def _step(self, arguments, action, frame=None):
        self._check_thread(arguments)
        stop = self.stop
        if stop is None:
            raise Refused(RUNNING)  # It has come back this moment, and does this itself.
        self._go_on(Resume(action, None if frame is stop.frame else frame),
                    self._others_of_step(arguments))

    def _others_of_step(self, arguments):
        if arguments.get('singleThread', False):
            return OTHERS_WAIT
        return ALL_GO if self._session.steps_resume_all else OTHERS_WAIT_FIRST

    def _next(self, arguments):
        return self._step(arguments, STEP_OVER, self._frame)

    def _step_in(self, arguments):
        if 'targetId' not in arguments:
            return self._step(arguments, STEP_INTO)
        frame, call = self._known(self._calls.find(arguments['targetId']))
        self._check_thread(arguments)
        self._go_on(Resume(STEP_INTO_CALL, frame, call=call), self._others_of_step(arguments))

    def _step_in_targets(self, arguments):
        entry = self._known(self._frames.find(arguments['frameId']) or
                            self._frames_of_others.find(arguments['frameId']))
        return {'targets': [{'id': self._calls.add((entry.frame, call)), 'label': text(call.name)}
                            for call in self._calls_ahead(entry.frame)]}

    def _calls_ahead(self, frame):
        """None of another thread's frame, of one that an exception leaves, or of a template's."""
        if self.stop.reason == RAISED or frame not in list(frames.callers(self.stop.frame)) \
                or sublanguages.location(sublanguages.at_work(self.ident), frame):
            return []
        if frame is self.stop.frame and self.stop.reason == RETURNED:
            return []
        return line_calls.ahead(frame, frame is not self.stop.frame)

    def _step_out(self, arguments):
        return self._step(arguments, STEP_OUT, self._frame)


def _lazy_stack(thread, frame, with_hidden):
    return stacks.LazyStack(stacks.outward(thread, frame, with_hidden),
                            sum(1 for _ in frames.outward(frame)))


def _in_one_line(type, value, traceback):
    return text(errors.error_text(type, value))


def _in_hex(arguments):
    return arguments.get('format', {}).get('hex', False)


def _result(shown, value):
    shown['result'] = shown.pop('value')
    if issubclass(type(value), basestring):
        shown['presentationHint'] = {'attributes': ['rawString']}
    return shown


def _jump_targets(frame, line):
    """The first line of the frame's function, from this one on, that has code: a list of it."""
    return [candidate for candidate in sorted(code_lines.of_code(frame.f_code))
            if candidate >= line][:1]
