"""Files and functions of the program as a person names them."""

import os
import sys

from sorrel import codelines
from sorrel.breakpoints import Refused


def find_file(name):
    """The path of a file: as it is named, in the module search path, or of a loaded module.

    The suffix ".py" may be left out. Raises Refused.
    """
    name = os.path.expanduser(name)
    for wanted in (name, name + '.py'):
        for folder in [''] + sys.path:
            path = os.path.join(folder, wanted)
            if os.path.isfile(path):
                return os.path.abspath(path)
    for module in sys.modules.values():
        path = getattr(module, '__dict__', {}).get('__file__')
        if isinstance(path, str):
            path = os.path.splitext(path)[0] + '.py'
            if path.endswith((os.sep + name, os.sep + name + '.py')) and os.path.isfile(path):
                return os.path.abspath(path)
    raise Refused('no file %s' % name)


def find_function(name, path):
    """Path and first line of a function by its name in a file, such as "Class.method".

    Where the file has none, the first words of the name may be a module's. Raises Refused.
    """
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
    return _lines_of_functions(path).get(name)


def _lines_of_functions(path):
    """The first lines of a file's functions, by their names."""
    try:
        status = os.stat(path)
        key = status.st_mtime, status.st_size
        if _functions.get(path, (None,))[0] != key:
            _functions[path] = key, dict(
                (found, codelines.of_code(code)[0])
                for found, code in reversed(list(codelines.functions(codelines.compiled(path)))))
        return _functions[path][1]
    except (OSError, IOError, SyntaxError, TypeError):
        return {}


# What has been read of files, with what tells whether they have changed.
_functions = {}
