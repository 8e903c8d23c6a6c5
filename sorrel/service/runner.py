"""Runs a program the way the interpreter runs a script."""

from __future__ import absolute_import

import __builtin__
import atexit
import imp
import os
import pkgutil
import sys

from sorrel.common import errors
from sorrel.common.records import record
from sorrel.inspection import frames
from sorrel.languages import sublanguages
from sorrel.processes import own_folders
from sorrel.service.stops import Outcome

# The interpreter empties a module that nothing refers to; the server was started by this one.
_started_by = sys.modules['__main__']


class CannotRead(Exception):
    """The program or what shows it cannot be read; the text says why, in one line."""


# What is to be run. path: of its file; code: None when it is still to be compiled, from the file or
# from `text`. package: of a module, its name. name: what sys.argv begins with. variables: what the
# interpreter gives it besides.
Script = record('Script', 'path code package name text variables')


def prepare(script, args, hooks=()):
    """Makes the process what the Script expects.

    hooks: names of sub-language hooks, to be found from the program's folder. Raises CannotRead.
    """
    set_up(script, args)
    own_folders.hide(os.environ)
    for hook in hooks:
        _load(hook)


def set_up(script, args):
    """The same for a process that was started for the program alone."""
    if script.code is None and script.text is None:
        # The script's folder, where the interpreter would have put it.
        sys.path[0] = os.path.dirname(os.path.realpath(script.path))
    sys.argv[:] = [script.name] + args


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


def find(name, is_module):
    """The Script in a file, or the one that a module is. Raises CannotRead."""
    return find_module(name) if is_module else find_script(name)


def find_script(path):
    """The Script in a file, or in a folder or archive that holds a __main__. Raises CannotRead."""
    if _holds_modules(path):
        return _find_main(path)
    try:
        open(path).close()
    except IOError as error:
        raise CannotRead("can't open program '%s': %s" % (path, error.strerror))
    return Script(path, None, None, path, None, {'__file__': path})


def _holds_modules(path):
    if os.path.isdir(path):
        return True
    importer = pkgutil.get_importer(path)
    return not isinstance(importer, (pkgutil.ImpImporter, imp.NullImporter))


def _find_main(path):
    sys.path[0] = path
    # Not get_loader(): that would ask the module of this name that there is.
    loader = pkgutil.find_loader('__main__')
    code = loader and loader.get_code('__main__')
    if not code:
        raise CannotRead("can't find '__main__.py' in %r" % path)
    return _of_loader(loader, '__main__', code)._replace(name=path)


def find_module(name):
    """The Script that a module is. Raises CannotRead."""
    # The current folder, as with the interpreter's option -m.
    sys.path[0] = ''
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
    sys.path[0] = ''
    return Script('<string>', None, None, '-c', text, {})


def _code(script):
    return script.code if script.text is None else compile(script.text + '\n', script.path, 'exec')


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
    return code if isinstance(code, int) else 1


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
