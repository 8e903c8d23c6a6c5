"""The adapter: speaks to a client over standard input and output, and to the program it debugs.

The program answers by itself. The adapter starts it or connects to it, passes messages on, and
adds what the program writes and how it ends.
"""

import os
import select
import signal
import socket
import time

from sorrel.adapter import attach
from sorrel.adapter.launch import CannotLaunch, Launch
from sorrel.adapter.process import Process
from sorrel.adapter.process_attach import ProcessAttach
from sorrel.adapter.progress import Progress
from sorrel.common import errors
from sorrel.common.decoding import text
from sorrel.processes.guard import Guard
from sorrel.protocol import capabilities, messages, schema
from sorrel.protocol.messages import Refused

_READ_AT_ONCE = 65536
# What a pipe that can be written to takes without waiting.
_WRITTEN_AT_ONCE = getattr(select, 'PIPE_BUF', 512)
# How long a program that is to end may take, and how long what it has written may, in seconds.
_END_PATIENCE = 3.0
_LOOK = 0.1
# How long the client may take to read, and so may the program.
_DEAF_PATIENCE = 10.0
# How long what comes after the answer to `disconnect` may take.
_LEAVE_PATIENCE = 5.0
# The number of the one request that the adapter makes of the program in the client's name.
_OWN_SEQ = 0


def run():
    """Returns the exit status when the client has left."""
    out = os.dup(1)
    # Nothing else is to come between the messages.
    os.dup2(2, 1)
    Adapter(0, out).run()
    return 0


class Adapter(object):

    def __init__(self, client_in, client_out):
        self._in = client_in
        self._out = client_out
        self._from_client = messages.Decoder()
        self._seq = 0
        # The arguments of the client's first request.
        self._initialize = None
        # The request that is answered when the program is there, and what it comes by until then.
        self._begin = None
        # The same when the program has it, until it answers.
        self._unanswered = None
        self._launch = None
        self._terminal_request = None
        # Of what is on its way, for a client that wants to know.
        self._progress = None
        # The program's Process while it runs, if the adapter has started it, and the last one
        # whose output is still read.
        self._process = None
        self._writer = None
        self._program = None
        self._from_program = None
        # A request that the program may be unable to answer, and until when it may.
        self._ending = None
        self._ending_until = None
        # Whether the program, which may have answered, has to end by then, too.
        self._must_end = False
        self._has_ended = False
        # The Guard of a program that the client has launched, until that is to end or may run on.
        self._guard = None
        # When `disconnect` has been answered: until when there is anything left to do.
        self._leave_until = None

    def run(self):
        while not self._is_done():
            self._turn()
        if self._launch is not None:
            self._give_up_launch()
        self._end_guarded()

    def _is_done(self):
        if self._in is None:
            return not self._outputs()
        if self._leave_until is None:
            return False
        is_ending = self._must_end and self._process is not None
        return time.time() > self._leave_until or not (
            is_ending or self._program is not None or self._outputs())

    def _turn(self):
        sources = self._outputs()
        for source in self._in, self._program:
            if source is not None:
                sources.append(source)
        if self._launch is not None:
            sources += self._launch.sockets()
        try:
            readable = select.select(sources, [], [], self._timeout())[0]
        except select.error:
            return  # Interrupted.
        if self._writer is not None:
            # What was written before a message was sent is also told before it.
            self._writer.read(None if self._program in readable else readable)
        if self._launch is not None:
            self._await_program(readable)
        if self._program is not None and self._program in readable:
            self._read_program()
        if self._in is not None and self._in in readable:
            self._read_client()
        self._look_after_process()

    def _outputs(self):
        return self._writer.outputs if self._writer is not None else []

    def _timeout(self):
        waits = self._process is None and self._ending is None and self._launch is None \
            and self._leave_until is None
        return None if waits else _LOOK

    # The client.

    def _read_client(self):
        data = os.read(self._in, _READ_AT_ONCE)
        try:
            received = self._from_client.feed(data) if data else None
        except messages.Broken:
            received = None
        if received is None:
            self._lose_client()
            return
        for message in received:
            if message['type'] == 'response':
                self._handle_response(message)
            elif message['type'] == 'request':
                self._handle(message)

    def _lose_client(self):
        """A program that was launched ends, unless the client has said otherwise."""
        self._in = None
        if self._guard is not None and self._program is None and self._process is not None:
            # It has closed the connection that would have told it.
            self._process.send(signal.SIGTERM)
        self._end_guarded()
        if self._program is not None:
            self._lose_program()
        if self._begin is not None and self._process is not None:
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
        elif self._program is not None:
            self._pass_to_program(request)
        elif command == 'disconnect':
            self._on_disconnect(request)
        else:
            raise Refused('there is no program')

    def _on_initialize(self, request):
        if self._initialize is not None:
            raise Refused('initialize comes once')
        self._initialize = schema.checked(request)
        self._answer(request, body=capabilities.announced())

    def _on_launch(self, request):
        self._check_beginning()
        launch = Launch(schema.checked(request))
        if launch.terminal() and self._initialize.get('supportsRunInTerminalRequest'):
            self._terminal_request = self._send({
                'type': 'request', 'command': 'runInTerminal',
                'arguments': launch.terminal_request()})
        else:
            self._process = self._writer = Process(launch.start(), self._tell_output)
        self._launch = launch
        self._begin_to_launch(request)

    def _on_attach(self, request):
        self._check_beginning()
        arguments = schema.checked(request)
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
        self._join(connection)

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
        self._answer(request)

    def _check_beginning(self):
        if self._initialize is None:
            raise Refused('initialize comes first')
        if self._begin is not None or self._program is not None or self._has_ended:
            raise Refused('one program at a time')

    def _handle_response(self, response):
        if response.get('request_seq') == self._terminal_request and not response.get('success') \
                and self._begin is not None:
            why = response.get('message')
            self._refuse_begin(why if isinstance(why, unicode)
                               else u'the client could not start it')

    def _refuse_begin(self, why):
        begin, self._begin = self._begin, None
        self._end_progress()
        self._give_up_launch()
        self._answer(begin, why)

    def _give_up_launch(self):
        self._launch.close()
        self._launch = None

    def _answer(self, request, why=None, body=None):
        answer = {'type': 'response', 'request_seq': request['seq'],
                  'command': request['command'], 'success': why is None}
        if why is not None:
            answer['message'] = why
            body = {'error': {'id': 1, 'format': why.replace('{', '(').replace('}', ')'),
                              'showUser': True}}
        if body is not None:
            answer['body'] = body
        self._send(answer)

    def _end_progress(self):
        progress, self._progress = self._progress, None
        if progress is not None:
            progress.end()

    def _event(self, name, body=None):
        event = {'type': 'event', 'event': name}
        if body is not None:
            event['body'] = body
        self._send(event)

    def _send(self, message):
        """Returns the message's number."""
        self._seq += 1
        message['seq'] = self._seq
        if message['type'] == 'response' and message.get('command') == 'disconnect' \
                and message.get('success'):
            self._leave_until = time.time() + _LEAVE_PATIENCE
        data = messages.encode(message)
        try:
            while data and self._in is not None:
                if not select.select([], [self._out], [], _DEAF_PATIENCE)[1]:
                    self._lose_client()
                    break
                data = data[os.write(self._out, data[:_WRITTEN_AT_ONCE]):]
        except (OSError, select.error):
            self._lose_client()
        return self._seq

    # The program.

    def _await_program(self, readable):
        try:
            connection = self._launch.look(readable)
        except Refused as error:
            self._refuse_begin(text(error.args[0]))
            return
        if connection is not None:
            self._launch = None
            self._join(connection)

    def _join(self, connection):
        connection.settimeout(_DEAF_PATIENCE)
        self._program = connection
        self._from_program = messages.Decoder(messages.FROM_PROGRAM)
        begin, self._begin = self._begin, None
        self._end_progress()
        self._unanswered = begin
        self._pass_to_program({'type': 'request', 'seq': _OWN_SEQ, 'command': 'initialize',
                               'arguments': self._initialize})
        self._pass_to_program(begin)

    def _pass_to_program(self, message):
        if message['command'] in ('disconnect', 'terminate'):
            self._ending = message
            self._must_end = message['command'] == 'disconnect' and _is_to_end(message)
            if message['command'] == 'terminate' or self._must_end:
                self._end_guarded()
            else:
                self._leave_guarded()
            self._ending_until = time.time() + _END_PATIENCE
        if self._program is None:
            return  # Lost with the message before.
        try:
            self._program.sendall(messages.encode_as_received(message))
        except socket.error:
            self._lose_program()

    def _read_program(self):
        try:
            data = self._program.recv(_READ_AT_ONCE)
            received = self._from_program.feed(data) if data else None
        except (socket.error, messages.Broken):
            received = None
        if received is None:
            self._lose_program()
            return
        for message in received:
            if message['type'] == 'response' and message.get('request_seq') == _OWN_SEQ:
                continue
            if self._unanswered is not None \
                    and message.get('request_seq') == self._unanswered['seq']:
                self._unanswered = None
            if self._ending is not None \
                    and message.get('request_seq') == self._ending['seq']:
                self._ending = None
            if message.get('event') == 'process' and message['body']['startMethod'] == 'launch':
                self._guard = Guard(message['body']['systemProcessId'])
            if message.get('event') in ('exited', 'terminated'):
                if self._process is not None:
                    continue  # Told when the process has ended and all it wrote is read.
                self._has_ended = message['event'] == 'terminated'
            self._send(message)

    def _lose_program(self):
        self._program.close()
        self._program = None
        if self._unanswered is not None:
            request, self._unanswered = self._unanswered, None
            self._answer(request, u'the program has hung up')
        if self._process is None and not self._has_ended:
            self._tell_end()

    def _look_after_process(self):
        if self._ending is not None and time.time() > self._ending_until:
            ending, self._ending = self._ending, None
            self._end_by_force(ending)
        if self._must_end and self._process is not None and time.time() > self._ending_until:
            self._ending_until = time.time() + _END_PATIENCE
            self._process.kill()
        status = self._process.status() if self._process is not None else None
        if status is None:
            return
        self._process.read_rest(_LOOK)
        while self._program is not None and select.select([self._program], [], [], 0)[0]:
            self._read_program()
        complaint = self._process.complaint()
        self._process = self._writer = None
        if self._ending is not None:
            ending, self._ending = self._ending, None
            self._answer(ending)
        if self._begin is not None:
            self._refuse_begin(u'the program could not be started' + (complaint and u': ')
                               + complaint)
        else:
            self._event('exited', {'exitCode': status})
        self._tell_end()

    def _tell_end(self):
        self._has_ended = True
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
        if self._process is not None:
            if request['command'] == 'terminate':
                self._process.send(signal.SIGTERM)
            elif _is_to_end(request):
                self._process.kill()
        self._answer(request)

    def _hear_of_attaching(self, written):
        if self._progress is not None:
            self._progress.hear(written)
        else:
            self._event('output', {'category': 'console', 'output': written})

    def _tell_output(self, category, written):
        if self._progress is not None and category == 'stderr':
            self._progress.hear(written)
        self._event('output', {'category': category, 'output': written})


def _is_to_end(request):
    arguments = request.get('arguments')
    ends = arguments.get('terminateDebuggee') if isinstance(arguments, dict) else None
    return ends is None or bool(ends)
