"""Commands that a person makes of others."""

from __future__ import absolute_import

import re

from sorrel.terminal import syntax, typed

_PARAMETER = re.compile(r'%(\*|[1-9]\d*)')


class AliasCommands(object):
    """Commands find here: `_aliases`, the texts that words stand for."""

    def do_alias(self, argument):
        """alias [NAME [COMMAND]]: let a word stand for a command, or list what words stand for.

        %1, %2 and so on in COMMAND stand for the arguments, and %* for all of them; without any of
        these, they follow it. ";;" in it separates commands.
        """
        name, _, text = argument.partition(' ')
        if text:
            self._aliases[name] = text.strip()
        elif name and name not in self._aliases:
            self._say('*** No alias %s' % name)
        else:
            for known in [name] if name else sorted(self._aliases):
                self._say('%s = %s' % (known, self._aliases[known]))

    def do_unalias(self, argument):
        """unalias NAME: let a word stand for nothing else any more."""
        if self._aliases.pop(argument, None) is None:
            self._say('*** No alias %s' % argument)

    def commands_in(self, text):
        """The commands in a line, as they are without aliases."""
        left = dict(self._aliases)
        pending, found = _parts(text), []
        while pending:
            command = pending.pop(0)
            name, rest = syntax.typed_word(command.strip())
            if name in left and not syntax.goes_on(rest):
                # Once: an alias may have the name of the command that it stands for.
                pending[:0] = _parts(_filled(left.pop(name), rest))
            else:
                found.append(command)
        return found


def _parts(text):
    return [text] if syntax.split(text.strip())[0] == 'alias' else typed.parts(text)


def _filled(text, rest):
    arguments = rest.split()

    def argument(found):
        number = found.group(1)
        if number == '*':
            return ' '.join(arguments)
        return arguments[int(number) - 1] if int(number) <= len(arguments) else found.group()
    if _PARAMETER.search(text):
        return _PARAMETER.sub(argument, text)
    return (text + ' ' + rest.strip()).strip()
