"""The client's breakpoints, each of which is one in every process."""

from __future__ import absolute_import

from sorrel.adapter.debuggee import in_order
from sorrel.adapter.numbers import FIRST_GIVEN, is_number
from sorrel.protocol import named_sources


class Asked(object):
    """What the client has asked for in one file, or of functions, and what became of it."""

    def __init__(self, request, previous):
        """previous: the one whose place it takes, or None."""
        self.arguments = request.get('arguments')
        self.key = _key(request)
        self.previous = previous
        # The client's numbers, in its order, once it has been answered.
        self.ids = None
        # By processes: what each says of them, in the same order.
        self.said = {}
        # What the client was told last of each.
        self.told = []


class MergedBreakpoints(object):

    def __init__(self, numbers):
        self._numbers = numbers
        # In the order in which the client has asked: two names may be one file.
        self._all = []

    def ask(self, request):
        """Takes the place of what the client has asked for before. Returns an Asked."""
        previous = self._find(_key(request))
        asked = Asked(request, previous)
        self._replace(previous, asked)
        return asked

    def all(self):
        """What a process that comes late is to be asked, in this order."""
        return [asked for asked in self._all if not is_number(asked.key[1])]

    def heard(self, asked, process, body):
        """A process has answered. Returns the breakpoints that the client is to be told of."""
        said = body.get('breakpoints') if isinstance(body, dict) else None
        if not isinstance(said, list) or not all(isinstance(one, dict) for one in said):
            return []
        asked.said[process] = said
        return self._changes(asked)

    def answer(self, asked):
        """The body of the client's answer; None where no process has given one."""
        previous, asked.previous = asked.previous, None
        if not asked.said:
            if asked in self._all:
                self._replace(asked, previous)
            return None
        leader = in_order(asked.said)[0]
        asked.ids = [self._id(leader, one, previous) for one in asked.said[leader]]
        asked.told = [self._merged(asked, place) for place in range(len(asked.ids))]
        if not asked.told and asked in self._all:
            self._all.remove(asked)
        return {'breakpoints': asked.told}

    def changed(self, process, breakpoint):
        """A process tells of a breakpoint. Returns those that the client is to be told of."""
        found = self._place(process, breakpoint.get('id'))
        if found is None:
            return []
        asked, place = found
        asked.said[process][place] = breakpoint
        return self._changes(asked, [place])

    def id(self, process, own):
        """The client's number for a process's; None where it has none."""
        found = self._place(process, own)
        return found[0].ids[found[1]] if found is not None and found[0].ids is not None else None

    def forget_process(self, process):
        """Returns the breakpoints that the client is to be told of."""
        changes = []
        for asked in self._all:
            if asked.said.pop(process, None) is not None:
                changes += self._changes(asked)
        return changes

    def _find(self, key):
        for asked in self._all:
            if asked.key == key:
                return asked
        return None

    def _replace(self, old, new):
        if old in self._all:
            self._all.remove(old)
        if new is not None:
            self._all.append(new)

    def _place(self, process, own):
        for asked in self._all:
            # Until the new ones are known, those that they take the place of are there.
            for one in asked, asked.previous:
                if one is not None:
                    for place, breakpoint in enumerate(one.said.get(process, ())):
                        if breakpoint.get('id') == own:
                            return one, place
        return None

    def _id(self, process, breakpoint, previous):
        own = breakpoint.get('id')
        if previous is not None and previous.ids is not None:
            for one, number in zip(previous.said.get(process, ()), previous.ids):
                if one.get('id') == own:
                    return number
        if process.is_first and type(own) is int and own < FIRST_GIVEN:
            return own
        return self._numbers.fresh()

    def _merged(self, asked, place):
        """The breakpoint as the client is to see it: as any process that has it, if one does."""
        shown = None
        for process in in_order(asked.said):
            said = asked.said[process]
            if place < len(said) and (
                    shown is None or said[place].get('verified') and not shown.get('verified')):
                shown = self._numbers.to_client(process, said[place])
        if shown is None:
            shown = dict(asked.told[place], verified=False)
        shown['id'] = asked.ids[place]
        return shown

    def _changes(self, asked, places=None):
        """places: where to look; None for everywhere."""
        changes = []
        if asked in self._all and asked.ids is not None:
            for place in range(len(asked.told)) if places is None else places:
                merged = self._merged(asked, place)
                if merged != asked.told[place]:
                    asked.told[place] = merged
                    changes.append(merged)
        return changes


def _key(request):
    path = named_sources.path(request.get('arguments'))
    if isinstance(path, unicode):
        return request['command'], path
    # Of a source that one process alone has.
    reference = named_sources.reference(request.get('arguments'))
    return request['command'], reference if is_number(reference) else None
