"""Commands about exceptions: at which the program stops, and raising one in it."""

from __future__ import absolute_import

import re
import types

from sorrel.inspection import evaluation, exception_types
from sorrel.service import exceptions
from sorrel.service.stops import RAISED, Resume, STEP_INTO

# The modes of the service that each word chooses, and how it is explained.
_MODES = {
    exceptions.NEVER: ((), 'at none'),
    exceptions.ALWAYS: ((exceptions.ALWAYS,), 'at every one'),
    exceptions.UNHANDLED: ((exceptions.UNHANDLED,), 'where nothing will catch them'),
    exceptions.USER_UNHANDLED: (
        (exceptions.USER_UNHANDLED, exceptions.UNHANDLED),
        'where they leave your own code for that of a library, or nothing will catch them'),
    exceptions.PRINTED: (
        (exceptions.PRINTED, exceptions.UNHANDLED),
        'where the program prints them, or nothing will catch them')}


class CatchCommands(object):

    def do_catch(self, argument):
        """catch [unhandled | user-unhandled | printed | always | never]: where exceptions stop it.

        unhandled       where nothing in the program will catch them
        user-unhandled  also where they will leave your own code for that of a library
        printed         where the program prints them itself, and where nothing will catch them
        always          at every one, where it is raised
        never           at none
        always TYPE[, TYPE...]  at these types in any case; MODULE.TYPE may be loaded later
        never TYPE[, TYPE...]   at these types in no case
        forget TYPE[, TYPE...]  at these types as at all others
        ignore                  at those raised where this one was no more (see "help ignore")
        learn [off]             no more at those raised where one was swallowed after a stop
        """
        word, _, rest = argument.partition(' ')
        rest = rest.strip()
        if not word:
            self._show_catching()
        elif word in ('always', 'never', 'forget') and rest:
            self._try(self._set_types, word, rest)
        elif word in _MODES and not rest:
            self.service.exceptions.set_mode(*_MODES[word][0])
        elif word == 'ignore' and not rest:
            self._ignore_place()
        elif word == 'learn' and rest in ('', 'off'):
            self.service.exceptions.learning.is_on = not rest
        else:
            self._say('*** catch what? See "help catch"')

    def described_catching(self):
        """What catch_as() takes, in another process: types go by their names there."""
        policy = self.service.exceptions
        types_ = dict((word, ['%s.%s' % (type_.__module__, type_.__name__) for type_ in listed] + [
            name for name in sorted(self._awaited_types) if self._awaited_types[name] == word])
            for word, listed in (('always', policy.always), ('never', policy.never)))
        return {'modes': sorted(policy.modes), 'types': types_, 'ignored': policy.ignored,
                'learns': policy.learning.is_on}

    def catch_as(self, described):
        policy = self.service.exceptions
        policy.set_mode(*map(str, described['modes']))
        policy.set_types((), ())
        for word, names in described['types'].items():
            for name in names:
                self._awaited_types[str(name)] = str(word)
        self.imported()
        for path, line in described['ignored']:
            policy.ignore((path.encode('utf-8'), line))
        policy.learning.is_on = described['learns']

    def do_raise(self, argument):
        """raise EXPRESSION: raise an exception in the program when this line has run.

        A function that the line calls raises it at once.
        """
        if self._has_ended():
            self._say('*** The program has ended')
        else:
            self._try(self._raise, argument)

    def _raise(self, argument):
        value = self._value(argument)
        arguments = ()
        if isinstance(value, tuple) and len(value) == 2:
            value, arguments = value[0], value[1:]
        if isinstance(value, type) and issubclass(value, BaseException):
            value = value(*arguments)
        if not isinstance(value, BaseException):
            self._say('*** Not an exception: %r' % (value,))
            return
        self.service.raise_here(value)
        self._resume = Resume(STEP_INTO)

    def _show_catching(self):
        policy = self.service.exceptions
        for word, (modes, explanation) in _MODES.items():
            if policy.modes == frozenset(modes):
                self._say('Stops at exceptions %s (%s).' % (explanation, word))
        for word, types in (('always', policy.always), ('never', policy.never)):
            names = [type.__name__ for type in types] + [
                name + ' (not loaded yet)' for name in sorted(self._awaited_types)
                if self._awaited_types[name] == word]
            if names:
                self._say('%s at: %s' % (word.capitalize(), ', '.join(names)))
        if policy.ignored:
            self.list_ignored_places()
        if policy.learning.is_on:
            self._say('No more where exceptions were swallowed after a stop: %s' % (
                ', '.join(['%s:%d' % place for place in policy.learning.places()]) or 'none yet'))

    def _set_types(self, word, rest):
        named, awaited = [], []
        for name in self._names_of_types(rest):
            found = self._find_type(name)
            if found is None:
                awaited.append(name)
            else:
                named += found
        for type_ in named:
            if not isinstance(type_, (type, types.ClassType)):
                self._say('*** Not a type: %r' % (type_,))
                return
        self._list_types(word, named)
        for name in awaited:
            if word == 'forget':
                self._awaited_types.pop(name, None)
            else:
                self._awaited_types[name] = word
                self._say('%s is not loaded yet: this holds as soon as it is.' % name)

    def _names_of_types(self, text):
        """Where there are none but names, each of them: there may be more to one than to others."""
        names = [name.strip() for name in text.split(',')]
        return names if all(map(exception_types.names_a_module, names)) or len(names) > 1 and all(
            re.match(r'[\w.]+$', name) for name in names) else [text]

    def _find_type(self, text):
        """What an expression names, as a list; None for a type of a module that is not loaded."""
        try:
            found = evaluation.expression(text, self._frame())
        except (NameError, AttributeError):
            if not exception_types.names_a_module(text):
                raise
            found = exception_types.find(text)
            if found is None:
                return None
        return list(found) if isinstance(found, tuple) else [found]

    def _list_types(self, word, named):
        policy = self.service.exceptions
        kept = dict((other, [type_ for type_ in old if type_ not in named])
                    for other, old in (('always', policy.always), ('never', policy.never)))
        if word != 'forget':
            kept[word] += named
        policy.set_types(kept['always'], kept['never'])

    def imported(self):
        """For the service: types that were named before their module may be there now."""
        for name, word in self._awaited_types.items():
            found = exception_types.find(name)
            if found is not None:
                self._awaited_types.pop(name, None)
                self._list_types(word, [found])

    def _ignore_place(self):
        if self._stop.reason != RAISED:
            self._say('*** The program has not stopped at an exception')
            return
        place = exceptions.raised_at(self._stop.argument)
        self.service.exceptions.ignore(place)
        self._say('Will not stop at exceptions raised at %s:%d.' % place)

    def list_ignored_places(self):
        places = self.service.exceptions.ignored
        self._say('Not at exceptions raised at:' if places else 'No place is ignored.')
        for number, place in enumerate(places):
            self._say('%d  %s:%d' % ((number + 1,) + place))

    def clear_ignored_places(self, numbers):
        places = list(self.service.exceptions.ignored)
        for number in numbers.split() or map(str, range(1, len(places) + 1)):
            if number.isdigit() and 0 < int(number) <= len(places):
                self.service.exceptions.unignore(places[int(number) - 1])
            else:
                self._say('*** No ignored place %s' % number)
