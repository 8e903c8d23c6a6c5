"""What the user has said of the code of certain files and modules: whether it is his own."""

from __future__ import absolute_import

from sorrel.common import patterns
from sorrel.inspection import frames, source

# By the ids of code objects, which are kept: equal ones of several files are one for a dict.
_KNOWN_LIMIT = 5000


class Rules(object):

    def __init__(self, rules=()):
        """rules: ('path' or 'module', a pattern, whether such code is his own); the first that a
        name has decides. Raises ValueError for what is no pattern.
        """
        self._rules = [
            (kind == 'path', patterns.of_files(pattern) if kind == 'path'
             else patterns.of_modules(pattern), includes) for kind, pattern, includes in rules]
        self._known = {}

    def __nonzero__(self):
        return bool(self._rules)

    def verdict(self, frame):
        """Whether the frame's code is the user's own; None where no rule is about it."""
        if not self._rules or not frames.is_program(frame):
            return None
        code = frame.f_code
        known = self._known.get(id(code))
        if known is None:
            if len(self._known) >= _KNOWN_LIMIT:
                self._known.clear()
            known = self._known[id(code)] = code, self.verdict_of(
                source.file_name(frame), dict.get(frame.f_globals, '__name__'))
        return known[1]

    def verdict_of(self, path, module):
        """The same of a file's name and a module's, which may be none."""
        for is_of_files, matches, includes in self._rules:
            name = path if is_of_files else module
            if isinstance(name, str) and matches(name):
                return includes
        return None
