"""At which exceptions the program is to stop: as the service's policy, told by the protocol."""

from __future__ import absolute_import

from sorrel.common.decoding import text
from sorrel.protocol import capabilities
from sorrel.service import exceptions

_FILTERS = {exceptions.ALWAYS: capabilities.RAISED, exceptions.UNHANDLED: capabilities.UNCAUGHT,
            exceptions.USER_UNHANDLED: capabilities.USER_UNHANDLED,
            exceptions.PRINTED: capabilities.PRINTED}


class _Named(object):
    """A type, of which there is only the name here."""

    def __init__(self, name):
        self.__name__ = name


class Learning(object):
    """is_on: as the program's own, once `set` is called."""

    def __init__(self, command):
        """command: has the program carry out what its console knows."""
        self._command = command
        self._is_on = False

    def _set(self, is_on):
        self._command('catch learn' if is_on else 'catch learn off')
        self._is_on = is_on

    is_on = property(lambda self: self._is_on, _set)

    def places(self):
        return []  # The program does not tell.


class Exceptions(object):
    """modes: as the service's. ignored: places, as pairs of a path and a line."""

    def __init__(self, session, command):
        self._session = session
        self._types = {}
        self.modes = frozenset((exceptions.UNHANDLED,))
        self.ignored = []
        self.learning = Learning(command)

    always = property(lambda self: self._named('always'))
    never = property(lambda self: self._named('never'))

    def set_mode(self, *modes):
        self.modes = frozenset(modes)
        self.tell()

    def choose(self, word, names):
        """word: 'always', 'never' or 'forget'. What the program does not know of the names."""
        for name in names:
            self._types.pop(name, None)
            if word != 'forget':
                self._types[name] = word
        return [name for name in self.tell() if name in names]

    def forget(self, names):
        for name in names:
            self._types.pop(name, None)
        self.tell()

    def tell(self):
        """The names of types that the program does not know."""
        filters = sorted(_FILTERS[mode] for mode in self.modes)
        names = sorted(self._types)
        answer = self._session.ask('setExceptionBreakpoints', filters=filters, exceptionOptions=[
            {'breakMode': self._types[name], 'path': [{'names': [text(name)]}]}
            for name in names])
        answers = answer.get('breakpoints', [])[len(filters):]
        return [name for name, said in zip(names, answers) if not said['verified']]

    def _named(self, word):
        return [_Named(name) for name in sorted(self._types) if self._types[name] == word]
