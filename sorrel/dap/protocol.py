"""Messages of the protocol: JSON texts, each behind a header that tells its length."""

import json
import re

# What a client can have to say stays far below these.
HEADER_LIMIT = 4096
BODY_LIMIT = 16 * 1024 * 1024
_DEPTH_LIMIT = 100
_BRACKET_OR_STRING = re.compile(r'[][{}]|"[^"\\]*(?:\\.[^"\\]*)*"')
_HEADER_END = '\r\n\r\n'
# Taken now: a program may replace what the interpreter's modules offer.
_dumps, _loads = json.dumps, json.loads


class Broken(Exception):
    """What came in is no message; nothing after it can be understood either."""


class Refused(Exception):
    """A request that cannot be carried out; the text says why."""


def text(value):
    """A string of the program as the protocol can carry it."""
    if isinstance(value, str):
        return value.decode('utf-8', 'replace')
    return unicode(value)


def encode(message):
    body = _dumps(message)
    return 'Content-Length: %d%s%s' % (len(body), _HEADER_END, body)


class Decoder(object):
    """Makes messages of bytes that come in pieces of any size."""

    def __init__(self):
        self._pieces = []
        self._size = 0
        # What has to be there before looking makes sense again.
        self._needed = 1
        self._length = None

    def is_amid_message(self):
        return self._size > 0 or self._length is not None

    def feed(self, data):
        """The messages that are now complete. Raises Broken."""
        self._pieces.append(data)
        self._size += len(data)
        messages = []
        while self._size >= self._needed:
            message = self._next()
            if message is None:
                break
            messages.append(message)
        return messages

    def _next(self):
        held = ''.join(self._pieces)
        self._pieces = [held]
        if self._length is None:
            end = held.find(_HEADER_END, 0, HEADER_LIMIT)
            if end < 0:
                if len(held) >= HEADER_LIMIT:
                    raise Broken('the header does not end')
                self._needed = self._size + 1
                return None
            self._length = _content_length(held[:end])
            self._keep(held[end + len(_HEADER_END):])
            self._needed = self._length
            if self._size < self._needed:
                return None
            held = self._pieces[0]
        body = held[:self._length]
        self._keep(held[self._length:])
        self._length = None
        self._needed = 1
        return _message(body)

    def _keep(self, rest):
        self._pieces = [rest]
        self._size = len(rest)


def _content_length(header):
    length = None
    for line in header.split('\r\n'):
        name, colon, value = line.partition(':')
        if not colon:
            raise Broken('no header: %r' % line[:80])
        if name.strip().lower() == 'content-length':
            value = value.strip()
            if not value.isdigit() or int(value) > BODY_LIMIT:
                raise Broken('not a length: %r' % value[:80])
            length = int(value)
    if length is None:
        raise Broken('a header without Content-Length')
    return length


def _message(body):
    try:
        message = None if _is_too_deep(body) else _loads(body)
    except ValueError:
        raise Broken('not JSON: %r' % body[:80])
    if not isinstance(message, dict) or not isinstance(message.get('type'), unicode) \
            or message['type'] == 'request' and not _is_request(message):
        raise Broken('no message: %r' % body[:80])
    return message


def _is_too_deep(body):
    """Whether it is nested deeper than any message; reading it would need as much of the stack."""
    depth = 0
    if body.count('[') + body.count('{') > _DEPTH_LIMIT:
        for found in _BRACKET_OR_STRING.finditer(body):
            bracket = found.group()
            if bracket in '[{':
                depth += 1
                if depth > _DEPTH_LIMIT:
                    return True
            elif bracket in ']}':
                depth -= 1
    return False


def _is_request(message):
    """Whether it can be answered, be it that it makes no sense."""
    return type(message.get('seq')) in (int, long) and isinstance(message.get('command'), unicode)


# The codecs and what they need are loaded now: the thread that will use them must not import.
encode(_message(encode({'type': text('\xff')}).partition(_HEADER_END)[2]))
