"""Texts that code was made of which is in no file, where somebody has kept them.

But for a module's loader, nothing of the program's is run.
"""

from __future__ import absolute_import

import re
import sys
import types

from sorrel.common import text_files
from sorrel.inspection import attributes, given_texts, modules, source

_DOCTEST = re.compile(r'<doctest (.+)\[(\d+)\]>$', re.S)
# How many runs of doctests can be inside each other.
_RUNS = 100


def of_entry(entry):
    """The text that the code of an Entry of a stack was made of; '' where that is not known.

    To be called in its thread: the loader of its module may be asked.
    """
    code = entry.frame.f_code
    return given_texts.text(code) or _of_linecache(code.co_filename) \
        or _of_linecache(entry.path) or _of_doctest(code.co_filename) \
        or source.of_loader(entry.path, entry.frame.f_globals)


def _of_linecache(name):
    """What the program has put into the cache of the library's module."""
    cache = _linecache().get('cache')
    if not isinstance(cache, dict):
        return ''
    for key, entry in dict.items(cache):
        # No key of another type, which may compare itself to this one, is looked at.
        if type(key) is str and key == name:
            lines = entry[2] if type(entry) is tuple and len(entry) == 4 else ()
            return _joined(lines) if type(lines) in (list, tuple) else ''
    return ''


def _of_doctest(name):
    """Of an example of the doctests that run."""
    found = _DOCTEST.match(name)
    getter = _linecache().get('getlines') if found else None
    for _ in range(_RUNS):
        if type(getter) is not types.MethodType:
            break
        try:
            test = attributes.stored(getter.im_self, 'test')
            if attributes.stored(test, 'name') == found.group(1):
                example = attributes.stored(test, 'examples')[int(found.group(2))]
                return _joined([attributes.stored(example, 'source')])
            getter = attributes.stored(getter.im_self, 'save_linecache_getlines')
        except LookupError:
            break
    return ''


def _linecache():
    return modules.namespace(sys.modules.get('linecache'))


def _joined(lines):
    """Lines as one text; '' where they are no lines, or too many."""
    found, size = [], 0
    for line in lines:
        if type(line) is unicode:
            line = line.encode('utf-8')
        if type(line) is not str:
            return ''
        size += len(line)
        if size > text_files.LIMIT:
            return ''
        found.append(line)
    return ''.join(found)
