"""One client's numbers for what each of several processes numbers by itself.

The first process keeps its numbers. Those of the others, and those of the first that are as large,
are given new ones, which no two things have, of whatever kind and process.
"""

THREAD, FRAME, VARIABLES, SOURCE, TARGET = 'thread', 'frame', 'variables', 'source', 'target'
# What lapses when the process goes on from a stop.
OF_STOP = FRAME, VARIABLES, TARGET
FIRST_GIVEN = 1 << 30
_END = 1 << 31

# Fields of messages that are such a number, or 0 for none.
_FIELDS = {'threadId': THREAD, 'frameId': FRAME, 'stackFrameId': FRAME, 'targetId': TARGET,
           'variablesReference': VARIABLES, 'sourceReference': SOURCE}
# Arrays of objects whose "id" is one.
_ARRAYS = {'threads': THREAD, 'stackFrames': FRAME, 'targets': TARGET}
_LAPSED = u'the program has gone on since then'
_WHY = {THREAD: u'there is no thread %d', SOURCE: u'its source is not known'}


class Unknown(Exception):
    """A number that nothing has, or has any more; the text says so."""


class Numbers(object):

    def __init__(self):
        self._next = FIRST_GIVEN
        # By the numbers given: whose it is, of what kind, its number there, and the thread that it
        # lapses with, of its process's numbers.
        self._given = {}
        # The numbers given by these, of each process.
        self._known = {}

    def fresh(self):
        """A number that nothing else has."""
        number = self._next
        while number in self._given:
            number = self._following(number)
        self._next = self._following(number)
        return number

    def given(self, process, kind, own, thread=None):
        """The client's number for a process's own."""
        known = self._known.setdefault(process, {})
        number = known.get((kind, own))
        if number is None:
            if process.is_first and own < FIRST_GIVEN:
                return own
            number = known[kind, own] = self.fresh()
            self._given[number] = process, kind, own, thread
        return number

    def find(self, kind, number, first):
        """(process, its own number). first: the first process, if it is there. Raises Unknown."""
        if number < FIRST_GIVEN and first is not None:
            return first, number
        found = self._given.get(number)
        if found is None or found[1] != kind:
            why = _WHY.get(kind, _LAPSED)
            raise Unknown(why % number if '%' in why else why)
        return found[0], found[2]

    def forget(self, process, kinds, thread=None):
        """thread: its own number of the thread whose numbers lapse; None for all."""
        known = self._known.get(process, {})
        for (kind, own), number in list(known.items()):
            if kind in kinds and thread in (None, self._given[number][3]):
                del known[kind, own], self._given[number]

    def forget_one(self, process, kind, own):
        number = self._known.get(process, {}).pop((kind, own), None)
        self._given.pop(number, None)

    def forget_process(self, process):
        for number in self._known.pop(process, {}).values():
            del self._given[number]

    def count(self):
        return len(self._given)

    # Messages.

    def to_client(self, process, body, thread=None):
        """What a process says, as the client is to read it. thread: that the frames are of."""
        def give(kind, own):
            return self.given(process, kind, own, thread if kind == FRAME else None)
        return _renumbered(body, give, process.mark)

    def to_process(self, arguments, first):
        """(the process that the numbers are of, the arguments as it is to read them).

        The process is None where there are no numbers. Raises Unknown.
        """
        processes = []

        def find(kind, number):
            process, own = self.find(kind, number, first)
            if process not in processes:
                processes.append(process)
            return own
        found = _renumbered(arguments, find, None)
        if len(processes) > 1:
            raise Unknown(u'these are numbers of more than one process')
        return (processes or [None])[0], found

    def _following(self, number):
        return number + 1 if number + 1 < _END else FIRST_GIVEN


def is_number(value):
    return type(value) in (int, long) and 0 < value < _END


def _renumbered(value, renumber, mark, array=None):
    """A copy with other numbers. mark: a function for the ids of modules; None for none."""
    if isinstance(value, list):
        return [_renumbered(item, renumber, mark, array) for item in value]
    if not isinstance(value, dict):
        return value
    found = {}
    for name, item in value.items():
        kind = _ARRAYS.get(array) if name == 'id' else _FIELDS.get(name)
        if kind is not None and is_number(item):
            item = renumber(kind, item)
        elif mark is not None and isinstance(item, unicode) and (
                name == 'moduleId' or name == 'id' and array in ('module', 'modules')):
            item = mark(item)
        else:
            item = _renumbered(item, renumber, mark, name)
        found[name] = item
    return found
