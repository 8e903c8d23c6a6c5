"""Brings the server into a program that runs already and knows nothing of it.

Whatever speaks against it is found out before anything is done: the program runs on unharmed.
"""

from __future__ import absolute_import

import os
import pwd

try:
    import _sorrel_attach
except ImportError:
    _sorrel_attach = None  # Another platform.

# How long the program may take to come to a place where it can be done, in seconds.
_PATIENCE = 20.0
_SCOPE = '/proc/sys/kernel/yama/ptrace_scope'
# What a thread of its own does in the program, whose namespaces it leaves alone; `modules` are
# sys.modules. Modules of the server are found by their files: sys.path is the program's.
#
# Nothing waits for the import lock: whoever gets it when the program ends meets with an interpreter
# without modules, which ends the process. While somebody else holds it the first part is run again,
# and the rest looks after it now and then. The interpreter runs the first part in one go, and calls
# the two functions that begin() has called by `any`, without an instruction of Python between them.
#
# The end of the program waits for a thread that is in the middle of this: it would meet with
# modules that are emptied.
#
# While the program is debugged, by whom ever, an import statement makes a thread one of those that
# wait at a stop: then the service, which is found without one, starts the thread.
_BEGINNING = '''
imp, sys = modules['imp'], modules['sys']
if imp.lock_held():
    raise ImportError('to be tried again')
imp.acquire_lock()
try:
    atexit, itertools, thread, time = [
        modules.get(name) or __import__(name) for name in 'atexit', 'itertools', 'thread', 'time']
finally:
    imp.release_lock()
# The program may have put something else in the place of their functions; see common/originals.
thread, time = [imp.load_dynamic('sorrel ' + module.__name__,
                                 getattr(module, '__file__', module.__name__))
                for module in (thread, time)]
begun, is_ending = thread.allocate_lock(), []
begun.acquire()
def wait():
    is_ending.append(True)
    for turn in range(500):
        if begun.acquire(False):
            break
        time.sleep(0.01)
at_exit = wait, (), {}
def ready():
    if at_exit in atexit._exithandlers:
        atexit._exithandlers.remove(at_exit)
    if begun.locked():
        begun.release()
def acquire_import_lock():
    for turn in range(900):
        if is_ending:
            break
        if not any(itertools.chain(itertools.starmap(imp.lock_held, [()]),
                                   itertools.starmap(imp.acquire_lock, [()]))):
            return True
        time.sleep(0.01)
    return False
def begin():
    try:
        try:
            if acquire_import_lock():
                try:
                    for name, path in %(modules)r:
                        if name not in sys.modules:
                            imp.load_dynamic(name, path)
                    if 'sorrel' not in sys.modules:
                        imp.load_module('sorrel', None, %(package)r, ('', '', imp.PKG_DIRECTORY))
                    from %(service)s import first_thread
                    first_thread.be_main()
                    from %(room)s import attached
                finally:
                    imp.release_lock()
                attached.run(%(handshake)r, ready)
        except:
            kind, error = sys.exc_info()[:2]
            is_own = str(kind.__module__).startswith('sorrel.')
            open(%(complaint)r, 'w').write(
                str(error) if is_own else '%%s: %%s' %% (kind.__name__, error))
        finally:
            ready()
    except:
        pass  # Whoever has asked for this does not wait any more.
service = [kind.of_this_process() for kind in object.__subclasses__()
           if (kind.__module__, kind.__name__) == ('sorrel.service.service', 'Service')]
atexit._exithandlers.append(at_exit)
try:
    if service and service[0] is not None:
        service[0].start_own_thread(begin)
    else:
        thread.start_new_thread(begin, ())
except:
    ready()
'''

_NO_ANSWER = ('the server has been brought into process %d, which does not answer: it may be in the '
              'middle of an import, or in C code that holds the interpreter lock')


class CannotAttach(Exception):
    """The text says why, in one line."""


def complaint_file(handshake):
    """Where the program says what has gone wrong in it: a file beside that of the handshake."""
    return os.path.join(os.path.dirname(handshake), 'complaint')


def complaint(pid, handshake):
    """What it has said there, or that it has ended; '' for nothing."""
    try:
        return open(complaint_file(handshake)).read()
    except IOError:
        pass  # It says something only when something has gone wrong.
    status = _status(pid)
    return 'process %d has ended' % pid if status is None or status['State'][:1] in 'ZX' else ''


def why_no_answer(pid):
    """When the server has begun in it some time ago, and has not connected."""
    return _NO_ANSWER % pid


def bring_server(pid, room, handshake):
    """The program with this process id will connect to whoever has made the handshake.

    room: the package of the front end that it is to run, in its module `attached`. handshake: the
    handshake's file. Raises CannotAttach, also where it will not be tried.
    """
    import _sorrel
    import tmorvik26_vs2012_x64 as core
    if _sorrel_attach is None:
        raise CannotAttach('a process can be attached to on Linux on x86-64 alone')
    package = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    modules = [(module.__name__, os.path.abspath(module.__file__)) for module in (core, _sorrel)]
    _check_process(pid)
    for path in [package, handshake] + [path for _, path in modules]:
        _check_same_file(pid, path)
    text = _BEGINNING % {'modules': modules, 'package': package, 'room': room,
                         'service': 'sorrel.service',
                         'handshake': handshake, 'complaint': complaint_file(handshake)}
    try:
        _sorrel_attach.load(pid, text, _PATIENCE)
    except (RuntimeError, ValueError, EnvironmentError) as error:
        raise CannotAttach(str(error) + _hint(pid, str(error)))


def _check_process(pid):
    status = _status(pid)
    if status is None:
        raise CannotAttach('there is no process %d' % pid)
    if int(status['Tgid']) != pid:
        raise CannotAttach('%d is a thread of process %s' % (pid, status['Tgid']))
    if pid == os.getpid():
        raise CannotAttach('process %d cannot attach to itself' % pid)
    # The real, effective and saved ones, and that for files.
    users = set(int(user) for user in status['Uid'].split())
    if users != set([os.getuid()]):
        raise CannotAttach('process %d is not of this user alone, but of %s' % (
            pid, ', '.join(_user_name(user) for user in sorted(users))))
    state = status['State'][:1]
    if state in 'ZX':
        raise CannotAttach('process %d has ended' % pid)
    if int(status.get('TracerPid', 0)):
        tracer = _status(int(status['TracerPid'])) or {}
        raise CannotAttach('process %d is under another debugger: %s, process %s' % (
            pid, tracer.get('Name', 'unknown'), status['TracerPid']))
    if state == 'T':
        raise CannotAttach('process %d is stopped; "kill -CONT %d" lets it go on' % (pid, pid))


def _status(pid):
    """What the system says of a process, by the names of the lines; None where there is none."""
    try:
        lines = open('/proc/%d/status' % pid).read().splitlines()
    except EnvironmentError:
        return None
    return dict((name, value.strip()) for name, _, value in [line.partition(':')
                                                            for line in lines])


def _user_name(user):
    try:
        return pwd.getpwuid(user).pw_name
    except KeyError:
        return str(user)


def _check_same_file(pid, path):
    try:
        theirs = os.stat('/proc/%d/root%s' % (pid, path))
    except EnvironmentError as error:
        if not os.access('/proc/%d/root/' % pid, os.X_OK):
            raise CannotAttach('the system does not let process %d be debugged%s' % (
                pid, _hint(pid, 'does not let')))
        raise CannotAttach('process %d cannot see %s: %s; it may be in a container, or have a root '
                           'of its own' % (pid, path, error.strerror))
    ours = os.stat(path)
    if (ours.st_dev, ours.st_ino) != (theirs.st_dev, theirs.st_ino):
        raise CannotAttach('%s is another file for process %d: it is in a container, or has a root '
                           'of its own' % (path, pid))


def _hint(pid, why):
    if 'does not let' not in why:
        return ''
    try:
        scope = int(open(_SCOPE).read())
    except (EnvironmentError, ValueError):
        scope = 0
    return '; %s is %d' % (_SCOPE, scope) if scope else ''
