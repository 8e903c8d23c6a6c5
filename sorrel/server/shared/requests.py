"""Requests and their answers."""

from __future__ import absolute_import

import sys

from sorrel.common import errors
from sorrel.common.decoding import text
from sorrel.common.originals import time
from sorrel.common.records import record
from sorrel.protocol import schema
from sorrel.protocol.messages import Refused

# Taken now: a program may replace what the interpreter's modules offer.
_now = time.time
# Why what only a stopped thread can answer is refused.
RUNNING = 'the program is running'
# The body of an answer, and a function to call once the answer is on its way.
Then = record('Then', 'body function')


def answer(session, request, function):
    """Sends what the function makes of the request's arguments, or why it could not."""
    _send(session, *_respond(request, function))


def _respond(request, function):
    """The answer, and a function to call once it is on its way, or None."""
    response = {'type': 'response', 'request_seq': request['seq'],
                'command': request['command'], 'success': True}
    then = None
    try:
        body = function(schema.checked(request))
        if isinstance(body, Then):
            body, then = body
        if body is not None:
            response['body'] = body
    except:  # Whatever it is, the client waits for an answer.
        why = _why(*sys.exc_info()[:2])
        response.update(success=False, message=why,
                        body={'error': {'id': 1, 'format': _format(why), 'showUser': False}})
    return response, then


def _send(session, response, then):
    session.send(response)
    if then is not None:
        then()


def _why(type, error):
    if type is Refused:
        return text(error.args[0])
    if type is KeyboardInterrupt:
        return u'interrupted'
    errors.print_error()
    return text(errors.error_text(type, error))


def _format(why):
    # Braces would name variables.
    return why.replace('{', '(').replace('}', ')')


class Job(object):
    """A request that is answered in the stopped thread, or for it when that takes too long.

    since: when it came. cancelled_since: None while it is not cancelled.
    """

    def __init__(self, session, stopped, request):
        self.since = _now()
        self.command = request['command']
        self.number = request['seq']
        self._session = session
        self._stopped = stopped
        self._request = request
        self.cancelled_since = None
        # Empty once it is answered, by whoever has taken the item.
        self._unanswered = [None]

    def do(self, settle):
        """Answers it, unless that has been done meanwhile. settle: called before the answer."""
        self._answer(_cancelled if self.cancelled_since else self._function(settle))

    def refuse(self, why=RUNNING):
        """Answers it with this. Whether nobody had answered it."""
        def refused(arguments):
            raise Refused('cancelled' if self.cancelled_since else why)
        return self._answer(refused)

    def is_answered(self):
        return not self._unanswered

    def cancel(self):
        """From now on it is answered with that."""
        self.cancelled_since = self.cancelled_since or _now()

    def _function(self, settle):
        function = self._stopped.answers[self.command]

        def answer_unless_cancelled(arguments):
            try:
                return function(arguments)
            except Refused:
                if self.cancelled_since:
                    _cancelled(arguments)
                raise
            finally:
                settle()
        return answer_unless_cancelled

    def _answer(self, function):
        answered = _respond(self._request, function)
        try:
            self._unanswered.pop()
        except IndexError:
            return False
        _send(self._session, *answered)
        return True


def _cancelled(arguments):
    raise Refused('cancelled')
