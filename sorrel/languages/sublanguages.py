"""Programs in languages that run on Python, such as templates, as their authors see them.

Whoever implements such a language registers a hook object, once the program runs. Its methods say
which code objects enter the language, which files implement it, and which frames stand for lines
in files of the language; docs/terminal.md lists them.
"""

from __future__ import absolute_import

import os
import sys

import tmorvik26_vs2012_x64 as core

from sorrel.common import errors, text_files

# Kinds of steps, as the core numbers them.
RUNNING, STEP_INTO = -1, 0
# So many names of files are kept.
_MAXIMUM = 1024

# Taken now: a program may replace what the interpreter's modules offer.
_current_frames = sys._current_frames
# By code objects, the language that is at work while one of them runs; and those whose frames stand
# for lines of a language.
_entered_by = {}
# The names of the hooks that load() has registered.
loaded = []
# Those that engines have: the core is to ask them only when something may stop in a template.
_of_engines = []
# Whether the core asks hooks; whether it is to do so for good, for one that is none of an engine's,
# or for as long as there are breakpoints for it.
_is_asking = _is_always_asking = False
# Lines of those, by files: see ask_for_breakpoints().
_breakpoints = {}
# What files are called without links.
_real_paths = {}
# By such names, what told files from what they were before when an engine had made templates of
# them, and the lines at which threads can stop. Who is told of another one.
_lines_of_files = {}
_tell_of_lines = None
_use_hooks = core._for_sorrel['use_hooks']
_ask_at = core._for_sorrel['ask_at']
_event_number = core._for_sorrel['event_number']
# By code whose frames may stand for lines, the language whose hook has named it.
_keys = {}
# Names of engines.
_turned_off = set()
# Pairs of what the files of any engine begin with and a number: what the templates of one call may
# render those of another. The core keeps the list and looks into it again.
_paths_of_engines = []
# By threads, the id() of the frame of a template's that the last step is to end in.
_ends = {}
# By threads (idents, as keys), those whose step has begun in what a template has called: the core
# takes them for running when they are back in that.
_leading_back = {}
# Code of engines that catches what comes up in a template only to raise it again; and the code,
# as keys, that handles no exceptions to whoever asks whether one is handled.
_raising_again = []
_no_handlers = {}


class EngineHook(object):
    """What the hook of an engine has beside the methods that the core calls."""

    def __init__(self):
        # The id() of code of which the core has been told where to ask.
        self._said = set()
        # By threads, the event that was asked about last, and how often.
        self._questions = {}

    def is_of_engine(self, frame):
        """Whether a frame is in a file of an engine's."""
        path = core.get_frame_file(frame) or frame.f_code.co_filename
        return path.startswith(tuple([beginning for beginning, _ in _paths_of_engines]))

    def add_path(self, path):
        """What is in files whose names begin with this is the engine's."""
        if (path, 1) not in _paths_of_engines:
            _paths_of_engines.append((path, 1))

    def say_where(self, code, lines):
        """While a thread runs on, the core is to ask about the code only at some of its lines, with
        the first one for calls: lines(code) gives them, and is called if it has not been said.
        """
        if id(code) not in self._said:
            self._said.add(id(code))
            _ask_at(code, tuple(lines(code)))

    def count_question(self, thread):
        """How often there has been a question about the event that the calling thread, whose ident
        this is, is at; with this one.
        """
        event = _event_number()
        known, number = self._questions.get(thread, (None, 0))
        number = number + 1 if known == event else 1
        self._questions[thread] = event, number
        return number

    def is_template(self, frame):
        """Whether a frame stands for lines of the language, if the core has not been told so."""
        return False

    def is_module(self, frame):
        """Whether a frame runs what a template is made into, to make it."""
        return False

    def begin(self):
        """The core has not asked for a while, and asks for all code next."""

    def end_in(self, frame):
        """The frame at whose lines a step over one of this frame's is to end."""
        return frame

    def ends_step(self, thread, frame, kind):
        """Whether a step of the calling thread, whose ident this is, ends at a line of the frame.

        kind: the core's number for it.
        """
        if kind == STEP_INTO or kind == RUNNING and thread not in _leading_back:
            return kind == STEP_INTO
        return self.is_end(thread, self.end_in(frame))

    def is_end(self, thread, frame):
        """Whether the last step of the calling thread, whose ident this is, is to end in this frame
        of a template's.
        """
        return _ends.get(thread) == id(frame)

    def end_outside(self, thread, frame, is_hidden):
        """Where a step out leads, from this frame on: the first one of a template's, or what
        is_hidden(frame) says is none of the engine's.
        """
        language = None
        while frame is not None:
            language = _owner(frame)
            if language is not None and language.hook.is_place(frame):
                frame = language.hook.end_in(frame)
                break
            if not is_hidden(frame):
                break
            frame = frame.f_back
        _ends[thread] = id(frame)
        return frame

    def is_place(self, frame):
        """Whether a frame that may stand for a line of a template does."""
        return self.is_template(frame)

    def ask_everywhere(self):
        """The core asks about all lines again, whatever has been said."""
        self._said.clear()

    def raising_again(self):
        """Code that catches each exception of what a template calls, and always raises it again."""
        return []


class _Language(object):
    """Stands in for a hook, and keeps what that says of the language's code.

    The core tells which hook is at work in a thread only where it finds the thread by its id, and
    that is half an address.
    """

    def __init__(self, hook):
        self.hook = hook
        self._paths = []

    def is_on(self):
        return True

    def __getattr__(self, name):
        return getattr(self.hook, name)

    # What the core asks for; it takes lists that are not empty.

    def _GetMarkerFrames(self):
        codes = self.hook._GetMarkerFrames()
        if isinstance(codes, list):
            _entered_by.update(dict.fromkeys(codes, self))
        return codes

    def _GetModulePaths(self):
        paths = self.hook._GetModulePaths()
        if isinstance(paths, list):
            self._paths = paths
        return paths

    def _GetSubLanguageFrames(self):
        codes = self.hook._GetSubLanguageFrames()
        if isinstance(codes, list):
            _keys.update(dict.fromkeys(codes, self))
        return codes

    def _TranslateFrame(self, frame, for_exception):
        """The core compares names of files as they are spelt: a breakpoint may have another one."""
        place = self.hook._TranslateFrame(frame, for_exception)
        path, line = place[:2]
        known = lines_with_breakpoints(path).get(line)
        return (known, line) + tuple(place[2:]) if known and not for_exception else place

    def is_key(self, frame):
        return frame.f_code in _keys

    def of(self, frame):
        """The language that a frame of its threads stands for a line of, if it does for any."""
        return self

    def is_implemented_in(self, path):
        for beginning, category in self._paths:
            if path.lower().startswith(beginning.lower()):
                return category != 0
        return False


class _LanguageOfEngine(_Language):

    def __init__(self, name, make):
        """make: gives the EngineHook, or None for as long as the engine is not all there."""
        _Language.__init__(self, None)
        self._name = name
        self._make = make
        self.ask()

    def ask(self):
        if self._GetMarkerFrames():
            self._GetModulePaths()

    def _GetMarkerFrames(self):
        if self.hook is None:
            try:
                self.hook = self._make()
                if self.hook is not None:
                    _add_raising_again(self.hook.raising_again())
            except Exception:
                errors.print_error()
                self._make = lambda: None  # It would say the same again.
        return _Language._GetMarkerFrames(self) if self.hook is not None else []

    def is_on(self):
        return self._name not in _turned_off

    def register(self):
        if self.is_on():
            if self.hook is not None:
                self.hook.begin()
            core.register_sub_language_hook(self)

    def _GetModulePaths(self):
        for path in self.hook._GetModulePaths() if self.is_on() else ():
            self.hook.add_path(path)
        self._paths = _paths_of_engines
        return self._paths

    # The core asks one hook alone while a template is rendered, the first: for those of the others
    # that are rendered meanwhile, too. And it does not forget one that is turned off.

    def of(self, frame):
        return _owner(frame) or self

    def _StopHere(self, frame, event, kind):
        language = self.of(frame)
        return language.is_on() and language.hook._StopHere(frame, event, kind)

    def _TranslateFrame(self, frame, for_exception):
        return _Language._TranslateFrame(self.of(frame), frame, for_exception)

    def _GetStepOutFrame(self, frame):
        return self.of(frame).hook._GetStepOutFrame(frame)

    def _Eval(self, text, frame):
        return self.of(frame).hook._Eval(text, frame)

    def is_key(self, frame):
        return _Language.is_key(self, frame) or _owner(frame) is not None


def _owner(frame):
    """The language of an engine's that a frame may stand for a line of; None for none."""
    language = _keys.get(frame.f_code)
    if language in _of_engines:
        return language
    for language in _of_engines:
        if language.hook is not None and language.hook.is_template(frame):
            return language
    return None


def register(hook):
    """From now on, frames of the hook's language are shown at their lines in its own files."""
    global _is_always_asking, _is_asking
    core.register_sub_language_hook(_Language(hook))
    _is_always_asking = _is_asking = True


def register_for_engine(name, make):
    """The same of an EngineHook, while something may stop in a template: see ask().

    name: to turn it off by. make: gives it, or None as long as too little of the engine is there.
    """
    language = _LanguageOfEngine(name, make)
    _of_engines.append(language)
    if _is_asking:
        language.register()


def path_of_template(name):
    """What the file that an engine names is shown as: "<template>" for none."""
    if not name:
        return '<template>'
    if isinstance(name, unicode):
        name = name.encode(sys.getfilesystemencoding() or 'utf-8', 'replace')
    return os.path.abspath(name) if os.path.isfile(name) else str(name)


def turn_off(names):
    """The hooks of these engines, and of no others, are turned off: templates are plain Python."""
    _turned_off.clear()
    _turned_off.update(names)


def turned_off():
    return sorted(_turned_off)


def renew(hook):
    """Has the core ask an engine's hook for its code again, before it comes to the next call."""
    for language in _of_engines:
        if language.hook is hook:
            core.register_sub_language_hook(language)


def ask():
    """From now on the core asks the hooks of engines, too. The calling thread is about to step."""
    _ask()
    _use_hooks(True)


def ask_no_more():
    """No thread is on a step: the hooks are left alone where no breakpoint needs them."""
    global _is_asking
    if _is_asking and not _is_always_asking and not _breakpoints:
        _is_asking = False
        _use_hooks(False)


def ask_for_breakpoints(lines):
    """lines: those of breakpoints that may be in templates, by files without links: a dict of each,
    with what the core has been told that the file is called.
    """
    global _breakpoints
    if lines == _breakpoints:
        return
    _real_paths.clear()
    _breakpoints = lines
    core._for_sorrel['ask_everywhere']()
    for language in _of_engines:
        if language.hook is not None:
            language.hook.ask_everywhere()
    if lines:
        _ask()


def lines_with_breakpoints(path):
    """Those of a template's file, with what the core knows the file as."""
    return _breakpoints.get(_real_path(path), {}) if _breakpoints else {}


def when_begun(tell):
    """tell(path) is called, in a thread of the program's, for a template's file that has breakpoints
    when it is found out anew at which of its lines threads can stop: see known_lines().
    """
    global _tell_of_lines
    _tell_of_lines = tell


def begun(path, lines):
    """The calling thread begins with a template whose file has breakpoints. Threads can stop at these
    lines, and no others but those of other templates that were made of the same text.
    """
    path = _real_path(path)
    try:
        version = text_files.version(path)
    except text_files.Unreadable:
        return
    known = version, sorted(set(lines).union(known_lines(path, version) or ()))
    if _lines_of_files.get(path) != known:
        _lines_of_files[path] = known
        if _tell_of_lines is not None:
            _tell_of_lines(path)


def known_lines(path, version):
    """Those of a template's file at which threads can stop, in their order; None where that is not
    known of this version of it.
    """
    known, lines = _lines_of_files.get(_real_path(path), (None, None))
    return lines if known == version else None


def _real_path(path):
    found = _real_paths.get(path)
    if found is None:
        if len(_real_paths) >= _MAXIMUM:
            _real_paths.clear()
        found = _real_paths[path] = os.path.realpath(path)
    return found


def _ask():
    global _is_asking
    if not _is_asking:
        _is_asking = True
        for language in _of_engines:
            language.register()


def add_to_no_handlers(codes):
    """Adds code to a dict, and goes on to, which handles no exceptions: see raising_again()."""
    global _no_handlers
    _no_handlers = codes
    _add_raising_again(())


def _add_raising_again(codes):
    _raising_again.extend(codes)
    _no_handlers.update(dict.fromkeys(_raising_again))


def is_of_engine():
    """Whether there is a hook of an engine's."""
    return bool(_of_engines)


def load(name):
    """Registers the hook that a function or class of this name, "MODULE:NAME", makes.

    Raises whatever importing or calling it raises.
    """
    module, _, maker = name.partition(':')
    __import__(module)
    register(getattr(sys.modules[module], maker)())
    loaded.append(name)


def load_those_of_parent(names):
    """The same for the hooks of the program that has started this one, where they are there."""
    for name in names:
        try:
            load(str(name))
        except Exception:
            pass  # It is a program without this language, most likely.


def at_work(thread, frame=None):
    """The language at work in a thread (its ident), to be asked about in what follows, or None.

    frame: one of its frames that an exception may have left by now.
    """
    for known in _of_engines:
        if known.hook is None:
            known.ask()
    found = None
    if _entered_by:
        found = _outermost_at_work(_current_frames().get(thread)) or _outermost_at_work(frame)
    return found


def _outermost_at_work(frame):
    found = None
    while frame is not None:
        language = _entered_by.get(frame.f_code)
        if language is not None and language.is_on():
            found = language
        frame = frame.f_back
    return found


def is_hidden(language, frame):
    """Whether a frame only implements the language at work in its thread.

    Its hook may know no line for one that could stand for one.
    """
    if language is None or location(language, frame) is not None:
        return False
    try:
        return language.is_implemented_in(core.get_frame_file(frame) or '')
    except Exception:
        return False  # The hook has said something else than pairs of a path and a number.


def is_key(frame):
    """Whether the frame's code is such that its frames may stand for lines of a language."""
    return frame.f_code in _keys or _owner(frame) is not None


def is_module(frame):
    """Whether a frame runs what a template of an engine's is made into, to make it."""
    for language in _of_engines:
        if language.hook is not None and language.hook.is_module(frame):
            return True
    return False


def location(language, frame):
    """The (path, line) that a frame stands for, None for one of plain Python."""
    if language is None or not language.is_key(frame):
        return None
    try:
        path, line = language.of(frame).hook._TranslateFrame(frame, 1)[:2]
        return str(path), int(line)
    except Exception:
        return None  # The frame is shown as what it is.


def step(thread, frame, is_over):
    """The calling thread, whose ident this is, begins a step over the frame's line, or out of it.

    What a template has called leads back to it; where a step out of itself leads, the core asks.
    """
    inner = frame
    is_in_language = bool(_of_engines) and at_work(thread) is not None
    while frame is not None:
        language = _owner(frame)
        if language is not None:
            if is_over or frame is not inner:
                _ends[thread] = id(language.hook.end_in(frame))
            if frame is not inner:
                _leading_back[thread] = True
            return
        frame = frame.f_back if is_in_language else None


def run(thread):
    """The thread (its ident) begins no such step."""
    _leading_back.pop(thread, None)
