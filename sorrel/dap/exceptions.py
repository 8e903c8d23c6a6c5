"""At which exceptions the client wants the program to stop."""

import traceback

import tmorvik26_vs2012_x64 as core

from sorrel import frames
from sorrel.dap.protocol import text
from sorrel.dap import capabilities

_NEVER, _ALWAYS, _UNHANDLED, _PRINTED = 0, 1, 2, 4


class Exceptions(object):

    def __init__(self, session):
        self._session = session
        self._mode = _NEVER

    def set(self, arguments):
        filters = set(arguments.get('filters') or ())
        self._mode = _NEVER
        if capabilities.UNCAUGHT in filters:
            self._mode = _UNHANDLED
        if capabilities.RAISED in filters:
            self._mode = _ALWAYS
        core.set_exception_mode(self._mode)
        return {'breakpoints': [{'verified': True} for _ in filters]}

    def describe(self, type, description, tb):
        name = text(type.__name__)
        full = text('%s.%s' % (type.__module__, type.__name__))
        return {'exceptionId': name, 'description': text(description), 'breakMode':
                'always' if self._mode == _ALWAYS else 'unhandled',
                'details': {'message': text(description), 'typeName': name, 'fullTypeName': full,
                            'stackTrace': text(''.join(traceback.format_tb(frames.without_own(tb))))}}
