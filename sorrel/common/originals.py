"""The interpreter's modules as they came, whatever a program has put in the place of their functions.

Programs replace those by functions that switch to another greenlet, for all code there is. None of
the server's may: the thread that it runs in has no other to switch to, or is the program's. What is
called `socket` here is what that is made of.
"""

from __future__ import absolute_import

import imp
import sys


def _original(name):
    module = __import__(name)
    own = 'sorrel ' + name
    try:
        # The interpreter keeps what each module in C was when it had just been loaded, by its file
        # or, built in, its name. It fills a new module with that, under any name.
        return imp.load_dynamic(own, getattr(module, '__file__', name))
    except ImportError:
        return module
    finally:
        sys.modules.pop(own, None)


select, socket, thread, time = [
    _original(name) for name in 'select', '_socket', 'thread', 'time']
