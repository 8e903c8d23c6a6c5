"""Files that are named with other letters than they have, as where upper and lower case are one."""

from __future__ import absolute_import

import os

from sorrel.common import text_files

# So many folders that differ in nothing else are looked into.
_MOST = 20


def other(path, known):
    """The one file whose name differs in the case of letters alone; None for none or several.

    known: names of files to be looked at first.
    """
    lower = path.lower()
    found = set([name for name in known if name.lower() == lower and name != path])
    if not found:
        found = set([name for name in _on_disk(path) if text_files.is_file(name)])
    return found.pop() if len(found) == 1 else None


def _on_disk(path):
    found = [os.sep]
    for part in path.split(os.sep)[1:]:
        there = [os.path.join(folder, part) for folder in found]
        found = [name for name in there if os.path.lexists(name)] \
            or [name for folder in found[:_MOST] for name in _alike(folder, part)]
    return found


def _alike(folder, part):
    try:
        return [os.path.join(folder, name) for name in os.listdir(folder)
                if name.lower() == part.lower()]
    except OSError:
        return []
