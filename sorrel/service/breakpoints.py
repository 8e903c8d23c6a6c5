"""Breakpoints: each has settings of its own, though the core changes all of a line together.

What is asked here holds at once, also while the program runs.
"""

from __future__ import absolute_import

import os

import tmorvik26_vs2012_x64 as core

from sorrel.common import text_files
from sorrel.common.originals import thread
from sorrel.common.records import record
from sorrel.inspection import evaluation, file_code, functions, private_names, source
from sorrel.languages import sublanguages
from sorrel.service import conditions
from sorrel.service.checks import Checks

_DESCRIBED = ('path', 'line', 'name', 'waits_for', 'condition', 'temporary', 'ignore_count',
              'message', 'enabled')

# file: what the core knows the path as, where it has no such name. entry: the Entry of a function
# that the line alone does not tell, or an InText. name: of a function, as it is found by in the
# file. class_name: of the class that the line stands in.
Place = record('Place', 'path line file entry name class_name', None, None, None, None)


class Refused(Exception):
    """A breakpoint cannot be as it was asked for; the text says why, in one line."""


class Breakpoint(object):
    """One breakpoint, as it was when the service was last asked. Changed by Breakpoints alone.

    number: None of a hidden one.
    hits: how often its line was reached while it was enabled, whatever its condition said.
    ignore_count: how often it will still be passed by where it would have stopped.
    message: what is written there, with expressions in braces, while the program runs on; or None.
    waits_for: the place, as it was named, of one that is pending; path and line are None then.
    """

    def __init__(self, number, place, condition, temporary=False, ignore_count=0, message=None,
                 waits_for=None):
        self.number = number
        self.condition = condition
        # What is evaluated for that, anywhere: with private names as they are outside of the class.
        self.meant = None
        self.temporary = temporary
        self.enabled = True
        self.ignore_count = ignore_count
        self.message = message
        self.hits = 0
        # The core's id of it, and the hits from before it was set anew there.
        self.id = None
        self.earlier_hits = 0
        # Whether the service counts and decides, and not the core.
        self.is_checked = False
        self.waits_for = waits_for
        self.is_at(place)

    def is_at(self, place):
        self.path, self.line, file, self.entry, self.name, self.class_name = place
        self.file = file or self.path
        self.real_path = self.file and os.path.realpath(self.file)

    def is_in_no_file(self):
        """Whether it is in code that the program has made of text."""
        return isinstance(self.entry, functions.InText) \
            or self.entry is not None and self.entry.code is not None

    def understand(self):
        self.meant = self.condition
        if self.condition and self.class_name:
            self.meant = private_names.in_text_of_class(self.condition, self.class_name)
        if self.meant:
            self.meant = evaluation.said_to_be_utf8(self.meant)

    def is_special(self):
        """Whether it is more than the core knows of."""
        return self.entry is not None or self.message is not None


_NOWHERE = Place(None, None)


class Breakpoints(object):

    def __init__(self):
        self._last_number = 0
        self._checks = Checks()
        # Front ends ask from threads of their own, too.
        self._lock = thread.allocate_lock()
        self.forget()

    def new_number(self):
        """One for what is numbered as the breakpoints are."""
        with self._lock:
            self._last_number += 1
            return self._last_number

    def described(self):
        """What add_described() takes, in another process."""
        return [[getattr(breakpoint, name) for name in _DESCRIBED] for breakpoint in self.all()]

    def add_described(self, described, find):
        """The Breakpoints that were described; None for one that cannot be here.

        find: gives the Place of a line, and of a function by its name, in a file.
        """
        return [self._add_described(values, find) for values in described]

    def _add_described(self, values, find):
        known = dict(zip(_DESCRIBED, [
            value.encode('utf-8') if isinstance(value, unicode) else value for value in values]))
        is_enabled = known.pop('enabled')
        path, line, name = known.pop('path'), known.pop('line'), known.pop('name')
        waits_for = known.pop('waits_for')
        try:
            breakpoint = self.add_pending(waits_for, **known) if waits_for \
                else self.add_at(find(path, name or line), **known)
        except Refused:
            return None  # The file has changed meanwhile.
        if not is_enabled:
            self.enable(breakpoint, False)
        return breakpoint

    def forget_other_threads(self):
        """In a forked process: one of them may have been in the middle of a change."""
        self._lock = thread.allocate_lock()

    def forget(self):
        """The core has been reset."""
        self._known = []
        self._fired = []
        self._checks.set(self._known)

    def add(self, path, line, condition=None, temporary=False, ignore_count=0):
        """Sets a breakpoint in a file, on this line or the next one that has code.

        condition: an expression, or None. temporary: to be removed when it has stopped a thread.
        Returns the Breakpoint. Raises Refused.
        """
        path = os.path.abspath(path)
        try:
            code = file_code.of_file(path)
        except text_files.Unreadable as error:
            raise Refused('cannot read %s: %s' % (path, error))
        line = next_line(code, line, path)
        return self.add_at(Place(path, line, class_name=code.class_at(line)), condition, temporary,
                           ignore_count)

    def add_at(self, place, condition=None, temporary=False, ignore_count=0, message=None):
        """The same at a Place. message: what is written instead of stopping, or None."""
        condition = _valid(condition, place.path)
        with self._lock:
            return self._added(place, condition, temporary, ignore_count, message)

    def add_pending(self, waits_for, condition=None, temporary=False, ignore_count=0,
                    message=None):
        """One whose place, named like this, is not there yet."""
        condition = _valid(condition, None)
        with self._lock:
            return self._added(_NOWHERE, condition, temporary, ignore_count, message, waits_for)

    def settle(self, breakpoint, place):
        """A pending one has found its Place."""
        with self._lock:
            self._refresh()
            if breakpoint in self._known and breakpoint.waits_for is not None:
                breakpoint.waits_for = None
                breakpoint.is_at(place)
                self._set_anew(breakpoint)

    def move(self, breakpoint, place):
        """It is to be at another Place. Nothing happens to one that is no longer there."""
        with self._lock:
            self._refresh()
            if breakpoint in self._known:
                at = self._known.index(breakpoint)
                del self._known[at]
                self._set_anew(breakpoint)
                breakpoint.is_at(place)
                self._known.insert(at, breakpoint)
                self._set_anew(breakpoint)

    def add_hidden(self, path, line, condition=None):
        """One of the service's own, of which nobody is told. As `add`, on a line with code."""
        with self._lock:
            breakpoint = Breakpoint(None, Place(path, line), condition)
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
        self._change(breakpoint, 'condition', _valid(condition, breakpoint.path))

    def all(self):
        """The Breakpoints that there are now, by number."""
        with self._lock:
            self._refresh()
            return [breakpoint for breakpoint in self._known if breakpoint.number is not None]

    def pending(self):
        return [breakpoint for breakpoint in self.all() if breakpoint.waits_for is not None]

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

    def have_fired(self, thread, frame, changed_bps):
        """Whether a line event in this frame is one that breakpoints stop the thread for.

        thread: the ident of the calling one, whose frame it is. changed_bps: as the core gives it
        with the event. It does not say which hits were passed over: a breakpoint with no hits left
        to ignore counts as one that stops.
        """
        fired, hit = changed_bps
        if fired:
            return True
        others = [breakpoint.id for breakpoint in self._known
                  if breakpoint.number is None or breakpoint.is_checked]
        for path, line, id, _, _, condition, ignore_count, _ in hit:
            if line == frame.f_lineno and not ignore_count and id not in others \
                    and os.path.realpath(path) == os.path.realpath(source.file_name(frame)) \
                    and conditions.judge(condition, thread, frame)[0]:
                return True
        return False

    def any_checked(self):
        """Whether the service decides at any line."""
        return self._checks.any()

    def checked_at(self, path, line):
        """Those on a line at which the service decides; all of the line's, or none."""
        return self._checks.at(path, line)

    def may_be_due(self, checked, frame):
        """Whether any of these may be, at a line event in this frame."""
        return any(self._checks.is_reached(breakpoint, frame) for breakpoint in checked)

    def reach(self, checked, thread, frame):
        """The calling thread, whose ident this is, has come to these: which of them are due."""
        due = [breakpoint for breakpoint in checked
               if self._checks.is_due(breakpoint, thread, frame)]
        for breakpoint in due:
            if breakpoint.temporary:
                with self._lock:
                    self._refresh()
                    if breakpoint in self._known:
                        self._known.remove(breakpoint)
                        self._fired.append(breakpoint)
                        self._set_anew(breakpoint)
        return due

    def _change(self, breakpoint, attribute, value):
        with self._lock:
            self._refresh()
            if breakpoint in self._known:
                setattr(breakpoint, attribute, value)
                self._set_anew(breakpoint)

    # With the lock held.

    def _added(self, place, *settings):
        self._last_number += 1
        breakpoint = Breakpoint(self._last_number, place, *settings)
        if self._on_line_of(breakpoint):
            self._refresh()
        self._known.append(breakpoint)
        self._set_anew(breakpoint)
        return breakpoint

    def _on_line_of(self, one):
        return [breakpoint for breakpoint in self._known
                if breakpoint.line == one.line and breakpoint.real_path == one.real_path]

    def _set_anew(self, changed):
        """Gives the core what is known of the line of this breakpoint."""
        if changed.waits_for is not None:
            return
        there = self._on_line_of(changed)
        for file in set([breakpoint.file for breakpoint in there + [changed]]):
            core.clear_breaks(file, changed.line)
        are_checked = bool([breakpoint for breakpoint in there if breakpoint.is_special()])
        for breakpoint in there:
            breakpoint.earlier_hits = breakpoint.hits
            breakpoint.is_checked = are_checked and breakpoint.number is not None
            self._set(breakpoint)
        self._checks.set([breakpoint for breakpoint in self._known if breakpoint.is_checked])
        in_templates = {}
        for breakpoint in self._known:
            if breakpoint.path and not breakpoint.path.endswith(file_code.PYTHON):
                in_templates.setdefault(breakpoint.real_path, {})[breakpoint.line] = breakpoint.file
        sublanguages.ask_for_breakpoints(in_templates)

    def _set(self, breakpoint):
        breakpoint.understand()
        # Of one that is checked by the service, the core is only to tell that its line is reached.
        settings = (0, None, 0) if breakpoint.is_checked else (
            int(breakpoint.temporary), breakpoint.meant, breakpoint.ignore_count)
        breakpoint.id = core.set_break(
            breakpoint.file, breakpoint.line, int(breakpoint.enabled), *settings)

    def _refresh(self):
        """Learns what has happened to the breakpoints meanwhile."""
        now = {}
        core_has = [breakpoint for breakpoint in self._known
                    if breakpoint.waits_for is None and not breakpoint.is_checked]
        for file in set([breakpoint.file for breakpoint in core_has]):
            for _, id, _, _, _, ignore_count, hits in core.get_file_breaks(file):
                now[id] = ignore_count, hits
        for breakpoint in core_has:
            if breakpoint.id in now:
                breakpoint.ignore_count, hits = now[breakpoint.id]
                breakpoint.hits = breakpoint.earlier_hits + hits
            else:
                self._known.remove(breakpoint)
                if breakpoint.number is not None:
                    self._fired.append(breakpoint)


def _valid(condition, path):
    """A condition as it is kept; None for none. Raises Refused.

    path: of the file, if that is known.
    """
    condition = condition and condition.strip()
    if not condition:
        return None
    try:
        if path is None or path.endswith(file_code.PYTHON):
            evaluation.check_expression(condition)
        else:
            # The frames there may be of plain Python all the same.
            evaluation.check_size(condition)
    except (SyntaxError, TypeError) as error:
        raise Refused('the condition is no expression: %s' % error)
    return condition


def next_line(code, line, path):
    """This line of a file, of which this is the FileCode, or the next with code. Raises Refused."""
    if line < 1:
        raise Refused('lines are counted from 1')
    if code.refusal is not None:
        raise Refused(code.refusal)
    found = code.next_line(line)
    if found is None:
        raise Refused('no code from line %d of %s on' % (line, path))
    return found
