"""What the system tells of the process's main thread."""

from __future__ import absolute_import

import os

_SLEEPS = 'S'
# Taken now: a program may replace what the interpreter's modules offer.
_open, _getpid = open, os.getpid


class Activity(object):

    def __init__(self):
        self._last = _state()

    def has_waited(self):
        """Whether it has slept all the time since this was asked last.

        One that waits for the interpreter lock is woken as soon as the thread that asks sleeps.
        True where the system does not say.
        """
        last, self._last = self._last, _state()
        return self._last == last and self._last[:1] in ('', _SLEEPS)


def _state():
    """The letter of its state, then how often it was woken; '' where that is not known."""
    try:
        source = _open('/proc/self/task/%d/status' % _getpid())
    except IOError:
        return ''
    try:
        lines = source.read().split('\n')
    except IOError:
        return ''
    finally:
        source.close()
    values = [line.partition(':')[2].strip() for line in lines
              if line.startswith(('State:', 'voluntary_ctxt', 'nonvoluntary_ctxt'))]
    return ' '.join(values)
