"""Whether a process runs."""

from __future__ import absolute_import

import errno
import os

# Taken now: a program may replace what the interpreter's modules offer.
_open = open


def is_alive(pid):
    """One that has ended may still be waited for by its parent, who may never do that."""
    try:
        os.kill(pid, 0)
        source = _open('/proc/%d/stat' % pid)
    except OSError as error:
        return error.errno == errno.EPERM
    except IOError:
        return True  # Another platform.
    try:
        return not source.read().rpartition(')')[2].startswith(' Z')
    except IOError:
        return False  # Since just now.
    finally:
        source.close()
