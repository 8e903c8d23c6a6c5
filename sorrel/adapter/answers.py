"""Messages that the adapter makes itself."""

from __future__ import absolute_import

from sorrel.protocol.leaving import means_end


def answer(request, why=None, body=None):
    """The response to a request. why: it is refused."""
    made = {'type': 'response', 'request_seq': request['seq'], 'command': request['command'],
            'success': why is None}
    if why is not None:
        made['message'] = why
        body = {'error': {'id': 1, 'format': why.replace('{', '(').replace('}', ')'),
                          'showUser': True}}
    if body is not None:
        made['body'] = body
    return made


def event(name, body=None):
    made = {'type': 'event', 'event': name}
    if body is not None:
        made['body'] = body
    return made


def is_to_end(disconnect, is_launched):
    """Whether the request to disconnect means that the program ends.

    is_launched: whether the client has launched it.
    """
    arguments = disconnect.get('arguments')
    return means_end(arguments if isinstance(arguments, dict) else {}, is_launched)
