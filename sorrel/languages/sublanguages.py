"""Programs in languages that run on Python, such as templates, as their authors see them.

Whoever implements such a language registers a hook object, once the program runs. Its methods say
which code objects enter the language, which files implement it, and which frames stand for lines
in files of the language; docs/terminal.md lists them.
"""

from __future__ import absolute_import

import sys

import tmorvik26_vs2012_x64 as core

# Taken now: a program may replace what the interpreter's modules offer.
_current_frames = sys._current_frames
# By code objects, the language that is at work while one of them runs; and those whose frames stand
# for lines of a language.
_entered_by = {}
# The names of the hooks that load() has registered.
loaded = []
_keys = set()


class _Language(object):
    """Stands in for a hook, and keeps what that says of the language's code.

    The core tells which hook is at work in a thread only where it finds the thread by its id, and
    that is half an address.
    """

    def __init__(self, hook):
        self.hook = hook
        self._paths = []

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
            _keys.update(codes)
        return codes

    def is_implemented_in(self, path):
        for beginning, category in self._paths:
            if path.lower().startswith(beginning.lower()):
                return category != 0
        return False


def register(hook):
    """From now on, frames of the hook's language are shown at their lines in its own files."""
    core.register_sub_language_hook(_Language(hook))


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


def at_work(thread):
    """The language at work in a thread (its ident), to be asked about in what follows, or None."""
    found = None
    frame = _current_frames().get(thread) if _entered_by else None
    while frame is not None:
        found = _entered_by.get(frame.f_code, found)
        frame = frame.f_back
    return found


def is_hidden(language, frame):
    """Whether a frame only implements the language at work in its thread."""
    if language is None or frame.f_code in _keys:
        return False
    try:
        return language.is_implemented_in(core.get_frame_file(frame) or '')
    except Exception:
        return False  # The hook has said something else than pairs of a path and a number.


def is_key(frame):
    """Whether the frame's code is such that its frames may stand for lines of a language."""
    return frame.f_code in _keys


def location(language, frame):
    """The (path, line) that a frame stands for, None for one of plain Python."""
    if language is None or frame.f_code not in _keys:
        return None
    try:
        path, line = language.hook._TranslateFrame(frame, 1)[:2]
        return str(path), int(line)
    except Exception:
        return None  # The frame is shown as what it is.


def evaluator(language, frame):
    """A function for expressions of the language that this frame stands for, or None."""
    if language is None or frame.f_code not in _keys:
        return None
    evaluate = getattr(language.hook, '_Eval', None)
    return evaluate and (lambda expression: evaluate(expression, frame))
