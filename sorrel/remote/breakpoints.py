"""The breakpoints as the prompt has them, and what the program has been told of them.

The protocol has all those of a file set at once, and all those at functions.
"""

from __future__ import absolute_import

from sorrel.common.decoding import text
from sorrel.protocol import capabilities
from sorrel.protocol.messages import Refused as RefusedByProgram
from sorrel.remote.connection import Lost
from sorrel.service.breakpoints import Refused

_NOT_LOADED = 'its module is not loaded'


class Breakpoint(object):
    """waits_for: the place, as it was named, of one that is pending; path and line are None then.

    lack: what there is not yet for it. hits: how often it has stopped the program.
    """

    def __init__(self, number, place, named, condition, temporary, ignore_count, message):
        """place: a Place, which of a function may have the name alone. named: it as typed."""
        self.number = number
        self.place = place
        self.named = named
        self.condition = condition.strip() if condition else None
        self.temporary = temporary
        self.ignore_count = ignore_count
        self.message = message
        self.enabled = True
        self.hits = 0
        # The program's number of it; why it is not set there.
        self.id = self.lack = self.refusal = None
        self.path = self.line = self.waits_for = None
        # It is saved by its line.
        self.name = None

    def is_in_no_file(self):
        return False

    def asked(self):
        """What the program is told."""
        place = self.place
        told = {'name': text(place.name)} if place.path is None else {'line': place.line}
        if self.condition:
            told['condition'] = text(self.condition)
        if self.ignore_count:
            told['hitCondition'] = u'> %d' % self.ignore_count
        if self.message is not None:
            told['logMessage'] = text(self.message)
        return told

    def take(self, answer):
        """What the program says of it, in an answer or an event. Refused, it is where it was."""
        self.id = answer.get('id')
        self.refusal = None
        path = answer.get('source', {}).get('path')
        path = path.encode('utf-8') if path is not None else self.place.path
        line = answer.get('line')
        if answer['verified'] and path is not None and line is not None:
            self.path, self.line, self.waits_for, self.lack = path, line, None, None
            return
        said = answer.get('message', u'it cannot be set').encode('utf-8')
        if said == capabilities.WAITING:
            said = _NOT_LOADED
        elif answer.get('reason') != u'pending' or self.place.path is None \
                and '.' not in self.place.name:
            self.refusal = said
            return
        self.path, self.line, self.waits_for, self.lack = None, None, self.named, said


class Breakpoints(object):
    """As the service's for the prompt of a program that is debugged in its own process."""

    def __init__(self, session):
        self._session = session
        self._last_number = 0
        self._known = []

    def all(self):
        return list(self._known)

    def pending(self):
        return [one for one in self._known if one.waits_for is not None]

    def at(self, path, line):
        return [one for one in self._known
                if path is not None and (path, line) in (one.place[:2], (one.path, one.line))]

    def of_ids(self, ids):
        """Those that the program calls so."""
        return [one for one in self._known if one.enabled and one.id in ids]

    def add_at(self, place, named, condition, temporary=False, ignore_count=0, message=None):
        """A new Breakpoint, which may be pending. Raises Refused."""
        if place.path is None and message is not None:
            raise Refused('a logpoint at a function that is not known here: name FILE:LINE')
        made = Breakpoint(self._last_number + 1, place, named, condition, temporary, ignore_count,
                          message)
        self._known.append(made)
        self._tell(made)
        refusal = made.refusal
        if refusal is not None:
            self.remove(made)
            raise Refused(refusal)
        self._last_number += 1
        return made

    def remove(self, breakpoint):
        self._known.remove(breakpoint)
        self._tell(breakpoint)

    def enable(self, breakpoint, is_enabled):
        """Raises Refused."""
        breakpoint.enabled = is_enabled
        self._tell(breakpoint)
        if breakpoint.refusal is not None:
            refusal, breakpoint.enabled = breakpoint.refusal, False
            self._tell(breakpoint)
            raise Refused(refusal)

    def set_ignore_count(self, breakpoint, count):
        breakpoint.ignore_count = count
        self._tell(breakpoint)

    def set_condition(self, breakpoint, condition):
        """Raises Refused."""
        before, breakpoint.condition = breakpoint.condition, condition.strip() or None
        self._tell(breakpoint)
        if breakpoint.refusal is not None:
            refusal, breakpoint.condition = breakpoint.refusal, before
            self._tell(breakpoint)
            raise Refused(refusal)

    def stopped_at(self, breakpoint):
        """The program has stopped there. Whether it is gone with that."""
        breakpoint.hits += 1
        # What was to be passed by is: the next time that it is told, it counts anew.
        breakpoint.ignore_count = 0
        if breakpoint.temporary:
            self.remove(breakpoint)
        return breakpoint.temporary

    def changed(self, answer):
        """The program tells of a change. The breakpoint that is pending no more, if it is one."""
        for one in self._known:
            if one.enabled and one.id is not None and one.id == answer.get('id'):
                was_pending = one.waits_for is not None
                one.take(answer)
                return one if was_pending and one.waits_for is None else None
        return None

    def _tell(self, changed):
        """Has the program set all that are in the file of this one, or at functions as it."""
        changed.refusal = None
        path = changed.place.path
        told = [one for one in self._known if one.enabled and one.place.path == path]
        asked = [one.asked() for one in told]
        try:
            if path is None:
                answer = self._session.ask('setFunctionBreakpoints', breakpoints=asked)
            else:
                answer = self._session.ask(
                    'setBreakpoints', source={'path': text(path)}, breakpoints=asked)
        except RefusedByProgram as refusal:
            raise Refused(text(refusal).encode('utf-8'))
        answers = answer['breakpoints']
        if len(answers) != len(told):
            raise Lost(u'it has said what makes no sense: %d breakpoints of %d' % (
                len(answers), len(told)))
        for one, said in zip(told, answers):
            one.take(said)
