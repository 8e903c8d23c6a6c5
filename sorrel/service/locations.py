"""Files and functions of the program as a person names them."""

from __future__ import absolute_import

import os
import sys

from sorrel.common import text_files
from sorrel.inspection import file_code, functions, modules
from sorrel.service.breakpoints import Refused


class NoFile(Refused):
    """There is none of this name."""


# Each word of a name may be the last of a module's.
NAME_LIMIT = 1000


def find_file(name):
    """The path of a file: as it is named, in the module search path, or of a loaded module.

    The suffix ".py" may be left out. Raises Refused.
    """
    for wanted in (name, name + '.py'):
        for folder in [''] + [folder for folder in sys.path if isinstance(folder, str)]:
            path = os.path.join(folder, wanted)
            if text_files.is_file(path):
                return os.path.abspath(path)
    for module in sys.modules.values():
        path = modules.namespace(module).get('__file__')
        if isinstance(path, str):
            path = os.path.splitext(path)[0] + '.py'
            if path.endswith((os.sep + name, os.sep + name + '.py')) \
                    and text_files.is_file(path):
                return os.path.abspath(path)
    try:
        text_files.version(name)
    except text_files.Unreadable as error:
        if not error.is_missing:
            raise Refused('cannot read %s: %s' % (name, error))
    raise NoFile('no file %s' % name)


def find_function(name, path):
    """Path and first line of a function by its name in a file, such as "Class.method".

    Where the file has none, the first words of the name may be a module's. Raises Refused.
    """
    if len(name) > NAME_LIMIT:
        raise Refused('no function has so long a name')
    line = _line_in(path, name)
    if line is not None:
        return path, line
    words = name.split('.')
    for count in range(len(words) - 1, 0, -1):
        try:
            module = find_file(os.path.join(*words[:count]))
        except Refused:
            continue
        line = _line_in(module, '.'.join(words[count:]))
        if line is not None:
            return module, line
    raise Refused('no function %s in %s' % (name, path))


def _line_in(path, name):
    try:
        code = file_code.of_file(path).functions().get(name)
    except text_files.Unreadable:
        return None
    return code and functions.entry_line(code)
