"""Those who have connected to a program that listens, until they have shown that they may debug it.

Each has a small conversation, which tells nothing of the program: it introduces itself and asks to
attach, with the token where one is needed.
"""

from __future__ import absolute_import

from sorrel.common.originals import time
from sorrel.protocol import capabilities, messages
from sorrel.protocol.messages import Refused
from sorrel.server.network.connection import Connection, Gone
from sorrel.server.shared.requests import answer

# How many requests a stranger may make.
_MOST_REQUESTS = 20
# How long it waits for the place of a client that may be about to leave, in seconds; for the answer
# to a wrong token; and for the end after its last answer.
_PLACE_PATIENCE = 0.5
_WRONG_TOKEN_PAUSE = 1.0
_END_PATIENCE = 1.0
_WRONG_TOKEN = u'the token is missing, or it is not the one that this program has told its user'
# Taken now: a program may replace what the interpreter's modules offer.
_now = time.time


class Stranger(object):
    """connection: its Connection. since: when it came.

    introduction: the arguments of its initialize request, once that is answered. attach: its
    request to attach, once that has shown the token.
    """

    def __init__(self, connected, patience, is_token_shown, is_kin=False):
        """connected: a socket. patience: how long the whole conversation may take, in seconds.

        is_token_shown: called with the arguments of a request to attach. is_kin: whether it may be
        another process of this one's tree, which speaks for a client.
        """
        self.connection = Connection(
            connected, messages.FROM_CLIENT if is_kin else messages.FROM_STRANGER)
        self.since = _now()
        self.introduction = self.attach = None
        self._is_token_shown = is_token_shown
        self._is_kin = is_kin
        self._requests = 0
        self._until = self.since + patience
        # When to do what comes next, if that is not up to the stranger.
        self._due = None
        self._wrong = None
        self._is_leaving = False

    # For the server. These raise Gone when there is nobody to talk to any more.

    def is_heard(self):
        """Whether anything that it says now counts."""
        return self._is_leaving or self._due is None

    def hear(self):
        if self._is_leaving:
            self.connection.received()
            return
        self.connection.receive()
        try:
            while self.is_heard() and not self._is_leaving:
                message = self.connection.decoder.take()
                if message is None:
                    break
                self._handle(message)
        except messages.Broken:
            raise Gone
        self.connection.send()

    def deadline(self):
        return self._until if self._due is None else min(self._until, self._due)

    def look_at_clock(self):
        """Does what is due."""
        if _now() >= self._until:
            raise Gone
        if self._due is None or _now() < self._due:
            return
        self._due = None
        if self.attach is not None:
            self.refuse_to_attach(u'another client is debugging this program')
        else:
            self._refuse(self._wrong, _WRONG_TOKEN)
            self._leave()
        self.connection.send()

    def wanted_process(self):
        """The id of the process that it asks to attach to; None where it does not say."""
        arguments = self.attach.get('arguments')
        return arguments.get('subProcessId') if isinstance(arguments, dict) else None

    def refuse_to_attach(self, why):
        request, self.attach = self.attach, None
        self._due = None
        self._refuse(request, why)

    def send(self, message):
        """For the answers to its requests."""
        self.connection.say(message)

    # Its requests.

    def _handle(self, message):
        self._requests += 1
        if self._requests > _MOST_REQUESTS:
            raise Gone
        if message['type'] == 'relayed' and self._is_kin and self.introduction is None:
            self.connection.go_on_from(message['said'])
            self.introduction = message['introduction']
            self._attach(message['attach'])
            return
        if message['type'] != 'request':
            return  # Nothing is ever asked of it.
        command = message['command']
        if command == 'disconnect':
            answer(self, message, _allow)
            self._leave()
        elif command == 'initialize':
            answer(self, message, self._initialize)
        elif self.introduction is None:
            self._refuse(message, u'initialize comes first')
        elif command == 'attach':
            self._attach(message)
        else:
            self._refuse(message, u'attach comes first')

    def _initialize(self, arguments):
        if self.introduction is not None:
            raise Refused('initialize comes once')
        self.introduction = arguments
        return capabilities.announced()

    def _attach(self, request):
        if self._is_token_shown(request.get('arguments')):
            self.attach = request
            self._due = _now() + _PLACE_PATIENCE
        else:
            # However much of it was right, and not so soon that many can be tried.
            self._wrong = request
            self._due = _now() + _WRONG_TOKEN_PAUSE
        self._until = max(self._until, self._due + _END_PATIENCE)

    def _refuse(self, request, why):
        self.send({'type': 'response', 'request_seq': request['seq'],
                   'command': request['command'], 'success': False, 'message': why,
                   'body': {'error': {'id': 1, 'format': why, 'showUser': True}}})

    def _leave(self):
        """It may still read its last answer."""
        self._is_leaving = True
        self._until = _now() + _END_PATIENCE
        self.connection.when_sent(self.connection.finish)


def _allow(arguments):
    return None
