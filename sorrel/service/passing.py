"""Code that is passed by: steps go through it, and stopping at every exception does not mean it."""

from __future__ import absolute_import

import fnmatch
import os
import re

import tmorvik26_vs2012_x64 as core

from sorrel.common.records import record
from sorrel.inspection import frames, libraries, source
from sorrel.service.rules import Rules

_pass_no_code = core._for_sorrel['pass_no_code']

# number: what it goes by until it is dropped. pattern: of a file's name, or of a module's.
Skipped = record('Skipped', 'number pattern')

_MAGIC = re.compile(r'([*?[])')


class Passing(object):
    """just_my_code: whether that is all code of libraries. skipped: what else, a list of Skipped.

    Both are changed by the methods alone, and so is what else is the user's own code, or is not.
    """

    def __init__(self):
        self._forget_settings()

    def forget(self):
        """The core has been reset: no code is passed by."""
        self._forget_settings()
        _pass_no_code()

    def set_just_my_code(self, on):
        self.just_my_code = on
        _pass_no_code()

    def set_rules(self, rules):
        """rules: as Rules has them; they go before just_my_code, and hold without it, too."""
        self._rules = Rules(rules)
        _pass_no_code()

    def skip(self, pattern):
        """pattern: as fnmatch has it; of whole names, but that a file's may lack folders."""
        self._last_number += 1
        self._set_skipped(self.skipped + [Skipped(self._last_number, pattern)])

    def skip_file(self, frame):
        """The same for the file of this frame's code."""
        self.skip(_MAGIC.sub(r'[\1]', source.file_name(frame)))

    def skip_no_more(self, *numbers):
        self._set_skipped([known for known in self.skipped if known.number not in numbers])

    def is_on(self):
        return bool(self.just_my_code or self.skipped or self._rules)

    def passes(self, frame):
        """Whether this frame's code is passed by."""
        verdict = self._rules.verdict(frame)
        if verdict is None:
            verdict = not self.just_my_code or libraries.is_own_code(frame)
        return not verdict or bool(self.skipped) and frames.is_program(frame) and self._skips(frame)

    def is_own_code(self, frame):
        """Whether it is the user's own, be code of libraries passed by or not."""
        verdict = self._rules.verdict(frame)
        return libraries.is_own_code(frame) if verdict is None else verdict

    def is_own_file(self, path, module):
        """The same of a file of the program's and the name of its module, which may be none."""
        verdict = self._rules.verdict_of(path, module)
        return not libraries.is_library(path) if verdict is None else verdict

    def passes_file(self, path, module):
        """Whether the code of such a file is passed by, for what just_my_code and rules say."""
        verdict = self._rules.verdict_of(path, module)
        return self.just_my_code and libraries.is_library(path) if verdict is None else not verdict

    def _forget_settings(self):
        self.just_my_code = False
        self._rules = Rules()
        self.skipped = []
        self._last_number = 0
        self._matchers = []

    def _set_skipped(self, skipped):
        matchers = [_matcher(known.pattern) for known in skipped]
        self.skipped, self._matchers = skipped, matchers
        _pass_no_code()

    def _skips(self, frame):
        path, module = source.file_name(frame), dict.get(frame.f_globals, '__name__')
        for matches_file, matches in self._matchers:
            name = path if matches_file else module
            if isinstance(name, str) and matches(name):
                return True
        return False


def is_of_files(pattern):
    """Whether it is one of the names of files; else of those of modules."""
    return os.sep in pattern or pattern.endswith('.py')


def _matcher(pattern):
    """What a pattern is of, and a function that takes a name."""
    whole = pattern
    if is_of_files(pattern) and not pattern.startswith((os.sep, '*')):
        whole = '*/' + pattern
    return is_of_files(pattern), re.compile(fnmatch.translate(whole)).match
