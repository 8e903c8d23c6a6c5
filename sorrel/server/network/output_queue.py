"""What the program's threads have to say, until the network thread takes it.

What a client does not read in time must not fill the memory: what breakpoints log is left out then,
and it is said how much. Answers, stops and the like are never left out.
"""

from __future__ import absolute_import

import collections

from sorrel.common.originals import thread, time

# How many letters of log messages may wait, and bytes of all that is on its way.
LOG_LIMIT = 2 * 1024 * 1024
# With so many messages waiting, the network thread needs a turn.
_MANY = 1000
# A thread that cannot leave its log message waits so many times so many seconds for room.
_NAPS, _NAP = 10, 0.001
# Taken now: a program may replace what the interpreter's modules offer.
_sleep, _get_ident = time.sleep, thread.get_ident


class Tally(object):
    """A sum to which any thread adds, and from which one takes. Nobody waits for anybody."""

    def __init__(self):
        # By thread: no two of them write the same entry.
        self._added = {}
        self._taken = 0

    def add(self, number):
        ident = _get_ident()
        self._added[ident] = self._added.get(ident, 0) + number

    def take(self, number):
        self._taken += number

    def total(self):
        return sum(self._added.values()) - self._taken


class OutputQueue(object):
    """owner: the ident of the network thread, once it runs.

    unsent: how many bytes of what was taken are still to be sent; set by the network thread.
    """

    def __init__(self):
        self.owner = None
        self.unsent = 0
        self._session = None
        self._messages = collections.deque()
        # In letters.
        self._waiting_log = Tally()
        # Messages and letters.
        self._left_out = Tally(), Tally()
        # Whether log messages are left out, until what is waiting has become less.
        self._is_shut = False

    def begin(self, session):
        """From now on the messages of this session alone count; None for no session."""
        self._session = None
        self._is_shut = False
        self.take()  # All that is left.
        for tally in self._left_out:
            tally.take(tally.total())
        self.unsent = 0
        self._session = session

    def put(self, session, message):
        """Called by any thread; those of the program may wait a moment with log messages."""
        size = _log_size(message)
        if size is not None and self._is_from_program(session) and not self._will_have_room():
            self._left_out[0].add(1)
            self._left_out[1].add(size)
            self._is_shut = True
            return
        self._messages.append((session, message, size))
        if size is not None:
            self._waiting_log.add(size)

    def give_way(self, session):
        """Lets the network thread run when much is waiting: the interpreter may never pick it."""
        if self.has_many() and self._is_from_program(session):
            _sleep(_NAP)

    def mark(self, session, function):
        """take() will return the function when it has returned all messages until now."""
        self._messages.append((session, function, None))

    def take(self):
        """The next message of the session; None if there is none now."""
        while True:
            try:
                session, message, size = self._messages.popleft()
            except IndexError:
                return self._note()
            if size is not None:
                self._waiting_log.take(size)
            if session is self._session and session is not None:
                return message

    def is_empty(self):
        return not self._messages and not self._can_note()

    def has_many(self):
        return len(self._messages) > _MANY

    def has_room(self):
        """Whether log messages are not left out now."""
        return self._waiting_log.total() + self.unsent < LOG_LIMIT

    def _is_from_program(self, session):
        return session is self._session and _get_ident() != self.owner

    def _will_have_room(self):
        """Waits for it a moment, which also lets the network thread run."""
        for _ in range(1 if self._is_shut else _NAPS):
            if self.has_room() and not self._is_shut:
                return True
            _sleep(_NAP)
        return self.has_room() and not self._is_shut

    def _can_note(self):
        return self._is_shut and self.unsent < LOG_LIMIT // 2

    def _note(self):
        """What to say in place of what was left out."""
        if not self._can_note():
            return None
        # Whatever comes now comes after the note.
        messages, letters = [tally.total() for tally in self._left_out]
        for tally, number in zip(self._left_out, (messages, letters)):
            tally.take(number)
        self._is_shut = False
        if not messages:
            return None
        return {'type': 'event', 'event': 'output', 'body': {
            'category': 'important',
            'output': u'sorrel: %d log messages of %d letters left out here: they are read too '
                      u'slowly\n' % (messages, letters)}}


def _log_size(message):
    """The letters of a log message; None for other messages."""
    if message.get('event') == 'output':
        return len(message['body']['output'])
    return None
