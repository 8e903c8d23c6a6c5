"""One client: what it asks for, answered in the network thread or in the thread that is stopped."""

from __future__ import absolute_import

import fnmatch
import itertools
import os

from sorrel.common import errors
from sorrel.common.decoding import text
from sorrel.common.originals import thread, time
from sorrel.inspection import values
from sorrel.inspection.time_limit import TimeLimit
from sorrel.languages import engines, sublanguages
from sorrel.protocol import capabilities, named_sources
from sorrel.protocol.leaving import means_end
from sorrel.protocol.messages import Refused
from sorrel.server.breakpoints import Breakpoints
from sorrel.server.exception_filters import Exceptions
from sorrel.server.loaded_sources import LoadedSources
from sorrel.server.lone_thread import LoneThread
from sorrel.server.network.supervisor import Supervisor
from sorrel.server.redirected_output import RedirectedOutput
from sorrel.server.shared import sources
from sorrel.server.shared.requests import answer, Then
from sorrel.server.stopped.request_handlers import COMMANDS, StoppedThread
from sorrel.server.stopped.stop_events import Stops, Told
from sorrel.service import returned
from sorrel.service.stops import ALL_GO, CONTINUE, DETACH, Resume
from sorrel.service.thread_numbers import Threads

_DEFAULT_PATIENCE = 5.0
# What holds for processes that the program starts, in the order in which it is to be said.
_LASTING = ('initialize', 'launch', 'attach', 'setPydevdSourceMap', 'setBreakpoints',
            'setFunctionBreakpoints', 'setExceptionBreakpoints')
# What follows the name of a thread that does not come back from what it evaluates.
_BUSY = ' (busy)'
# How long the thread that is stopped may take to detach the program, in seconds.
_DETACH_PATIENCE = 1.0
# Taken now: a program may replace what the interpreter's modules offer.
_now, _sleep, _new_lock = time.time, time.sleep, thread.allocate_lock


class Session(object):

    def __init__(self, server, program):
        """program: the Program that this client came to debug."""
        self.is_known = False
        self.sources = sources.Sources()
        # For whatever the client gets a number of.
        self.numbers = itertools.count(1)
        # How long code of the program may run for an answer, in seconds; None for ever.
        self.patience = _DEFAULT_PATIENCE
        self.stops_all = True
        # Whether the other threads run while one steps.
        self.steps_resume_all = False
        # Whether the client wants to see what has ended the program.
        self.post_mortem = False
        # Whether it wants to see what the calls have returned that a step has gone over.
        self.shows_returned = True
        # Patterns of the names of what it wants to debug of what the program starts. Whether it
        # wants to hear of a process only when that stops.
        self._follows = []
        self.waits_for_stops = False
        self.first_line = self.first_column = 1
        self.program_path = program.path
        self.threads = Threads(program.service)
        self.loaded_sources = LoadedSources(self, program.path, program.service.passing)
        self.breakpoints = Breakpoints(self, program.service)
        self.exceptions = Exceptions(program.service)
        self.stops = Stops(self.breakpoints, program.service.passing, self._error_text)
        self._server = server
        self._program = program
        self._service = program.service
        self._redirected = RedirectedOutput(self.output, lambda: server.has_room())
        self._is_closed = self._has_begun = self._is_configured = self._has_taken = False
        self._stops_on_entry = self._is_undebugged = self._redirects = False
        # Whether the program may go on without the client, for what either has done.
        self._may_run_on = False
        # Of what is found out about a stop that the client is not told of yet.
        self._limit = TimeLimit()
        self._supervisor = Supervisor(self, program.service, self._limit)
        self._lone_thread = LoneThread(
            program.service, lambda: self._supervisor.current() is not None, self.tell_all_go)
        # Of the thread that tells of what is new. Others do not wait for it.
        self._looking = _new_lock()
        # What it has said that holds for whatever the program starts, too: the arguments of
        # requests, by their commands and what they are about.
        self._said = {}
        self._answers = dict(self.loaded_sources.answers, **{
            'initialize': self.introduce, program.start_method: self._begin,
            'configurationDone': self._configuration_done, 'disconnect': self._disconnect,
            'terminate': self._terminate, 'pause': self._pause, 'threads': self._list_threads,
            'setBreakpoints': self.breakpoints.set_in_source,
            'breakpointLocations': self.breakpoints.locations,
            'setFunctionBreakpoints': self.breakpoints.set_functions,
            'setExceptionBreakpoints': self.exceptions.set, 'cancel': self._cancel,
            'setPydevdSourceMap': self._map_lines})

    # For the server.

    def handle(self, message):
        if message['type'] != 'request':
            return  # Nothing is ever asked of a client.
        command = message['command']
        if command in _LASTING:
            self._remember(command, message.get('arguments'))
        if not self.is_known and command != 'initialize':
            answer(self, message, _refuse_stranger)
        elif command in self._answers:
            answer(self, message, self._answers[command])
        elif command == 'continue' and not self._is_stopped() and self._service.let_others_go():
            answer(self, message, _all_go)
        elif command in COMMANDS:
            self._supervisor.ask(message)
        else:
            answer(self, message, _refuse_unknown)

    def follows(self, name):
        """Whether it wants to debug what the program starts under this name."""
        return any(fnmatch.fnmatchcase(text(name), pattern) for pattern in self._follows)

    def wants_others(self):
        return bool(self._follows)

    def said(self):
        """What a new process is to be told in the client's place: a list of [command, arguments]."""
        return [[command, arguments] for command in _LASTING
                for (said, _), arguments in sorted(self._said.items()) if said == command]

    def _remember(self, command, arguments):
        arguments = named_sources.by_name(arguments)
        path = named_sources.path(arguments)
        if path is None or isinstance(path, unicode):
            self._said[command, path] = arguments

    def cut_off(self):
        """It was the program that has closed the connection: it means to go on."""
        self._may_run_on = True

    @property
    def has_begun(self):
        return self._has_begun

    @property
    def is_configured(self):
        return self._is_configured

    def deadline(self):
        if not self._is_configured:
            return None
        return min(moment for moment in (self._supervisor.deadline(), self._redirected.deadline())
                   if moment is not None)

    def deadline_passed(self):
        self._redirected.look()
        if _now() < self._supervisor.deadline():
            return
        self._service.trace_new_threads()
        self._supervisor.look()
        self._lone_thread.look()

    def closed(self):
        """The client has left: the program runs on as if it had never been there.

        One that it has launched ends, unless it has said otherwise.
        """
        self._is_closed = True
        self._redirected.end()
        self._program.is_being_left()
        if self._is_configured and not self._may_run_on and not self._server.is_lost \
                and self._program.ends_with_client():
            self._end_program()
        # What the last client has left behind is not this one's to end.
        if self._is_configured:
            self._detach()
        has_taken = self._has_taken or self._program.take()
        if has_taken and not self._service.attached:
            self.breakpoints.clear()
            self._service.exceptions.forget()
            self._service.passing.forget()
            returned.note(False)
            self._service.detach()
        self._program.left(self)
        if has_taken:
            self._program.leave()

    # For the program.

    def stopped(self, stop):
        """Called in the thread that has stopped; returns how it goes on."""
        if self._is_closed:
            return Resume(DETACH)
        if self._service.is_signal_owed():
            # A stop before that is there would only hold it up.
            self._service.decide_of_others(self._service.hold(stop), ALL_GO)
            return Resume(CONTINUE)
        told = self._supervisor.consider(self._service.hold(stop), self._consider, stop)
        if not isinstance(told, Told):
            return told

        def tell():
            self.tell_stop(told, stop.thread)
            # Asked last: nobody would wake the thread.
            return not self._is_closed and not self._server.is_lost
        resume = self._supervisor.serve(
            StoppedThread(self, self._service, stop, told.frame), tell)
        if resume is None:
            return Resume(DETACH)
        self.stops.gone(stop, told, resume)
        return resume

    def _consider(self, stop):
        self.look_around()
        return self.stops.consider(stop)

    def _error_text(self, error):
        """Of what the thread that has just stopped was stopped by; may run code of the program."""
        try:
            return text(self._limit.call(
                self.patience or _DEFAULT_PATIENCE, errors.whole_text, *error[:2]))
        except:
            return values.class_name(error[0])

    def ended(self, outcome):
        self._redirected.tell()
        self.event('exited', {'exitCode': outcome.status})
        self.event('terminated')

    def tell_stop(self, told, thread):
        """thread: its ident."""
        self._redirected.tell()
        body = {'reason': told.reason, 'threadId': self.threads.number(thread),
                'allThreadsStopped': self.stops_all}
        body.update(told.details)
        self.event('stopped', body)

    def tell_others_run(self, thread):
        """What this thread evaluates may wait for the others, which run until it has ended."""
        for number in self._others(thread):
            self.event('continued', {'threadId': number, 'allThreadsContinued': False})

    def tell_others_wait(self, thread):
        self.look_around()
        for number in self._others(thread):
            self.event('stopped', {'reason': 'pause', 'threadId': number,
                                   'allThreadsStopped': False, 'preserveFocusHint': True})

    def tell_all_go(self, thread):
        """This thread goes on, alone no more."""
        self.event('continued', {'threadId': self.threads.number(thread),
                                 'allThreadsContinued': True})

    def _others(self, thread):
        return [number for number, other in self.threads.all()
                if other.ident != thread and not self._service.is_left_behind(other.ident)]

    def _detach(self):
        end = _now() + _DETACH_PATIENCE
        if self._supervisor.free(Resume(DETACH), _DETACH_PATIENCE):
            while self._service.attached and _now() < end:
                _sleep(0.001)
        # It is not there, or does not come back from what it evaluates.
        self._service.detach()

    # What the program does meanwhile.

    def look_around(self):
        """Tells of new threads and modules; called in threads of the program."""
        if self._looking.acquire(False):
            try:
                self._tell_changes()
            finally:
                self._looking.release()

    def _tell_changes(self):
        for number, is_new in self.threads.take_changes():
            self.event('thread', {'reason': 'started' if is_new else 'exited',
                                  'threadId': number})
        loaded = self._service.modules.take_new()
        if loaded:
            self.loaded_sources.tell_loaded(loaded)
            self.breakpoints.loaded_anew([path for path, _ in loaded])
        if loaded or self.exceptions.lack_types():
            self._look_for_known()

    def thread_ended(self, ident):
        """Called in the thread as it ends: another one may be given its ident."""
        self.threads.forget(ident)
        self.stops.forget(ident)

    def imported(self):
        """There are other modules than before."""
        if self.breakpoints.have_changed_files():
            self.look_around()
        if self.breakpoints.are_waiting() or self.exceptions.lack_types():
            self._look_for_known()

    def _look_for_known(self):
        """What the client has named may be there by now."""
        self.breakpoints.modules_loaded()
        self.exceptions.apply()

    # Requests and answers.

    def event(self, name, body=None):
        message = {'type': 'event', 'event': name}
        if body is not None:
            message['body'] = body
        self.send(message)

    def output(self, category, written, place=None):
        """place: the file and line that it is about."""
        body = {'category': category, 'output': text(written)}
        if place is not None:
            body['source'], line = self.sources.of_place(*place)
            body['line'] = self.to_client_line(line)
        message = {'type': 'event', 'event': 'output', 'body': body}
        marks = self._program.output_marks
        mark = marks.write() if marks is not None else None
        if mark is not None:
            message['mark'] = mark  # The adapter's alone.
        self.send(message)

    def send(self, message):
        self._server.send(self, message)

    def to_client_line(self, line):
        return line - 1 + self.first_line

    def to_program_line(self, line):
        return line + 1 - self.first_line

    # Beginning and end.

    def introduce(self, arguments):
        """The answer to an initialize request."""
        if self.is_known:
            raise Refused('initialize comes once')
        self.is_known = True
        self._remember('initialize', arguments)
        self.first_line = 1 if arguments.get('linesStartAt1', True) else 0
        self.first_column = 1 if arguments.get('columnsStartAt1', True) else 0
        if arguments.get('pathFormat') == 'uri':
            self.sources.use_uris()
        return capabilities.announced()

    def _begin(self, arguments):
        if self._has_begun:
            raise Refused('%s comes once' % self._program.start_method)
        if not self._has_taken and not self._program.take():
            raise Refused('somebody debugs this program already')
        self._has_taken = True
        if self._program.is_busy():
            raise Refused('the program is still busy with what the last client has asked for')
        self.sources.map_paths(arguments.get('pathMappings', ()))
        rules = [self._rule(rule) for rule in arguments.get('rules', ())]
        self._has_begun = True
        self._service.passing.set_just_my_code(arguments.get('justMyCode', True))
        self._service.passing.set_rules(rules)
        sublanguages.turn_off(
            [name for name in engines.names() if not arguments.get(name, True)])
        self._service.exceptions.learning.is_on = arguments.get('learnExceptions', False)
        self.shows_returned = arguments.get('showReturnValue', True)
        returned.note(self.shows_returned)
        self.stops_all = arguments.get('stopAllThreads', True)
        self.steps_resume_all = arguments.get('steppingResumesAllThreads', False)
        self.post_mortem = arguments.get('postMortem', False)
        self._is_undebugged = arguments.get('noDebug', False)
        is_own = self._program.start_method == 'launch'
        self._follows = arguments.get('autoAttach', [u'*']) \
            if arguments.get('subProcess', is_own) and not self._is_undebugged else []
        self.waits_for_stops = arguments.get('lazySubProcess', False)
        self._redirects = arguments.get('redirectOutput', False)
        self.patience = arguments.get('evaluationTimeout', _DEFAULT_PATIENCE) or None
        self._stops_on_entry = arguments.get('stopOnEntry', False) and not self._is_undebugged
        return Then(None, self._tell_begin)

    def _rule(self, rule):
        """As the service has them. Raises Refused."""
        if 'path' in rule:
            return 'path', self.sources.to_program(rule['path']), rule['include']
        return 'module', rule['module'].encode('utf-8'), rule['include']

    def _tell_begin(self):
        self.event('process', {
            'name': text(self._program.path), 'systemProcessId': os.getpid(),
            'isLocalProcess': True, 'startMethod': self._program.start_method})
        self.event('initialized')

    def _configuration_done(self, arguments):
        if not self._has_begun:
            raise Refused('%s comes first' % self._program.start_method)
        if self._is_configured:
            raise Refused('configurationDone comes once')
        self._is_configured = True
        if not self._program.is_waiting:
            return Then(None, self._start)  # Who has the answer may count on being told of stops.
        # The program may end as the first that it does, and with it all that is not sent.
        self._server.when_sent(self._start)

    def _start(self):
        if self._redirects:
            self._redirected.begin()
        if self._is_undebugged:
            self._program.run_undebugged()
        elif self._program.is_waiting:
            self.stops.expect_entry(self._stops_on_entry)
            self._program.debug(self.stops_all)
        else:
            self._program.debug(self.stops_all)
            if self._stops_on_entry:
                self._service.pause()
        self._program.tell_of_others()

    def _disconnect(self, arguments):
        ends = means_end(arguments, self._program.start_method == 'launch')
        self._may_run_on = not ends
        self._server.when_sent(self._program.end_at_once if ends else self._server.drop_client)

    def _terminate(self, arguments):
        self._server.when_sent(self._end_program)

    def _end_program(self):
        self._program.terminate(self._let_go)

    def _is_stopped(self):
        """Whether a thread is, that was not told to go on."""
        stopped = self._supervisor.current()
        return stopped is not None and not stopped.is_leaving()

    def _let_go(self):
        stopped = self._supervisor.current()
        if stopped is not None:
            # Told before: the program's handler may stop.
            self.event('continued', {'threadId': self.threads.number(stopped.ident),
                                     'allThreadsContinued': self.stops_all})
            self._service.decide_of_others(stopped.hold, ALL_GO)
            self._supervisor.free(Resume(CONTINUE))
        self._service.let_others_go()

    def _pause(self, arguments):
        stopped = self._supervisor.current()
        if not self.stops_all:
            self._service.pause(self.find_thread(arguments['threadId']).ident)
        elif stopped is None and self._lone_thread.pause():
            pass  # It is the one that was let go.
        elif stopped is None or stopped.is_leaving():
            # Any thread will do: the others wait as soon as they have an event.
            self._service.pause()

    # Threads.

    def find_thread(self, number):
        thread = self.threads.find(number)
        if thread is None:
            raise Refused('there is no thread %s' % number)
        return thread

    def _list_threads(self, arguments):
        # All may be in C code.
        known = [(number, thread.name + _BUSY * self._supervisor.is_busy(thread.ident))
                 for number, thread in self.threads.all()]
        return {'threads': [{'id': number, 'name': text(name)}
                            for number, name in known or [(1, 'MainThread')]]}

    def _map_lines(self, arguments):
        self.sources.map_lines(arguments['source']['path'], [
            (self.to_program_line(one['line']), self.to_program_line(one['endLine']),
             one['runtimeSource']['path'], self.to_program_line(one['runtimeLine']))
            for one in arguments['pydevdSourceMaps']])
        self.breakpoints.lines_mapped()

    def _cancel(self, arguments):
        self._supervisor.cancel(arguments.get('requestId'))


def _refuse_stranger(arguments):
    raise Refused('initialize comes first')


def _all_go(arguments):
    return {'allThreadsContinued': True}


def _refuse_unknown(arguments):
    raise Refused('there is no such request')
