"""Runs a program the way the interpreter runs a script."""

from __future__ import absolute_import

import __builtin__
import atexit
import imp
import marshal
import os
import pkgutil
import sys
import types

from sorrel.common import errors
from sorrel.common.records import record
from sorrel.inspection import frames, given_texts
from sorrel.languages import sublanguages
from sorrel.processes import own_folders
from sorrel.service import namesakes
from sorrel.service.stops import Outcome

# The interpreter empties a module that nothing refers to; the server was started by this one.
_started_by = sys.modules['__main__']


# What an exit status can be, for this version of the interpreter.
_NUMBERS = (int, long) if sys.version_info >= (2, 7) else int
# What a compiled file begins with, and how many bytes follow before its code.
_MAGIC, _TIME_SIZE = imp.get_magic(), 4


class CannotRead(Exception):
    """The program or what shows it cannot be read; the text says why, in one line."""


# What is to be run. path: of its file; code: None when it is still to be compiled, from the file or
# from `text`. package: of a module, its name. name: what sys.argv begins with. variables: what the
# interpreter gives it besides. folder: what sys.path is to begin with, None where it does.
Script = record('Script', 'path code package name text variables folder', None)


def prepare(script, args, hooks=()):
    """Makes the process what the Script expects.

    hooks: names of sub-language hooks, to be found from the program's folder. Raises CannotRead.
    """
    set_up(script, args)
    own_folders.hide(os.environ, sys.path)
    for hook in hooks:
        _load(hook)


def set_up(script, args):
    """The same for a process that was started for the program alone."""
    if script.folder is not None:
        _begin_path(script.folder)
    sys.argv[:] = [script.name] + args


def _begin_path(folder):
    sys.path[0] = folder
    namesakes.make_way(folder)


def run(script, service, attached=True):
    """Runs a Script that all is prepared for under the service; returns its exit status.

    SystemExit passes through: what its code means is the interpreter's to say. The service is
    told the outcome after the program's threads and exit functions have ended.
    """
    outcome = []
    # Exit functions run last in, first out.
    atexit.register(_finish, service, outcome)
    try:
        service.run(script.path, _new_main(script), _code(script), attached)
    except SystemExit as end:
        outcome.append(Outcome(_status(end.code), None))
        raise
    except:
        outcome.append(Outcome(1, sys.exc_info()[0]))
        _report(*sys.exc_info())
        service.post_mortem(sys.exc_info(), 1)
        return 1
    outcome.append(Outcome(0, None))
    return 0


def _load(hook):
    try:
        sublanguages.load(hook)
    except Exception as error:
        raise CannotRead("can't load hook '%s': %s" % (
            hook, errors.error_text(type(error), error)))


def find(what, kind=''):
    """The Script that a command line names. Raises CannotRead.

    kind: '-m' for a module or '-c' for text, as with the interpreter.
    """
    return _FINDERS[kind](what)


def find_script(path):
    """The Script in a file, or in a folder or archive that holds a __main__. Raises CannotRead.

    In the standard input, as with the interpreter, where the path is "-".
    """
    if path == '-':
        return _find_in_input()
    if _holds_modules(path):
        return _find_main(path)
    try:
        code = _compiled(path)
    except IOError as error:
        raise CannotRead("can't open program '%s': %s" % (path, error.strerror))
    return Script(path, code, None, path, None, {'__file__': path},
                  os.path.dirname(os.path.realpath(path)))


def _compiled(path):
    """The code in a file that the interpreter has compiled; None where it is another one."""
    program = open(path, 'rb')
    try:
        # A pipe can be read only once. A compiled file may have any name.
        magic = program.read(len(_MAGIC)) if os.path.isfile(path) else ''
        if magic[:2] != _MAGIC[:2] and not path.endswith('.pyc'):
            return None
        program.read(_TIME_SIZE)
        code = marshal.load(program) if magic == _MAGIC else None
    except (ValueError, EOFError, TypeError):
        code = None
    finally:
        program.close()
    if not isinstance(code, types.CodeType):
        raise CannotRead("'%s' was not compiled by this version of the interpreter" % path)
    return code


def _find_in_input():
    script = _of_text(sys.stdin.read(), '<stdin>', '-')
    return script._replace(variables={'__file__': script.path})


def _holds_modules(path):
    if os.path.isdir(path):
        return True
    importer = pkgutil.get_importer(path)
    return not isinstance(importer, (pkgutil.ImpImporter, imp.NullImporter))


def _find_main(path):
    _begin_path(path)
    # Not get_loader(): that would ask the module of this name that there is.
    loader = pkgutil.find_loader('__main__')
    code = loader and loader.get_code('__main__')
    if not code:
        raise CannotRead("can't find '__main__.py' in %r" % path)
    return _of_loader(loader, '__main__', code)._replace(name=path)


def find_module(name):
    """The Script that a module is. Raises CannotRead."""
    # The current folder, as with the interpreter's option -m.
    _begin_path('')
    try:
        loader = pkgutil.get_loader(name)
        if loader is not None and loader.is_package(name):
            name += '.__main__'
            loader = pkgutil.get_loader(name)
    except ImportError as error:
        raise CannotRead(str(error))
    code = loader and loader.get_code(name)
    if not code:
        raise CannotRead('No module named ' + name)
    return _of_loader(loader, name, code)


def _of_loader(loader, name, code):
    get_filename = getattr(loader, 'get_filename', None) or loader._get_filename
    path = get_filename(name)
    return Script(path, code, name.rpartition('.')[0], path, None, {
        '__file__': path, '__loader__': loader})


def find_text(text):
    """The Script that is given as text, as with the interpreter's option -c."""
    return _of_text(text, '<string>', '-c')


def _of_text(text, path, name):
    _begin_path('')
    return Script(path, None, None, name, text, {})


_FINDERS = {'': find_script, '-m': find_module, '-c': find_text}


def _code(script):
    if script.text is None:
        return script.code
    # The future of this module is not the program's.
    code = compile(script.text + '\n', script.path, 'exec', 0, True)
    given_texts.keep(code, script.text)
    return code


def _new_main(script):
    main = imp.new_module('__main__')
    main.__builtins__ = __builtin__
    main.__package__ = script.package
    main.__dict__.update(script.variables)
    sys.modules['__main__'] = main
    return main.__dict__


def _status(code):
    if code is None:
        return 0
    if not isinstance(code, _NUMBERS):
        return 1
    # The part that the system takes.
    return code & 0xff if -sys.maxint <= code <= sys.maxint else 0xff


def report_error():
    """For an error before the program could be run. Returns the exit status."""
    _report(*sys.exc_info())
    return 1


def _finish(service, outcome):
    if outcome:
        service.ended(outcome[0])


def _report(type, value, tb):
    """Prints an uncaught exception, as the interpreter would."""
    tb = frames.without_own(tb)
    sys.last_type, sys.last_value, sys.last_traceback = type, value, tb
    try:
        sys.excepthook(type, value, tb)
    except SystemExit:
        raise
    except:
        hook_type, hook_value, hook_tb = sys.exc_info()
        sys.stderr.write('Error in sys.excepthook:\n')
        sys.stderr.write(errors.formatted(
            hook_type, hook_value, frames.without_own(hook_tb)))
        sys.stderr.write('\nOriginal exception was:\n')
        sys.stderr.write(errors.formatted(type, value, tb))
