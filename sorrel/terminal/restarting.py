"""The program again from its start, in the same process: what was said at the prompt is kept."""

from __future__ import absolute_import

import json
import os

from sorrel.common import temporary, text_files
from sorrel.processes import beginnings
from sorrel.terminal.typed import Line

_VARIABLE = 'SORREL_RESTART'


class RestartCommand(object):

    # How the process was started, if that was for the program.
    _beginning = None

    def do_run(self, argument):
        """run, restart: run the program again from its start, with the same arguments.

        Breakpoints, what is to be caught or skipped, displays, aliases and "sticky" are kept.
        """
        if self._beginning is None:
            self._say('*** Only a program that was started in the terminal, and is not in the '
                      'standard input, can be run again')
        elif not self._is_first():
            self._say('*** Only the first process can be run again')
        else:
            try:
                self._run_again()
            except EnvironmentError as error:
                self._say('*** Cannot run it again: %s' % error.strerror)
            except ValueError as error:
                self._say('*** Cannot run it again: %s' % error)

    def _run_again(self):
        kept = dict(self.described(), typed='', watched=self.described_watches())
        json.dumps(kept)  # What cannot be told has to be known before anything is done.
        self._end_others()
        self._say('Running the program again.')
        kept['typed'] = self._console.hand_over()
        self.service.flush()
        path = _written(json.dumps(kept))
        try:
            beginnings.begin_again(self._beginning, **{_VARIABLE: path})
        finally:
            os.unlink(path)

    def begin(self, can_run_again):
        """Before the program does: with what is kept from before, or else from files."""
        self._beginning = beginnings.of_this_process() if can_run_again else None
        if self._beginning is not None:
            self._beginning.environment.pop(_VARIABLE, None)
        path = os.environ.pop(_VARIABLE, None)
        if path is None:
            self.read_start_files()
            return
        kept = json.loads(text_files.text(path))
        os.unlink(path)
        for place in self.be_as(kept):
            self._news.append('*** No breakpoint any more at ' + place.encode('utf-8'))
        self.watch_as_before(kept['watched'])
        self.cmdqueue += map(Line, kept['typed'].encode('utf-8').splitlines())


def _written(text):
    """The path of a new file with this text, which only its user can read."""
    path, file = temporary.new_file()
    try:
        os.write(file, text)
    finally:
        os.close(file)
    return path
