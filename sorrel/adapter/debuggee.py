"""One of the processes that a session debugs, as the messages tell of it."""


class Debuggee(object):
    """order: its place among the processes that there have been; the first is the client's own.

    stopped: its own number of the thread that has stopped, None while it runs. stops_all: whether
    its other threads wait then. is_taking_part: whether it has been told what the client wants;
    is_ready: whether it can be.
    """

    def __init__(self, order, send, pid=None, name=u''):
        """send: sends it a message. pid, name: of one that the client knows nothing of."""
        self.order = order
        self.is_first = order == 0
        self.pid = pid
        self.name = name
        self.is_taking_part = self.is_first
        self.is_ready = False
        self.stopped = None
        self.stops_all = False
        # Its threads' names by its own numbers, as far as there has been talk of them.
        self.threads = {}
        # The names of its modules by their ids, of one whose modules the client was told of.
        self.modules = {}
        self._send = send
        self._last_seq = 0
        # What waits for its answers, by their numbers.
        self._pending = {}

    def ask(self, exchange, command, arguments):
        """Sends a request, whose answer is the exchange's."""
        self._last_seq += 1
        request = {'type': 'request', 'seq': self._last_seq, 'command': command}
        if arguments is not None:
            request['arguments'] = arguments
        self._pending[self._last_seq] = exchange
        self._send(request)

    def take(self, seq):
        """The exchange that this answer is for; None for none."""
        return self._pending.pop(seq, None) if type(seq) in (int, long) else None

    def take_all(self):
        """The exchanges that it will not answer any more."""
        pending, self._pending = self._pending, {}
        return [exchange for _, exchange in sorted(pending.items())]

    def seq_of(self, exchange):
        """The number of a request that it has not answered yet; None where it has."""
        for seq, other in self._pending.items():
            if other is exchange:
                return seq
        return None

    def named(self, thread):
        """What the client is to read for the name of a thread."""
        return thread if self.is_first else self._marked(thread)

    @property
    def mark(self):
        """Makes the id of a module one that no other process has; None where it is."""
        return None if self.is_first else self._marked

    def _marked(self, name):
        return u'%s [%d]' % (name, self.pid)


class Exchange(object):
    """A request that one answer is to come of, and who has been asked.

    request: the client's; None for one that nobody waits for. arguments: as the processes are given
    them. bodies: what those have answered that carry it out, refusals: the answers of the others.
    until: when there has to be an answer, whoever is missing; None for no such time.
    """

    def __init__(self, request, finish, until=None, hear=None):
        """finish: called with this, once, when all have answered, or will not any more.

        hear: called with the process and the body whenever one has carried it out, be it late.
        """
        self.request = request
        self.arguments = None
        self.until = until
        self.bodies = {}
        self.refusals = {}
        self._waits_for = []
        self._finish = finish
        self._hear = hear
        self._is_finished = False

    def ask(self, process, command, arguments=None):
        self.arguments = arguments
        self._waits_for.append(process)
        process.ask(self, command, arguments)

    def answered(self, process, response):
        """response: None for a process that will not answer any more."""
        if response is not None and response.get('success'):
            self.bodies[process] = response.get('body')
            if self._hear is not None:
                self._hear(process, response.get('body'))
        elif response is not None:
            self.refusals[process] = response
        if process in self._waits_for:
            self._waits_for.remove(process)
        self.finish_if_complete()

    def is_complete(self):
        """Whether there are no more answers to come."""
        return not self._waits_for

    def finish_if_complete(self):
        if self.is_complete():
            self.finish()

    def finish(self):
        """With what is known by now, if that has not been done."""
        if not self._is_finished:
            self._is_finished = True
            self._finish(self)


def in_order(processes):
    return sorted(processes, key=lambda process: process.order)
