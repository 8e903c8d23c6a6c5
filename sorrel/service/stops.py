"""What the service and its front ends tell each other."""

from __future__ import absolute_import

from sorrel.common.records import record
from sorrel.inspection.evaluation import Evaluator

# A thread has stopped. thread: its ident. reason: one of the words below. argument:
# the value on its way out (RETURNED), (type, value, traceback) (RAISED), whether the frame is about
# to be left (CALLED), whether it is in the midst of a line (INTERRUPTED), else None.
# frame: the frame; for RAISED with a policy it is the one where the exception was raised, which
# may have been left already. policy: for RAISED, the mode of sorrel.exceptions for whose sake it
# has stopped, None when its step has met the exception; or POST_MORTEM or TRACEBACK. is_end: whether
# the exception is about to end the thread, and with the main thread the program. called_by_c: whether
# it will come to C code that may swallow it or not.
Stop = record('Stop', 'thread frame reason argument policy is_end called_by_c')

STEPPED, INTERRUPTED, RETURNED, RAISED = 'step', 'interrupt', 'return', 'exception'
# Nothing has stopped: the thread waits for something.
WAITING = 'waiting'
# The program has called for it, in the line before or, where the frame is left, in this one.
CALLED = 'called'
# The exception has ended the program, of which nothing more will run than what follows its end.
POST_MORTEM = 'post-mortem'
# The program runs on: it has only shown where it has caught the exception.
TRACEBACK = 'traceback'
# The largest number of a line, and of hits to ignore, that the core takes.
NUMBER_LIMIT = 2 ** 31 - 1


def is_at_line(stop):
    """Whether the thread is about to run the line that its frame is at."""
    return stop.reason in (STEPPED, INTERRUPTED, CALLED) and not stop.argument


def evaluator(stop):
    """For what is typed at a Stop: what goes on there has names, and is sys.exc_info()."""
    if stop.reason == RAISED:
        return Evaluator(stop.argument, {'__exception__': stop.argument})
    return Evaluator(None, {'__return__': stop.argument} if stop.reason == RETURNED else {})


# How a stopped thread goes on: one of the words below. frame: in which frame of its stack a step
# is counted; None for the innermost. first, last: the lines that STEP_OVER_RANGE passes over. call:
# the LineCall of this frame that STEP_INTO_CALL leads into; where it comes to nothing, the step is
# one over the line.
Resume = record('Resume', 'action frame first last call', *[None] * 4)

# What becomes of the threads that wait for the stopped one when that goes on. They go on; wait until they are let go; wait for a moment, in
# which a step ends that does not wait for one of them.
ALL_GO, OTHERS_WAIT, OTHERS_WAIT_FIRST = 'all go', 'others wait', 'others wait first'

STEP_INTO = 'step_into'
STEP_INTO_CALL = 'step_into_call'
STEP_OVER = 'step_over'
STEP_OVER_LINE = 'step_over_line'
STEP_OVER_RANGE = 'step_over_line_range'
STEP_OUT = 'step_out'
CONTINUE = 'continue_run'
DETACH = 'detach'
QUIT = 'quit'
# The program goes on with a KeyboardInterrupt in its main thread.
INTERRUPT = 'interrupt'

# One thread of the program. ident: the interpreter's of it. frame: the innermost frame where it is
# now. stop: its Stop, None while it runs.
Thread = record('Thread', 'ident name frame stop')

# How the program ended: with which exit status, and the type of the exception that ended it
# (None for any other end).
Outcome = record('Outcome', 'status exception')
