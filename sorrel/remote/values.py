"""Commands that show values: what the program makes texts of, in its own process."""

from __future__ import absolute_import

import ast

from sorrel.common.decoding import text
from sorrel.protocol.messages import Refused
from sorrel.remote import sources
from sorrel.terminal.displays import heading

# Evaluated in the program, with the expression that is asked about.
_LAID_OUT = "__import__('pprint').pformat((%s))"
_KIND = '''(lambda value: 'Method ' + value.__name__ if type(value).__name__ == 'instancemethod'
    else 'Function ' + value.__name__ if type(value).__name__ == 'function'
    else repr(type(value)))((%s))'''
_SOURCE_LINES = "__import__('inspect').getsourcelines((%s))"
_RETURNED = '(return) '
_CUT = '...'


class ValueCommands(object):

    def do_print(self, argument):
        """print, p EXPRESSION: show its value."""
        self._say(self._value_text(argument))

    def do_pp(self, argument):
        """pp, pretty-print EXPRESSION: show its value over several lines, laid out to be read."""
        self._say(self._computed(_LAID_OUT, argument))

    def do_whatis(self, argument):
        """whatis EXPRESSION: show its type."""
        self._say(self._computed(_KIND, argument))

    def do_args(self, argument):
        """args, a: show this function's arguments."""
        function = self._sources.function(self._entry())
        if function is None:
            self._say('*** The source of this function is not there')
            return
        for name in sources.parameters(function):
            self._show_variable(name)

    def do_retval(self, argument):
        """retval, rv: show the value that the function left last has returned."""
        returned = [value for name, value in self._variables(self._innermost())
                    if name.startswith(_RETURNED)]
        self._say(returned[-1] if returned else '*** No function has just returned a value')

    def show_source(self, expression):
        """That of the function, method, class or module that an expression stands for."""
        lines, first = self._computed(_SOURCE_LINES, expression, tuple)
        for number, line in enumerate(lines, first or 1):
            self._say_line(number, line, False)

    def _execute(self, typed):
        body = self._session.evaluate(typed, 'repl', self._frame().id)
        shown = body['result'].encode('utf-8')
        if 'type' in body and _CUT in shown:
            shown = self._uncut(shown)
        if shown or 'type' in body:
            self._say(shown)

    def _uncut(self, cut):
        """What was shown last, by the name that it has then, unless that is the program's."""
        try:
            whole = self._value_text('_')
        except Refused:
            return cut
        return whole if whole.startswith(cut.partition(_CUT)[0]) else cut

    def _value_text(self, expression):
        """The whole repr of an expression. Raises Refused."""
        return self._session.evaluate(
            expression, 'clipboard', self._frame().id)['result'].encode('utf-8')

    def _computed(self, template, expression, kind=str):
        """What the program makes of an expression, of this type. Raises Refused."""
        if not expression:
            return self._value_text(expression)  # The error that it is.
        made = self._value_text(template % expression)
        try:
            value = ast.literal_eval(made)
        except (ValueError, SyntaxError):
            value = None
        if not isinstance(value, kind):
            raise Refused(u'it has answered: %s' % text(made))
        return value

    def _show_locals(self, frame, indent=''):
        for name, value in sorted(self._variables(frame)):
            if not (name.startswith('__') and name.endswith('__') or name.startswith('(')):
                self._say('%s%s = %s' % (indent, name, value))

    def _show_variable(self, name):
        try:
            self._say('%s = %s' % (name, self._value_text(name)))
        except Refused as error:
            self._say('%s: deleted' % name if text(error).startswith(u'NameError')
                      else '*** ' + text(error).encode('utf-8'))

    def _variables(self, frame):
        """(name, text) of the variables of a frame; of a module, its globals."""
        scopes = dict((scope['name'], scope['variablesReference'])
                      for scope in self._session.ask('scopes', frameId=frame.id)['scopes'])
        if not scopes:
            return []
        reference = scopes.get('Locals', scopes.get('Globals', scopes.values()[0]))
        found = []
        for variable in self._session.ask('variables', variablesReference=reference)['variables']:
            name, value = variable['name'].encode('utf-8'), variable['value'].encode('utf-8')
            if _CUT in value and 'evaluateName' in variable:
                value = self._session.evaluate(
                    name, 'clipboard', frame.id)['result'].encode('utf-8')
            found.append((name, value))
        return found

    # For displays.

    def _function(self):
        return self._frame().path, self._frame().name

    def _displayed(self, expression):
        try:
            shown = self._value_text(expression)
        except Refused as error:
            shown = '** raised %s **' % text(error).encode('utf-8')
        return shown, heading(expression) + shown
