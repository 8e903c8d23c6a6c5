"""Programs in languages that run on Python, such as templates, as their authors see them.

Whoever implements such a language registers a hook object, once the program runs. Its methods say
which code objects enter the language, which files implement it, and which frames stand for lines
in files of the language; docs/terminal.md lists them.
"""

import sys

import tmorvik26_vs2012_x64 as core

_KEY, _HIDDEN = 1, 0


def register(hook):
    """From now on, frames of the hook's language are shown at their lines in its own files."""
    core.register_sub_language_hook(hook)


def load(name):
    """Registers the hook that a function or class of this name, "MODULE:NAME", makes.

    Raises whatever importing or calling it raises.
    """
    module, _, maker = name.partition(':')
    __import__(module)
    register(getattr(sys.modules[module], maker)())


def is_hidden(thread, frame):
    """Whether a frame on the stack of this thread (the core's id) only implements a language."""
    return core.sub_language_get_frame_category(thread, frame) == _HIDDEN


def location(thread, frame):
    """The (path, line) that a frame of this thread stands for, None for one of plain Python."""
    hook = _hook(thread, frame)
    if hook is None:
        return None
    try:
        path, line = hook._TranslateFrame(frame, 1)[:2]
    except Exception:
        return None  # The frame is shown as what it is.
    return str(path), int(line)


def evaluator(thread, frame):
    """A function for expressions of the language that this frame stands for, or None."""
    hook = _hook(thread, frame)
    evaluate = getattr(hook, '_Eval', None)
    return evaluate and (lambda expression: evaluate(expression, frame))


def _hook(thread, frame):
    if core.sub_language_get_frame_category(thread, frame) != _KEY:
        return None
    return core.sub_language_get_active_hook(thread)
