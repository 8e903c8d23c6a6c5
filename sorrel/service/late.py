"""The service in a program that ran before the server came: one for its process, whoever comes.

Each who comes brings a front end, and takes the place of the one before, who has left.
"""

from __future__ import absolute_import

import os

from sorrel.common.originals import thread
from sorrel.inspection import frames
from sorrel.service import first_thread
from sorrel.service.service import Service

# Taken now: a program may replace what the interpreter's modules offer.
_new_lock = thread.allocate_lock
# By processes: a forked one holds what is its parent's, too.
_made = {}
_making = {}


class Taken(Exception):
    """Somebody else debugs this program; the text says so."""


def service():
    """The one of this process, made where there is none yet."""
    # What the front ends are of has been loaded by now.
    frames.learn_own_modules()
    found = Service.of_this_process()
    if found is not None:
        return found
    making = _making.setdefault(os.getpid(), _new_lock())
    making.acquire()
    try:
        found = Service.of_this_process()
        if found is None:
            found = _made[os.getpid()] = Service(None, catch_ctrl_c=False,
                                                 main_thread=first_thread.ident())
        return found
    finally:
        making.release()


def take(front_end):
    """The service, with this front end. For a thread that is not to be debugged. Raises Taken."""
    found = service()
    if found is not _made.get(os.getpid()):
        raise Taken('this program is run by a debugger already')
    if not found.take(front_end):
        raise Taken('somebody debugs this program already')
    return found


def leave():
    """The one who has taken it has left, and nothing is stopped any more."""
    Service.of_this_process().leave()
