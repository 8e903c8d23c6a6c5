"""At which exceptions the client wants the program to stop."""

import __builtin__
import sys
import traceback

from sorrel import exceptions, frames
from sorrel.dap import capabilities
from sorrel.dap.protocol import text

# A client may choose several: the first of these counts.
_MODES = ((capabilities.RAISED, exceptions.ALWAYS), (capabilities.PRINTED, exceptions.PRINTED),
          (capabilities.UNCAUGHT, exceptions.UNHANDLED))
_BREAK_MODES = {exceptions.ALWAYS: 'always', exceptions.UNHANDLED: 'unhandled',
                exceptions.PRINTED: 'userUnhandled'}
_MODES_BY_BREAK_MODE = {'never': exceptions.NEVER, 'always': exceptions.ALWAYS,
                        'unhandled': exceptions.UNHANDLED, 'userUnhandled': exceptions.PRINTED}


class Exceptions(object):

    def __init__(self, service):
        self._service = service
        # At these the program never stops unless it is said so.
        self._quiet = service.exceptions.never
        self._arguments = {}

    # For the session.

    def set(self, arguments):
        self._arguments = arguments
        return {'breakpoints': self._apply()}

    def modules_loaded(self):
        """Types that were not known may be now."""
        if self._arguments:
            self._apply()

    def details(self, stop):
        """What the event says of a stop at an exception."""
        return {'description': 'Paused on exception', 'text': text(_name(stop.argument[0]))}

    def describe(self, stop, description):
        type, _, tb = stop.argument
        return {
            'exceptionId': text(_name(type)), 'description': text(description),
            'breakMode': _BREAK_MODES[stop.policy],
            'details': {
                'message': text(description), 'typeName': text(_name(type)),
                'fullTypeName': text(_full_name(type)),
                'stackTrace': text(''.join(traceback.format_tb(frames.of_program(tb))))}}

    # The service's settings.

    def _apply(self):
        answers = []
        modes = set()
        always, never = [], []
        for wanted in self._arguments.get('filters') or ():
            modes.add(wanted)
            answers.append({'verified': True})
        for option in self._arguments.get('filterOptions') or ():
            answers.append(self._apply_filter(option, modes, always, never))
        mode = exceptions.NEVER
        for word, candidate in reversed(_MODES):
            if word in modes:
                mode = candidate
        for option in self._arguments.get('exceptionOptions') or ():
            if option.get('path'):
                answers.append(self._apply_option(option, always, never))
            else:
                mode = _MODES_BY_BREAK_MODE[option['breakMode']]
                answers.append({'verified': True})
        never += [type for type in self._quiet if type not in always]
        self._service.exceptions.set_types(always, never)
        self._service.exceptions.set_mode(mode)
        return answers

    def _apply_filter(self, option, modes, always, never):
        """A filter with a condition: names of types, those not to stop at after a minus."""
        words = (option.get('condition') or '').replace(',', ' ').split()
        plain = [word for word in words if word[0] != '-']
        if plain and option['filterId'] != capabilities.RAISED:
            return {'verified': False, 'message': 'Only types not to stop at can be named here.'}
        answer = _add(always, plain)
        answer_not = _add(never, [word[1:] for word in words if word[0] == '-'])
        if not plain:
            modes.add(option['filterId'])
        return answer if not answer['verified'] else answer_not

    def _apply_option(self, option, always, never):
        """Types by names, for which alone the mode holds."""
        names = option['path'][-1].get('names') or []
        if option['breakMode'] == 'always':
            return _add(always, names)
        if option['breakMode'] == 'never':
            return _add(never, names)
        return {'verified': False, 'message': 'Single types can be stopped at always or never.'}


def _add(types, names):
    unknown = []
    for name in names:
        type = _find_type(name.encode('utf-8'))
        if type is None:
            unknown.append(name)
        else:
            types.append(type)
    if unknown:
        return {'verified': False, 'message': u'Not a known exception: ' + u', '.join(unknown)}
    return {'verified': True}


def _find_type(name):
    """A class by its name, with that of its module before it if it is not everywhere."""
    module, _, name = name.rpartition('.')
    places = [sys.modules.get(module)] if module else [__builtin__, sys.modules['__main__']]
    for place in places:
        found = getattr(place, '__dict__', {}).get(name)
        if isinstance(found, type) and issubclass(found, BaseException) \
                or type(found) is type(_OldStyle):
            return found
    return None


class _OldStyle:
    """Exceptions of the program may be such classes, too."""


def _name(type):
    return getattr(type, '__name__', str(type))


def _full_name(type):
    module = getattr(type, '__module__', None)
    return '%s.%s' % (module, _name(type)) if isinstance(module, str) else _name(type)
