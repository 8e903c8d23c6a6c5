"""The adapter: speaks to a client over standard input and output, and to the program it debugs.

The program answers by itself. The adapter starts it or connects to it, passes messages on, and
adds what the program writes and how it ends.
"""

import codecs
import errno
import os
import select
import signal
import socket
import time

from sorrel.dap import capabilities, protocol
from sorrel.dap.launch import CannotLaunch, Launch
from sorrel.dap.protocol import Refused, text

_READ_AT_ONCE = 65536
# How long a program that is to end may take, and how long what it has written may.
_END_PATIENCE = 3.0
_LOOK = 0.1
_CONNECT_PATIENCE = 10.0
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
        self._from_client = protocol.Decoder()
        self._seq = 0
        self._initialize = None
        # The request that is answered when the program is there.
        self._begin = None
        self._launch = None
        self._terminal_request = None
        self._process = None
        self._outputs = {}
        self._program = None
        self._from_program = None
        # A request that the program may be unable to answer, and until when it may.
        self._ending = None
        self._ending_until = None
        self._has_ended = False

    def run(self):
        while self._in is not None or self._outputs:
            self._turn()
        if self._launch is not None:
            self._give_up_launch()

    def _turn(self):
        sources = list(self._outputs)
        if self._in is not None:
            sources.append(self._in)
        if self._program is not None:
            sources.append(self._program)
        if self._launch is not None and self._begin is not None:
            sources.append(self._launch.listener)
        try:
            readable = select.select(sources, [], [], self._timeout())[0]
        except select.error:
            return  # Interrupted.
        # What was written before a message was sent is also told before it.
        for output in list(self._outputs):
            if output in readable or self._program in readable:
                self._read_output(output)
        if self._launch is not None and self._begin is not None \
                and self._launch.listener in readable:
            self._accept()
        if self._program is not None and self._program in readable:
            self._read_program()
        if self._in is not None and self._in in readable:
            self._read_client()
        self._look_after_process()

    def _timeout(self):
        return _LOOK if self._process is not None or self._ending is not None else None

    # The client.

    def _read_client(self):
        data = os.read(self._in, _READ_AT_ONCE)
        try:
            messages = self._from_client.feed(data) if data else None
        except protocol.Broken:
            messages = None
        if messages is None:
            self._lose_client()
            return
        for message in messages:
            self._handle(message)

    def _lose_client(self):
        """The program runs on."""
        self._in = None
        if self._program is not None:
            self._lose_program()
        if self._begin is not None and self._process is not None:
            self._kill()

    def _handle(self, message):
        if message['type'] == 'response':
            self._handle_response(message)
            return
        command = message.get('command')
        if command in ('initialize', 'launch', 'attach'):
            try:
                getattr(self, '_on_' + command)(message)
            except (Refused, CannotLaunch) as error:
                self._answer(message, text(error.args[0]))
        elif self._program is not None:
            self._pass_to_program(message)
        elif command == 'disconnect':
            if self._process is not None:
                self._kill()
            self._answer(message)
        else:
            self._answer(message, u'there is no program')

    def _on_initialize(self, message):
        self._initialize = message.get('arguments') or {}
        self._answer(message, body=capabilities.announced())

    def _on_launch(self, message):
        self._check_beginning()
        self._launch = Launch(message.get('arguments') or {})
        self._begin = message
        try:
            if self._launch.terminal() and self._initialize.get('supportsRunInTerminalRequest'):
                self._terminal_request = self._send({
                    'type': 'request', 'command': 'runInTerminal',
                    'arguments': self._launch.terminal_request()})
                return
            self._launch.start()
        except CannotLaunch:
            self._launch = self._begin = None
            raise
        self._process = self._launch.process
        for pipe, category in ((self._process.stdout, 'stdout'), (self._process.stderr, 'stderr')):
            decoder = codecs.getincrementaldecoder('utf-8')('replace')
            self._outputs[pipe.fileno()] = category, decoder

    def _handle_response(self, message):
        if message.get('request_seq') == self._terminal_request and not message.get('success'):
            self._refuse_begin(message.get('message') or u'the client could not start it')

    def _on_attach(self, message):
        self._check_beginning()
        arguments = message.get('arguments') or {}
        place = arguments.get('connect') or arguments
        if 'port' not in place:
            raise Refused('attach needs a port')
        address = str(place.get('host') or '127.0.0.1'), place['port']
        try:
            connection = socket.create_connection(address, _CONNECT_PATIENCE)
        except (EnvironmentError, OverflowError, TypeError) as error:
            raise Refused('cannot connect to %s:%s: %s' % (address + (error,)))
        self._begin = message
        self._join(connection)

    def _check_beginning(self):
        if self._initialize is None:
            raise Refused('initialize comes first')
        if self._begin is not None or self._program is not None or self._has_ended:
            raise Refused('one program at a time')

    def _refuse_begin(self, why):
        begin, self._begin = self._begin, None
        self._give_up_launch()
        if begin is not None:
            self._answer(begin, why)

    def _give_up_launch(self):
        self._launch.close()
        self._launch = None

    def _answer(self, request, why=None, body=None):
        answer = {'type': 'response', 'request_seq': request.get('seq'),
                  'command': request.get('command'), 'success': why is None}
        if why is not None:
            answer['message'] = why
            body = {'error': {'id': 1, 'format': why.replace('{', '(').replace('}', ')'),
                              'showUser': True}}
        if body is not None:
            answer['body'] = body
        self._send(answer)

    def _event(self, name, body=None):
        event = {'type': 'event', 'event': name}
        if body is not None:
            event['body'] = body
        self._send(event)

    def _send(self, message):
        """Returns the message's number."""
        self._seq += 1
        message['seq'] = self._seq
        data = protocol.encode(message)
        try:
            while data and self._in is not None:
                data = data[os.write(self._out, data):]
        except OSError:
            self._lose_client()
        return self._seq

    # The program.

    def _accept(self):
        connection = self._launch.accept()
        if connection is not None:
            self._launch = None
            self._join(connection)

    def _join(self, connection):
        connection.settimeout(None)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._program = connection
        self._from_program = protocol.Decoder()
        self._pass_to_program({'type': 'request', 'seq': _OWN_SEQ, 'command': 'initialize',
                               'arguments': self._initialize})
        self._pass_to_program(self._begin)
        self._begin = None

    def _pass_to_program(self, message):
        if message.get('command') in ('disconnect', 'terminate'):
            self._ending = message
            self._ending_until = time.time() + _END_PATIENCE
        try:
            self._program.sendall(protocol.encode(message))
        except socket.error:
            self._lose_program()

    def _read_program(self):
        try:
            data = self._program.recv(_READ_AT_ONCE)
            messages = self._from_program.feed(data) if data else None
        except (socket.error, protocol.Broken):
            messages = None
        if messages is None:
            self._lose_program()
            return
        for message in messages:
            if message['type'] == 'response' and message.get('request_seq') == _OWN_SEQ:
                continue
            if self._ending is not None \
                    and message.get('request_seq') == self._ending.get('seq'):
                self._ending = None
            if message.get('event') in ('exited', 'terminated'):
                if self._process is not None:
                    continue  # Told when the process has ended and all it wrote is read.
                self._has_ended = message['event'] == 'terminated'
            self._send(message)

    def _lose_program(self):
        self._program.close()
        self._program = None
        if self._process is None and not self._has_ended:
            self._tell_end()

    def _look_after_process(self):
        if self._ending is not None and time.time() > self._ending_until:
            ending, self._ending = self._ending, None
            self._end_by_force(ending)
        if self._process is None or self._process.poll() is None:
            return
        # Processes that it has started may go on writing to the same place.
        end = time.time() + _LOOK
        while self._outputs and time.time() < end:
            for output in select.select(list(self._outputs), [], [], 0.01)[0]:
                self._read_output(output)
        while self._program is not None and select.select([self._program], [], [], 0)[0]:
            self._read_program()
        status = self._process.returncode
        self._process = None
        if self._ending is not None:
            ending, self._ending = self._ending, None
            self._answer(ending)
        if self._begin is not None:
            self._refuse_begin(u'the program could not be started')
        else:
            self._event('exited', {'exitCode': status if status >= 0 else 128 - status})
        self._tell_end()
        self._outputs.clear()

    def _tell_end(self):
        self._has_ended = True
        self._event('terminated')

    def _end_by_force(self, request):
        """The program does not answer, for example because it is deep in C code."""
        if self._process is not None and _is_to_end(request):
            self._kill()
        self._answer(request)

    def _kill(self):
        try:
            os.kill(self._process.pid, signal.SIGKILL)
        except OSError as error:
            if error.errno != errno.ESRCH:
                raise

    def _read_output(self, output):
        """Does nothing where nothing has been written."""
        if not select.select([output], [], [], 0)[0]:
            return
        category, decoder = self._outputs[output]
        data = os.read(output, _READ_AT_ONCE)
        written = decoder.decode(data, not data)
        if written:
            self._event('output', {'category': category, 'output': written})
        if not data:
            del self._outputs[output]


def _is_to_end(request):
    ends = (request.get('arguments') or {}).get('terminateDebuggee')
    return ends is None or bool(ends)
