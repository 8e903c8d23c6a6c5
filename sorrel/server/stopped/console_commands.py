"""What the console takes beside Python: commands of the terminal that the protocol has none for.

None of them is a statement or an expression of Python.
"""

from __future__ import absolute_import

from sorrel.protocol.messages import Refused
from sorrel.service import exceptions
from sorrel.service.stops import RAISED


def execute(typed, stop, policy):
    """Carries out a command; what it has to say, or None where this is none.

    policy: the service's Exceptions. Raises Refused.
    """
    command = _COMMANDS.get(' '.join(typed.split()))
    return None if command is None else command(stop, policy)


def _ignore_place(stop, policy):
    if stop.reason != RAISED:
        raise Refused('the thread has not stopped at an exception')
    place = exceptions.raised_at(stop.argument)
    policy.ignore(place)
    return 'Will not stop at exceptions raised at %s:%d.' % place


def _clear_ignored_places(stop, policy):
    for place in list(policy.ignored):
        policy.unignore(place)
    return 'Will stop at exceptions raised anywhere.'


def _learn(stop, policy):
    policy.learning.is_on = True
    return 'Will not stop again where exceptions turn out to be swallowed.'


def _learn_off(stop, policy):
    policy.learning.is_on = False
    return 'Will stop where exceptions seem to be unhandled.'


_COMMANDS = {'catch ignore': _ignore_place, 'ignore clear': _clear_ignored_places,
             'catch learn': _learn, 'catch learn off': _learn_off}
