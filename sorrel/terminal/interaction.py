"""The interpreter's own kind of prompt, over what a frame can see."""

from __future__ import absolute_import

import sys

from sorrel.inspection import evaluation

_FIRST, _FURTHER = '>>> ', '... '


class InteractCommand(object):

    # The variables of what is typed, while that lasts.
    _namespace = None

    def do_interact(self, argument):
        """interact: type Python alone, over copies of what this frame can see, until end of input.

        What is assigned there does not reach the program.
        """
        namespace = dict(self._frame().f_globals)
        namespace.update(self._frame().f_locals)
        self._namespace = namespace
        self._say('Python %s, over copies of the variables. End of input leads back.'
                  % sys.version.split()[0])

    def _interact(self):
        """One statement, or the end of it."""
        text = self._console.read_line(_FIRST, None)
        while text is not None and evaluation.is_begun(text, self._frame()):
            more = self._console.read_line(_FURTHER, None)
            text = None if more is None else text + '\n' + more
        if text is None:
            self._namespace = None
            self._say('')
        elif text.strip():
            self._evaluation.call(
                self._stop, self._try, self._evaluator.statement_apart, text, self._frame(),
                self._namespace, self._show_value)
