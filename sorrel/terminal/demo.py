"""Plays a recorded session over an example, through the terminal front end that a person uses."""

from __future__ import absolute_import

import sys

from sorrel.service import runner
from sorrel.terminal import frontend
from sorrel.terminal.console import Console


class _Player(Console):
    """Types the commands of a recording and keeps the answers."""

    def __init__(self, recording):
        Console.__init__(self)
        self._readline = None
        self._to_type = [command for command, _ in recording.typed]
        self.answers = ['']

    def write(self, text):
        Console.write(self, text)
        # What goes to another stream comes in its order.
        sys.stdout.flush()
        self.answers[-1] += text

    def _plain_line(self):
        if not self._to_type:
            return None
        command = self._to_type.pop(0)
        self.write(command + '\n')
        self.answers.append('')
        return command


def play(recording):
    """Returns 0, or 1 when the session did not go as recorded. Raises runner.CannotRead."""
    script = runner.find_script(recording.program)
    sys.stdout.write(recording.introduction)
    player = _Player(recording)
    terminal = frontend.over_service(player)
    runner.prepare(script, [], recording.hooks)
    runner.run(script, terminal.service)
    return _check(recording, player.answers[1:])


def _check(recording, answers):
    for (command, expected), answer in zip(recording.typed, answers):
        if expected not in answer:
            sys.stderr.write('sorrel: the demo went wrong at %r: %r\n' % (command, answer))
            return 1
    if len(answers) != len(recording.typed) or frontend.Terminal.prompt in answers[-1]:
        sys.stderr.write('sorrel: the demo did not end where it should\n')
        return 1
    return 0
