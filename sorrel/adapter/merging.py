"""The messages of several processes made those of one session, and its requests theirs.

No sockets, no clock: what comes is handed in, what goes out is handed to functions.
"""

from __future__ import absolute_import

import functools

from sorrel.adapter.answers import answer, event, is_to_end
from sorrel.adapter.debuggee import Debuggee, Exchange, in_order
from sorrel.adapter.merged_breakpoints import MergedBreakpoints
from sorrel.adapter.numbers import is_number, Numbers, OF_STOP, FRAME, THREAD, Unknown
from sorrel.protocol import named_sources

# How long the others wait for a process that does not answer, in seconds.
PATIENCE = 2.0
_HUNG_UP = u'the program has hung up'
_DEAF = u'the program does not answer'
_GOING_ON = frozenset(('continue', 'next', 'stepIn', 'stepOut'))


class Merging(object):

    def __init__(self, tell):
        """tell: sends the client a message."""
        self._tell = tell
        self._numbers = Numbers()
        self._breakpoints = MergedBreakpoints(self._numbers)
        # The arguments last given to setExceptionBreakpoints.
        self._exceptions = None
        # Those of setPydevdSourceMap, by the file.
        self._source_maps = {}
        # Those that are there, in the order in which they came, and how many there have been.
        self._processes = []
        self._count = 0
        # Those that have stopped, the last one last.
        self._stopped = []
        # The requests that the client has no answer to yet.
        self._open = set()
        self._is_configured = self._is_launched = False
        self._ways = {
            'threads': self._ask_for_threads, 'modules': self._ask_for_modules,
            'loadedSources': self._ask_for_sources, 'setBreakpoints': self._set_breakpoints,
            'setFunctionBreakpoints': self._set_breakpoints,
            'breakpointLocations': self._ask_for_locations,
            'setExceptionBreakpoints': self._set_exceptions,
            'setPydevdSourceMap': self._set_source_map, 'pause': self._pause,
            'configurationDone': self._configuration_done, 'cancel': self._cancel,
            'disconnect': self._end, 'terminate': self._end}
        self._events = {
            'stopped': self._on_stopped, 'continued': self._on_continued,
            'thread': self._on_thread, 'breakpoint': self._on_breakpoint}
        # The same of processes that the client has not begun.
        self._events_of_others = {
            'initialized': self._on_initialized, 'module': self._on_module,
            'terminated': lambda process, body: self.gone(process)}
        for name in 'exited', 'process', 'capabilities':
            # They would be taken for the session's.
            self._events_of_others[name] = lambda process, body: None

    # Processes.

    def begin(self, send, initialize, request):
        """The first process is there. request: the client's, which has brought it."""
        self._is_launched = request['command'] == 'launch'
        first = self._new(send)
        Exchange(None, _nothing).ask(first, 'initialize', initialize)
        self._ask_one(first, request, request.get('arguments'))
        return first

    def add(self, send, pid, name, initialize, arguments, refused):
        """One more. arguments: to attach to it with. Returns the Debuggee.

        refused: called with the reason where it does not let itself be debugged.
        """
        process = self._new(send, pid, name)
        for command, given in ('initialize', initialize), ('attach', arguments):
            Exchange(None, functools.partial(self._begun, process, refused)).ask(
                process, command, given)
        return process

    def gone(self, process):
        """It has ended, or hung up."""
        if process not in self._processes:
            return
        self._processes.remove(process)
        if process in self._stopped:
            self._stopped.remove(process)
        for exchange in process.take_all():
            exchange.answered(process, None)
        changes = self._breakpoints.forget_process(process)
        if self._processes or not process.is_first:
            for number in sorted(process.threads):
                self._event('thread', {'reason': 'exited',
                                       'threadId': self._numbers.given(process, THREAD, number)})
            for id, name in sorted(process.modules.items()):
                self._event('module', {'reason': 'removed', 'module': {'id': id, 'name': name}})
            self._tell_of_breakpoints(changes)
        self._numbers.forget_process(process)

    def has(self, process):
        return process in self._processes

    def others(self):
        """The processes that the client has not begun."""
        return [process for process in self._processes if not process.is_first]

    def _new(self, send, pid=None, name=u''):
        process = Debuggee(self._count, send, pid, name)
        self._count += 1
        self._processes.append(process)
        return process

    def _begun(self, process, refused, exchange):
        if exchange.refusals and self.has(process):
            why = exchange.refusals[process].get('message')
            self.gone(process)
            refused(why if isinstance(why, unicode) else u'refused')

    def _on_initialized(self, process, body):
        process.is_ready = True
        if self._is_configured:
            self._configure(process)

    def _configure(self, process):
        """It hears what the client has said so far, and goes on."""
        if not self._are_several():
            # From now on it matters which threads the others have.
            for other in self._taking_part():
                self._learn_threads(other)
        process.is_taking_part = True
        for arguments in self._source_maps.values():
            self._ask_quietly(process, 'setPydevdSourceMap', arguments)
        for asked in self._breakpoints.all():
            arguments = named_sources.by_name(asked.arguments)
            if arguments is asked.arguments or named_sources.path(arguments) is not None:
                self._ask_quietly(process, asked.key[0], arguments,
                                  functools.partial(self._hear_breakpoints, asked))
        if self._exceptions is not None:
            self._ask_quietly(process, 'setExceptionBreakpoints', self._exceptions)
        self._ask_quietly(process, 'configurationDone')
        self._learn_threads(process)

    def _learn_threads(self, process):
        self._ask_quietly(process, 'threads', None, self._hear_threads)

    def _ask_quietly(self, process, command, arguments=None, hear=None):
        Exchange(None, _nothing, hear=hear).ask(process, command, arguments)

    def _taking_part(self):
        return [process for process in self._processes if process.is_taking_part]

    def _are_several(self):
        """Whether no process can speak for the whole session."""
        return len(self._taking_part()) > 1

    def _first(self):
        for process in self._processes[:1]:
            return process if process.is_first else None
        return None

    # What the client asks for.

    def ask(self, request, now):
        try:
            if not self._processes:
                raise Unknown(u'there is no program')
            self._ways.get(request['command'], self._ask_owner)(request, now)
        except Unknown as error:
            self._tell(answer(request, error.args[0]))

    def look(self, now):
        """Whoever has taken too long is not waited for any more. To be called often."""
        for exchange in list(self._open):
            if exchange.until is not None and now > exchange.until:
                exchange.finish()

    def finish(self, request):
        """The client gets an answer now, if it has not had one."""
        for exchange in list(self._open):
            if exchange.request is request:
                exchange.finish()

    def is_waiting(self):
        """Whether look() is to be called."""
        return any(exchange.until is not None for exchange in self._open)

    def _ask_one(self, process, request, arguments):
        self._opened(Exchange(request, self._finish_one)).ask(
            process, request['command'], arguments)

    def _ask_owner(self, request, now):
        """Whoever has what the numbers of the request stand for; else whoever is looked at."""
        process, arguments = self._numbers.to_process(request.get('arguments'), self._first())
        self._ask_one(process or self._looked_at(), request, arguments)

    def _looked_at(self):
        for process in self._stopped[-1:] or self._taking_part()[:1] or self._processes[:1]:
            return process

    def _ask_all(self, request, now, finish, hear=None, arguments=None):
        """arguments: makes those for a process, None where that is not asked; by default the
        request's.
        """
        asked = [(process, arguments(process) if arguments else request.get('arguments'))
                 for process in self._taking_part()]
        if arguments:
            asked = [(process, own) for process, own in asked if own is not None]
        exchange = self._opened(Exchange(
            request, finish, now + PATIENCE if len(asked) > 1 else None, hear))
        for process, own in asked:
            exchange.ask(process, request['command'], own)
        exchange.finish_if_complete()

    def _opened(self, exchange):
        self._open.add(exchange)
        return exchange

    def _answer(self, exchange, body=None, why=None):
        self._open.discard(exchange)
        self._tell(answer(exchange.request, why, body))

    def _refuse(self, exchange):
        """With the words of the first process that has refused it."""
        for process in in_order(exchange.refusals)[:1]:
            refusal = exchange.refusals[process]
            self._open.discard(exchange)
            self._tell(dict(refusal, request_seq=exchange.request['seq']))
            return
        self._answer(exchange, why=_HUNG_UP if exchange.is_complete() else _DEAF)

    def _finish_one(self, exchange):
        """With what the first process that has carried it out says."""
        for process in in_order(exchange.bodies)[:1]:
            command, arguments = exchange.request['command'], exchange.arguments
            own = arguments.get('threadId') if isinstance(arguments, dict) else None
            body = self._numbers.to_client(process, exchange.bodies[process], own)
            if command == 'continue' and self._are_several():
                body = dict(body or {}, allThreadsContinued=False)
            self._answer(exchange, body)
            if command in _GOING_ON:
                self._goes_on(process)
                if not arguments.get('singleThread'):
                    self._tell_others_go_on(process, own)
            return
        self._refuse(exchange)

    # Requests about all processes.

    def _ask_for_threads(self, request, now):
        self._ask_all(request, now, self._finish_threads, self._hear_threads)

    def _finish_threads(self, exchange):
        """Of a process that has not answered in time, what is known is told."""
        if not exchange.bodies and (exchange.refusals or not self._are_several()):
            self._refuse(exchange)
            return
        self._answer(exchange, {'threads': [
            {'id': self._numbers.given(process, THREAD, number), 'name': process.named(name)}
            for process in self._taking_part()
            for number, name in sorted(process.threads.items())]})

    def _hear_threads(self, process, body):
        threads = body.get('threads') if isinstance(body, dict) else None
        if not isinstance(threads, list):
            return
        known = dict((thread['id'], _name(thread)) for thread in threads
                     if isinstance(thread, dict) and is_number(thread.get('id')))
        for number in sorted(known):
            self._know_thread(process, number)
        process.threads = known

    def _know_thread(self, process, number):
        """The client hears of a thread that it cannot have heard of from the process."""
        if number not in process.threads:
            process.threads[number] = u'thread %d' % number
            if not process.is_first:
                self._event('thread', {'reason': 'started',
                                       'threadId': self._numbers.given(process, THREAD, number)})

    def _ask_for_modules(self, request, now):
        if self._are_several():
            self._ask_all(request, now, self._finish_modules, arguments=lambda process: {})
        else:
            self._ask_owner(request, now)

    def _finish_modules(self, exchange):
        if not exchange.bodies:
            self._refuse(exchange)
            return
        found = self._items(exchange, 'modules')
        arguments = exchange.request.get('arguments')
        start, count = [arguments.get(name) if isinstance(arguments, dict) else None
                        for name in ('startModule', 'moduleCount')]
        start = start if is_number(start) else 0
        page = found[start:start + count] if is_number(count) else found[start:]
        self._answer(exchange, {'modules': page, 'totalModules': len(found)})

    def _ask_for_sources(self, request, now):
        self._ask_all(request, now, self._finish_sources)

    def _finish_sources(self, exchange):
        if not exchange.bodies:
            self._refuse(exchange)
            return
        found, known = [], []
        for source in self._items(exchange, 'sources'):
            # The same file has a reference of its own in each process.
            path = source.get('path') if isinstance(source, dict) else None
            if (path or source) not in known:
                known.append(path or source)
                found.append(source)
        self._answer(exchange, {'sources': found})

    def _items(self, exchange, name):
        """What the processes list that are still there."""
        found = []
        for process in in_order(exchange.bodies):
            body = exchange.bodies[process]
            if self.has(process) and isinstance(body, dict) and isinstance(body.get(name), list):
                found += self._numbers.to_client(process, body)[name]
        return found

    def _ask_for_locations(self, request, now):
        self._ask_all(request, now, self._finish_locations,
                      arguments=self._in_source(request.get('arguments')))

    def _finish_locations(self, exchange):
        if not exchange.bodies:
            self._refuse(exchange)
            return
        found = []
        for place in self._items(exchange, 'breakpoints'):
            if place not in found:
                found.append(place)
        self._answer(exchange, {'breakpoints': sorted(found, key=_line)})

    def _in_source(self, arguments):
        """Makes what each process is asked: of a source with a reference, one alone knows that."""
        owner, owned = self._numbers.to_process(arguments, self._first())
        others = named_sources.by_name(arguments)
        if owner is not None and named_sources.path(others) is None:
            others = None
        return lambda process: owned if process is owner else others

    def _set_breakpoints(self, request, now):
        asked = self._breakpoints.ask(request)
        self._ask_all(request, now, functools.partial(self._finish_breakpoints, asked),
                      functools.partial(self._hear_breakpoints, asked),
                      self._in_source(asked.arguments))

    def _hear_breakpoints(self, asked, process, body):
        if self.has(process):
            self._tell_of_breakpoints(self._breakpoints.heard(asked, process, body))

    def _finish_breakpoints(self, asked, exchange):
        body = self._breakpoints.answer(asked)
        if body is None:
            self._refuse(exchange)
        else:
            self._answer(exchange, body)

    def _set_exceptions(self, request, now):
        before, self._exceptions = self._exceptions, request.get('arguments')

        def finish(exchange):
            if exchange.refusals and not exchange.bodies \
                    and self._exceptions is request.get('arguments'):
                self._exceptions = before
            self._finish_one(exchange)
        self._ask_all(request, now, finish)

    def _set_source_map(self, request, now):
        def finish(exchange):
            path = named_sources.path(request.get('arguments'))
            if exchange.bodies and isinstance(path, unicode):
                self._source_maps[path] = request['arguments']
            self._finish_one(exchange)
        self._ask_all(request, now, finish)

    def _pause(self, request, now):
        """Of a thread that there is no more, whatever runs is meant."""
        if not self._are_several() or self._names_thread(request.get('arguments')):
            self._ask_owner(request, now)
        else:
            self._ask_all(request, now, self._finish_one, arguments=lambda process: {
                'threadId': min(process.threads or [1])})

    def _names_thread(self, arguments):
        """Whether one that there is."""
        number = arguments.get('threadId') if isinstance(arguments, dict) else None
        if not is_number(number):
            return False
        try:
            process, own = self._numbers.find(THREAD, number, self._first())
        except Unknown:
            return False
        return own in process.threads

    def _configuration_done(self, request, now):
        self._is_configured = True
        self._ask_owner(request, now)
        for process in self.others():
            if process.is_ready and not process.is_taking_part:
                self._configure(process)

    def _cancel(self, request, now):
        arguments = request.get('arguments')
        number = arguments.get('requestId') if isinstance(arguments, dict) else None
        asked = [(process, process.seq_of(exchange)) for exchange in self._open
                 if exchange.request['seq'] == number for process in self._processes]
        exchange = self._opened(Exchange(request, self._finish_one))
        for process, seq in asked:
            if seq is not None:
                exchange.ask(process, 'cancel', {'requestId': seq})
        if exchange.arguments is None:
            # It has been answered: there is nothing that this could be the number of.
            exchange.ask(self._looked_at(), 'cancel',
                         dict(arguments, requestId=0) if is_number(number) else arguments)

    def _end(self, request, now):
        """What is asked of the program is asked of those that it has started."""
        exchange = self._opened(Exchange(request, self._finish_end))
        for process in list(self._processes):
            arguments = request.get('arguments')
            if not process.is_first and request['command'] == 'disconnect':
                arguments = {'terminateDebuggee': is_to_end(request, self._is_launched)}
            exchange.ask(process, request['command'], arguments)

    def _finish_end(self, exchange):
        if exchange.refusals and not exchange.bodies:
            self._refuse(exchange)
        else:
            self._answer(exchange)

    # What the processes say.

    def hear(self, process, message):
        if not self.has(process):
            return
        if message['type'] == 'response':
            exchange = process.take(message.get('request_seq'))
            if exchange is not None:
                exchange.answered(process, message)
        elif message['type'] == 'event':
            body = message.get('body')
            handle = self._events.get(message.get('event'))
            if not process.is_first:
                handle = self._events_of_others.get(message.get('event'), handle)
            if handle is not None and (isinstance(body, dict) or not process.is_first):
                handle(process, body if isinstance(body, dict) else {})
            else:
                self._tell(dict(message, **_with_body(self._numbers.to_client(process, body))))

    def _on_stopped(self, process, body):
        own = body.get('threadId')
        if is_number(own):
            self._know_thread(process, own)
        told = self._numbers.to_client(process, body)
        if 'hitBreakpointIds' in told:
            told['hitBreakpointIds'] = self._client_ids(process, body['hitBreakpointIds'])
        is_new = not body.get('preserveFocusHint')
        if is_new:
            self._goes_on(process, body.get('reason') != 'goto')
            process.stopped = own
            process.stops_all = body.get('allThreadsStopped') is True
            self._stopped.append(process)
        if self._are_several():
            # The others of the session have not.
            told['allThreadsStopped'] = False
        self._event('stopped', told)
        if is_new and process.stops_all and self._are_several():
            for number in self._others_of(process, own):
                self._event('stopped', {'reason': 'pause', 'threadId': number,
                                        'allThreadsStopped': False, 'preserveFocusHint': True})

    def _client_ids(self, process, ids):
        if not isinstance(ids, list):
            return []
        found = [self._breakpoints.id(process, own) for own in ids]
        return [id for id in found if id is not None]

    def _on_continued(self, process, body):
        own, all_go = body.get('threadId'), body.get('allThreadsContinued') is True
        told = self._numbers.to_client(process, body)
        if all_go and self._are_several():
            told['allThreadsContinued'] = False
        self._event('continued', told)
        if all_go or own == process.stopped:
            self._goes_on(process)
            if all_go:
                self._tell_others_go_on(process, own)
        else:
            self._numbers.forget(process, (FRAME,), own)

    def _goes_on(self, process, has_lapsed=True):
        """What the client has looked at in it is there no more."""
        process.stopped = None
        if process in self._stopped:
            self._stopped.remove(process)
        if has_lapsed:
            self._numbers.forget(process, OF_STOP)

    def _tell_others_go_on(self, process, own):
        """The client cannot be told that all threads do, of the session's."""
        if process.stops_all and self._are_several():
            for number in self._others_of(process, own):
                self._event('continued', {'threadId': number, 'allThreadsContinued': False})

    def _others_of(self, process, own):
        return [self._numbers.given(process, THREAD, number)
                for number in sorted(process.threads) if number != own]

    def _on_thread(self, process, body):
        own = body.get('threadId')
        if body.get('reason') != 'exited' and not process.is_first and is_number(own):
            self._know_thread(process, own)
            return
        self._event('thread', self._numbers.to_client(process, body))
        if not is_number(own):
            return
        if body.get('reason') == 'exited':
            process.threads.pop(own, None)
            self._numbers.forget_one(process, THREAD, own)
        else:
            self._know_thread(process, own)

    def _on_breakpoint(self, process, body):
        breakpoint = body.get('breakpoint')
        if isinstance(breakpoint, dict):
            self._tell_of_breakpoints(self._breakpoints.changed(process, breakpoint))

    def _tell_of_breakpoints(self, breakpoints):
        for breakpoint in breakpoints:
            self._event('breakpoint', {'reason': 'changed', 'breakpoint': breakpoint})

    def _on_module(self, process, body):
        told = self._numbers.to_client(process, body)
        module = told.get('module')
        if isinstance(module, dict) and isinstance(module.get('id'), unicode):
            if body.get('reason') == 'removed':
                process.modules.pop(module['id'], None)
            else:
                process.modules[module['id']] = module.get('name')
            self._event('module', told)

    def _event(self, name, body):
        self._tell(event(name, body))


def _name(thread):
    name = thread.get('name')
    return name if isinstance(name, unicode) else u''


def _line(place):
    return place.get('line') if isinstance(place, dict) else None


def _with_body(body):
    return {'body': body} if body is not None else {}


def _nothing(exchange):
    pass
