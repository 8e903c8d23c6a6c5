"""What Tab completes: commands and names, and what certain commands are about."""

from __future__ import absolute_import

import os
import re
import rlcompleter

from sorrel.inspection import evaluation
from sorrel.terminal import syntax

_NAMES = re.compile(r'[\w.]*$')


class Completion(object):

    def completions(self, text, line, begin, end):
        """What a word may become that lies between these two in the line."""
        indent = len(line) - len(line.lstrip())
        line, begin, end = line[indent:], begin - indent, end - indent
        if begin <= 0:
            return self.completenames(text, line, begin, end)
        command = self.parseline(line)[0]
        of_command = getattr(self, 'complete_' + command, None) if command else None
        return (of_command or self.completedefault)(text, line, begin, end)

    def completedefault(self, text, line, begin, end):
        """Where what is typed is no command yet, or says nothing else."""
        of_command = getattr(self, 'complete_' + syntax.split(line.lstrip())[0], None)
        return of_command(text, line, begin, end) if of_command is not None \
            else self._names(text)

    def complete_break(self, text, line, begin, end):
        return self._files_or_names(text, line[:end], ':')

    complete_tbreak = complete_clear = complete_logpoint = complete_break

    def complete_source(self, text, line, begin, end):
        return self._files_or_names(text, line[:end], '')

    def complete_skip(self, text, line, begin, end):
        words = [word for word in ('list', 'delete') if word.startswith(text)]
        return _files(text, line[:end].split(' ')[-1], '') + (
            words if len(line[:begin].split()) < 2 else [])

    def complete_save(self, text, line, begin, end):
        if len(line[:begin].split()) < 2:
            return [word for word in ('breakpoints',) if word.startswith(text)]
        return _files(text, line[:end].split(' ')[-1], '')

    def complete_delete(self, text, line, begin, end):
        return [str(breakpoint.number) for breakpoint in self._all_points()
                if str(breakpoint.number).startswith(text)]

    complete_enable = complete_disable = complete_commands = complete_delete

    def complete_condition(self, text, line, begin, end):
        """What follows the number is an expression."""
        words = line[:begin].split()
        return self.complete_delete(text, line, begin, end) if len(words) < 2 else self._names(text)

    complete_ignore = complete_condition

    def complete_unalias(self, text, line, begin, end):
        return [name for name in sorted(self._aliases) if name.startswith(text)]

    def _files_or_names(self, text, before, after):
        word = before.split(' ')[-1]
        names = self._names(text) if _NAMES.match(word) else []
        return _files(text, word, after) + names

    def _names(self, text):
        try:
            evaluation.check_size(text)
        except SyntaxError:
            return []  # What is before its last dot would be evaluated.
        view = self._view()
        if view is not None:
            names = view.known()
        else:
            names = dict(self._frame().f_globals)
            names.update(self._frame().f_locals)
        names = dict(self._evaluator.names, **names)
        completer = rlcompleter.Completer(names)
        return completer.attr_matches(text) if '.' in text else completer.global_matches(text)


def _files(text, word, after):
    """Files and folders that a word may become; only those of Python where something follows.

    text: the last part of that word, which is what is replaced. after: what follows a file's name.
    """
    folder, beginning = os.path.split(os.path.expanduser(word))
    try:
        names = sorted(os.listdir(folder or '.'))
    except OSError:
        return []
    kept = len(beginning) - len(text)
    found = []
    for name in names:
        if name.startswith(beginning) and (beginning or not name.startswith('.')):
            if os.path.isdir(os.path.join(folder, name)):
                found.append(name[kept:] + '/')
            elif not after or name.endswith('.py'):
                found.append(name[kept:] + after)
    return found
