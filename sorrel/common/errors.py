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
    return below(traceback.format_list(entries(tb)), type, value)


def entries(tb, is_left_out=None):
    """What a traceback says: (file, line number, name of the code, line) of each of its parts.

    is_left_out: whether a frame is not to be among them.
    """
    found = []
    while tb is not None:
        if is_left_out is None or not is_left_out(tb.tb_frame):
            code = tb.tb_frame.f_code
            line = file_lines.line(code.co_filename, tb.tb_lineno).strip()
            found.append((code.co_filename, tb.tb_lineno, code.co_name, line or None))
        tb = tb.tb_next
    return found


def below(entries, type, value):
    """An exception as the interpreter prints it, below the texts of these entries."""
    head = ['Traceback (most recent call last):\n'] if entries else []
    return ''.join(head + entries + traceback.format_exception_only(type, value))


def error_text(type, value):
    """An exception in one line, such as "NameError: name 'x' is not defined"."""
    return traceback.format_exception_only(type, value)[-1].strip()


def whole_text(type, value):
    """The same as the interpreter prints it: a SyntaxError with its line and a caret."""
    return ''.join(traceback.format_exception_only(type, value)).rstrip()
