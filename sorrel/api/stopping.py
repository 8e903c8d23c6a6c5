"""Programs that stop because they have said so."""

from __future__ import absolute_import

import os
import sys
import types

from sorrel.api import Error
from sorrel.common.originals import thread, time
from sorrel.inspection import frames
from sorrel.service import exceptions, late
from sorrel.service.service import Service
from sorrel.terminal import colours
from sorrel.terminal.console import Console
from sorrel.terminal.frontend import Terminal

# How often is looked whether who comes or goes just now has done so.
_LOOK = 0.01
# Taken now: a program may replace what the interpreter's modules offer.
_sleep = time.sleep


class _OwnTerminal(Terminal):
    """Takes the program for as long as that is debugged in it."""

    def detached(self):
        self.service.leave()


def stop_here(in_terminal):
    if _is_debugged(in_terminal):
        Service.of_this_process().stop_here()


def post_mortem(traceback, error):
    """error: (type, value, traceback) that the traceback may be of."""
    if traceback is None:
        traceback = error[2]
    if traceback is None:
        raise ValueError('there is no exception to look at')
    if not isinstance(traceback, types.TracebackType):
        raise TypeError('a traceback is needed, not %r' % (traceback,))
    if traceback is not error[2]:
        error = Exception, Exception('unknown: only its traceback was given'), traceback
    if frames.of_program(traceback) is None:
        raise ValueError('nothing in the traceback is of the program')
    if _is_debugged(False):
        Service.of_this_process().look_at(tuple(error))


def debug_this_thread():
    service = Service.of_this_process()
    if service is None or not service.attached:
        return False
    service.trace_new_threads()
    return True


def _is_debugged(in_terminal):
    """Whether somebody debugs the program; if nobody did, it is the terminal from now on."""
    while True:
        service = late.service()
        if service.has_client():
            if in_terminal:
                raise Error('a client debugs this program: sorrel.breakpoint() stops in it')
            return service.is_tracing
        if service.is_tracing or _begin_terminal(service):
            return True
        _sleep(_LOOK)  # Somebody is on the way in or out.


def _begin_terminal(service):
    console = Console.of_person(sys.__stdin__, sys.__stdout__)
    console.colours = colours.of_process(
        console.name is not None and colours.are_wanted(os.environ))
    terminal = _OwnTerminal(console, False)
    terminal.use(service)
    if not service.take(terminal):
        return False
    if service.attached:
        terminal.detached()  # Another thread is still letting it go.
        return False
    service.exceptions.set_mode(exceptions.UNHANDLED)
    terminal.read_start_files()
    try:
        service.attach_from_program()
    except thread.error:
        terminal.detached()
        raise Error('cannot start a thread')
    return True
