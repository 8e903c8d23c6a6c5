"""The terminal in a program that ran before it came, for the person who has brought it.

What is typed comes from another process, sorrel.client.terminal, and what is shown goes there.
"""

from __future__ import absolute_import

import atexit
import os

from sorrel.common.decoding import text
from sorrel.common.originals import socket, thread, time
from sorrel.common.records import record
from sorrel.common.work_queue import WorkQueue
from sorrel.inspection.time_limit import Overtime
from sorrel.processes.forks import call_in_children
from sorrel.protocol import launch_handshake, messages
from sorrel.protocol.descriptors import Descriptor
from sorrel.service import exceptions, late
from sorrel.terminal.colours import Plain
from sorrel.terminal.console import Closed
from sorrel.terminal.frontend import Terminal

_READ_AT_ONCE = 4096
# How long the person's process may take to take what it is sent, and the end of the
# program for the end of this; and how often it is looked whether it is still debugged; in seconds.
_PATIENCE = 10.0
_END_PATIENCE = 2.0
_LOOK = 0.1
# Taken now: a program may replace what the interpreter's modules offer.
_now, _sleep = time.time, time.sleep
# By processes: a forked one holds what is its parent's, too.
_prepared = set()
_consoles = []

# What was typed. completed: of a question for what a word may become, its message; None for a line,
# and text is that of one, None for the end of input.
_Typed = record('_Typed', 'text completed', None)


def run(handshake_file, ready):
    """Is the thread that hears what is typed, which is none of the program's, until the end.

    ready: called when the end of the program waits for this thread.
    """
    console = _Console()
    terminal = _AttachedTerminal(console, post_mortem=False)
    service = late.take(terminal)
    try:
        if os.getpid() not in _prepared:
            _prepared.add(os.getpid())
            atexit.register(_leave)
            call_in_children(_forget)
        ready()
        console.connect(launch_handshake.connect(handshake_file))
        _consoles.append(console)
        terminal.use(service, False)
        _serve(terminal, service, console)
    finally:
        late.leave()
        if console in _consoles:
            _consoles.remove(console)


def _serve(terminal, service, console):
    ident = thread.get_ident()
    service.ignore_thread(ident)
    try:
        _debug(terminal, service, console)
    finally:
        console.close()
        service.detach()
        while terminal.is_at_stop():
            _sleep(_LOOK)  # What is evaluated there may take its time.
        service.heed_thread(ident)


def _debug(terminal, service, console):
    service.exceptions.set_mode(exceptions.UNHANDLED)
    try:
        _begin(terminal, service, console)
        console.write('Attached to process %d. It stops at the next line of Python code that it '
                      'runs, Ctrl-D leaves it.\n' % os.getpid())
        service.attach()
        service.pause()
        while service.attached:
            for message in console.heard():
                if message.get('event') == 'interrupt' and not terminal.interrupt():
                    service.pause()
    except Closed:
        pass


def _begin(terminal, service, console):
    """Does what the person's side says first."""
    lines = []
    while True:
        for message in console.heard():
            if message.get('event') == 'command':
                lines.append((_said(message), _said(message, 'file'), message['number']))
            elif message.get('event') == 'begin':
                terminal.begin_with(
                    lines, [said.encode('utf-8') for said in message['complaints']])
                service.passing.set_just_my_code(message['justMyCode'])
                return


def _leave():
    """The program ends."""
    for console in list(_consoles):
        try:
            console.write('The program ends.\n')
        except Closed:
            pass
        console.close()
    # The thread is to be done with all of this before the modules are emptied.
    end = _now() + _END_PATIENCE
    while _consoles and _now() < end:
        _sleep(0.001)


def _forget():
    for console in list(_consoles):
        console.leave_to_parent()
    del _consoles[:]


class _AttachedTerminal(Terminal):

    def is_at_stop(self):
        return self._stop is not None

    def do_quit(self, argument):
        """quit, q, exit: leave the program, which runs on."""
        self.do_detach('')

    def completions(self, text, line, begin, end):
        try:
            return self._evaluation.call(
                self._stop, Terminal.completions, self, text, line, begin, end)
        except (Exception, Overtime):
            return []  # Nothing that it evaluates ends anything, nor does who does not wait for it.


class _Console(object):
    """As a Console, for the front end; heard() is for another thread."""

    # It is another process that has the terminal.
    name = None
    colours = Plain()

    def __init__(self):
        self._descriptor = None
        self._decoder = messages.Decoder()
        self._typed = WorkQueue()

    def connect(self, connection):
        connection.settimeout(_LOOK)
        self._descriptor = Descriptor(connection)

    def write(self, said):
        self._send('output', said)

    def read_line(self, prompt, complete):
        """The next line without its line end; None at the end of input."""
        self._send('prompt', prompt, completes=complete is not None)
        typed = self._typed.take()
        while typed.completed is not None:
            asked = typed.completed
            words = complete(_said(asked), _said(asked, 'line'), asked['begin'], asked['end'])
            self._send('completions', words=map(text, words), number=asked['number'])
            typed = self._typed.take()
        return typed.text

    def heard(self):
        """What has come that is for nobody who waits for a line; waits a moment for it."""
        descriptor = self._descriptor
        if descriptor is None or not descriptor.is_there():
            raise Closed
        try:
            data = descriptor.socket.recv(_READ_AT_ONCE)
            received = self._decoder.feed(data)
        except socket.timeout:
            return []
        except (socket.error, messages.Broken):
            data = ''
        if not data:
            raise Closed
        return [message for message in received if not self._is_typed(message)]

    def close(self):
        """Nobody types any more."""
        self._typed.put(_Typed(None))
        descriptor, self._descriptor = self._descriptor, None
        if descriptor is not None:
            descriptor.close()

    def leave_to_parent(self):
        self._descriptor.leave_to_parent()

    def _is_typed(self, message):
        event = message.get('event')
        if event == 'complete':
            self._typed.put(_Typed(None, message))
        elif event in ('line', 'end'):
            self._typed.put(_Typed(_said(message) if event == 'line' else None))
        else:
            return False
        return True

    def _send(self, event, said='', **more):
        descriptor = self._descriptor
        try:
            if descriptor is None or not descriptor.is_there():
                raise Closed
            data = messages.encode(dict(more, type='event', event=event, text=text(said)))
            tries = int(_PATIENCE / _LOOK)
            while data:
                try:
                    data = data[descriptor.socket.send(data):]
                except socket.timeout:
                    tries -= 1
                    if not tries:
                        raise Closed
        except socket.error:
            raise Closed


def _said(message, name='text'):
    return message.get(name, u'').encode('utf-8')
