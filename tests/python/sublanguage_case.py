"""What the tests of sub-languages share: a language of two files, and its hook."""

import os
import sys

import harness
from harness import core

# The implementation: frames here are hidden. run() is the marker.
ENGINE = """\
def run(page, *arguments):
    prepare()
    return page(*arguments)

def prepare():
    x = 1
    return x

def fetch(value):
    y = value
    return y
"""

# Key code: its frames stand for lines of the language.
PAGE = """\
def page(n):
    a = n
    b = fetch(a)
    c = part(b)
    return c

def part(n):
    d = n + 1
    return d
"""

PROGRAM = """\
x = run(page, 1)
y = 2
"""


class Hook(object):
    """Answers from its attributes; an answer that can be called is called with the arguments."""

    def __init__(self, **answers):
        self.calls = []
        self.answers = {"_GetMarkerFrames": [], "_GetModulePaths": [], "_GetSubLanguageFrames": [],
                        "_StopHere": False, "_TranslateFrame": ("page.lang", 1),
                        "_GetStepOutFrame": None, "_Eval": True}
        for name in answers:
            self.answers["_" + name] = answers[name]

    def answer(self, name, arguments):
        self.calls.append((name,) + arguments)
        answer = self.answers[name]
        if callable(answer):
            return answer(*arguments)
        if isinstance(answer, BaseException):
            raise answer
        return answer

    def _GetMarkerFrames(self, *arguments):
        return self.answer("_GetMarkerFrames", arguments)

    def _GetModulePaths(self, *arguments):
        return self.answer("_GetModulePaths", arguments)

    def _GetSubLanguageFrames(self, *arguments):
        return self.answer("_GetSubLanguageFrames", arguments)

    def _StopHere(self, *arguments):
        return self.answer("_StopHere", arguments)

    def _TranslateFrame(self, *arguments):
        return self.answer("_TranslateFrame", arguments)

    def _GetStepOutFrame(self, *arguments):
        return self.answer("_GetStepOutFrame", arguments)

    def _Eval(self, *arguments):
        return self.answer("_Eval", arguments)

    def asked(self, name):
        """The arguments of each call of a method."""
        return [call[1:] for call in self.calls if call[0] == name]

    def asked_here(self):
        """The questions about stopping: (function, line, event, step kind), in their order."""
        return self.places

    def note_places(self, answer=False):
        """_StopHere notes the place of each question and answers so."""
        self.places = []

        def stop_here(frame, event, kind):
            self.places.append((frame.f_code.co_name, frame.f_lineno, event, kind))
            if callable(answer):
                return answer(frame, event, kind)
            return answer
        self.answers["_StopHere"] = stop_here


class Requests(object):
    """Part of a test case whose `stopped(event, frame)` notes a stop and calls go_on(): each goes
    on with the next of `requests`, entry points by name or functions of the frame."""

    def go_on(self, frame):
        request = "continue_run"
        if self.requests:
            request = self.requests.pop(0)
        if callable(request):
            request(frame)
        else:
            getattr(core, request)()

    def line(self, frame, changed_bps):
        self.stopped("", frame)

    def return_(self, frame, value, changed_bps):
        self.stopped("return ", frame)


class SubLanguageTestCase(Requests, harness.TestCase):
    """The two files loaded; the core is initialised, tracing is off.

    `stops` holds "function line" of each stop, "return " before that of a return; each stop takes
    the next of `requests`, after the last one the program runs freely.
    """

    def setUp(self):
        harness.TestCase.setUp(self)
        sys.dont_write_bytecode = True
        self.stops = []
        self.requests = []
        self.exceptions = []
        self.programs = {}      # the code of each source that ran
        self.server = harness.Server()
        self.arguments = []     # of init()
        self.init()
        self.mine = core.get_current_tstate_id()
        os.mkdir(os.path.join(self.folder, "impl"))
        self.engine = self.load("impl/engine.py", ENGINE)
        self.page = self.load("page.py", PAGE, fetch=self.engine["fetch"])

    def tearDown(self):
        if core.get_tracing():
            core.stop_trace()
        harness.TestCase.tearDown(self)

    def init(self):
        # The same objects each time: what init() was given stays referenced.
        if not self.arguments:
            self.arguments = self.server.init_arguments(
                line_cb=self.line, return_cb=self.return_, exception_cb=self.exception)
        core.init(*self.arguments)

    def load(self, name, source, **variables):
        """The variables of a new file's code."""
        path = self.script(source, name)
        variables.update({"__file__": path, "__name__": name, "core": core, "case": self})
        exec compile(source, path, "exec") in variables
        return variables

    def code(self, name):
        """The code object of one of the functions."""
        return self.engine.get(name, self.page.get(name)).func_code

    def hook(self, **answers):
        """A hook for the two files, but for the answers named."""
        answers.setdefault("GetMarkerFrames", [self.code("run")])
        answers.setdefault("GetModulePaths", [(os.path.join(self.folder, "impl"), 1)])
        answers.setdefault("GetSubLanguageFrames", [self.code("page"), self.code("part")])
        return Hook(**answers)

    def register(self, **answers):
        """A new hook, registered."""
        hook = self.hook(**answers)
        core.register_sub_language_hook(hook)
        return hook

    def run_program(self, source=PROGRAM, first_request="continue_run", **variables):
        """Runs a program under trace; its variables."""
        variables.update({"run": self.engine["run"], "page": self.page["page"], "core": core,
                          "part": self.page["part"], "case": self})
        if source not in self.programs:
            self.programs[source] = compile(source, self.script(source), "exec")
        # The first event is the program's own.
        core.add_to_tstate_tracing(1)
        core.start_trace()
        getattr(core, first_request)()
        self.listening = True
        core.add_to_tstate_tracing(-1)
        try:
            exec self.programs[source] in variables
        finally:
            self.listening = False
            core.stop_trace()
        return variables

    # What does not belong to the program and the two files is stepped out of.
    listening = False

    def stopped(self, text, frame):
        if not frame.f_code.co_filename.startswith(self.folder) or not self.listening:
            core.step_into()
            return
        self.stops.append("%s%s %d" % (text, frame.f_code.co_name, frame.f_lineno))
        self.go_on(frame)

    def exception(self, frame, exc_info, changed_bps):
        self.exceptions.append("%s in %s" % (exc_info[0].__name__, frame.f_code.co_name))

    def active_hook(self):
        return core.sub_language_get_active_hook(self.mine)

    def category(self, frame):
        return core.sub_language_get_frame_category(self.mine, frame)
