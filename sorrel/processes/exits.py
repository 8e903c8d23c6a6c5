"""The end of a process by os._exit, of which nothing else tells.

So end most of the processes that the program forks.
"""

from __future__ import absolute_import

import posix

from sorrel.processes.replacements import Replacement, replace

_ORIGINAL = posix._exit
_replacements = []


def install(leave):
    """From now on. leave: called before the process ends."""
    def exits(*args):
        try:
            leave()
        except Exception:
            pass  # The end is not to be missed.
        return args
    replacement = Replacement(_ORIGINAL, exits)
    replace(_replacements or [_ORIGINAL], [replacement])
    _replacements[:] = [replacement]
