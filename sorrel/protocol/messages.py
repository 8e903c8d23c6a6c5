"""Messages of the protocol: JSON texts, each behind a header that tells its length."""

from __future__ import absolute_import

import json

from sorrel.common.decoding import text
from sorrel.common.records import record

# What a message may be. size: its length in bytes. parts: how many values and names it may
# consist of, and how many letters of its strings may be written as escapes.
Limits = record('Limits', 'size parts')
# Reading a message holds the interpreter lock for as long as it takes. What a stranger says is next
# to nothing; what a client says, be it thousands of breakpoints, stays far below its limits.
FROM_STRANGER = Limits(8 * 1024, 1000)
FROM_CLIENT = Limits(1024 * 1024, 50000)
# For the adapter, which has the interpreter to itself.
FROM_PROGRAM = Limits(256 * 1024 * 1024, 256 * 1024 * 1024)
HEADER_LIMIT = 1024
_MOST_HEADERS = 8
_DEPTH_LIMIT = 100
_NUMBER_LIMIT = 100
# In lower case. Whatever speaks another protocol, as a browser does, begins otherwise.
_BEGINNING = 'content-length:'
_HEADER_END = '\r\n\r\n'
_NO_BRACKETS = ''.join(chr(code) for code in range(256) if chr(code) not in '[]{}')
# Taken now: a program may replace what the interpreter's modules offer.
_dumps = json.dumps


class Broken(Exception):
    """What came in is no message; nothing after it can be understood either."""


class Refused(Exception):
    """A request that cannot be carried out; the text says why."""


def _short(make):
    def make_of_short(digits):
        if len(digits) > _NUMBER_LIMIT:
            raise ValueError('a number of %d digits' % len(digits))
        return make(digits)
    return make_of_short


_decode = json.JSONDecoder(parse_int=_short(int), parse_float=_short(float)).decode


def encode(message):
    return _framed(_dumps(message))


def encode_as_received(message):
    """The same for what a Decoder has made: it gets no larger than it was."""
    return _framed(_dumps(message, ensure_ascii=False, separators=(',', ':')).encode('utf-8'))


def _framed(body):
    return _header(len(body)) + body


def _header(length):
    return 'Content-Length: %d%s' % (length, _HEADER_END)


class Decoder(object):
    """Makes messages of bytes that come in pieces of any size.

    limits: the Limits of messages whose header has not been read yet.
    """

    def __init__(self, limits=FROM_CLIENT):
        self.limits = limits
        self._pieces = []
        # Where what is not used up begins in the first piece, and how much of it there is.
        self._at = self._size = 0
        # What has to be there before looking makes sense again.
        self._needed = 1
        self._length = None

    def is_amid_message(self):
        return self._size > 0 or self._length is not None

    def feed(self, data):
        """The messages that are now complete. Raises Broken."""
        self.add(data)
        return list(iter(self.take, None))

    def add(self, data):
        self._pieces.append(data)
        self._size += len(data)

    def take(self):
        """The next message if it is complete, else None. Raises Broken."""
        if self._size < self._needed or self._length is None and not self._read_header() \
                or self._size < self._length:
            return None
        held, begin = self._held(), self._at
        self._skip(self._length)
        body = held[begin:begin + self._length]
        self._length = None
        self._needed = 1
        return _message(body, self.limits.parts)

    def left(self):
        """What has come after the last message, as it has come; it is taken out."""
        rest = self._held()[self._at:]
        if self._length is not None:
            rest = _header(self._length) + rest
        self._skip(self._size)
        self._length = None
        self._needed = 1
        return rest

    def _read_header(self):
        """Whether it is complete."""
        held, begin = self._held(), self._at
        if not _BEGINNING.startswith(held[begin:begin + len(_BEGINNING)].lower()):
            raise Broken('no header: %r' % held[begin:begin + 80])
        end = held.find(_HEADER_END, begin, begin + HEADER_LIMIT)
        if end < 0:
            if self._size >= HEADER_LIMIT:
                raise Broken('the header does not end')
            self._needed = self._size + 1
            return False
        self._length = self._needed = _content_length(held[begin:end], self.limits.size)
        self._skip(end + len(_HEADER_END) - begin)
        return True

    def _held(self):
        """All pieces as one string."""
        if len(self._pieces) > 1:
            self._pieces[0] = self._pieces[0][self._at:]
            self._pieces = [''.join(self._pieces)]
            self._at = 0
        return self._pieces[0] if self._pieces else ''

    def _skip(self, size):
        self._at += size
        self._size -= size
        if not self._size:
            self._pieces = []
            self._at = 0


def _content_length(header, limit):
    lines = header.split('\r\n')
    if len(lines) > _MOST_HEADERS:
        raise Broken('%d headers' % len(lines))
    for line in lines[1:]:
        name, colon, _ = line.partition(':')
        if not colon or name.strip().lower() == _BEGINNING[:-1]:
            raise Broken('no header: %r' % line[:80])
    value = lines[0][len(_BEGINNING):].strip()
    if not value.isdigit() or len(value) > 10 or int(value) > limit:
        raise Broken('not a length: %r' % value[:80])
    return int(value)


def _message(body, most_parts):
    _check(body, most_parts)
    try:
        message = _decode(body)
    except ValueError:
        raise Broken('not JSON: %r' % body[:80])
    if not isinstance(message, dict) or not isinstance(message.get('type'), unicode) \
            or message['type'] == 'request' and not _is_request(message):
        raise Broken('no message: %r' % body[:80])
    return message


def _check(body, most_parts):
    """Raises Broken where reading it would take long, or much memory, or much of the stack.

    It need not be JSON: the reader goes no further than to its first fault. Each step takes time
    in proportion to the length and, but for the loop, the time that C takes.
    """
    plain = body
    if '\\' in body:
        if body.count('\\') > most_parts:
            raise Broken('too many escapes')
        # What is left of quotation marks begins and ends strings.
        plain = body.replace('\\\\', '').replace('\\"', '')
    if plain.count('"') > 2 * most_parts:
        raise Broken('too many strings')
    structure = ''.join(plain.split('"')[::2])
    if sum(structure.count(mark) for mark in ',:[{') > most_parts:
        raise Broken('too many values')
    depth = 0
    for bracket in structure.translate(None, _NO_BRACKETS):
        depth += 1 if bracket in '[{' else -1
        if not 0 <= depth <= _DEPTH_LIMIT:
            raise Broken('nested too deep, or not at all')


def _is_request(message):
    """Whether it can be answered, be it that it makes no sense."""
    return type(message.get('seq')) in (int, long) and isinstance(message.get('command'), unicode)


# The codecs and what they need are loaded now: the thread that will use them must not import.
_message(encode({'type': text('\xff')}).partition(_HEADER_END)[2], FROM_CLIENT.parts)
