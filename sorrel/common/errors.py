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
    return _lines(type, value)[-1].strip()


def whole_text(type, value):
    """The same as the interpreter prints it: a SyntaxError with its line and a caret."""
    return ''.join(_lines(type, value)).rstrip()


def _lines(type, value):
    """As the standard library has them, but with the characters of a unicode message, in UTF-8."""
    lines = traceback.format_exception_only(type, value)
    if len(lines) == 1 and '\\' in lines[0]:
        try:
            str(value)
        except UnicodeEncodeError:
            head = lines[0].partition(':')[0]
            try:
                return ['%s: %s\n' % (head, unicode(value).encode('utf-8'))]
            except Exception:
                pass  # It changes its mind.
        except Exception:
            pass
    return lines
