"""Requests and their answers."""

import collections
import sys

from sorrel import evaluate
from sorrel.dap import shapes
from sorrel.complaint import print_error
from sorrel.dap.protocol import Refused, text

# The body of an answer, and a function to call once the answer is on its way.
Then = collections.namedtuple('Then', 'body function')


def answer(session, request, function):
    """Sends what the function makes of the request's arguments, or why it could not."""
    response = {'type': 'response', 'request_seq': request['seq'],
                'command': request['command'], 'success': True}
    then = None
    try:
        body = function(shapes.checked(request))
        if isinstance(body, Then):
            body, then = body
        if body is not None:
            response['body'] = body
    except:  # Whatever it is, the client waits for an answer.
        why = _why(*sys.exc_info()[:2])
        response.update(success=False, message=why,
                        body={'error': {'id': 1, 'format': _format(why), 'showUser': False}})
    session.send(response)
    if then is not None:
        then()


def _why(type, error):
    if type is Refused:
        return text(error.args[0])
    if type is KeyboardInterrupt:
        return u'interrupted'
    print_error()
    return text(evaluate.error_text(type, error))


def _format(why):
    # Braces would name variables.
    return why.replace('{', '(').replace('}', ')')


class Job(object):
    """A request that is answered in the stopped thread."""

    def __init__(self, session, stopped, request):
        self._session = session
        self._stopped = stopped
        self._request = request
        self._is_cancelled = False
        self._is_running = False

    def do(self):
        self._is_running = True
        try:
            self._answer(_cancelled if self._is_cancelled else self._function())
        finally:
            self._session.job_done(self._request)

    def _function(self):
        function = self._stopped.answers[self._request['command']]

        def answer_unless_cancelled(arguments):
            try:
                return function(arguments)
            except Refused:
                if self._is_cancelled:
                    _cancelled(arguments)
                raise
        return answer_unless_cancelled

    def refuse(self):
        self._session.job_done(self._request)
        self._answer(_running)

    def cancel(self):
        self._is_cancelled = True
        if self._is_running:
            self._session.limit.expire()

    def _answer(self, function):
        answer(self._session, self._request, function)


def _cancelled(arguments):
    raise Refused('cancelled')


def _running(arguments):
    raise Refused('the program is running')
