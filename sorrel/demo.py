"""Plays a short session over an example, through the terminal front end that a person uses."""

import os
import sys

from sorrel import runner
from sorrel.console import Console
from sorrel.terminal import frontend

_PROGRAM = os.path.join(
    os.path.dirname(os.path.dirname(os.path.abspath(__file__))), 'examples', 'ledger.py')

_INTRODUCTION = '''\
A session with the debugger over examples/ledger.py: stepping into a transfer between two
accounts, looking around, changing a variable and seeing the program go on with it.

'''

# What is typed, and what the answer has to contain. Nothing typed repeats the last command.
_SESSION = [
    ('next', 'class Overdrawn'),
    ('', 'class Account'),
    ('', 'def transfer'),
    ('', 'def statement'),
    ('', 'def main'),
    ('', "if __name__ == '__main__'"),
    ('step', '-> main()'),
    ('step', "-> ada = Account('Ada')"),
    ('next', "-> bob = Account('Bob', 50)"),
    ('next', '-> ada.deposit(200)'),
    ('next', '-> transfer(ada, bob, 80)'),
    ('step', '-> source.withdraw(amount'),
    ('args', 'source = <Ada: 200>\ntarget = <Bob: 50>\namount = 80\n'),
    ('step', '-> if amount > self.balance'),
    ('list', '24  ->\t        if amount > self.balance'),
    ('where', '-> transfer(ada, bob, 80)'),
    ('up', '-> source.withdraw(amount'),
    ('print source.entries, target.entries', "([('deposit', 200)], [])\n"),
    ('whatis source.withdraw', 'Method withdraw\n'),
    ('down', 'withdraw()'),
    ('return', "withdraw()->120\n"),
    ('next', "-> target.deposit(amount, 'from ' + source.owner)"),
    ('amount = 1000', ''),
    ('next', 'transfer()->None\n'),
    ('next', '-> ada.add_interest(5)'),
    ('print bob', '<Bob: 1050>\n'),
    ('continue', ''),
]


class _Player(Console):
    """Types the session's commands and keeps the answers."""

    def __init__(self):
        Console.__init__(self)
        self._readline = None
        self._to_type = [command for command, _ in _SESSION]
        self.answers = ['']

    def write(self, text):
        Console.write(self, text)
        self.answers[-1] += text

    def _plain_line(self):
        if not self._to_type:
            return None
        command = self._to_type.pop(0)
        self.write(command + '\n')
        self.answers.append('')
        return command


def play():
    """Returns 0, or 1 when the session did not go as recorded."""
    sys.stdout.write(_INTRODUCTION)
    player = _Player()
    terminal = frontend.over_service(player)
    runner.run(_PROGRAM, [], terminal.service)
    return _check(player.answers[1:])


def _check(answers):
    for (command, expected), answer in zip(_SESSION, answers):
        if expected not in answer:
            sys.stderr.write('sorrel: the demo went wrong at %r: %r\n' % (command, answer))
            return 1
    if len(answers) != len(_SESSION) or answers[-1]:
        sys.stderr.write('sorrel: the demo did not end where it should\n')
        return 1
    return 0
