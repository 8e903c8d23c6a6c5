"""Commands about exceptions: at which the program stops, and raising one in it."""

import types

from sorrel.inspection import evaluation
from sorrel.service import exceptions
from sorrel.service.stops import RAISED, Resume, STEP_INTO

_MODES = {
    exceptions.NEVER: 'at none', exceptions.ALWAYS: 'at every one',
    exceptions.UNHANDLED: 'where nothing will catch them',
    exceptions.PRINTED: 'where the program prints them, or nothing will catch them'}


class CatchCommands(object):

    def do_catch(self, argument):
        """catch [unhandled | always | never | printed]: show or choose at which exceptions to stop.

        unhandled   where nothing in the program will catch them
        always      at every one, where it is raised
        never       at none
        printed     where the program prints them itself, and where nothing will catch them
        always TYPE[, TYPE...]  at these types in any case
        never TYPE[, TYPE...]   at these types in no case
        forget TYPE[, TYPE...]  at these types as at all others
        ignore                  at those raised where this one was no more (see "help ignore")
        """
        word, _, rest = argument.partition(' ')
        rest = rest.strip()
        if not word:
            self._show_catching()
        elif word in ('always', 'never', 'forget') and rest:
            self._try(self._set_types, word, rest)
        elif word in _MODES and not rest:
            self.service.exceptions.set_mode(word)
        elif word == 'ignore' and not rest:
            self._ignore_place()
        else:
            self._say('*** catch what? See "help catch"')

    def do_raise(self, argument):
        """raise EXPRESSION: raise an exception in the program when this line has run.

        A function that the line calls raises it at once.
        """
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
        self._say('Stops at exceptions %s (%s).' % (_MODES[policy.mode], policy.mode))
        for word, types in (('Always', policy.always), ('Never', policy.never)):
            if types:
                self._say('%s at: %s' % (word, ', '.join([type.__name__ for type in types])))
        if policy.ignored:
            self.list_ignored_places()

    def _set_types(self, word, rest):
        named = evaluation.expression(rest, self._frame())
        named = named if isinstance(named, tuple) else (named,)
        for type_ in named:
            if not isinstance(type_, (type, types.ClassType)):
                self._say('*** Not a type: %r' % (type_,))
                return
        policy = self.service.exceptions
        kept = dict((other, [type_ for type_ in old if type_ not in named])
                    for other, old in (('always', policy.always), ('never', policy.never)))
        if word != 'forget':
            kept[word] += named
        policy.set_types(kept['always'], kept['never'])

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
