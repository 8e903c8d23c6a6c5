"""What the first line of a stop at an exception says."""

from __future__ import absolute_import

from sorrel.service import exceptions
from sorrel.service.stops import POST_MORTEM, TRACEBACK

RAISED = {
    exceptions.UNHANDLED: '--Unhandled exception--',
    exceptions.USER_UNHANDLED: '--Exception that leaves your own code--',
    exceptions.PRINTED: '--Exception that is printed--',
    exceptions.ALWAYS: '--Exception--',
    POST_MORTEM: '--Post-mortem: the program has ended--',
    TRACEBACK: '--Post-mortem--'}
