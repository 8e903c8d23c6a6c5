"""What the tests share: assertions, a debug server that records, programs to debug."""

import functools
import operator
import os
import shutil
import subprocess
import tempfile
import thread
import threading
import time
import unittest

import tmorvik26_vs2012_x64 as core

# The core puts its own in the place of it.
INTERPRETERS_IMPORT = __import__

INIT_ARGUMENTS = (
    "idle_period", "exception_mode", "install_thread_hooks_cb", "idle_cb", "line_cb", "return_cb",
    "exception_cb", "quit_cb", "import_cb", "default_import", "debug_stream",
    "internal_modules_map")


def is_sanitized():
    """Whether this is a build with the sanitizers."""
    return "libasan" in open("/proc/self/maps").read()


def need_interpreter_alone(test):
    """Skips a test of the interpreter itself in a build that this cannot load."""
    if is_sanitized():
        test.skip("the interpreter alone does not load modules with sanitizers")


def need_forks_beside_threads(test):
    """Skips a test that forks while other threads may be allocating."""
    if is_sanitized():
        test.skip("the forked process may wait for a lock of the sanitizer's allocator for ever")


def launcher():
    """The program to start for another process of this host."""
    # sys.executable is the interpreter that the launcher stands for.
    return os.environ.get("MORVIK_PYTHON_EXE") or os.readlink("/proc/self/exe")


def run_host(*arguments, **streams):
    """Runs another process of this host, with this harness; (status, standard error)."""
    environment = dict(os.environ)
    environment.pop("PYTHONUNBUFFERED", None)
    environment["PYTHONPATH"] = os.pathsep.join(
        [os.path.dirname(os.path.abspath(__file__)), environment.get("PYTHONPATH", "")])
    streams.setdefault("stdout", subprocess.PIPE)
    process = subprocess.Popen((launcher(),) + arguments, stdin=open(os.devnull),
                               stderr=subprocess.PIPE, env=environment, **streams)
    errors = process.communicate()[1]
    # A debug build says one thing more as it ends.
    lines = [line for line in errors.splitlines(True) if not line.endswith(" refs]\n")]
    return process.returncode, "".join(lines)


class Skipped(Exception):
    """Raised by TestCase.skip(); the runner reports the reason."""


class TestCase(unittest.TestCase):
    """unittest's, with the assertions that 2.6 lacks and a folder for the test's files."""

    def setUp(self):
        self.folder = os.path.realpath(tempfile.mkdtemp())

    def tearDown(self):
        shutil.rmtree(self.folder)

    def script(self, source, name="program.py"):
        """The path of a new file."""
        path = os.path.join(self.folder, name)
        output = open(path, "w")
        output.write(source)
        output.close()
        return path

    def skip(self, reason):
        raise Skipped(reason)

    def assert_in(self, item, container):
        if item not in container:
            self.fail("%r not in %r" % (item, container))

    def assert_not_in(self, item, container):
        if item in container:
            self.fail("%r in %r" % (item, container))

    def assert_is(self, first, second):
        if first is not second:
            self.fail("%r is not %r" % (first, second))

    def assert_is_not(self, first, second):
        if first is second:
            self.fail("%r is %r" % (first, second))

    def assert_raises(self, exception_class, message, function, *arguments, **keywords):
        """The call raises exactly this class, with exactly this message unless it is None."""
        try:
            result = function(*arguments, **keywords)
        except Exception as error:
            if type(error) is not exception_class:
                self.fail("%r raised %r instead of %s"
                          % (function, error, exception_class.__name__))
            if message is not None:
                self.assertEqual(str(error), message)
            return error
        self.fail("%r returned %r instead of raising %s"
                  % (function, result, exception_class.__name__))


class Stream(object):
    """A diagnostic stream: each message of the core is one item.

    Looking through the messages while tracing is on adds to them: copies are looked through.
    """

    def __init__(self):
        self.messages = []
        self.flushes = 0

    def write(self, text):
        self.messages.append(text)

    def flush(self):
        self.flushes += 1

    def count(self, message):
        return self.messages.count(message)

    def among(self, *expected):
        """The messages that are among these, in their order."""
        return [message for message in self.messages[:] if message in expected]

    def starting(self, prefix):
        return [message for message in self.messages[:] if message.startswith(prefix)]

    def clear(self):
        del self.messages[:]


class Server(object):
    """A debug server that records what it is told and answers by a script.

    Each stop in the program takes the next of `requests`: the name of a function of the core, or
    a tuple of its name and arguments, or a callable that gets the stopped frame.  After the last
    one the program runs freely.  A stop anywhere else (the test's own code, the library) is not
    recorded and steps on into whatever comes.
    """

    def __init__(self, requests=()):
        self.requests = list(requests)
        self.quiet = False      # no diagnostic output is wanted
        self.program = None     # the file whose stops count
        self.stream = Stream()
        self.stops = []         # "line function 12", "return function 13 -> value"
        self.changed_bps = []
        self.hooks = []
        self.idle_calls = 0
        self.quit_calls = 0
        self.imports = []
        self.exceptions = []

    def init(self, **changes):
        """core.init() with this server's callbacks but for the arguments named."""
        core.init(*self.init_arguments(**changes))

    def init_arguments(self, **changes):
        arguments = {
            "idle_period": 0.0, "exception_mode": 0,
            "install_thread_hooks_cb": self.install_thread_hooks, "idle_cb": self.idle,
            "line_cb": self.line, "return_cb": self.return_, "exception_cb": self.exception,
            "quit_cb": self.quit, "import_cb": None, "default_import": INTERPRETERS_IMPORT,
            "debug_stream": self.stream, "internal_modules_map": {}}
        if self.quiet:
            arguments["debug_stream"] = None
        assert set(changes).issubset(INIT_ARGUMENTS), changes
        arguments.update(changes)
        return [arguments[name] for name in INIT_ARGUMENTS]

    def run(self, path, **variables):
        """Runs the program of this file under trace; returns its variables."""
        self.program = path
        variables.update({"__name__": "program", "__file__": path, "core": core, "server": self})
        code = compile(open(path).read(), path, "exec")
        core.start_trace()
        core.step_into()
        try:
            exec code in variables
        finally:
            core.stop_trace()
        return variables

    def stop(self, event, frame, result=""):
        if frame.f_code.co_filename != self.program:
            core.step_into()
            return
        self.stops.append("%s %s %d%s" % (event, frame.f_code.co_name, frame.f_lineno, result))
        request = "continue_run"
        if self.requests:
            request = self.requests.pop(0)
        if callable(request):
            request(frame)
        elif isinstance(request, tuple):
            getattr(core, request[0])(*request[1:])
        else:
            getattr(core, request)()

    def line(self, frame, changed_bps):
        self.changed_bps.append(changed_bps)
        self.stop("line", frame)

    def return_(self, frame, value, changed_bps):
        self.changed_bps.append(changed_bps)
        self.stop("return", frame, " -> %r" % (value,))

    def exception(self, frame, exc_info, changed_bps):
        self.exceptions.append(exc_info)

    def idle(self):
        self.idle_calls += 1

    def quit(self):
        self.quit_calls += 1

    def install_thread_hooks(self, on):
        self.hooks.append(on)


class CoreTestCase(TestCase):
    """Tests with a server in front of the core.

    Subclasses that are quiet run the same tests where no diagnostic output is wanted: the core
    then passes events at which nothing is due by a shorter way.
    """

    quiet = False

    def setUp(self):
        TestCase.setUp(self)
        self.server = Server()
        self.server.quiet = self.quiet

    def assert_logged(self, message, times=1):
        """The message was logged this often; not asked where there is no diagnostic output."""
        if not self.quiet:
            self.assertEqual((message, self.server.stream.count(message)), (message, times))

    def debug(self, source, *requests, **init_changes):
        """The stops of a program that is debugged with these requests from its first line on."""
        self.server.requests = list(requests)
        self.server.init(**init_changes)
        self.server.run(self.script(source))
        return self.server.stops


def wait_until(condition, seconds=30):
    """Waits for what another thread does; whether it came true."""
    end = time.time() + seconds
    while not condition():
        if time.time() > end:
            return False
        time.sleep(0.001)
    return True


def run_bare_thread(*calls):
    """Calls each in a new thread that has no Python code below them; whether all returned."""
    finished = []
    thread.start_new_thread(map, (operator.methodcaller("__call__"),
                                  calls + (functools.partial(finished.append, 1),)))
    return wait_until(lambda: finished)


def trace_new_threads(on):
    """An install_thread_hooks_cb for programs that use the threading module."""
    if on:
        threading.settrace(core.bootstrap_new_thread)
    else:
        threading.settrace(None)
