"""Where functions, classes and modules are written."""

from __future__ import absolute_import

import re
import sys
import types

from sorrel.common import file_lines
from sorrel.common.records import record
from sorrel.inspection import blocks, code_lines, modules, values

# The lines of a definition in a file; last: None for all there are.
Definition = record('Definition', 'path first last')


class Unknown(Exception):
    """It is not known where something is written, or it is not there."""


def of_code(code, path):
    """The Definition of what has this code. path: of its file, as it is known."""
    if code.co_name == '<module>':
        return Definition(path, 1, None)
    last = max(_lines(code))
    if not code.co_name.startswith('<') or code.co_name == '<lambda>':
        last = max(last, _end(path, code.co_firstlineno))
    return Definition(path, code.co_firstlineno, last)


def of_object(value):
    """That of a function, method, class, module, code or frame. Raises Unknown."""
    if isinstance(value, types.MethodType):
        value = value.im_func
    if isinstance(value, types.ModuleType):
        return Definition(_file_of(value), 1, None)
    if isinstance(value, (type, types.ClassType)):
        return _of_class(value)
    code = getattr(value, 'func_code', getattr(value, 'f_code', value))
    if not isinstance(code, types.CodeType):
        raise Unknown('No source: it is a %s' % values.type_name(value))
    path = code.co_filename
    if not file_lines.line(path, 1) and isinstance(value, types.FunctionType):
        path = modules.source_name(value.func_globals.get('__file__') or path)
    return of_code(code, path)


def _of_class(value):
    path = _file_of(sys.modules.get(value.__module__))
    begin = re.compile(r'[ \t]*class[ \t]+%s\b' % re.escape(value.__name__))
    number = 1
    line = file_lines.line(path, number)
    while line:
        if begin.match(line):
            return Definition(path, number, _end(path, number))
        number += 1
        line = file_lines.line(path, number)
    raise Unknown('The source of class %s is not there' % value.__name__)


def _file_of(module):
    path = modules.namespace(module).get('__file__')
    if not isinstance(path, str):
        raise Unknown('No source in Python')
    return modules.source_name(path)


def _lines(code):
    found = code_lines.of_code(code)
    for _, inner, _ in code_lines.functions(code):
        found += code_lines.of_code(inner)
    return found


def _end(path, first):
    """The last line of what begins on this one."""
    return blocks.end(lambda number: file_lines.line(path, number), first)
