"""Errors of the server itself, for whoever runs the program."""

import sys
import traceback


def print_error():
    """Prints the exception that is being handled, if that is possible."""
    try:
        traceback.print_exc(file=sys.__stderr__)
    except Exception:
        pass  # The program has closed it.
