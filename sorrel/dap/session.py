"""One client: what it asks for, answered in the network thread or in the thread that is stopped."""

import collections
import itertools
import os
import signal
import time

import tmorvik26_vs2012_x64 as core

from sorrel import frames, source
from sorrel.dap import capabilities, protocol, sources
from sorrel.dap.breakpoints import Breakpoints
from sorrel.dap.exceptions import Exceptions
from sorrel.dap.job import Job, Then, answer
from sorrel.dap.protocol import Refused, text
from sorrel.dap.stopped import StoppedThread
from sorrel.dap.timelimit import TimeLimit
from sorrel.dap.told import Told
from sorrel.records import (
    CONTINUE, DETACH, INTERRUPTED, RAISED, Resume, RETURNED, STEP_INTO, STEP_OUT)
from sorrel.threadnumbers import Threads

# How often the limit of what is evaluated is looked at, in seconds.
_LOOK = 0.25
_DEFAULT_PATIENCE = 5.0
_DETACH_PATIENCE = 5.0

# How a thread was last let go, and whether that was out of the program's own code.
_Going = collections.namedtuple('_Going', 'action frame from_own_code')


class Session(object):

    def __init__(self, server, program):
        """program: the Program that this client came to debug."""
        self.is_known = False
        self.sources = sources.Sources()
        self.limit = TimeLimit()
        # For whatever the client gets a number of.
        self.numbers = itertools.count(1)
        self.patience = _DEFAULT_PATIENCE
        self.just_my_code = True
        self.stops_all = True
        self.first_line = self.first_column = 1
        self.threads = Threads(program.service)
        self.breakpoints = Breakpoints(self, program.service)
        self.exceptions = Exceptions(program.service)
        self._server = server
        self._program = program
        self._service = program.service
        self._is_closed = False
        self._is_configured = False
        self._stops_on_entry = False
        self._is_at_entry = False
        self._stop = None
        # Requests on their way through the stopped thread, by their numbers.
        self._jobs = {}
        self._goings = {}
        self._answers = {
            'initialize': self._initialize, program.start_method: self._begin,
            'configurationDone': self._configuration_done, 'disconnect': self._disconnect,
            'terminate': self._terminate, 'pause': self._pause, 'threads': self._list_threads,
            'setBreakpoints': self.breakpoints.set_in_source,
            'setFunctionBreakpoints': self.breakpoints.set_functions,
            'setExceptionBreakpoints': self.exceptions.set,
            'modules': self._list_modules, 'loadedSources': self._loaded_sources,
            'source': self._source, 'cancel': self._cancel}

    # For the server.

    def handle(self, message):
        if message['type'] == 'response':
            return  # Nothing is ever asked of a client.
        if message['type'] != 'request' or type(message.get('seq')) is not int \
                or not isinstance(message.get('command'), unicode) \
                or not isinstance(message.get('arguments', {}), (dict, type(None))):
            raise protocol.Broken('no request: %r' % message)
        command = message['command']
        if not self.is_known and command != 'initialize':
            answer(self, message, self._refuse_stranger)
        elif command in self._answers:
            answer(self, message, self._answers[command])
        else:
            self._ask_stopped_thread(message)

    def deadline(self):
        if not self._jobs:
            return None
        look = time.time() + _LOOK
        return min(self.limit.deadline or look, look)

    def deadline_passed(self):
        self.limit.expire()

    def closed(self):
        """The client has left: the program runs on as if it had never been there."""
        self._is_closed = True
        self.limit.expire()
        if not self._resume_stopped(Resume(DETACH)):
            self._service.detach()
        # The next client is not to come upon what is left of this one.
        end = time.time() + _DETACH_PATIENCE
        while self._service.attached and time.time() < end:
            time.sleep(0.001)
        self._service.leave()
        self._program.left(self)

    # For the program.

    def stopped(self, stop):
        """Called in the thread that has stopped; returns how it goes on."""
        told = self._consider(stop)
        if not isinstance(told, Told):
            return told
        stopped = StoppedThread(self, stop, told.frame)
        self._stop = stopped
        try:
            if self._is_closed:
                return Resume(DETACH)
            self.tell_stop(told)
            resume = stopped.serve()
            self._keep_goings()
            self._goings[stop.thread] = _Going(
                resume.action, resume.frame or stop.frame, self._is_own_code(told.frame))
            return resume
        finally:
            self._stop = None
            for job in stopped.close():
                job.refuse()

    def ended(self, outcome):
        self.event('exited', {'exitCode': outcome.status})
        self.event('terminated')

    # Stops.

    def _consider(self, stop):
        """What to tell the client of a stop; a Resume or None when it is not to hear of it."""
        if self._is_closed:
            return Resume(DETACH)
        self.look_around()
        if stop.policy is not None:
            return self.exceptions.told(stop)
        at_entry, self._is_at_entry = self._is_at_entry, False
        going = self._goings.get(stop.thread)
        may_be_step = stop.reason == INTERRUPTED or at_entry or (
            going is not None and _has_arrived(going, stop.frame))
        hits = self.breakpoints.hits(stop, may_be_step)
        if hits:
            return _told_hits(hits, stop.frame)
        if stop.reason == INTERRUPTED:
            return Told('pause', stop.frame, {})
        if at_entry:
            if self._stops_on_entry:
                return Told('entry', stop.frame, {})
            return Resume(CONTINUE)
        return self._consider_step(stop, going) if may_be_step else None

    def _consider_step(self, stop, going):
        if stop.reason == RAISED:
            return None  # What follows, in a handler or in a caller, is told.
        if going.action == STEP_INTO and going.from_own_code \
                and not self._is_own_code(stop.frame):
            # On to the next line of who has called this.
            return Resume(STEP_OUT) if stop.reason != RETURNED else None
        frame = stop.frame
        if stop.reason == RETURNED:
            # The rest of the caller's line is still to be run.
            frame = frame.f_back
            if frame is None or not frames.is_program(frame):
                return None
        return Told('step', frame, {})

    def _keep_goings(self):
        """Forgets threads that have ended."""
        for thread in set(self._goings).difference(core.get_threads()):
            del self._goings[thread]

    def _is_own_code(self, frame):
        return not self.just_my_code or not sources.is_library(source.file_name(frame))

    def tell_stop(self, told):
        body = {'reason': told.reason, 'threadId': self.threads.number(self._stop.thread_id),
                'allThreadsStopped': self.stops_all}
        body.update(told.details)
        self.event('stopped', body)

    def _resume_stopped(self, resume):
        """Whether there was a stopped thread to let go."""
        stop = self._stop
        return stop is not None and stop.resume(resume)

    # What the program does meanwhile.

    def look_around(self):
        """Tells of new threads and modules; called in a thread of the program."""
        for number, is_new in self.threads.take_changes():
            self.event('thread', {'reason': 'started' if is_new else 'exited',
                                  'threadId': number})
        loaded = self._service.modules.take_new()
        if loaded:
            self._tell_modules(loaded)
            self.breakpoints.modules_loaded()
            self.exceptions.modules_loaded()

    def _tell_modules(self, loaded):
        names = {}
        for name, path in self.modules():
            names[os.path.realpath(path)] = name
        for path, was_known in loaded:
            path = sources.of_code(path)
            name = names.get(os.path.realpath(path), os.path.basename(path))
            self.event('module', {'reason': 'changed' if was_known else 'new',
                                  'module': self._describe_module(name, path)})

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
            body['source'] = self.sources.describe(place[0])
            body['line'] = self.to_client_line(place[1])
        self.event('output', body)

    def send(self, message):
        self._server.send(self, message)

    def _ask_stopped_thread(self, request):
        stop = self._stop
        job = Job(self, stop, request)
        if stop is None:
            job.refuse()
            return
        self._jobs[request['seq']] = job
        if not stop.put(job):
            job.refuse()

    def job_done(self, request):
        self._jobs.pop(request['seq'], None)

    def _refuse_stranger(self, arguments):
        raise Refused('initialize comes first')

    def to_client_line(self, line):
        return line - 1 + self.first_line

    def to_program_line(self, line):
        return line + 1 - self.first_line

    # Beginning and end.

    def _initialize(self, arguments):
        if self.is_known:
            raise Refused('initialize comes once')
        self.is_known = True
        self.first_line = 1 if arguments.get('linesStartAt1', True) else 0
        self.first_column = 1 if arguments.get('columnsStartAt1', True) else 0
        if arguments.get('pathFormat') == 'uri':
            self.sources.use_uris()
        return capabilities.announced()

    def _begin(self, arguments):
        self.just_my_code = bool(arguments.get('justMyCode', True))
        self.stops_all = bool(arguments.get('stopAllThreads', True))
        self.patience = arguments.get('evaluationTimeout', _DEFAULT_PATIENCE)
        self.sources.map_paths(arguments.get('pathMappings') or ())
        self._stops_on_entry = bool(arguments.get('stopOnEntry'))
        return Then(None, self._tell_begin)

    def _tell_begin(self):
        self.event('process', {
            'name': text(self._program.path), 'systemProcessId': os.getpid(),
            'isLocalProcess': True, 'startMethod': self._program.start_method})
        self.event('initialized')

    def _configuration_done(self, arguments):
        if self._is_configured:
            raise Refused('configurationDone comes once')
        self._is_configured = True
        return Then(None, self._start)

    def _start(self):
        self._is_at_entry = self._program.is_waiting
        self._program.configured(self)
        if self._stops_on_entry and not self._is_at_entry:
            self._service.pause()

    def _disconnect(self, arguments):
        ends = arguments.get('terminateDebuggee')
        if ends is None:
            ends = self._program.start_method == 'launch'
        self._server.when_sent((lambda: os._exit(0)) if ends else self._server.drop_client)

    def _terminate(self, arguments):
        self._server.when_sent(self._end_program)

    def _end_program(self):
        """As kill(1) does it, so that the program can still clear up."""
        if not hasattr(os, 'kill'):
            os._exit(1)
        os.kill(os.getpid(), signal.SIGTERM)
        stop = self._stop
        if self._resume_stopped(Resume(CONTINUE)):
            self.event('continued', {'threadId': self.threads.number(stop.thread_id),
                                      'allThreadsContinued': self.stops_all})

    def _pause(self, arguments):
        if self._stop is not None and self.stops_all:
            return
        if self.stops_all:
            # Any thread will do: the others wait as soon as they have an event.
            self._service.pause()
        else:
            self._service.pause(self.find_thread(arguments['threadId']).id)

    # Threads, modules, sources.

    def find_thread(self, number):
        thread = self.threads.find(number)
        if thread is None:
            raise Refused('there is no thread %s' % number)
        return thread

    def _list_threads(self, arguments):
        # The core knows of none before the program runs.
        known = [(number, thread.name) for number, thread in self.threads.all()]
        return {'threads': [{'id': number, 'name': text(name)}
                            for number, name in known or [(1, 'MainThread')]]}

    @property
    def program_path(self):
        return self._program.path

    def modules(self):
        """(name, path) of the modules that are loaded from files; the program's comes first."""
        return [('__main__', self._program.path)] + [
            found for found in sources.loaded_modules() if found[0] != '__main__']

    def is_loaded(self, path):
        return os.path.realpath(path) in [os.path.realpath(known) for _, known in self.modules()]

    def _list_modules(self, arguments):
        loaded = self.modules()
        start = arguments.get('startModule') or 0
        count = arguments.get('moduleCount') or len(loaded)
        return {'totalModules': len(loaded), 'modules': [
            self._describe_module(*found) for found in loaded[start:start + count]]}

    def _describe_module(self, name, path):
        return {'id': text(name), 'name': text(name), 'path': self.sources.to_client(path),
                'isUserCode': not sources.is_library(path)}

    def _loaded_sources(self, arguments):
        paths = sorted(set(path for _, path in self.modules()))
        return {'sources': [self.sources.describe(path) for path in paths]}

    def _source(self, arguments):
        content = self.sources.content(
            arguments.get('source') or {}, arguments['sourceReference'])
        if content is None:
            raise Refused('its source is not known')
        return {'content': content, 'mimeType': 'text/x-python'}

    def _cancel(self, arguments):
        job = self._jobs.get(arguments.get('requestId'))
        if job is not None:
            job.cancel()


def _told_hits(hits, frame):
    all_of_functions = all(is_function for _, is_function in hits)
    return Told('function breakpoint' if all_of_functions else 'breakpoint', frame,
                {'hitBreakpointIds': [id for id, _ in hits]})


def _has_arrived(going, frame):
    """Whether a step ends here; other stops may come before that."""
    if going.action == STEP_INTO:
        return True
    if going.action == CONTINUE:
        return False
    return frame is going.frame or going.frame not in list(frames.callers(frame))
