"""What the messages of a program have to look like, as far as something is made of them."""

from __future__ import absolute_import

from sorrel.protocol import schema
from sorrel.protocol.messages import Refused
from sorrel.remote.connection import Lost

_SOURCE = {'name?': unicode, 'path?': unicode, 'sourceReference?': int}
_BREAKPOINT = {'id?': int, 'verified': bool, 'message?': unicode, 'reason?': unicode,
               'line?': int, 'source?': _SOURCE}
_BREAKPOINTS = {'breakpoints': [_BREAKPOINT]}
_DETAILS = {'message?': unicode, 'stackTrace?': unicode}
_DETAILS['innerException?'] = [_DETAILS]
_MODULE = {'module': {'path?': unicode}, 'reason': unicode}

_ANSWERS = {
    'stackTrace': {'stackFrames': [
        {'id': int, 'name': unicode, 'line': int, 'source?': _SOURCE}]},
    'scopes': {'scopes': [{'name': unicode, 'variablesReference': int}]},
    'variables': {'variables': [{'name': unicode, 'value': unicode}]},
    'evaluate': {'result': unicode, 'type?': unicode},
    'completions': {'targets': [{'label': unicode}]},
    'exceptionInfo': {'breakMode': unicode, 'description?': unicode, 'details?': _DETAILS},
    'gotoTargets': {'targets': [{'id': int, 'line': int}]},
    'loadedSources': {'sources': [_SOURCE]},
    'setBreakpoints': _BREAKPOINTS,
    'setFunctionBreakpoints': _BREAKPOINTS,
    'setExceptionBreakpoints': {'breakpoints?': [{'verified': bool, 'message?': unicode}]},
    'source': {'content': unicode},
    'threads': {'threads': [{'id': int, 'name': unicode}]}}
_EVENTS = {
    'stopped': {'reason': unicode, 'threadId': int, 'description?': unicode, 'text?': unicode,
                'hitBreakpointIds?': [int], 'preserveFocusHint?': bool},
    'output': {'output': unicode, 'category?': unicode},
    'breakpoint': {'breakpoint': _BREAKPOINT},
    'module': _MODULE,
    'exited': {'exitCode': int}}


def answer_to(command, response):
    """The body of a response that tells of success."""
    return _body(_ANSWERS.get(command), response, u'the answer to ' + command)


def of_event(event):
    """The name and the body of an event."""
    _checked({'event': unicode}, event, u'an event')
    name = event['event']
    return name, _body(_EVENTS.get(name), event, u'the event ' + name)


def check_response(message):
    _checked({'request_seq': int, 'success': bool, 'message?': unicode}, message, u'an answer')


def _body(shape, message, name):
    body = message.get('body')
    if shape is None:
        return body
    return _checked(shape, {} if body is None else body, name)


def _checked(shape, value, name):
    try:
        return schema.conforming(shape, value, name)
    except Refused as refusal:
        raise Lost(u'it has said what makes no sense: %s' % refusal)
