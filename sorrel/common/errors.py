"""Errors as texts, and those of the server itself, for whoever runs the program."""

from __future__ import absolute_import

import sys
import traceback

from sorrel.common import file_lines


def print_error():
    """Prints the exception that is being handled, if that is possible."""
    try:
        sys.__stderr__.write(formatted(*sys.exc_info()))
    except Exception:
        pass  # The program has closed it.


def formatted(type, value, tb):
    """An exception as the interpreter prints it.

    The standard library would open whatever files the code names.
    """
    entries = []
    while tb is not None:
        code = tb.tb_frame.f_code
        line = file_lines.line(code.co_filename, tb.tb_lineno).strip()
        entries.append((code.co_filename, tb.tb_lineno, code.co_name, line or None))
        tb = tb.tb_next
    head = ['Traceback (most recent call last):\n'] if entries else []
    return ''.join(head + traceback.format_list(entries)
                   + traceback.format_exception_only(type, value))


def error_text(type, value):
    """An exception in one line, such as "NameError: name 'x' is not defined"."""
    return traceback.format_exception_only(type, value)[-1].strip()


def whole_text(type, value):
    """The same as the interpreter prints it: a SyntaxError with its line and a caret."""
    return ''.join(traceback.format_exception_only(type, value)).rstrip()
