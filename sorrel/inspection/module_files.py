"""Source files of modules, those in archives and those that only a loader can read, too.

For a thread of the program: loaders, which may be the program's, are asked.
"""

from __future__ import absolute_import

import os
import sys
import zipimport

from sorrel.common import text_files
from sorrel.inspection import frames, modules, source


def loaded():
    """(name, variables, path) of the program's modules with source files, by path."""
    found = []
    for name, module in sys.modules.items():
        variables = modules.namespace(module)
        path = variables.get('__file__')
        if isinstance(path, str) and not frames.is_own_namespace(variables):
            path = path_of(path)
            if text_files.is_file(path) or \
                    path.endswith('.py') and variables.get('__loader__') is not None:
                found.append((name, variables, path))
    return sorted(found, key=lambda one: one[2])


def of_module(name):
    """The path of a module that is not loaded, as the module search path has it; None for none."""
    parts = name.split('.')
    for folder in sys.path:
        if not isinstance(folder, str):
            continue
        base = os.path.join(folder, *parts)
        for path in base + '.py', os.path.join(base, '__init__.py'):
            if text_files.is_file(path) \
                    or text_files.is_file(folder) and _in_archive(path) is not None:
                return os.path.abspath(path)
    return None


def names_of(path):
    """The names that a module in this file may be imported by."""
    stem = os.path.splitext(path)[0]
    if os.path.basename(stem) == '__init__':
        stem = os.path.dirname(stem)
    package = os.path.dirname(stem)
    while text_files.is_file(os.path.join(package, '__init__.py')):
        package = os.path.dirname(package)
    folders = [os.path.abspath(folder) for folder in sys.path if isinstance(folder, str)]
    return set([stem[len(folder) + 1:].replace(os.sep, '.') for folder in folders + [package]
                if stem.startswith(folder + os.sep)])


def text(path):
    """The text of a source file of any of these kinds. Raises text_files.Unreadable."""
    try:
        return stored_text(path)
    except text_files.Unreadable as error:
        found = _of_loader(path)
        if not found:
            raise error
        return found


def stored_text(path):
    """The text of a file, also of one in an archive; for any thread. Raises as text()."""
    try:
        return text_files.text(path)
    except text_files.Unreadable as error:
        found = _in_archive(path)
        if found is None:
            raise error
        return found


def is_stored(path):
    """Whether it is a file, or one in an archive."""
    return text_files.is_file(path) or _in_archive(path) is not None


def main_of(path):
    """The path of the source that is run where this is: of a folder or archive, one inside."""
    inside = os.path.join(path, '__main__.py')
    if not path.endswith('.py') and (
            os.path.isdir(path) or text_files.is_file(path) and _in_archive(inside) is not None):
        return inside
    return path


def is_readable(path):
    try:
        text(path)
    except text_files.Unreadable:
        return False
    return True


def path_of(file):
    """The path of a module's source, by its __file__."""
    return os.path.abspath(modules.source_name(file))


def _in_archive(path):
    """The text of a file in an archive, such as "library.zip/package/module.py"; None for none."""
    archive = os.path.dirname(path)
    while archive and not text_files.is_file(archive):
        outer = os.path.dirname(archive)
        if outer == archive or os.path.isdir(archive):
            return None
        archive = outer
    if not archive:
        return None
    directories = zipimport._zip_directory_cache
    is_known = archive in directories
    try:
        found = zipimport.zipimporter(archive).get_data(path)
    except (IOError, ImportError):
        return None
    finally:
        if not is_known:
            # The archive may be another one by the time that the program imports of it.
            directories.pop(archive, None)
    if len(found) > text_files.LIMIT:
        return None
    return found.replace('\r\n', '\n').replace('\r', '\n')


def _of_loader(path):
    for _, variables, known in loaded():
        if known == path:
            return source.of_loader(path, variables)
    return ''
