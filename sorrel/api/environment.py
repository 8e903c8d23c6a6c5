"""Programs that listen for clients because their environment says so.

An installed sorrel looks for it when the interpreter starts (sorrel.pth). Whatever goes wrong, the
program runs as it would have.
"""

from __future__ import absolute_import

import os
import sys

_LISTEN, _WAIT = 'SORREL_LISTEN', 'SORREL_WAIT'
# The process that listens. What it starts inherits the others, and is not to do so.
_PROCESS = 'SORREL_LISTENS_IN'


def begin():
    if os.environ.get(_PROCESS) in (None, str(os.getpid())):
        os.environ[_PROCESS] = str(os.getpid())
        try:
            _listen(os.environ[_LISTEN])
        except Exception:
            sys.stderr.write('sorrel: %s: %s\n' % (_LISTEN, sys.exc_info()[1]))


def _listen(text):
    from sorrel.api import listening
    listening.listen_at(text)
    if os.environ.get(_WAIT, '') not in ('', '0'):
        listening.wait_for_client(None)
