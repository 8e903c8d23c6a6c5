"""Calls of the functions that print exceptions, or make texts of them.

Whatever the program prints in the end comes through one of these. The calls are seen by hidden
breakpoints on the functions' first lines.
"""

from __future__ import absolute_import

import sys
import types

from sorrel.inspection import functions, modules
from sorrel.service import breakpoints, places

# Modules, what is in them, and the condition of the breakpoint.
_FUNCTIONS = (('traceback', 'print_exception', None), ('traceback', 'format_exception', None),
              ('logging', 'Logger._log', 'exc_info'))


class PrintCalls(object):

    def __init__(self, all_breakpoints):
        """all_breakpoints: the service's Breakpoints."""
        self._breakpoints = all_breakpoints
        self._is_on = False
        # By the code of the functions.
        self._seen = {}

    def see(self, on):
        """Whether calls are to be seen from now on."""
        self._is_on = on
        if on:
            self.look_for_modules()
        else:
            for breakpoint in self._seen.values():
                self._breakpoints.remove(breakpoint)
            self._seen.clear()

    def look_for_modules(self):
        """Some may have been loaded since."""
        if self._is_on:
            for module, name, condition in _FUNCTIONS:
                self._add(modules.namespace(sys.modules.get(module)), name.split('.'), condition)

    def is_at(self, frame):
        """Whether a line event in this frame may be at such a call."""
        return frame.f_code in self._seen

    def printed(self, frame):
        """The (type, value, traceback) that is printed by the function in this frame, or None."""
        variables = frame.f_locals
        error = variables.get('exc_info') if 'exc_info' in variables else tuple(
            [variables.get(name) for name in ('etype', 'value', 'tb')])
        if not isinstance(error, tuple):
            # What the program is handling.
            error = sys.exc_info()
        return error if len(error) == 3 and type(error[2]) is types.TracebackType else None

    def _add(self, variables, names, condition):
        try:
            function = functions.in_namespace(variables, names)
        except LookupError:
            return
        code = getattr(function, 'func_code', None)
        if code is not None and code not in self._seen:
            try:
                place = places.of_function(function)
                self._seen[code] = self._breakpoints.add_hidden(place.path, place.line, condition)
            except breakpoints.Refused:
                pass  # The program has put something else in its place.
