"""Lines of files, kept for the next time that they are asked for."""

from __future__ import absolute_import

from sorrel.common import text_files

# Characters of files that are kept, and of a single line that is shown.
_KEPT = 32 * 1024 * 1024
_LINE_LIMIT = 1000
# Lines by path, with what tells whether they have changed.
_lines = {}


def line(path, number):
    """A line of a file with its line end, '' where there is none."""
    try:
        version = text_files.version(path)
        if _lines.get(path, (None,))[0] != version:
            read = text_files.text(path).splitlines(True)
            if sum(known[1] for known in _lines.values()) > _KEPT:
                _lines.clear()
            _lines[path] = version, version[1], read
        return pick(_lines[path][2], number)
    except (text_files.Unreadable, KeyError):  # KeyError: cleared meanwhile.
        return ''


def pick(lines, number):
    """A line of a list, cut where it is too long; '' where there is none."""
    if not 0 < number <= len(lines):
        return ''
    found = lines[number - 1]
    return found if len(found) <= _LINE_LIMIT else found[:_LINE_LIMIT] + '...\n'
