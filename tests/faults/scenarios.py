"""What the core is used for while memory is refused: one function for each of its parts.

A scenario gets a Session, lets it use the core, and leaves what came of it in `session.seen`. It
is run often in one process: what the core learns of it (code objects, module names) is made anew
each time.
"""

import array
import os
import shutil
import socket
import sys
import tempfile
import thread
import threading
import types

from __builtin__ import __import__ as builtin_import

core = None     # set by the process that imported it


class Stream(object):
    """The diagnostic stream."""

    def __init__(self):
        self.messages = []

    def write(self, text):
        self.messages.append(text)

    def flush(self):
        pass


# The core keeps what init() gave it, so that it is given the same every time.
MODULES = {}
current = []


def import_cb(module):
    current[0].imported.append(module.__name__)


def forward(name):
    return lambda *arguments: getattr(current[0], name)(*arguments)


CALLBACKS = dict((name, forward(name)) for name in (
    "hooks", "idle", "line", "return_", "exception", "quit"))


class Session(object):
    """A debug server with a script, and the program that it debugs."""

    def __init__(self, folder, quiet=False):
        self.folder = folder
        self.stream = Stream()
        self.quiet = quiet
        self.seen = []          # what came of it
        self.errors = []        # what the core raised to the server
        self.requests = []
        self.imported = []
        MODULES.clear()
        current[:] = [self]

    def ask(self, name, *arguments):
        """What a function of the core answers; None where it raises."""
        try:
            answer = getattr(core, name)(*arguments)
        except Exception, error:
            self.errors.append((name, type(error).__name__, str(error)))
            return None
        return answer

    def see(self, name, *arguments):
        """Notes what a function of the core answers."""
        answer = self.ask(name, *arguments)
        self.seen.append((name, answer))
        return answer

    def init(self, mode=0, default_import=builtin_import, import_cb=None):
        for attempt in range(2):
            # Where memory is short once, a server tries again.
            errors = len(self.errors)
            self.ask("init", 1.0, mode, CALLBACKS["hooks"], CALLBACKS["idle"], CALLBACKS["line"],
                     CALLBACKS["return_"], CALLBACKS["exception"], CALLBACKS["quit"], import_cb,
                     default_import, [self.stream, None][self.quiet], MODULES)
            if len(self.errors) == errors:
                return

    def hooks(self, on):
        self.seen.append(("hooks", on))

    def idle(self):
        pass

    def quit(self):
        self.seen.append("quit")

    def line(self, frame, changed):
        self.stop("line", frame, changed)

    def return_(self, frame, value, changed):
        self.stop("return", frame, changed, repr(value))

    def exception(self, frame, info, changed):
        self.stop("exception", frame, changed, info[0].__name__)

    def stop(self, event, frame, changed, more=""):
        if not frame.f_code.co_filename.startswith(self.folder):
            self.ask("step_into")
            return
        self.seen.append((event, frame.f_code.co_name, frame.f_lineno, changed, more))
        request = "continue_run"
        if self.requests:
            request = self.requests.pop(0)
        if callable(request):
            request(frame)
        elif isinstance(request, tuple):
            self.ask(*request)
        else:
            self.ask(request)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, source):
        path = self.path(name)
        output = open(path, "w")
        output.write(source)
        output.close()
        return path

    def start(self):
        # Tracing may have been turned on by a call that failed; one that failed once is repeated.
        for attempt in range(2):
            errors = len(self.errors)
            self.ask("start_trace")
            if len(self.errors) == errors:
                break

    def stop_trace(self):
        self.ask("stop_trace")

    def run(self, source, name="program.py", begin="step_into", **variables):
        """Debugs a program: what it ended with is seen."""
        code = compile(source, self.path(name), "exec")
        variables.update({"__name__": "program", "__file__": self.path(name), "core": core})
        self.start()
        self.ask(begin)
        try:
            exec code in variables
        except Exception, error:
            self.ask("stop_trace")
            self.seen.append(("ended", type(error).__name__, str(error)))
            error = None
        else:
            self.ask("stop_trace")
            self.seen.append("ended well")
        sys.exc_clear()
        variables.clear()


STEPPED = """\
def outer(number):
    total = 0
    for i in range(number):
        total += inner(i)
    return total
def inner(number):
    one = number
    return one + 1
class Thing(object):
    def method(self):
        return [1,
                2]
outer(2)
Thing().method()
outer(1)
"""


def stepping(session):
    """Steps of every kind."""
    session.requests = [
        "step_over", "step_over", "step_over", "step_into", "step_over", "step_into", "step_into",
        "step_into", ("step_over_line_range", 2, 4), "step_into", "step_out", "step_over_line",
        "step_over", "step_into", "stop", "step_out", "step_over", "continue_run"]
    session.init()
    session.run(STEPPED)


def looking(session):
    """What a server asks about the thread that has stopped."""
    def look(frame):
        ident = session.ask("get_current_tstate_id")
        if ident is None:
            session.ask("step_into")
            return
        session.seen.append(len(session.ask("get_threads") or ()))
        session.seen.append(session.ask("get_curr_frame", ident) is frame)
        session.see("get_thread_name", ident)
        session.see("is_botframe", frame)
        session.see("get_tracing")
        session.see("get_frame_file", frame)
        session.see("is_internal_frame", frame)
        session.see("get_tstate_tracing")
        session.see("get_tstate_use_tracing")
        session.see("sub_language_get_active_hook", ident)
        session.see("sub_language_get_frame_category", ident, frame)
        session.see("exiting_on_exception")
        session.see("get_exception_mode")
        session.seen.append(session.ask("get_thread_ident_for_tstate_id", ident)
                            == thread.get_ident())
        session.see("locals_to_fast", frame)
        session.see("PyFrame_LocalsToFast", frame, 0)
        session.see("step_into")
    session.requests = [look] * 9
    MODULES[session.path("program.py")] = 1
    session.init()
    session.run(STEPPED)


def conditions(session):
    """Breakpoints with all that they can have."""
    path = session.path("program.py")
    session.init()
    for line, temporary, condition, ignored in (
            (4, 0, None, 0), (4, 0, "i == 1", 0), (7, 1, None, 0), (8, 0, "number > 0", 1),
            (11, 0, "no_such_name", 0), (5, 0, "total ==", 0)):
        session.see("set_break", path, line, 1, temporary, condition, ignored)
    session.see("set_break", session.path("other.py"), 4, 1, 0, None, 0)
    session.see("enable_breaks", path, 4, 0)
    session.see("enable_breaks", path, 4, 1)
    session.see("ignore_breaks", path, 7, 0)
    session.see("set_breaks_cond", path, 8, "number >= 0")
    session.see("get_breaks", path, 4)
    session.see("get_file_breaks", path)
    session.run(STEPPED, begin="continue_run")
    session.see("get_file_breaks", path)
    session.see("get_changed_bps_lists")
    session.see("clear_breaks", path, 4)
    session.see("clear_all_breaks")
    session.see("get_file_breaks", path)


RAISING = """\
class Mine(Exception):
    pass
def deep(number):
    if number:
        deep(number - 1)
    raise Mine(number)
def catches():
    try:
        deep(2)
    except (Mine, ValueError):
        pass
def prints():
    try:
        raise KeyError(1)
    except KeyError:
        pass
for i in range(2):
    catches()
prints()
def ends():
    raise ValueError("the end")
ends()
"""


class CatchInfo(object):
    mod_name = "program"
    containing_class = "*"
    prints = 1
    ignore = 0

    def __init__(self, co_name, parent):
        self.co_name = co_name
        self.parent = parent


def raising(session, mode):
    session.init(mode)
    session.see("set_exception_mode", mode)
    session.see("set_always_stop_excepts", (KeyError,))
    session.see("set_never_stop_excepts", (StopIteration,))
    session.see("get_always_stop_excepts")
    session.see("get_never_stop_excepts")
    session.see("set_ignored_exception_handlers", {})
    session.see("set_exc_catch_info_list", [CatchInfo("prints", 0), CatchInfo("deep", 1)])
    session.see("ignore_exception_loc", session.path("program.py"), 6, mode == 1)
    session.see("exception_loc_ignored", session.path("program.py"), 6)
    session.run(RAISING, begin="continue_run")
    session.see("clear_exception_ignores")


def always_stopping(session):
    raising(session, 1)


def unhandled(session):
    raising(session, 2)


def printed(session):
    raising(session, 4)


RAISED_ON_REQUEST = """\
def f():
    a = 1
    b = 2
try:
    f()
except KeyError, error:
    assert str(error) == "'asked for'"
"""


def raising_on_request(session):
    def plant(frame):
        session.see("raise_exception", 0, KeyError("not this"))
        session.see("raise_exception", 0, None)
        session.see("raise_exception", 0, KeyError("asked for"))
        session.ask("continue_run")
    session.requests = ["step_over"] * 4 + ["step_into", "step_into", plant]
    session.init()
    session.run(RAISED_ON_REQUEST)


IMPORTING = """\
import first_module
reload(first_module)
import os.path, missing_module
"""
IMPORTED = """\
def f():
    class C:
        def method(self): pass
        function = lambda: 1
    return C
class D(object):
    def method(self): pass
value = f().method
"""


def imports(session):
    """Imports under trace: new modules, breakpoints that wait for them, reloading."""
    session.write("first_module.py", IMPORTED)
    session.init(import_cb=import_cb)
    session.see("set_import_cb", None)
    session.see("set_import_cb", import_cb)
    session.see("set_break", session.path("first_module.py"), 5, 1, 0, None, 0)
    session.see("set_break", session.path("first_module.py"), 8, 1, 0, None, 0)
    sys.path.insert(0, session.folder)
    try:
        session.run(IMPORTING, begin="continue_run")
    finally:
        sys.path.remove(session.folder)
    session.see("get_new_imports")
    session.see("get_new_imports")
    module = sys.modules.pop("first_module", None)
    if module is not None:
        session.see("register_module", module)
    new = types.ModuleType("made_by_hand")
    new.__file__ = session.path("made.pyc")
    session.see("register_module", new)
    session.seen.append(session.imported)


THREADED = """\
import threading
def work(results):
    results.append(1)
    results.append(2)
results = []
for i in range(2):
    new = threading.Thread(target=work, args=(results,))
    new.start()
    new.join()
assert results == [1, 2] * 2
"""


def threads(session):
    """Threads that start and end, each asked about."""
    def hooks(on):
        threading.settrace([None, core.bootstrap_new_thread][on])
    policies = []

    def policy(ident):
        policies.append(ident)
        return 1
    session.hooks = hooks

    # A thread may be joined before its bottom frame is left.
    session.quit = lambda: None

    def look(frame):
        ident = session.ask("get_current_tstate_id")
        if ident is not None:
            session.see("get_thread_name", ident)
        session.seen.append(session.ask("get_threads") is not None)
        session.seen.append(session.ask("acquire_sorrel_mutex"))
        session.ask("continue_run")
    session.requests = [look] * 2
    session.init()
    session.see("set_debug_thread_cb", policy)
    session.see("set_debug_all_threads", 1)
    session.see("set_break", session.path("program.py"), 4, 1, 0, None, 0)
    session.run(THREADED, begin="continue_run")
    session.see("thread_exiting")
    # A thread may get the ident of one that has not quite ended: then it is not asked about.
    session.seen.append(len(policies) > 1)


LANGUAGE = """\
def interpret(lines):
    for line in lines:
        run(line)
def run(line):
    helper(line)
    helper(line)
def helper(line):
    if line == 3:
        raise KeyError(line)
for lines in ([1, 2], [3]):
    try:
        interpret(lines)
    except KeyError:
        pass
"""


class Hook(object):
    """Where `run` stands for lines of a language."""

    def __init__(self, session, code):
        codes = dict((function.co_name, function) for function in code.co_consts
                     if isinstance(function, types.CodeType))
        self.codes = codes
        self.session = session

    def _GetMarkerFrames(self):
        return [self.codes["interpret"]]

    def _GetSubLanguageFrames(self):
        return [self.codes["run"]]

    def _GetModulePaths(self):
        return [(self.session.path("program.py"), 1)]

    def _StopHere(self, frame, event, kind):
        return kind >= 0 and event == 1

    def _TranslateFrame(self, frame, exception):
        return (self.session.path("language.text"), frame.f_locals["line"])

    def _GetStepOutFrame(self, frame):
        return frame.f_back

    def _Eval(self, text, frame):
        return eval(text, {}, frame.f_locals)


def sub_languages(session):
    code = compile(LANGUAGE, session.path("program.py"), "exec")

    def look(frame):
        ident = session.ask("get_current_tstate_id")
        if ident is None:
            session.ask("step_over")
            return
        session.seen.append(session.ask("sub_language_get_active_hook", ident) is not None)
        session.see("sub_language_get_frame_category", ident, frame)
        session.see("sub_language_get_frame_category", ident, frame.f_back)
        session.ask("step_over")
    session.requests = [look] * 3 + ["step_into"] * 6 + ["step_out"] + ["step_over"] * 3
    session.init(4)
    for attempt in range(2):
        errors = len(session.errors)
        session.ask("register_sub_language_hook", Hook(session, code))
        if len(session.errors) == errors:
            break
    session.see("set_break", session.path("language.text"), 2, 1, 0, "line == 2", 0)
    names = {"__name__": "program", "__file__": session.path("program.py")}
    session.start()
    session.ask("step_into")
    try:
        exec code in names
    except Exception, error:
        session.ask("stop_trace")
        session.seen.append(("ended", type(error).__name__, str(error)))
    else:
        session.ask("stop_trace")
    names.clear()
    # So that the hook and its code go before the next round.
    session.init(0)


def names(session):
    """Files by all their names."""
    session.init()
    os.symlink(session.write("real.py", "def f():\n    a = 1\n    return a\nf()\n"),
               session.path("link.py"))
    session.see("set_break", session.path("link.py"), 2, 1, 0, None, 0)
    session.see("set_break", session.path("./real.py"), 3, 1, 0, None, 0)
    session.see("ignore_exception_loc", session.path("link.py"), (1, 2), 1)
    session.see("exception_loc_ignored", session.path("real.py"), 3)
    session.see("exception_loc_ignored", session.path("real.pyc"), 3)
    session.run(open(session.path("real.py")).read(), "real.py", begin="continue_run")
    session.see("ignore_exception_loc", session.path("link.py"), (1, 2), 0)
    session.run("f = lambda: 1\nf()\n", "/relative.py")
    session.run("f = lambda: 1\nf()\n", "x" * 500 + ".py")
    frame = eval(compile("getframe()", "<string>", "eval"), {"getframe": sys._getframe})
    session.see("get_frame_file", frame)


def utilities(session):
    session.init()
    session.see("GetUserName")
    session.see("GetUserAppDataPath")
    output = open(session.path("output"), "w+")
    session.see("PyFile_SetEncoding", output, "utf-8")
    session.see("PyFile_WriteObject", "text", output, 1)
    output.seek(0)
    session.seen.append(output.read())
    session.see("CopyIntoBuffer", array.array("c", "12345678"), 2, "abcdefghij")
    one, other = socket.socketpair()
    other.send("x")
    reading, writing = os.pipe()
    waiting = os.fdopen(reading)
    session.see("WaitForInput", waiting, [one])
    os.write(writing, "line\n")
    session.see("WaitForInput", waiting, [])
    session.see("WaitForInput", 1, [])
    os.close(writing)
    session.see("add_to_tstate_tracing", 1)
    session.see("add_to_tstate_tracing", -1)
    session.see("set_tstate_use_tracing", 0)
    session.see("set_autoquit", 1)
    session.see("set_idle_period", 0.5)
    waiting.close()
    output.close()


def sessions(session):
    """A server that starts over, by init() and by reset()."""
    session.init()
    session.run(STEPPED, begin="continue_run")
    session.see("reset")
    session.see("set_break", session.path("program.py"), 4, 1, 0, None, 0)
    session.run(STEPPED, begin="continue_run")
    session.see("destroy")
    session.init(2)
    session.run(RAISING, begin="continue_run")
    session.see("release_sorrel_mutex")


def refused(session):
    """Calls with wrong arguments."""
    session.init()
    for name, arguments in (
            ("get_curr_frame", ()), ("get_curr_frame", (12345,)), ("get_curr_frame", ("x",)),
            ("sub_language_get_frame_category", (12345,)), ("set_import_cb", ()),
            ("set_breaks_cond", ("a", 1, 5)),
            ("ignore_exception_loc", ("a", "x", 1)), ("exception_loc_ignored", ("a", "x")),
            ("raise_exception", (1, 5)), ("set_exc_catch_info_list", ([5],)),
            ("WaitForInput", (sys.stdin, [5])), ("is_botframe", ()), ("start_trace", ()),
            ("register_module", (5,)), ("set_always_stop_excepts", (5,)), ("stop_trace", ())):
        session.see(name, *arguments)
    session.errors = [error for error in session.errors if error[1] == "MemoryError"]


SCENARIOS = (stepping, looking, conditions, always_stopping, unhandled, printed,
             raising_on_request, imports, threads, sub_languages, names, utilities, sessions,
             refused)
QUIET = (stepping, conditions, unhandled, threads)
