"""At which exceptions the client wants the program to stop."""

from __future__ import absolute_import

import traceback

from sorrel.common.decoding import text
from sorrel.inspection import exception_types, source, stacks, values
from sorrel.protocol import capabilities
from sorrel.service import exceptions
from sorrel.service.stops import POST_MORTEM, TRACEBACK

# A client may choose several.
_MODES = {capabilities.RAISED: (exceptions.ALWAYS,),
          capabilities.UNCAUGHT: (exceptions.UNHANDLED,),
          capabilities.USER_UNHANDLED: (exceptions.USER_UNHANDLED,),
          capabilities.PRINTED: (exceptions.PRINTED, exceptions.UNHANDLED)}
_BREAK_MODES = {exceptions.ALWAYS: 'always', exceptions.UNHANDLED: 'unhandled',
                exceptions.USER_UNHANDLED: 'userUnhandled', exceptions.PRINTED: 'userUnhandled',
                POST_MORTEM: 'unhandled', TRACEBACK: 'always'}
_MODES_BY_BREAK_MODE = {'never': (), 'always': (exceptions.ALWAYS,),
                        'unhandled': (exceptions.UNHANDLED,),
                        'userUnhandled': (exceptions.USER_UNHANDLED,)}


class Exceptions(object):

    def __init__(self, service):
        self._service = service
        # At these the program never stops unless it is said so.
        self._quiet = service.exceptions.never
        self._arguments = {}
        self._unknown = []

    # For the session.

    def set(self, arguments):
        self._arguments = arguments
        return {'breakpoints': self.apply()}

    def lack_types(self):
        """Whether the client has named types that there are not; there may be later."""
        return bool(self._unknown)

    def apply(self):
        """Gives the service the client's wishes, as far as the types are known."""
        self._unknown = []
        answers = []
        modes = set()
        always, never = [], []
        for wanted in self._arguments.get('filters', ()):
            answers.append(self._apply_filter({'filterId': wanted}, modes, always, never))
        for option in self._arguments.get('filterOptions', ()):
            answers.append(self._apply_filter(option, modes, always, never))
        for option in self._arguments.get('exceptionOptions', ()):
            if option.get('path'):
                answers.append(self._apply_option(option, always, never))
            else:
                modes.update(_MODES_BY_BREAK_MODE[option['breakMode']])
                answers.append({'verified': True})
        never += [type for type in self._quiet if type not in always]
        self._service.exceptions.set_types(always, never)
        self._service.exceptions.set_mode(*modes)
        return answers

    def describe(self, stop, error_text, causes):
        """What exceptionInfo says of a stop.

        error_text: makes the text of a (type, value, traceback). causes: more of these, which were
        being handled when the exception was raised, the last one first.
        """
        details = _details(stop.argument, error_text, stacks.at_stop(stop))
        details['evaluateName'] = '__exception__[1]'
        inner = details
        for cause in causes:
            inner['innerException'] = [
                _details(cause, error_text, stacks.of_traceback(stop.thread, cause[2]))]
            inner, = inner['innerException']
        return {'exceptionId': details['typeName'], 'description': details['message'],
                'breakMode': _BREAK_MODES[stop.policy], 'details': details}

    def _apply_filter(self, option, modes, always, never):
        """A filter with a condition: names of types, those not to stop at after a minus."""
        if option['filterId'] not in _MODES:
            return {'verified': False, 'message': 'There is no such filter.'}
        words = option.get('condition', u'').replace(',', ' ').split()
        plain = [word for word in words if word[0] != '-']
        if plain and option['filterId'] != capabilities.RAISED:
            return {'verified': False, 'message': 'Only types not to stop at can be named here.'}
        answer = self._add(always, plain)
        answer_not = self._add(never, [word[1:] for word in words if word[0] == '-'])
        if not plain:
            modes.update(_MODES[option['filterId']])
        return answer if not answer['verified'] else answer_not

    def _apply_option(self, option, always, never):
        """Types by names, for which alone the mode holds."""
        names = option['path'][-1]['names']
        if option['breakMode'] == 'always':
            return self._add(always, names)
        if option['breakMode'] == 'never':
            return self._add(never, names)
        return {'verified': False, 'message': 'Single types can be stopped at always or never.'}

    def _add(self, types, names):
        unknown = []
        for name in names:
            type = exception_types.find(name.encode('utf-8'))
            if type is None:
                unknown.append(name)
            else:
                types.append(type)
        if unknown:
            self._unknown += unknown
            return {'verified': False, 'message': u'Not a known exception: ' + u', '.join(unknown)}
        return {'verified': True}


def _details(error, error_text, stack):
    kind = error[0]
    return {'message': text(error_text(error)), 'typeName': values.class_name(kind),
            'fullTypeName': _full_name(kind),
            'stackTrace': text(''.join(traceback.format_list([
                (entry.path, entry.line, entry.frame.f_code.co_name,
                 source.line(entry, entry.line).strip()) for entry in stack])))}


def _full_name(kind):
    name = values.class_name(kind)
    module = getattr(kind, '__module__', None)
    return u'%s.%s' % (text(module), name) if isinstance(module, str) else name
