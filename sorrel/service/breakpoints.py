"""Breakpoints: each has settings of its own, though the core changes all of a line together.

What is asked here holds at once, also while the program runs.
"""

from __future__ import absolute_import

import bisect
import os
import thread

import tmorvik26_vs2012_x64 as core

from sorrel.common import text_files
from sorrel.inspection import code_lines, evaluation, nesting, private_names, source

_PYTHON = ('.py', '.pyw')
_DESCRIBED = 'path', 'line', 'condition', 'temporary', 'ignore_count', 'enabled'


class Refused(Exception):
    """A breakpoint cannot be as it was asked for; the text says why, in one line."""


class Breakpoint(object):
    """One breakpoint, as it was when the service was last asked. Changed by Breakpoints alone.

    number: None of a hidden one.
    hits: how often its line was reached while it was enabled, whatever its condition said.
    ignore_count: how often it will still be passed by where it would have stopped.
    """

    def __init__(self, number, path, line, condition, temporary, ignore_count):
        self.number = number
        self.path = path
        self.line = line
        self.condition = condition
        self.temporary = temporary
        self.enabled = True
        self.ignore_count = ignore_count
        self.hits = 0
        # The core's id of it, and the hits from before it was set anew there.
        self.id = None
        self.earlier_hits = 0


class Breakpoints(object):

    def __init__(self):
        self._last_number = 0
        self._lines = {}
        # By path, line and condition, what the core is given for it.
        self._meant = {}
        # Front ends ask from threads of their own, too.
        self._lock = thread.allocate_lock()
        self.forget()

    def described(self):
        """What add_described() takes, in another process."""
        return [[getattr(breakpoint, name) for name in _DESCRIBED] for breakpoint in self.all()]

    def add_described(self, described):
        for values in described:
            known = dict(zip(_DESCRIBED, [
                value.encode('utf-8') if isinstance(value, unicode) else value
                for value in values]))
            is_enabled = known.pop('enabled')
            try:
                breakpoint = self.add(**known)
            except Refused:
                continue  # The file has changed meanwhile.
            if not is_enabled:
                self.enable(breakpoint, False)

    def forget_other_threads(self):
        """In a forked process: one of them may have been in the middle of a change."""
        self._lock = thread.allocate_lock()

    def forget(self):
        """The core has been reset."""
        self._known = []
        self._fired = []

    def add(self, path, line, condition=None, temporary=False, ignore_count=0):
        """Sets a breakpoint in a file, on this line or the next one that has code.

        condition: an expression, or None. temporary: to be removed when it has stopped a thread.
        Returns the Breakpoint. Raises Refused.
        """
        path = os.path.abspath(path)
        line = self.code_line(path, line)
        condition = self._checked(condition, path, line)
        with self._lock:
            self._last_number += 1
            breakpoint = Breakpoint(
                self._last_number, path, line, condition, temporary, ignore_count)
            self._known.append(breakpoint)
            self._set(breakpoint)
        return breakpoint

    def add_hidden(self, path, line, condition=None):
        """One of the service's own, of which nobody is told. As `add`, on a line with code."""
        with self._lock:
            breakpoint = Breakpoint(None, path, line, condition, False, 0)
            self._known.append(breakpoint)
            self._set(breakpoint)
        return breakpoint

    def remove(self, breakpoint):
        """Does nothing for one that is no longer there."""
        with self._lock:
            self._refresh()
            if breakpoint in self._known:
                self._known.remove(breakpoint)
                self._set_anew(breakpoint)

    def enable(self, breakpoint, on):
        self._change(breakpoint, 'enabled', on)

    def set_ignore_count(self, breakpoint, count):
        self._change(breakpoint, 'ignore_count', count)

    def set_condition(self, breakpoint, condition):
        """condition: an expression, or None. Raises Refused."""
        self._change(breakpoint, 'condition', self._checked(
            condition, breakpoint.path, breakpoint.line))

    def all(self):
        """The Breakpoints that there are now, by number."""
        with self._lock:
            self._refresh()
            return [breakpoint for breakpoint in self._known if breakpoint.number is not None]

    def at(self, path, line):
        """Those on a line of a file."""
        path = os.path.realpath(path)
        return [breakpoint for breakpoint in self.all()
                if breakpoint.line == line and os.path.realpath(breakpoint.path) == path]

    def take_fired(self):
        """The temporary ones that have stopped a thread, and are gone, since the last call."""
        with self._lock:
            self._refresh()
            fired, self._fired = self._fired, []
            return fired

    def have_fired(self, frame, changed_bps):
        """Whether a line event in this frame is one that breakpoints stop the thread for.

        changed_bps: as the core gives it with the event. It does not say which hits were passed
        over: a breakpoint with no hits left to ignore counts as one that stops.
        """
        fired, hit = changed_bps
        if fired:
            return True
        hidden = [breakpoint.id for breakpoint in self._known if breakpoint.number is None]
        for path, line, id, _, _, condition, ignore_count, _ in hit:
            if line == frame.f_lineno and not ignore_count and id not in hidden \
                    and os.path.realpath(path) == os.path.realpath(source.file_name(frame)) \
                    and (condition is None or _holds(condition, frame)):
                return True
        return False

    def code_line(self, path, line):
        """This line of the file, or the next one that has code. Raises Refused."""
        if line < 1:
            raise Refused('lines are counted from 1')
        lines, refusal = self._lines_of(path)
        if refusal is not None:
            raise Refused(refusal)
        after = bisect.bisect_left(lines, line)
        if after == len(lines):
            raise Refused('no code from line %d of %s on' % (line, path))
        return lines[after]

    def _lines_of(self, path):
        """The lines with code of a file, and why there can be no breakpoint in it, or None."""
        try:
            version = text_files.version(path)
            if self._lines.get(path, (None,))[0] != version:
                self._lines[path] = version, _read_lines(path)
            return self._lines[path][1]
        except text_files.Unreadable as error:
            return (), 'cannot read %s: %s' % (path, error)

    def _checked(self, condition, path, line):
        condition = condition and condition.strip()
        if not condition:
            return None
        try:
            if path.endswith(_PYTHON):
                evaluation.check_expression(condition)
            else:
                # The frames there may be of plain Python all the same.
                evaluation.check_size(condition)
        except (SyntaxError, TypeError) as error:
            raise Refused('the condition is no expression: %s' % error)
        if private_names.are_in(condition):
            self._meant[path, line, condition] = _as_in_class(condition, path, line)
        return condition

    def _change(self, breakpoint, attribute, value):
        with self._lock:
            self._refresh()
            if breakpoint in self._known:
                setattr(breakpoint, attribute, value)
                self._set_anew(breakpoint)

    # The core's side, with the lock held.

    def _set_anew(self, changed):
        """Gives the core what is known of the line of this breakpoint."""
        place = changed.path, changed.line
        core.clear_breaks(*place)
        for breakpoint in self._known:
            if (breakpoint.path, breakpoint.line) == place:
                breakpoint.earlier_hits = breakpoint.hits
                self._set(breakpoint)

    def _set(self, breakpoint):
        breakpoint.id = core.set_break(
            breakpoint.path, breakpoint.line, int(breakpoint.enabled), int(breakpoint.temporary),
            self._meant.get((breakpoint.path, breakpoint.line, breakpoint.condition),
                            breakpoint.condition), breakpoint.ignore_count)

    def _refresh(self):
        """Learns what has happened to the breakpoints meanwhile."""
        now = {}
        for path in set([breakpoint.path for breakpoint in self._known]):
            for _, id, _, _, _, ignore_count, hits in core.get_file_breaks(path):
                now[id] = ignore_count, hits
        for breakpoint in list(self._known):
            if breakpoint.id in now:
                breakpoint.ignore_count, hits = now[breakpoint.id]
                breakpoint.hits = breakpoint.earlier_hits + hits
            else:
                self._known.remove(breakpoint)
                if breakpoint.number is not None:
                    self._fired.append(breakpoint)


def _holds(condition, frame):
    try:
        return bool(evaluation.expression(condition, frame))
    except Exception:
        return True  # As in the core: whoever wrote it is to see it.


def _as_in_class(condition, path, line):
    """The text of a condition with private names as the class has them that the line stands in."""
    try:
        name = code_lines.class_at(code_lines.compiled(text_files.text(path), path), line)
    except (text_files.Unreadable, SyntaxError, TypeError):
        return condition
    return private_names.in_text_of_class(condition, name) if name is not None else condition


def _read_lines(path):
    text = text_files.text(path)
    try:
        return code_lines.of_text(text, path), None
    except nesting.TooMuch:
        pass
    except (SyntaxError, TypeError) as error:
        if path.endswith(_PYTHON):
            return (), '%s is no Python program: %s' % (path, error)
    # Of a sub-language, whose hook alone knows more; or too much to find out more.
    return code_lines.filled(text), None


def place_of(function):
    """The file and the first line with code of a function or method. Raises Refused."""
    function = getattr(function, 'im_func', function)
    code = getattr(function, 'func_code', None)
    if code is None:
        raise Refused('not a function in Python: %s' % type(function).__name__)
    path = code.co_filename
    if not text_files.is_file(path):
        # Compiled elsewhere.
        path = function.func_globals.get('__file__', path)
        if path.endswith(('.pyc', '.pyo')):
            path = path[:-1]
    return os.path.abspath(path), code_lines.of_code(code)[0]
