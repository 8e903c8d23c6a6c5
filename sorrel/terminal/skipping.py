"""Commands about code that is passed by: neither steps nor "catch always" stop in it."""

from __future__ import absolute_import

import os

from sorrel.inspection import source
from sorrel.service.passing import is_of_files


class SkipCommands(object):

    def do_skip(self, argument):
        """skip [PATTERN | list | delete [NUMBER...]]: pass code by, or list or end that.

        Steps go through such code without a stop, and "catch always" does not mean it; breakpoints
        stop there all the same. A pattern with a slash, or that ends with ".py", is of files, such
        as */django/*; others are of modules, such as django.*. By default it is this function's
        file.
        """
        word, _, rest = argument.partition(' ')
        if not argument:
            self._skip_file()
        elif argument == 'list':
            self._list_skipped()
        elif word == 'delete':
            self._skip_no_more(rest.split())
        else:
            self._skip(_absolute(argument))

    def described_passing(self):
        """What pass_as() takes, in another process."""
        passing = self.service.passing
        return {'just_my_code': passing.just_my_code,
                'skipped': [known.pattern for known in passing.skipped]}

    def pass_as(self, described):
        passing = self.service.passing
        passing.set_just_my_code(described['just_my_code'])
        for pattern in described['skipped']:
            passing.skip(pattern.encode('utf-8'))

    def _skip(self, pattern):
        self.service.passing.skip(pattern)
        self._show_skipped(self.service.passing.skipped[-1])

    def _skip_file(self):
        if source.is_made_up(self._frame()):
            self._say('*** This function is in no file')
        else:
            self.service.passing.skip_file(self._frame())
            self._show_skipped(self.service.passing.skipped[-1])

    def _list_skipped(self):
        passing = self.service.passing
        if not passing.is_on():
            self._say('Nothing is skipped.')
        if passing.just_my_code:
            self._say('Code of libraries is passed by (--just-my-code).')
        for known in passing.skipped:
            self._show_skipped(known)

    def _show_skipped(self, known):
        self._say('Skip %d: %s %s' % (
            known.number, 'files' if is_of_files(known.pattern) else 'modules', known.pattern))

    def _skip_no_more(self, words):
        known = [str(skipped.number) for skipped in self.service.passing.skipped]
        for word in words:
            if word not in known:
                self._say('*** No skip %s' % word)
        self.service.passing.skip_no_more(
            *[int(word) for word in words or known if word in known])


def _absolute(pattern):
    """What begins as a path of the shell's does means that file."""
    if pattern.startswith('~'):
        return os.path.expanduser(pattern)
    return os.path.abspath(pattern) if pattern.startswith(('./', '../')) else pattern
