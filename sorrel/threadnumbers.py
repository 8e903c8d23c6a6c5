"""The numbers by which a person or a client knows threads."""


class Threads(object):

    def __init__(self, service):
        self._service = service
        self._numbers = {}
        self._last = 0
        self.number(service.main_thread)

    def number(self, id):
        """The number of the thread with this id of the core's."""
        if id not in self._numbers:
            self._last += 1
            self._numbers[id] = self._last
        return self._numbers[id]

    def forget(self, id):
        """The thread has ended; its id may come again."""
        self._numbers.pop(id, None)

    def all(self):
        """Pairs of a number and a Thread of the service, for the threads there are."""
        found = [(self.number(thread.id), thread) for thread in self._service.threads()
                 if thread.frame is not None]
        return sorted(found, key=lambda pair: pair[0])

    def find(self, number):
        for found, thread in self.all():
            if found == number:
                return thread
        return None
