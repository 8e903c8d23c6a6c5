"""Runs a new program of a debugged one under the server: that has started this file for it.

It is run as a script, by the interpreter and with the options that the program was to be run with,
and is given the rest of that command:

    .../sorrel/child.py (-c TEXT | -m MODULE | [--] SCRIPT) [ARGS...]

What else there is to know comes by one environment variable. Nothing of all this is left for the
program to see. Where the server cannot run it, the interpreter does, as it was asked for at first.
"""

from __future__ import absolute_import

import imp
import os
import signal
import sys
import warnings


# As sorrel.processes.programs has written it: its lines are the native modules, the module of the
# front end, if there is one, and what that wants to know, of any number of lines.
_VARIABLE = 'SORREL_CHILD'
_NATIVE = ('tmorvik26_vs2012_x64', '_sorrel')


def _load(paths):
    """Loads the server's native modules and package by their files: sys.path is the program's."""
    for name, path in zip(_NATIVE, paths):
        if name not in sys.modules:
            imp.load_dynamic(name, path)
    if 'sorrel' not in sys.modules:
        package = os.path.dirname(os.path.abspath(__file__))
        imp.load_module('sorrel', None, package, ('', '', imp.PKG_DIRECTORY))


def _run(settings, words):
    """Returns the exit status; None where nothing has been done, and the server is of no use."""
    lines = settings.split('\n', 3)
    # This file's folder, where the program's is to be.
    del sys.path[0]
    # Ctrl-C may be meant for another process: that is known when the server is there.
    is_plain = signal.getsignal(signal.SIGINT) is signal.default_int_handler
    if is_plain:
        signal.signal(signal.SIGINT, signal.SIG_IGN)
    try:
        with warnings.catch_warnings():
            # What the interpreter's options say of them is for the program.
            warnings.simplefilter('ignore')
            _load(lines[:2])
            from sorrel.service import late, runner
            if lines[2]:
                __import__(lines[2])
        kind = words[0] if words[0] in ('-c', '-m') else ''
        if kind or words[0] == '--':
            del words[0]
        begin = sys.modules[lines[2]].begin_child if lines[2] else None
    except Exception:
        return None
    finally:
        sys.path.insert(0, '')
        if is_plain:
            signal.signal(signal.SIGINT, signal.default_int_handler)
    # What a module is in is imported to find it.
    sys.argv[:] = ['-c'] + words[1:]
    try:
        script = runner.find(words[0], kind)
    except runner.CannotRead, error:
        if kind != '-m':
            return None
        sys.stderr.write('%s: %s\n' % (sys.executable, error))
        return 1
    except Exception:
        return runner.report_error()
    runner.set_up(script, words[1:])
    if begin is not None:
        service, is_attached = begin(script, lines[3])
    else:
        service, is_attached = late.service(), False
    return runner.run(script, service, is_attached)


def _run_without(number):
    """The interpreter runs it instead. number: how many of this process's words are the rest."""
    words = open('/proc/self/cmdline').read().split('\0')[:-1]
    at = len(words) - number
    os.execv(os.readlink('/proc/self/exe'), words[:at - 1] + words[at:])


def main(words):
    settings = os.environ.pop(_VARIABLE, None)
    if settings is None or settings.count('\n') < 3 or not words:
        sys.exit('sorrel: this is for programs that a debugged program starts')
    status = _run(settings, words[:])
    if status is None:
        _run_without(len(words))
    return status


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
