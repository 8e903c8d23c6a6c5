"""The adapter: speaks to a client over standard input and output, and to the program it debugs.

The program answers by itself. The adapter starts it or connects to it, passes messages on, and
adds what the program writes and how it ends. So it does for what the program starts.
"""

from __future__ import absolute_import

import os
import select
import signal
import time

from sorrel.adapter import attach, local_roots, unknown_attributes
from sorrel.adapter.answers import answer, event, is_to_end
from sorrel.adapter.children import Children
from sorrel.adapter.connection import ToClient, ToProgram
from sorrel.adapter.launch import CannotLaunch, Launch
from sorrel.adapter.listen_attach import ListenAttach
from sorrel.adapter.merging import Merging
from sorrel.adapter.message_log import MessageLog
from sorrel.adapter.process import Process
from sorrel.adapter.process_attach import ProcessAttach
from sorrel.adapter.progress import Progress
from sorrel.common import errors
from sorrel.common.decoding import text
from sorrel.processes.guard import Guard
from sorrel.protocol import capabilities, schema
from sorrel.protocol.messages import Refused

# How long a program that is to end may take, and how long what it has written may, in seconds.
_END_PATIENCE = 3.0
_LOOK = 0.1
_NOT_STARTED = u'the program could not be started'
# How long what comes after the answer to `disconnect` may take.
_LEAVE_PATIENCE = 5.0


def run():
    """Returns the exit status when the client has left."""
    out = os.dup(1)
    # Nothing else is to come between the messages.
    os.dup2(2, 1)
    Adapter(0, out).run()
    return 0


class Adapter(object):

    def __init__(self, client_in, client_out):
        # None when it has left.
        self._client = ToClient(client_in, client_out)
        # The arguments of the client's first request.
        self._initialize = None
        # The request that is answered when the program is there, and what it comes by until then.
        self._begin = None
        self._launch = None
        self._is_launched = False
        self._terminal_request = None
        # Of what is on its way, for a client that wants to know.
        self._progress = None
        # The program's Process while it runs, if the adapter has started it, and the last one
        # whose output is still read.
        self._process = None
        self._writer = None
        # The connection to it, and what it is to the session that it shares with its children.
        self._program = None
        self._debuggee = None
        self._merging = Merging(self._send)
        self._children = Children(self._merging, self._send)
        # A request that the program may be unable to answer, and until when it may.
        self._ending = None
        self._ending_until = None
        # Whether the program, which may have answered, has to end by then, too.
        self._must_end = False
        # Whether the program has ended, and whether the client has been told that all has.
        self._is_first_gone = self._has_ended = False
        # The Guard of a program that the client has launched, until that is to end or may run on.
        self._guard = None
        # When `disconnect` has been answered: until when there is anything left to do.
        self._leave_until = None

    def run(self):
        while not self._is_done():
            self._turn()
        if self._launch is not None:
            self._give_up_launch()
        if self._client is not None and self._is_first_gone and not self._has_ended:
            self._tell_end()  # Of the session, whatever else there may still be.
        self._children.leave()
        self._end_guarded()

    def _is_done(self):
        if self._client is None:
            return not self._outputs()
        if self._leave_until is None:
            return False
        is_ending = self._must_end and self._process is not None
        return time.time() > self._leave_until or not (
            is_ending or self._program is not None or self._merging.others() or self._outputs())

    def _turn(self):
        sources = self._outputs() + self._children.sources()
        for source in self._client, self._program:
            if source is not None:
                sources.append(source)
        if self._launch is not None:
            sources += self._launch.sockets()
        try:
            readable = select.select(sources, [], [], self._timeout())[0]
        except select.error:
            return  # Interrupted.
        if self._writer is not None:
            self._writer.read()
        if self._launch is not None:
            self._await_program(readable)
        else:
            self._children.look(readable)
        if self._program is not None and self._program in readable:
            self._read_program()
        if self._client is not None and self._client in readable:
            self._read_client()
        self._merging.look(time.time())
        self._look_after_connections()
        self._look_after_process()

    def _outputs(self):
        return self._writer.outputs if self._writer is not None else []

    def _timeout(self):
        waits = self._process is None and self._ending is None and self._launch is None \
            and self._leave_until is None and self._has_ended >= self._is_first_gone \
            and not self._merging.is_waiting() and not self._children.need_looks()
        return None if waits else _LOOK

    # The client.

    def _read_client(self):
        for message in self._client.read():
            if message['type'] == 'response':
                self._handle_response(message)
            elif message['type'] == 'request':
                self._handle(message)

    def _look_after_connections(self):
        if self._client is not None and self._client.is_lost:
            self._lose_client()
        if self._program is not None and self._program.is_lost:
            self._lose_program()

    def _lose_client(self):
        """A program that was launched ends, unless the client has said otherwise."""
        self._client = None
        ends = self._guard is not None
        if self._guard is not None and self._program is None and self._process is not None:
            # It has closed the connection that would have told it.
            self._process.send(signal.SIGTERM)
        if ends:
            self._children.signal(signal.SIGTERM)
        self._children.leave()
        self._end_guarded()
        if self._program is not None:
            self._lose_program()
        if self._process is None:
            self._writer = None
        elif self._begin is not None:
            self._process.kill()

    def _handle(self, request):
        try:
            self._carry_out(request)
        except (Refused, CannotLaunch) as error:
            self._answer(request, text(error.args[0]))
        except Exception as error:
            errors.print_error()
            self._answer(request, text(errors.error_text(type(error), error)))

    def _carry_out(self, request):
        command = request['command']
        if command == 'initialize':
            self._on_initialize(request)
        elif command == 'launch':
            self._on_launch(request)
        elif command == 'attach':
            self._on_attach(request)
        elif self._program is not None or self._merging.others():
            self._pass_on(request)
        elif command == 'disconnect':
            self._on_disconnect(request)
        elif command == 'threads' and self._is_launched:
            # Editors ask as soon as they have begun, when a short program has ended.
            self._answer(request, body={'threads': []})
        else:
            raise Refused('there is no program')

    def _on_initialize(self, request):
        if self._initialize is not None:
            raise Refused('initialize comes once')
        self._initialize = schema.checked(request)
        self._answer(request, body=capabilities.announced())

    def _on_launch(self, request):
        self._check_beginning()
        request, arguments = local_roots.completed(request, schema.checked(request))
        self._begin_log(request, arguments)
        launch = Launch(arguments)
        self._warn_of_unknown(request, arguments)
        if launch.terminal() and self._initialize.get('supportsRunInTerminalRequest'):
            self._terminal_request = self._send({
                'type': 'request', 'command': 'runInTerminal',
                'arguments': launch.terminal_request()})
        else:
            # All that it writes comes by its pipes.
            request = dict(request, arguments=dict(request['arguments']))
            request['arguments'].pop('redirectOutput', None)
            self._process = self._writer = Process(
                launch.start(), self._tell_output, launch.mark_word)
        self._launch = launch
        self._is_launched = True
        self._begin_to_launch(request)

    def _on_attach(self, request):
        self._check_beginning()
        request, arguments = local_roots.completed(request, schema.checked(request))
        self._begin_log(request, arguments)
        self._warn_of_unknown(request, arguments)
        if 'listen' in arguments:
            self._launch = ListenAttach(arguments, self._tell_how_to_connect)
            self._begin_to_launch(attach.for_proven(request, arguments))
            return
        if 'processId' in arguments:
            self._launch = ProcessAttach(arguments, self._hear_of_attaching)
            self._begin_to_launch(attach.for_program(request, arguments))
            return
        connection = attach.connect(arguments)
        try:
            self._begin = attach.request_with_token(request, arguments, connection)
        except Refused:
            connection.close()
            raise
        self._children.expect(self._initialize, arguments)
        self._join(connection)

    def _begin_log(self, request, arguments):
        if arguments.get('logToFile') and self._client.log is None:
            log = MessageLog.wanted(arguments['logToFile'])
            log.note('client', request)
            self._client.log = log
            self._event('output', {
                'category': 'console', 'output': u'messages are logged to %s\n' % text(log.path)})

    def _warn_of_unknown(self, request, arguments):
        written = unknown_attributes.warning(request, arguments)
        if written:
            self._event('output', {'category': 'important', 'output': written})

    def _begin_to_launch(self, request):
        self._begin = request
        if self._initialize.get('supportsProgressReporting'):
            self._progress = Progress(self._event, request)

    def _on_disconnect(self, request):
        """While there is no program, or none yet."""
        if self._process is not None:
            self._must_end = True
            self._ending_until = time.time() + _END_PATIENCE
            self._process.kill()
        if self._begin is not None:
            self._refuse_begin(u'the client has left')
        if not is_to_end(request, self._is_launched):
            self._leave_guarded()
        self._answer(request)

    def _check_beginning(self):
        if self._initialize is None:
            raise Refused('initialize comes first')
        if self._begin is not None or self._program is not None or self._has_ended \
                or self._is_first_gone:
            raise Refused('one program at a time')

    def _handle_response(self, response):
        if response.get('request_seq') == self._terminal_request and not response.get('success') \
                and self._begin is not None:
            why = response.get('message')
            self._refuse_begin(why if isinstance(why, unicode)
                               else u'the client could not start it')
        else:
            self._children.heard(response)

    def _refuse_begin(self, why):
        begin, self._begin = self._begin, None
        self._end_progress()
        self._give_up_launch()
        self._answer(begin, why)

    def _give_up_launch(self):
        self._launch.close()
        self._launch = None

    def _answer(self, request, why=None, body=None):
        self._send(answer(request, why, body))

    def _end_progress(self):
        progress, self._progress = self._progress, None
        if progress is not None:
            progress.end()

    def _event(self, name, body=None):
        self._send(event(name, body))

    def _send(self, message):
        """Returns the message's number."""
        if message['type'] == 'response':
            self._note_answer(message)
        return self._client.send(message) if self._client is not None else None

    def _note_answer(self, response):
        if self._ending is not None and response['request_seq'] == self._ending['seq']:
            self._ending = None
        if response.get('command') == 'disconnect' and response.get('success'):
            self._leave_until = time.time() + _LEAVE_PATIENCE

    # The program.

    def _await_program(self, readable):
        try:
            connection = self._launch.look(readable)
        except Refused as error:
            self._refuse_begin(text(error.args[0]))
            return
        if connection is None and self._is_launched and self._process is None:
            # It writes to a terminal.
            why = self._launch.refusal()
            if why:
                self._refuse_begin(_NOT_STARTED + u': ' + text(why))
        if connection is not None:
            launch, self._launch = self._launch, None
            self._await_children(launch)
            self._join(connection)

    def _await_children(self, launch):
        handshake = launch.handshake_for_children()
        if handshake is not None:
            self._children.expect(self._initialize, schema.checked(self._begin), handshake)

    def _join(self, connection):
        self._program = ToProgram(connection)
        begin, self._begin = self._begin, None
        self._end_progress()
        self._debuggee = self._merging.begin(self._program.send, self._initialize, begin)

    def _pass_on(self, request):
        if request['command'] in ('disconnect', 'terminate'):
            self._ending = request
            self._must_end = request['command'] == 'disconnect' \
                and is_to_end(request, self._is_launched)
            if request['command'] == 'terminate' or self._must_end:
                self._end_guarded()
            else:
                self._leave_guarded()
            self._ending_until = time.time() + _END_PATIENCE
        self._merging.ask(request, time.time())

    def _read_program(self):
        said = self._program.read()
        if self._writer is not None:
            # What was written before a message was sent is also told before it.
            self._writer.read()
        for message in said:
            if self._children.hears(message):
                continue
            if message.get('event') == 'process' and message['body']['startMethod'] == 'launch':
                self._guard = Guard(message['body']['systemProcessId'], self._children.folder())
            if message.get('event') in ('exited', 'terminated') and self._process is not None:
                continue  # Told when the process has ended and all it wrote is read.
            if message.get('event') == 'terminated':
                self._is_first_gone = True
            else:
                self._tell_in_order(message)
            if self._is_turned_away(message):
                self._forget_program()
                break

    def _tell_in_order(self, message):
        """Where the program has marked the place of its message in what it writes, there."""
        mark = message.pop('mark', None)
        if mark is None or self._writer is None:
            self._merging.hear(self._debuggee, message)
            return
        self._writer.read_up_to(*mark)
        self._merging.hear(self._debuggee, message)
        self._writer.read_past(mark[0])

    def _is_turned_away(self, message):
        """Whether the program refuses to be attached to."""
        return message['type'] == 'response' and message.get('command') == 'attach' \
            and not message.get('success')

    def _forget_program(self):
        """The client may attach once more, to this one or another."""
        self._children.leave()
        self._program.close()
        self._program = None
        self._merging = Merging(self._send)
        self._children = Children(self._merging, self._send)

    def _lose_program(self):
        self._program.close()
        self._program = None
        if self._writer is not None:
            self._writer.read_past_all()
        self._merging.gone(self._debuggee)
        if self._process is None:
            self._is_first_gone = True

    def _look_after_process(self):
        if self._ending is not None and time.time() > self._ending_until:
            ending, self._ending = self._ending, None
            self._end_by_force(ending)
        if self._must_end and time.time() > self._ending_until:
            self._ending_until = time.time() + _END_PATIENCE
            self._children.signal(signal.SIGKILL)
            if self._process is not None:
                self._process.kill()
        status = self._process.status() if self._process is not None else None
        if status is not None:
            self._end_process(status)
        if self._is_first_gone and not self._has_ended and not self._children.are_any():
            self._tell_end()

    def _end_process(self, status):
        while self._program is not None and not self._program.is_lost \
                and select.select([self._program], [], [], 0)[0]:
            self._read_program()
        if self._program is not None:
            self._lose_program()
        self._process.read_rest(_LOOK)
        complaint = self._process.complaint()
        self._process = None
        self._is_first_gone = True
        if self._begin is not None:
            self._refuse_begin(_NOT_STARTED + (complaint and u': ') + complaint)
        else:
            self._event('exited', {'exitCode': status})

    def _tell_end(self):
        """The program has ended, and so has all that it has started and that is debugged."""
        self._has_ended = True
        self._children.leave()
        if self._process is None and self._writer is not None:
            self._writer.read_rest(_LOOK)
            self._writer = None
        if self._program is None:
            # What the program has left behind is meant to be there.
            self._leave_guarded()
        self._event('terminated')

    def _end_guarded(self):
        guard, self._guard = self._guard, None
        if guard is not None:
            guard.end()

    def _leave_guarded(self):
        guard, self._guard = self._guard, None
        if guard is not None:
            guard.leave()

    def _end_by_force(self, request):
        """The program does not answer, for example because it is deep in C code."""
        if request['command'] == 'terminate' or is_to_end(request, self._is_launched):
            number = signal.SIGTERM if request['command'] == 'terminate' else signal.SIGKILL
            self._children.signal(number)
            if self._process is not None:
                self._process.send(number)
        self._merging.finish(request)

    def _hear_of_attaching(self, written):
        if self._progress is not None:
            self._progress.hear(written)
        else:
            self._event('output', {'category': 'console', 'output': written})

    def _tell_how_to_connect(self, written, token):
        if token is not None and self._client.log is not None:
            self._client.log.keep_back(token)
        self._event('output', {'category': 'console', 'output': written})

    def _tell_output(self, category, written):
        if self._launch is not None:
            # The program has not begun: it is what starts it, and builds for it, that says this.
            self._hear_of_beginning(category, written)
        else:
            self._event('output', {'category': category, 'output': written})

    def _hear_of_beginning(self, category, written):
        if self._progress is not None and category == 'stderr':
            self._progress.hear(written)
        self._event('output', {'category': 'console', 'output': written})
