"""The client's breakpoints: where they are in the program, and which of them are due at a stop."""

from __future__ import absolute_import

import os

from sorrel.common import errors, text_files
from sorrel.common.decoding import text
from sorrel.common.records import record
from sorrel.inspection import file_code, functions, log_messages, module_files, source
from sorrel.languages import sublanguages
from sorrel.protocol import capabilities
from sorrel.protocol.messages import Refused
from sorrel.server.breakpoint_places import BreakpointPlaces
from sorrel.server.stopped import hit_conditions
from sorrel.service import breakpoints, conditions, function_places
from sorrel.service.places import NotLoaded
from sorrel.service.stops import is_at_line

# A breakpoint that a thread is to stop for. error: the (type, value) that its condition has raised.
Hit = record('Hit', 'id is_function error')

_CONDITION, _LOG_MESSAGE = 'condition', 'log message'


class Breakpoint(object):

    def __init__(self, id, asked):
        """asked: what the client has said of it, for its file or its kind."""
        self.id = id
        self.asked = asked
        place, condition, hit_condition, self.log_message = asked
        self.function = place if isinstance(place, unicode) else None
        self.condition = (condition or '').encode('utf-8') or None
        self.hit_condition = hit_condition or None
        self.hits = 0
        # Which of its texts have failed, and the client was told.
        self.failures = set()
        # Where it is; of a function, not before that is found.
        self.path = self.line = None
        # What told the file from what it was before when this one was set.
        self.version = None
        # Of a function, what its name may mean.
        self.search = None
        # Of one in a file, the path and the line before it has moved to a line with code.
        self.wanted = None
        # The service's, once it is set: one for each Place.
        self.held = []
        self.is_verified = self.is_waiting = False
        self.message = None

    def set_verified(self, is_verified, message=None):
        self.is_verified = is_verified
        self.is_waiting = not is_verified
        self.message = message

    def may_mean_more(self):
        """Whether modules to come may have what it is waiting for, or more of it."""
        return self.is_waiting or bool(self.search and self.held and not self.search.is_final)


class Breakpoints(object):

    def __init__(self, session, service):
        self._session = session
        self._service = service
        self._last_id = 0
        self._in_sources = {}
        self._functions = []
        self._places = BreakpointPlaces(
            session.sources, session.loaded_sources, module_files.main_of(session.program_path))

    # For the session.

    def locations(self, arguments):
        """The answer to a request for the lines with code."""
        path = self._places.spelled(self._session.sources.named(arguments['source']))
        first = self._session.to_program_line(arguments['line'])
        last = self._session.to_program_line(arguments.get('endLine', arguments['line']))
        try:
            lines = self._places.lines(path, first, last)
        except text_files.Unreadable as error:
            raise Refused('cannot read %s: %s' % (path, error))
        return {'breakpoints': [{'line': self._session.to_client_line(line)} for line in lines]}

    def set_in_source(self, arguments):
        path = self._session.sources.named(arguments['source'])
        wanted = [(one, self._session.to_program_line(one['line']))
                  for one in arguments.get('breakpoints', ())]
        new = self._replace(self._in_sources.get(path, ()), wanted)
        self._in_sources[path] = new
        for breakpoint in new:
            if breakpoint.held and _version(breakpoint.path) != breakpoint.version:
                self._remove(breakpoint)
            if not breakpoint.held:
                self._set_at(breakpoint, self._session.sources.place(path, breakpoint.asked[0]))
        return {'breakpoints': [self._describe(breakpoint) for breakpoint in new]}

    def set_functions(self, arguments):
        # A NUL is part of no name, nor of a file's.
        wanted = [(one, one['name'].replace('\0', '')) for one in arguments['breakpoints']]
        self._functions = self._replace(self._functions, wanted)
        for breakpoint in self._functions:
            if not breakpoint.held:
                self._set(breakpoint)
        return {'breakpoints': [self._describe(breakpoint) for breakpoint in self._functions]}

    def lines_mapped(self):
        """The client has said anew where in the program lines of its files are."""
        for path, in_source in self._in_sources.items():
            for breakpoint in in_source:
                place = self._session.sources.place(path, breakpoint.asked[0])
                if place != breakpoint.wanted:
                    self._tell_if_changed(
                        breakpoint, lambda moved, place=place: self._move(moved, place))

    def clear(self):
        """Removes what is there before the program is debugged; afterwards it forgets by itself."""
        for breakpoint in self._all():
            self._remove(breakpoint)

    def are_waiting(self):
        return any(breakpoint.may_mean_more() for breakpoint in self._all())

    def modules_loaded(self):
        """Those that have waited for a module are looked at again. In a thread of the program."""
        waiting = [breakpoint for breakpoint in self._all() if breakpoint.may_mean_more()]
        self._learn_texts(set([breakpoint.path for breakpoint in waiting if not breakpoint.held]))
        for breakpoint in waiting:
            self._tell_if_changed(breakpoint, self._set_or_verify)

    def have_changed_files(self):
        """Whether a file is another one than when breakpoints were set in it."""
        versions = dict((breakpoint.path, breakpoint.version)
                        for breakpoint in self._all() if breakpoint.held)
        return any(_version(path) != version for path, version in versions.items())

    def loaded_anew(self, paths):
        """The lines of what was loaded before may be others now. In a thread of the program."""
        real_paths = set([os.path.realpath(path) for path in paths])
        for breakpoint in self._all():
            own = [breakpoint.path or ''] + [one.path for one in breakpoint.held]
            if real_paths.intersection([os.path.realpath(path) for path in own]):
                self._tell_if_changed(breakpoint, self._set_anew)

    def _learn_texts(self, paths):
        """Of files that only loaders can read, which may be the program's."""
        lacking = [path for path in paths if path is not None and not module_files.is_stored(path)]
        if lacking:
            for _, variables, path in module_files.loaded():
                if path in lacking:
                    self._session.sources.learn(path, variables)

    def hits(self, stop, may_be_step):
        """A Hit for each of those that the thread is to stop for.

        may_be_step: whether it may have stopped for another reason.
        """
        if not is_at_line(stop):
            return []
        # Of a frame of a sub-language, its own place.
        place = sublanguages.location(sublanguages.at_work(stop.thread), stop.frame) \
            or (source.file_name(stop.frame), stop.frame.f_lineno)
        held = self._service.breakpoints.at(*place)
        there = [(breakpoint, one) for breakpoint in self._all() for one in breakpoint.held
                 if one in held and _is_reached(one, stop.frame)]
        for breakpoint, _ in there:
            if not breakpoint.is_verified:
                # Code may be loaded in other ways than as a module.
                self._tell_if_changed(breakpoint, lambda reached: reached.set_verified(True))
        # The core has tried the conditions, but tells only that one of them held.
        is_sure = len(there) == 1 and not may_be_step
        found = []
        for breakpoint, one in there:
            holds, error = self._judge(breakpoint, one, stop, is_sure)
            if error is not None:
                self._tell_failure(breakpoint, one, _CONDITION, error)
            if holds and self._is_due(breakpoint, one, stop.frame):
                found.append(Hit(breakpoint.id, breakpoint.function is not None, error))
        return found

    def _judge(self, breakpoint, held, stop, is_sure):
        """Whether the condition holds, and what it has raised."""
        if is_sure and breakpoint.log_message and breakpoint.hits:
            return True, None  # Not evaluated twice each time that the program passes by.
        holds, error = conditions.judge(held.meant, stop.thread, stop.frame)
        return is_sure or holds, error

    # Setting them.

    def _replace(self, old, wanted):
        """Keeps of the old ones those that are still wanted, makes the others, in their order."""
        left = dict((breakpoint.asked, breakpoint) for breakpoint in old)
        new = []
        for one, place in wanted:
            asked = place, one.get('condition'), one.get('hitCondition'), one.get('logMessage')
            breakpoint = left.pop(asked, None)
            if breakpoint is None:
                self._last_id += 1
                breakpoint = Breakpoint(self._last_id, asked)
            new.append(breakpoint)
        for breakpoint in old:
            if breakpoint not in new:
                self._remove(breakpoint)
        return new

    def _set_at(self, breakpoint, place):
        """place: the path and the line."""
        breakpoint.wanted = breakpoint.path, breakpoint.line = place
        self._set(breakpoint)

    def _move(self, breakpoint, place):
        self._remove(breakpoint)
        self._set_at(breakpoint, place)

    def _remove(self, breakpoint):
        held, breakpoint.held = breakpoint.held, []
        for one in held:
            self._service.breakpoints.remove(one)

    def _set(self, breakpoint):
        breakpoint.set_verified(False)
        breakpoint.is_waiting = False
        condition = breakpoint.hit_condition
        breakpoint.message = hit_conditions.refusal(condition) if condition else None
        if breakpoint.message is not None:
            return
        try:
            places = self._find(breakpoint)
            breakpoint.path, breakpoint.line = places[0].path, places[0].line
            breakpoint.version = _version(breakpoint.path)
            # First: a thread may be there at once.
            self._verify(breakpoint)
            for place in places:
                self._hold(breakpoint, place)
        except text_files.Unreadable as error:
            breakpoint.message = self._why_unreadable(breakpoint.path, error)
            breakpoint.is_waiting = not text_files.is_file(breakpoint.path)
        except breakpoints.Refused as refusal:
            self._remove(breakpoint)
            breakpoint.set_verified(False, refusal.args[0])
            breakpoint.is_waiting = breakpoint.path is None or isinstance(refusal, NotLoaded)

    def _find(self, breakpoint):
        """Its Places. Raises text_files.Unreadable, breakpoints.Refused."""
        if breakpoint.function is None:
            path, line = breakpoint.wanted
            breakpoint.path = self._places.spelled(path)
            return self._places.of_line(breakpoint.path, line)
        if breakpoint.search is None:
            breakpoint.search = self._places.of_function(breakpoint.function.encode('utf-8'))
        return breakpoint.search.find()

    def _hold(self, breakpoint, place):
        breakpoint.held.append(
            self._service.breakpoints.add_at(place, breakpoint.condition))

    def _verify(self, breakpoint):
        path = breakpoint.path
        loaded = self._session.loaded_sources
        # Of other files nobody tells when they are loaded.
        if not path.endswith(file_code.PYTHON) or self._session.sources.files_of(path) \
                or loaded.is_loaded(path):
            breakpoint.set_verified(True, self._remark(breakpoint))
            return
        namesake = loaded.namesake(path)
        breakpoint.set_verified(False, capabilities.WAITING if namesake is None else
                                'another file is loaded as %s: %s' % namesake)

    def _remark(self, breakpoint):
        """What there is to say of one that is verified; None for nothing."""
        path = breakpoint.path
        if breakpoint.search is not None:
            found = breakpoint.search.find()
            return function_places.shown(found) if len(found) > 1 else None
        if self._session.loaded_sources.is_changed(path):
            return 'the file has changed since it was loaded'
        return None if path == breakpoint.wanted[0] else 'the file is called %s' % path

    def _why_unreadable(self, path, error):
        if not error.is_missing:
            return 'cannot read %s: %s' % (path, error)
        why = 'there is no file %s where the program runs' % path
        return why if self._session.sources.is_mapped(path) \
            else why + ', and no path mapping leads there'

    def _set_or_verify(self, breakpoint):
        if not breakpoint.held:
            self._set(breakpoint)
            return
        if breakpoint.search is not None:
            known = [(one.path, one.line) for one in breakpoint.held]
            for place in breakpoint.search.find():
                if (place.path, place.line) not in known:
                    self._hold(breakpoint, place)
        self._verify(breakpoint)

    def _set_anew(self, breakpoint):
        self._remove(breakpoint)
        if breakpoint.search is not None:
            breakpoint.search.forget()
        self._set(breakpoint)

    def _tell_if_changed(self, breakpoint, change):
        before = self._describe(breakpoint)
        change(breakpoint)
        if self._describe(breakpoint) != before:
            self._session.event('breakpoint', {
                'reason': 'changed', 'breakpoint': self._describe(breakpoint)})

    def _all(self):
        found = list(self._functions)
        for in_source in self._in_sources.values():
            found += in_source
        return found

    def _describe(self, breakpoint):
        shown = {'id': breakpoint.id, 'verified': breakpoint.is_verified}
        if not breakpoint.is_verified:
            shown['reason'] = 'pending' if breakpoint.is_waiting else 'failed'
        if breakpoint.message is not None:
            shown['message'] = text(breakpoint.message)
        if breakpoint.path is not None:
            shown['source'], line = self._session.sources.at(breakpoint.path, breakpoint.line)
            shown['line'] = self._session.to_client_line(line)
        return shown

    # At a stop.

    def _is_due(self, breakpoint, held, frame):
        breakpoint.hits += 1
        condition = breakpoint.hit_condition
        if condition and not hit_conditions.is_due(condition, breakpoint.hits):
            return False
        if not breakpoint.log_message:
            return True
        failures = []
        logged = log_messages.logged(breakpoint.log_message, frame, failures.append)
        self._session.output('console', logged + '\n', (held.path, held.line))
        for error in failures:
            self._tell_failure(breakpoint, held, _LOG_MESSAGE, error)
        return False

    def _tell_failure(self, breakpoint, held, which, error):
        if which not in breakpoint.failures:
            breakpoint.failures.add(which)
            self._session.output('important', 'sorrel: the %s of a breakpoint fails: %s\n' % (
                which, errors.error_text(*error)), (held.path, held.line))


def _is_reached(held, frame):
    return held.entry is None or functions.is_reached(held.entry, frame)


def _version(path):
    try:
        return text_files.version(path)
    except text_files.Unreadable:
        return None
