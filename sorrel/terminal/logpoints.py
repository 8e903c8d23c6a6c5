"""Breakpoints that write what they find, and let the program run on."""

from __future__ import absolute_import

from sorrel.inspection import log_messages
from sorrel.service.stops import DETACH, Resume
from sorrel.terminal.console import Closed


class LogpointCommands(object):

    def do_logpoint(self, argument):
        """logpoint PLACE, TEXT: write TEXT there, and run on.

        In TEXT, the value of an EXPRESSION stands in place of {EXPRESSION}.
        """
        named, _, message = argument.partition(',')
        message = message.strip()
        if message:
            self._asking(self._set_logpoint, named.strip(), message)
        else:
            self._say('*** A logpoint needs a place and a text: logpoint PLACE, TEXT')

    def _set_logpoint(self, named, message):
        self._say_set(*self._add_breakpoint(named, None, False, 0, message))

    # For the service.

    def log(self, breakpoint, frame):
        try:
            self._say(log_messages.logged(breakpoint.message, frame).encode('utf-8'))
        except Closed:
            return Resume(DETACH)
        return None
