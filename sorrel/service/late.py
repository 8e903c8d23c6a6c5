"""The service in a program that ran before the server came: one for its process, whoever comes.

Each who comes brings a front end, and takes the place of the one before, who has left.
"""

import os

from sorrel.inspection import frames
from sorrel.service import first_thread
from sorrel.service.service import Service

# By processes: a forked one holds what is its parent's, too.
_places = {}


class Taken(Exception):
    """Somebody else debugs this program; the text says so."""


class _Place(object):

    def __init__(self):
        self.service = None
        # Has an item while nobody is there.
        self.vacant = [None]


def take(front_end):
    """The Service, with this front end. For a thread that is not to be debugged. Raises Taken."""
    known = _places.get(os.getpid())
    if known is None and Service.of_this_process() is not None:
        raise Taken('this program is run by a debugger already')
    place = _places.setdefault(os.getpid(), _Place())
    try:
        place.vacant.pop()
    except IndexError:
        raise Taken('somebody debugs this program already')
    try:
        # What this front end is of has been loaded by now.
        frames.learn_own_modules()
        if place.service is None:
            place.service = Service(front_end, catch_ctrl_c=False,
                                    main_thread=first_thread.ident())
        else:
            place.service.use(front_end)
    except BaseException:
        place.vacant.append(None)
        raise
    return place.service


def leave():
    """The one who has taken it has left, and nothing is stopped any more."""
    _places[os.getpid()].vacant.append(None)
