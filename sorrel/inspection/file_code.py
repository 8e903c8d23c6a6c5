"""The code of source files, by lines and functions, kept until the files change."""

from __future__ import absolute_import

import bisect

from sorrel.common import text_files
from sorrel.inspection import code_lines, compiled_files, nesting
from sorrel.languages import sublanguages

PYTHON = ('.py', '.pyw')
# Bytes of files whose code is kept.
_KEPT = 32 * 1024 * 1024
# By path, with what tells whether the file has changed, and its size.
_known = {}


class FileCode(object):
    """refusal: why there is no line that can stop the program, or None."""

    def __init__(self, code, filled=(), refusal=None):
        """code: of all of the file. filled: without that, the lines that may have some."""
        self._code = code
        self._filled = filled
        self.refusal = refusal
        self._functions = self._ranges = None

    def is_guess(self):
        """Whether more may be known when the file's module is loaded."""
        return self._code is None and self.refusal is None

    def functions(self):
        """The code of functions and classes, by their names; of several, the first."""
        self._look_inside()
        return self._functions

    def next_line(self, wanted):
        """This line, or the next one that has code; None for none."""
        if self._code is None:
            after = bisect.bisect_left(self._filled, wanted)
            return self._filled[after] if after < len(self._filled) else None
        self._look_inside()
        found = None
        for first, last, code, _ in self._ranges:
            if last >= wanted and (found is None or first < found):
                there = [line for line in code_lines.of_code(code) if line >= wanted]
                found = min(there + [found or last])
        return found

    def lines(self, first, last):
        """Those of these lines that have code, in their order."""
        if self._code is None:
            return [line for line in self._filled if first <= line <= last]
        self._look_inside()
        there = set()
        for begins, ends, code, _ in self._ranges:
            if begins <= last and ends >= first:
                there.update(code_lines.of_code(code))
        return sorted([line for line in there if first <= line <= last])

    def class_at(self, line):
        """The name of the class that a line stands in; None for none."""
        self._look_inside()
        found = None
        for first, last, code, class_name in self._ranges:
            # What is inside comes later.
            if first <= line <= last and line in code_lines.of_code(code):
                found = class_name
        return found

    def _look_inside(self):
        """As late as it is needed: there may be many functions."""
        if self._functions is None:
            inside = list(code_lines.functions(self._code)) if self._code is not None else []
            self._ranges = [_range(code, class_name) for _, code, class_name in inside]
            if self._code is not None:
                self._ranges.insert(0, _range(self._code, None))
            self._functions = dict([(name, code) for name, code, _ in reversed(inside)])


def of_file(path):
    """The FileCode of a source file. Raises text_files.Unreadable."""
    version = text_files.version(path)
    of_template = None if path.endswith(PYTHON) else sublanguages.known_lines(path, version)
    if of_template is not None:
        return FileCode(None, of_template)
    known_version, _, found = _known.get(path, (None, 0, None))
    is_known = known_version == version
    if is_known and not found.is_guess():
        return found
    code = compiled_files.code_of(path, version)
    if code is not None:
        found = FileCode(code)
    elif not is_known:
        found = of_text(text_files.text(path), path)
    if sum([size for _, size, _ in _known.values()]) > _KEPT:
        _known.clear()
    _known[path] = version, version[1], found
    return found


def of_text(text, path):
    """The same of a text. The code of much of it is not found out."""
    try:
        return FileCode(code_lines.compiled(text, path))
    except nesting.TooMuch:
        pass
    except (SyntaxError, TypeError) as error:
        if path.endswith(PYTHON):
            return FileCode(None, (), '%s is no Python program: %s' % (path, error))
    # Of a sub-language, whose hook alone knows more; or too much to find out more.
    return FileCode(None, code_lines.filled(text))


def _range(code, class_name):
    last = code.co_firstlineno + sum(bytearray(code.co_lnotab)[1::2])
    return code.co_firstlineno, last, code, class_name
