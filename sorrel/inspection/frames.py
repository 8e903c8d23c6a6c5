"""Which frames are the program's, and which are the server's own or the interpreter's."""

from __future__ import absolute_import

import os
import sys
import threading

OWN_FOLDER = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
_THREAD_START = ('__bootstrap', '__bootstrap_inner')
# The id()s of the variables of the server's modules.
own_namespaces = set()
_outside = []


def set_entry(frame):
    """The program is run by this frame: it and its callers are none of the program's."""
    _outside[:] = callers(frame)


def is_entry(frame):
    return bool(_outside) and frame is _outside[0]


def learn_own_modules():
    """Called when all modules of the server are loaded."""
    for name, module in sys.modules.items():
        if module is not None and name.split('.')[0] == __name__.split('.')[0]:
            own_namespaces.add(id(module.__dict__))


def own_files():
    """The server's source files, as the keys of a dict."""
    found, folders = {}, [OWN_FOLDER]
    while folders:
        folder = folders.pop()
        for name in os.listdir(folder):
            path = os.path.join(folder, name)
            if name.endswith('.py'):
                found[path] = True
            elif '.' not in name and os.path.isdir(path):
                folders.append(path)
    return found


def is_own_namespace(variables):
    """Whether these are the variables of a module of the server's."""
    return id(variables) in own_namespaces


def is_own(frame):
    # By identity: file names in compiled modules can be stale.
    return is_own_namespace(frame.f_globals)


def is_program(frame):
    if is_own(frame) or frame in _outside:
        return False
    return not (frame.f_code.co_name in _THREAD_START
                and frame.f_globals is threading.__dict__)


def callers(frame):
    """The frame and those that it was called from, innermost first."""
    while frame is not None:
        yield frame
        frame = frame.f_back


def without_own_calls(frame):
    """The frame of the program that this one was called from, where it is the server's own.

    Where a thread waits for another one that is stopped, its innermost frames are.
    """
    for caller in callers(frame):
        if is_program(caller):
            return caller
    return frame


def outward(frame):
    """The program's frames from this one to its outermost."""
    for caller in callers(frame):
        if not is_program(caller):
            break
        yield caller


def without_own(traceback):
    """The part of a traceback that begins in the program."""
    while traceback is not None and is_own(traceback.tb_frame):
        traceback = traceback.tb_next
    return traceback


def of_program(traceback):
    """The part of a traceback that begins in the program; None when there is none."""
    while traceback is not None and not is_program(traceback.tb_frame):
        traceback = traceback.tb_next
    return traceback


def innermost(traceback):
    """The last part of a traceback: where the exception was raised."""
    while traceback.tb_next is not None:
        traceback = traceback.tb_next
    return traceback
