"""The numbers by which a person or a client knows threads."""

from __future__ import absolute_import

import collections
import itertools


class Threads(object):
    """Asked by several threads, and told by each one that it ends, between any two instructions.

    Nobody waits for anybody here: what is done to the numbers is done in single steps, which the
    interpreter does not interrupt.
    """

    def __init__(self, service):
        self._service = service
        self._numbers = {}
        self._next = itertools.count(1).next
        # Of threads that were forgotten, until take_changes() tells of them.
        self._ended = collections.deque()
        # The main thread is always one: the process ends with it.
        self._lasting = set([service.main_thread])
        self.number(service.main_thread)

    def number(self, ident):
        """The number of the thread with this ident."""
        number = self._numbers.get(ident)
        return self._numbers.setdefault(ident, self._next()) if number is None else number

    def take_changes(self):
        """(number, whether it is new) of each thread that was started or has ended."""
        # First: who gets a number from now on is new, not gone.
        known = set(self._numbers)
        idents = [thread.ident for thread in self._service.threads()]
        now = set(idents)
        changes = []
        while self._ended:
            changes.append((self._ended.popleft(), False))
        for ident in known - now - self._lasting:
            # The ident may come again.
            number = self._numbers.pop(ident, None)
            if number is not None:
                changes.append((number, False))
        for ident in idents:
            if ident not in known:
                number = self._next()
                if self._numbers.setdefault(ident, number) == number:
                    changes.append((number, True))
        return changes

    def forget(self, ident):
        """To be called when the thread with this ident has ended: another one may get it."""
        number = self._numbers.pop(ident, None)
        if number is not None:
            self._ended.append(number)

    def all(self):
        """Pairs of a number and a Thread of the service, for the threads there are."""
        found = [(self.number(thread.ident), thread) for thread in self._service.threads()]
        return sorted(found, key=lambda pair: pair[0])

    def find(self, number):
        for found, thread in self.all():
            if found == number:
                return thread
        return None
