"""Watchpoints: a thread stops where the value of an expression has changed.

The core has them looked at: in all code, or only in the frames that alone can change what is
watched, where that is certain.
"""

from __future__ import absolute_import

import sys

import tmorvik26_vs2012_x64 as core

from sorrel.common.records import record
from sorrel.inspection import frames, watched
from sorrel.service import living
from sorrel.service.breakpoints import Refused

_watch = core._for_sorrel['watch']

# What a thread stops for. old, new: how the value was shown before and is now; None where it has
# not changed. is_left: whether the frame that it is about is left, and the watchpoint gone.
Change = record('Change', 'watchpoint old new is_left error')


class Watchpoint(object):
    """One watchpoint, for whoever asks. Changed by Watches alone.

    expression, condition: texts; the latter None for none. hits: how often it was seen to have
    changed while it was enabled. The rest is as breakpoints have it.
    """

    message = waits_for = None
    temporary = False

    def __init__(self, number, expression, frame):
        self.number = number
        self.expression = expression
        self.enabled = True
        self.condition = None
        self.ignore_count = 0
        self.hits = 0
        self.watched = watched.Watched(expression, frame)
        # In whose variables it is, where it reads only those.
        self.module = frame.f_globals.get('__name__')
        self.judge = None

    @property
    def frame(self):
        """The one that it lasts as long as; None for none."""
        return self.watched.frame

    @property
    def text(self):
        """How the value was shown when it was last looked at."""
        return self.watched.known.text


class Watches(object):

    def __init__(self, new_number, callback, with_room, stop):
        """new_number: of one of them. callback: makes a function one that the core can call.
        with_room: calls what may need more of the stack
        than the program has left. stop: has the calling thread stop at the event that it is at.
        """
        self._new_number = new_number
        self._with_room, self._stop = with_room, stop
        self._callback = callback(self._look)
        # Replaced as a whole: threads may be switched anywhere.
        self._all = ()
        # The frames that the core is to have looked at, None for all.
        self._told = ()
        # For each that is enabled the frame that it is looked at in, None for any; what is watched,
        # and what gives its value.
        self._quick = ()
        self._frames = ()
        # By threads.
        self._changes = {}

    def all(self):
        return list(self._all)

    def add(self, expression, frame):
        """The new Watchpoint. Raises Refused."""
        try:
            # Its number comes last: none is used up by one that is refused.
            watchpoint = Watchpoint(None, expression, frame)
        except (SyntaxError, TypeError, MemoryError) as error:
            raise Refused('not an expression: %s' % error)
        watchpoint.number = self._new_number()
        self._replace(self._all + (watchpoint,))
        return watchpoint

    def remove(self, watchpoint):
        self._replace(tuple([other for other in self._all if other is not watchpoint]))

    def enable(self, watchpoint, on):
        if on and not watchpoint.enabled:
            watchpoint.watched.known = watchpoint.watched.changed() or watchpoint.watched.known
        watchpoint.enabled = on
        self._tell()

    def set_ignore_count(self, watchpoint, count):
        watchpoint.ignore_count = count

    def set_condition(self, watchpoint, condition):
        """condition: an expression, or None. Raises Refused."""
        condition = condition and condition.strip()
        try:
            watchpoint.judge = watchpoint.watched.understood(condition) if condition else None
        except (SyntaxError, TypeError, MemoryError) as error:
            raise Refused('the condition is no expression: %s' % error)
        watchpoint.condition = condition or None

    def forget(self):
        """The core is about to be reset."""
        self._changes.clear()
        self._replace(())

    def forget_threads_but(self, ident):
        """In a forked process, whose only thread is the calling one."""
        for thread in self._changes.keys():
            if thread != ident:
                del self._changes[thread]
        here = list(frames.callers(sys._getframe()))
        self._replace(tuple([watchpoint for watchpoint in self._all
                             if watchpoint.frame is None or watchpoint.frame in here]))

    def _look(self, frame, is_end):
        """The calling thread is at a line of this frame, or at its return; is_end: for good."""
        for where, one, code, globals, variables in self._quick:
            if where is None or where is frame:
                try:
                    # Nearly all looks end here.
                    if code is not None and \
                            eval(code, globals, variables or one.frame.f_locals) is one.atom:
                        continue
                except:
                    if one.fails_as_before():
                        continue
                if one.may_have_changed():
                    break
        else:
            if not is_end or frame not in self._frames:
                return
        self._with_room(self._look_closely, living.current(), frame, is_end)

    def _look_closely(self, thread, frame, is_end):
        changed = [(watchpoint, look) for watchpoint, look in self._changed(frame)
                   if look is not None or is_end and watchpoint.frame is frame]
        if not changed or not frames.is_program(frame):
            return
        changes = [change for change in [
            self._change(watchpoint, look, is_end and watchpoint.frame is frame)
            for watchpoint, look in changed] if change is not None]
        if changes:
            self._changes.setdefault(thread, []).extend(changes)
            self._stop(thread)
        self._tell()

    def take(self, thread):
        """The Changes for which the calling thread, whose ident this is, has stopped."""
        if not self._all and thread not in self._changes:
            return []
        # At an exception nobody has looked yet.
        found = [self._change(watchpoint, look, False)
                 for watchpoint, look in self._changed() if look is not None]
        return self._changes.pop(thread, []) + [change for change in found if change is not None]

    def renew(self):
        """What was changed at a stop does not count. To be called before the thread goes on."""
        for watchpoint, look in self._changed():
            watchpoint.watched.known = look or watchpoint.watched.known
        self._tell()

    def _changed(self, frame=None):
        """Each Watchpoint with the Look of its value, None if that has not changed.

        frame: where a thread is; None to look anyway.
        """
        return [(watchpoint, watchpoint.watched.changed() if watchpoint.enabled and (
            frame is None or not watchpoint.watched.is_own or watchpoint.frame is frame) else None)
                for watchpoint in self._all]

    def _change(self, watchpoint, look, is_left):
        """The Change that is to be told, if any."""
        old, watchpoint.watched.known = watchpoint.watched.known, look or watchpoint.watched.known
        is_due, error = self._is_due(watchpoint) if look is not None else (False, None)
        if is_left:
            self.remove(watchpoint)
        if not is_due and not is_left:
            return None
        return Change(watchpoint, is_due and old.text or None, is_due and look.text or None,
                      is_left, error)

    @staticmethod
    def _is_due(watchpoint):
        """Whether one whose value has changed stops the thread; and what its condition raised."""
        watchpoint.hits += 1
        if watchpoint.judge is not None:
            try:
                if not watchpoint.judge():
                    return False, None
            except:
                return True, sys.exc_info()[:2]
        if watchpoint.ignore_count:
            watchpoint.ignore_count -= 1
            return False, None
        return True, None

    def _replace(self, all):
        self._all = all
        self._tell()

    def _tell(self):
        """Has the core call for a look where one is needed, and nowhere else."""
        self._frames = tuple([watchpoint.frame for watchpoint in self._all
                              if watchpoint.frame is not None])
        self._quick = tuple([
            (one.frame if one.is_own else None, one, one.code, one.globals, one.variables)
            for one in [watchpoint.watched for watchpoint in self._all if watchpoint.enabled]])
        looked_at = self._frames
        if None in [quick[0] for quick in self._quick]:
            looked_at = None
        if looked_at == self._told:
            return
        self._told = looked_at
        if looked_at != ():
            _watch(self._callback, looked_at)
        else:
            _watch(None, None)
