"""Where a breakpoint is to be, as a person at a stop names it.

A file is named by any end of its path that only one of them has. A function is found by what the
program has under its name or, where that is not there yet, in the text of its file.
"""

from __future__ import absolute_import

import os
import sys

from sorrel.common import text_files
from sorrel.common.real_paths import RealPaths
from sorrel.inspection import decorated, file_code, functions, module_files, modules, source
from sorrel.service import breakpoints, locations
from sorrel.service.breakpoints import Place, Refused


class NotLoaded(Refused):
    """What is named may still come; the text says what there is not yet."""


class Places(object):
    """all_breakpoints: the service's Breakpoints."""

    def __init__(self, all_breakpoints):
        self._breakpoints = all_breakpoints

    def find(self, named, shown, evaluate):
        """The Place that is named. Raises Refused, NotLoaded.

        shown: the path of the file that is looked at. evaluate: gives the value of an expression,
        or raises whatever that raises.
        """
        file, rest = _split(named)
        if len(rest) > locations.NAME_LIMIT:
            raise Refused('no function has so long a name')
        if file:
            return self.in_file(find_file(file, shown), rest)
        if rest.isdigit():
            return self.in_file(shown, int(rest))
        return self._function(rest, shown, evaluate)

    def find_loaded(self, named, *others):
        """The Place in what is loaded by now, for one that was not. Raises Refused, NotLoaded.

        others: paths of files that are about to be.
        """
        file, rest = _split(named)
        if not file:
            return in_modules(rest, False, _code)
        paths = _loaded_files(file, others)
        if not paths:
            raise NotLoaded('no file %s' % file)
        return self.in_file(paths[0], rest)

    def in_file(self, path, wanted):
        """The Place of a line, by its number, or of a function, by its name. Raises as `find`."""
        if str(wanted).isdigit():
            return self._line(path, int(wanted))
        for _, variables, loaded_path in module_files.loaded():
            if loaded_path == path:
                place = live(variables, wanted.split('.'), _code)
                if place is not None:
                    return place
        place = in_text(path, wanted, _code)
        if place is None:
            raise Refused('no function %s in %s' % (wanted, path))
        return place

    def _line(self, path, line):
        try:
            code = _code(path)
        except text_files.Unreadable as error:
            raise Refused('cannot read %s: %s' % (path, error))
        line = breakpoints.next_line(code, line, path)
        return Place(path, line, class_name=code.class_at(line))

    def _function(self, name, shown, evaluate):
        words = name.split('.')
        if '' in words:
            raise Refused('%s is no name of a function' % name)
        try:
            value = evaluate(name)
        except Exception:
            pass  # Not defined yet, perhaps.
        else:
            return _named(
                of_function(decorated.behind(value, words[-1]) or value), words[-1], _code)
        place = in_text(shown, name, _code)
        if place is not None:
            return place
        if len(words) > 1 and (modules.namespace(sys.modules.get(words[0]))
                               or not _has(words[0], shown, evaluate)):
            return in_modules(name, True, _code)
        raise Refused('no function %s in %s' % (name, shown))


def find_file(name, shown=None):
    """The path of the file that is meant. Raises Refused, NotLoaded."""
    name = os.path.expanduser(name)
    if not name.startswith((os.sep, './', '../')):
        found = _loaded_files(name, [shown] if shown else [])
        found += [path for path in _in_search_path(name) if path not in found]
        found = _different(found)
        if len(found) > 1:
            raise Refused('%s is one of several files: %s' % (name, ', '.join(found)))
        if found:
            return found[0]
    try:
        return locations.find_file(name)
    except Refused as error:
        if module_files.is_readable(name):
            return os.path.abspath(name)
        if isinstance(error, locations.NoFile):
            raise NotLoaded(str(error))
        raise


def of_function(function):
    """The Place of a function or method. Raises Refused."""
    in_python = decorated.in_python(function)
    if in_python is None:
        raise Refused('not a function in Python: %s' % type(function).__name__)
    code = in_python.func_code
    path, line = code.co_filename, functions.entry_line(code)
    if text_files.is_file(path):
        path = os.path.abspath(path)
        return Place(path, line, None, functions.entry(code, path))
    of_module = _module_path(in_python.func_globals)
    if not source.is_made_up_name(path, in_python.func_globals):
        # Compiled elsewhere, or in an archive.
        path = of_module or os.path.abspath(path)
        return Place(path, line, None, functions.entry(code, path))
    # For the core, only this one name of what is no file is not the module's.
    return Place(path, line, path if path == '<string>' else of_module,
                 functions.Entry(code.co_name, code.co_firstlineno, code))


def _split(named):
    file, _, rest = named.rpartition(':')
    return file.strip(), rest.strip()


# Files.

def _loaded_files(name, others=()):
    """The paths of loaded modules, and of others, that end with this name."""
    ends = tuple([os.sep + os.path.normpath(name) + suffix for suffix in ('', '.py')])
    paths = list(others) + [path for _, _, path in module_files.loaded()]
    return _different([path for path in paths if (os.sep + path).endswith(ends)])


def _in_search_path(name):
    """The file that an import would find, and that of the current folder."""
    found = _in_folders(name, [''])
    return found + _in_folders(name, [folder for folder in sys.path if isinstance(folder, str)])


def _in_folders(name, folders):
    """The first such file there, in a list."""
    for folder in folders:
        for path in os.path.join(folder, name), os.path.join(folder, name + '.py'):
            if text_files.is_file(path) \
                    or text_files.is_file(folder) and module_files.is_readable(path):
                return [os.path.abspath(path)]
    return []


def _different(paths):
    real_paths = RealPaths()
    found, seen = [], set()
    for path in paths:
        real = real_paths.of(path)
        if real not in seen:
            seen.add(real)
            found.append(path)
    return found


# Functions.

def _has(name, shown, evaluate):
    """Whether the program has something of this name here, or will have."""
    try:
        evaluate(name)
    except Exception:
        return name in _codes(shown, _code)
    return True


def in_modules(name, with_others, code_of):
    """The Place of a function whose name begins with a module's. Raises Refused, NotLoaded.

    with_others: also where that is not loaded. code_of: gives the FileCode of a path, or raises
    text_files.Unreadable.
    """
    words = name.split('.')
    refusal = None
    for count in range(len(words) - 1, 0, -1):
        module, rest = '.'.join(words[:count]), words[count:]
        variables = modules.namespace(sys.modules.get(module))
        path = _module_path(variables)
        if path is None and with_others:
            path = module_files.of_module(module)
        place = live(variables, rest, code_of) \
            or path and in_text(path, '.'.join(rest), code_of)
        if place:
            return place
        if refusal is None and (path or variables):
            # Another module of a package may be loaded later.
            may_come = not variables or '__path__' in variables and len(rest) > 1 \
                and not with_others
            refusal = (NotLoaded if may_come else Refused)(
                'no function %s in %s' % ('.'.join(rest), path or module))
    raise refusal or NotLoaded('no module %s' % '.'.join(words[:-1]))


def _module_path(variables):
    """The path of the source of a module with these variables, None where it has no file."""
    file = variables.get('__file__')
    return module_files.path_of(file) if isinstance(file, str) else None


def live(variables, names, code_of):
    """The Place of what a loaded module has under a name; None where that is no function."""
    try:
        function = decorated.behind(functions.in_namespace(variables, names), names[-1])
    except LookupError:
        return None
    return function and _named(of_function(function), names[-1], code_of)


def _named(place, word, code_of):
    """The same with the name, if it ends with this word, by which its file has the function."""
    names = [name for name, code in _codes(place.path, code_of).items()
             if name.split('.')[-1] == word and functions.entry_line(code) == place.line]
    return _with_class(place._replace(name=names[0] if names else None), code_of)


def in_text(path, name, code_of):
    """The Place of a function by its name in a file; None for none."""
    code = _codes(path, code_of).get(name)
    if code is None:
        return None
    return _with_class(
        Place(path, functions.entry_line(code), None, functions.entry(code, path), name), code_of)


def _with_class(place, code_of):
    try:
        return place._replace(class_name=code_of(place.path).class_at(place.line))
    except text_files.Unreadable:
        return place  # Of code that is in no file, what is evaluated there is asked.


def _code(path):
    """The FileCode of a file, also of one in an archive. Raises text_files.Unreadable."""
    if text_files.is_file(path):
        return file_code.of_file(path)
    return file_code.of_text(module_files.text(path), path)


def _codes(path, code_of):
    """The code of a file's functions and classes, by their names."""
    try:
        return code_of(path).functions()
    except text_files.Unreadable:
        return {}
