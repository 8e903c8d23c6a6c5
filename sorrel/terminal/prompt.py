"""How what a person types is understood, whatever the front end can do with it."""

from __future__ import absolute_import

from sorrel.terminal import syntax

_DETACH = 'Detach, and let the program run on by itself? (y or n) '


class PromptLines(object):
    """The front end has `_is_variable(name)`, whether the frame that is shown has one of this name;
    `_is_known(name)`, whether anything there, or of the debugger's, is called so; `_execute(text)`,
    which runs a statement; and `do_detach`.
    """

    def parseline(self, line):
        line = line.strip()
        name, rest = syntax.split(line)
        if not hasattr(self, 'do_' + name) or not syntax.is_command(name, rest.strip()) \
                or syntax.is_statement(name, rest, self._is_variable(syntax.typed_word(line)[0])):
            return '', None, line
        return name, rest.strip(), line

    def default(self, line):
        complaint = self._complaint(line)
        if complaint is not None:
            self._say('*** ' + complaint)
        else:
            self._execute(line.lstrip('!'))

    def is_statement(self, line):
        return bool(line) and not self.parseline(line)[0] and self._complaint(line) is None

    def _complaint(self, line):
        """Why a line that is no command cannot be a statement either; None where it can be one."""
        name, rest = syntax.split(line)
        if not name or name.startswith('_') or syntax.goes_on(rest):
            return None
        command = getattr(self, 'do_' + name, None)
        if command is not None:
            if not rest.strip() and self._is_variable(syntax.typed_word(line)[0]):
                return None
            return 'Usage: ' + _documentation(command).partition(':')[0]
        if syntax.is_keyword(name) or self._is_known(name):
            return None
        meant = syntax.like(name, self.command_names())
        return 'No such command: %s%s' % (name, '. Did you mean %s?' % meant if meant else '')

    def command_names(self):
        return set(name[3:] for name in self.get_names() if name.startswith('do_'))

    def do_help(self, argument):
        """help, h, ? [COMMAND]: this list, or more about a command."""
        if argument:
            command = getattr(self, 'do_' + syntax.ALIASES.get(argument, argument), None)
            self._say(_documentation(command) if command else '*** No command %s' % argument)
            return
        for name in sorted(self.command_names()):
            self._say(_documentation(getattr(self, 'do_' + name)).splitlines()[0])
        self._say('Anything else is executed as a statement, and so is what follows a "!".')
        self._say('An empty line repeats the last command. End of input lets the program run on.')

    def _agreed(self, question):
        answer = self._console.read_line(question, None)
        return answer is not None and _is_yes(answer)

    def _leave_at_end_of_input(self):
        """Unless a person at a terminal says no."""
        if self._console.name is not None:
            # A terminal that is gone answers with another end of input.
            answer = self._console.read_line(_DETACH, None)
            if answer is not None and not _is_yes(answer):
                return
            if answer is None:
                self._say('')
        self.do_detach('')


def _is_yes(answer):
    return answer.strip().lower() in ('y', 'yes')


def _documentation(command):
    """What a command says of itself, without the indentation that this has in the source."""
    lines = command.__doc__.strip().splitlines()
    margin = min([len(line) - len(line.lstrip()) for line in lines[1:] if line.strip()] or [0])
    return '\n'.join(lines[:1] + [line[margin:] for line in lines[1:]])
