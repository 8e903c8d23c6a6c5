"""What the program writes to sys.stdout and sys.stderr, for a client that wants to see it.

It is caught by streams in C: nothing of the server's runs in the program's threads as they write.
"""

from __future__ import absolute_import

import codecs
import sys

import _sorrel

from sorrel.common.originals import thread, time
from sorrel.processes.forks import call_in_children

# How much may wait to be told, in bytes and letters, less than what may wait to be sent, and goes
# into one event.
_LIMIT = 1024 * 1024
_AT_ONCE = 64 * 1024
# How often is looked for more, and how long what is being told is waited for, in seconds.
_OFTEN, _TRIES, _NAP = 0.05, 1000, 0.001
_NAMES = 'stdout', 'stderr'
# Taken now: a program may replace what the interpreter's modules offer.
_now, _sleep, _new_lock = time.time, time.sleep, thread.allocate_lock
# The functions that end what goes on in this process.
_ends = []


def _known_decoders():
    """By encodings. Those of the streams are loaded now: the server's thread imports nothing."""
    found = {}
    for name in ['utf-8'] + [_encoding(getattr(sys, name, None)) for name in _NAMES]:
        try:
            found[name] = codecs.lookup(name).incrementaldecoder
        except LookupError:
            pass
    return found


def _encoding(stream):
    # Of others, the program's own code might be asked.
    return type(stream) is file and stream.encoding or 'utf-8'


_decoders = _known_decoders()


def _end_all():
    for end in _ends:
        end()
    del _ends[:]


call_in_children(_end_all)


class RedirectedOutput(object):

    def __init__(self, output, has_room):
        """output: called with a category and a text. has_room: whether now is the time for it."""
        self._output = output
        self._has_room = has_room
        self._take = self._end = None
        self._look_at = None
        # By categories.
        self._decoders = {}
        # Of the thread that tells.
        self._telling = _new_lock()

    def begin(self):
        for name in _NAMES:
            make = _decoders.get(_encoding(getattr(sys, name, None))) or _decoders['utf-8']
            self._decoders[name] = make('replace')
        self._take, self._end = _sorrel.redirect_output(_LIMIT)
        _ends.append(self._end)
        self._look_at = _now() + _OFTEN

    def end(self):
        """The program's streams are what they were, but for those that it has replaced itself."""
        if self._end in _ends:
            _ends.remove(self._end)
            self._end()
        self._look_at = None

    def deadline(self):
        """When to call look(); None for never."""
        return self._look_at

    def look(self):
        if self._look_at is not None and _now() >= self._look_at:
            self._look_at = _now() + _OFTEN
            if self._has_room():
                self.tell(tries=1)  # Whoever is telling tells all.

    def tell(self, tries=_TRIES):
        """Tells all that was written until now; called in any thread."""
        if self._take is None:
            return
        # Whoever has it may be the program's code that a signal has brought into the midst of it.
        for _ in range(tries):
            if self._telling.acquire(False):
                try:
                    self._tell()
                finally:
                    self._telling.release()
                return
            _sleep(_NAP)

    def _tell(self):
        texts, left_out = self._take()
        category, pieces, size = None, [], 0
        for name, text in texts:
            if name != category or size >= _AT_ONCE:
                self._put(category, pieces)
                category, pieces, size = name, [], 0
            pieces.append(self._decoded(name, text))
            size += len(text)
        self._put(category, pieces)
        if left_out:
            self._output('important', u'sorrel: %d bytes that the program has written are left out '
                                      u'here: they are read too slowly\n' % left_out)

    def _put(self, category, pieces):
        written = u''.join(pieces)
        for start in range(0, len(written), _AT_ONCE):
            self._output(category, written[start:start + _AT_ONCE])

    def _decoded(self, name, text):
        """The last bytes may be the beginning of a letter, which is told with its rest."""
        decoder = self._decoders[name]
        if isinstance(text, str):
            return decoder.decode(text)
        rest = decoder.decode('', True)
        decoder.reset()
        return rest + text
