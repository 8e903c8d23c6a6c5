"""File names and source lines of frames and of entries of stacks."""

from __future__ import absolute_import

import os

import tmorvik26_vs2012_x64 as core

from sorrel.common import file_lines, source_encoding, text_files
from sorrel.inspection import given_texts, modules


def file_name(frame):
    """The full name of the frame's file; names such as "<stdin>" stay as they are."""
    name = frame.f_code.co_filename
    if is_made_up(frame):
        # The core goes by the module's file here, whose lines are not these.
        return name
    return core.get_frame_file(frame)


def is_made_up(frame):
    """Whether the frame's code was given a name that no file has, such as "<stdin>"."""
    return is_made_up_name(frame.f_code.co_filename, frame.f_globals)


def is_made_up_name(name, globals):
    """The same of a name, for code of the module with these variables."""
    if is_no_file(name):
        return True
    # What was compiled elsewhere has at least its last part in common with the module's file.
    of_module = dict.get(globals, '__file__')
    return isinstance(of_module, str) \
        and os.path.basename(name) != os.path.basename(modules.source_name(of_module)) \
        and not text_files.is_file(name)


def place(entry):
    """Where an entry is, such as "/home/me/program.py(12)main()"."""
    return '%s(%d)%s()' % (entry.path, entry.line, entry.frame.f_code.co_name)


def line(entry, number):
    """A line of the entry's file with its line end, in UTF-8; '' where there is none.

    For a thread of the program: the loader of the module may be asked.
    """
    if is_no_file(entry.path):
        return given_texts.line(entry.frame.f_code, number)
    found = line_of_file(entry.path, number)
    if found:
        return found
    lines = of_loader(entry.path, entry.frame.f_globals).splitlines(True)
    return source_encoding.line(lambda wanted: file_lines.pick(lines, wanted), number)


def line_of_file(path, number):
    """The same of a file alone."""
    return source_encoding.line(lambda wanted: file_lines.line(path, wanted), number)


def of_loader(path, globals):
    """What the loader of a module knows of a file that only it can read; '' for nothing.

    globals: the module's. The loader may be the program's, and is only to be asked in its threads.
    """
    if text_files.is_file(path):
        return ''
    # What a module has made itself is not its loader's.
    if is_no_file(path) and not _is_name_of(path, globals):
        return ''
    try:
        text = globals['__loader__'].get_source(globals['__name__'])
    except Exception:
        return ''  # There is none, or it has an error.
    if isinstance(text, unicode):
        text = text.encode('utf-8')
    if not isinstance(text, str) or len(text) > text_files.LIMIT:
        return ''
    return text


def _is_name_of(path, globals):
    """Whether the module with these variables says that this is its file."""
    of_module = dict.get(globals, '__file__')
    return type(of_module) is str and of_module == path


def is_no_file(name):
    return name.startswith('<') and name.endswith('>')
