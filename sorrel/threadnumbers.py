"""The numbers by which a person or a client knows threads."""


class Threads(object):

    def __init__(self, service):
        self._service = service
        self._numbers = {}
        self._last = 0
        # Of threads that were forgotten, until take_changes() tells of them.
        self._ended = []
        self.number(service.main_thread)

    def number(self, id):
        """The number of the thread with this id of the core's."""
        if id not in self._numbers:
            self._last += 1
            self._numbers[id] = self._last
        return self._numbers[id]

    def take_changes(self):
        """(number, whether it is new) of each thread that was started or has ended."""
        now = set(thread.id for thread in self._live())
        changes = [(self._ended.pop(0), False) for _ in range(len(self._ended))]
        for id in set(self._numbers) - now:
            # The id may come again.
            changes.append((self._numbers.pop(id), False))
        for id in sorted(now - set(self._numbers)):
            changes.append((self.number(id), True))
        return changes

    def forget(self, id):
        """To be called when the thread with this id has ended: another one may get the id."""
        number = self._numbers.pop(id, None)
        if number is not None:
            self._ended.append(number)

    def all(self):
        """Pairs of a number and a Thread of the service, for the threads there are."""
        found = [(self.number(thread.id), thread) for thread in self._live()]
        return sorted(found, key=lambda pair: pair[0])

    def find(self, number):
        for found, thread in self.all():
            if found == number:
                return thread
        return None

    def _live(self):
        return [thread for thread in self._service.threads() if thread.frame is not None]
