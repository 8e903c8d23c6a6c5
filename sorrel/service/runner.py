"""Runs a program the way the interpreter runs a script."""

import __builtin__
import atexit
import imp
import os
import pkgutil
import sys
from collections import namedtuple

from sorrel.common import errors
from sorrel.inspection import frames
from sorrel.languages import sublanguages
from sorrel.processes import own_folders
from sorrel.service.stops import Outcome

# The interpreter empties a module that nothing refers to; the server was started by this one.
_started_by = sys.modules['__main__']


class CannotRead(Exception):
    """The program or what shows it cannot be read; the text says why, in one line."""


# What is to be run. code: None when it is still to be compiled. package: of a module, its name.
Script = namedtuple('Script', 'path code package')


def prepare(script, args, hooks=()):
    """Makes the process what the Script expects.

    hooks: names of sub-language hooks, to be found from the program's folder. Raises CannotRead.
    """
    if script.code is None:
        # The script's folder, where the interpreter would have put it.
        sys.path[0] = os.path.dirname(os.path.realpath(script.path))
    sys.argv[:] = [script.path] + args
    own_folders.hide(os.environ)
    for hook in hooks:
        _load(hook)


def run(script, service, attached=True):
    """Runs a Script that all is prepared for under the service; returns its exit status.

    SystemExit passes through: what its code means is the interpreter's to say. The service is
    told the outcome after the program's threads and exit functions have ended.
    """
    outcome = []
    # Exit functions run last in, first out.
    atexit.register(_finish, service, outcome)
    try:
        service.run(script.path, _new_main(script), script.code, attached)
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
    """The Script in a file. Raises CannotRead."""
    try:
        open(path).close()
    except IOError as error:
        raise CannotRead("can't open program '%s': %s" % (path, error.strerror))
    return Script(path, None, None)


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
    get_filename = getattr(loader, 'get_filename', None) or loader._get_filename
    return Script(get_filename(name), code, name.rpartition('.')[0])


def _new_main(script):
    main = imp.new_module('__main__')
    main.__builtins__ = __builtin__
    main.__file__ = script.path
    main.__package__ = script.package
    sys.modules['__main__'] = main
    return main.__dict__


def _status(code):
    if code is None:
        return 0
    return code if isinstance(code, int) else 1


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
