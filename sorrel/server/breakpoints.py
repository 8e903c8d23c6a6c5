"""The client's breakpoints: where they are in the program, and which of them are due at a stop."""

from __future__ import absolute_import

from sorrel.common import errors, text_files
from sorrel.common.decoding import text
from sorrel.common.records import record
from sorrel.inspection import file_code, log_messages, source
from sorrel.languages import sublanguages
from sorrel.protocol import capabilities
from sorrel.server.stopped import hit_conditions
from sorrel.service import breakpoints, conditions, locations
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
        # The same in a file before it has moved to a line with code.
        self.wanted = None
        # The service's, once it is set.
        self.held = None
        self.is_verified = self.is_waiting = False
        self.message = None

    def set_verified(self, is_verified):
        self.is_verified = is_verified
        self.is_waiting = not is_verified
        self.message = None if is_verified else capabilities.WAITING


class Breakpoints(object):

    def __init__(self, session, service):
        self._session = session
        self._service = service
        self._last_id = 0
        self._in_sources = {}
        self._functions = []

    # For the session.

    def set_in_source(self, arguments):
        path = self._session.sources.named(arguments['source'])
        wanted = [(one, self._session.to_program_line(one['line']))
                  for one in arguments.get('breakpoints', ())]
        new = self._replace(self._in_sources.get(path, ()), wanted)
        self._in_sources[path] = new
        for breakpoint in new:
            if breakpoint.held is None:
                self._set_at(breakpoint, self._session.sources.place(path, breakpoint.asked[0]))
        return {'breakpoints': [self._describe(breakpoint) for breakpoint in new]}

    def set_functions(self, arguments):
        # A NUL is part of no name, nor of a file's.
        wanted = [(one, one['name'].replace('\0', '')) for one in arguments['breakpoints']]
        self._functions = self._replace(self._functions, wanted)
        for breakpoint in self._functions:
            if breakpoint.held is None:
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
            if breakpoint.held is not None:
                self._service.breakpoints.remove(breakpoint.held)

    def are_waiting(self):
        return any(breakpoint.is_waiting for breakpoint in self._all())

    def modules_loaded(self):
        """Those that have waited for a module are looked at again."""
        for breakpoint in self._all():
            if breakpoint.is_waiting:
                self._tell_if_changed(breakpoint, self._set_or_verify)

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
        there = [breakpoint for breakpoint in self._all() if breakpoint.held in held]
        for breakpoint in there:
            if not breakpoint.is_verified:
                # Code may be loaded in other ways than as a module.
                self._tell_if_changed(breakpoint, lambda reached: reached.set_verified(True))
        # The core has tried the conditions, but tells only that one of them held.
        is_sure = len(there) == 1 and not may_be_step
        found = []
        for breakpoint in there:
            holds, error = self._judge(breakpoint, stop, is_sure)
            if error is not None:
                self._tell_failure(breakpoint, _CONDITION, error)
            if holds and self._is_due(breakpoint, stop.frame):
                found.append(Hit(breakpoint.id, breakpoint.function is not None, error))
        return found

    def _judge(self, breakpoint, stop, is_sure):
        """Whether the condition holds, and what it has raised."""
        if is_sure and breakpoint.log_message and breakpoint.hits:
            return True, None  # Not evaluated twice each time that the program passes by.
        holds, error = conditions.judge(breakpoint.held.meant, stop.thread, stop.frame)
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
            if breakpoint not in new and breakpoint.held is not None:
                self._service.breakpoints.remove(breakpoint.held)
        return new

    def _set_at(self, breakpoint, place):
        """place: the path and the line."""
        breakpoint.wanted = breakpoint.path, breakpoint.line = place
        self._set(breakpoint)

    def _move(self, breakpoint, place):
        if breakpoint.held is not None:
            self._service.breakpoints.remove(breakpoint.held)
            breakpoint.held = None
        breakpoint.is_verified = False
        self._set_at(breakpoint, place)

    def _set(self, breakpoint):
        breakpoint.message = None
        breakpoint.is_waiting = False
        if breakpoint.hit_condition and not hit_conditions.is_condition(breakpoint.hit_condition):
            breakpoint.message = ('Not a hit condition: use a number, '
                                  'or one after ==, >=, >, <=, < or %.')
            return
        try:
            if breakpoint.function is not None:
                breakpoint.path, breakpoint.line = locations.find_function(
                    breakpoint.function.encode('utf-8'), self._session.program_path)
            # First: a thread may be there at once.
            self._verify(breakpoint)
            breakpoint.held = self._service.breakpoints.add(
                breakpoint.path, breakpoint.line, breakpoint.condition)
        except breakpoints.Refused as refusal:
            breakpoint.is_verified = False
            breakpoint.message = refusal.args[0]
            breakpoint.is_waiting = breakpoint.path is None or \
                not text_files.is_file(breakpoint.path)
            return
        breakpoint.line = breakpoint.held.line

    def _verify(self, breakpoint):
        # Of other files nobody tells when they are loaded.
        breakpoint.set_verified(not breakpoint.path.endswith(file_code.PYTHON)
                                or self._session.loaded_sources.is_loaded(breakpoint.path))

    def _set_or_verify(self, breakpoint):
        if breakpoint.held is None:
            self._set(breakpoint)
        else:
            self._verify(breakpoint)

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
        if breakpoint.message is not None:
            shown['message'] = text(breakpoint.message)
        if breakpoint.path is not None:
            shown['source'], line = self._session.sources.at(breakpoint.path, breakpoint.line)
            shown['line'] = self._session.to_client_line(line)
        return shown

    # At a stop.

    def _is_due(self, breakpoint, frame):
        breakpoint.hits += 1
        condition = breakpoint.hit_condition
        if condition and not hit_conditions.is_due(condition, breakpoint.hits):
            return False
        if not breakpoint.log_message:
            return True
        failures = []
        logged = log_messages.logged(breakpoint.log_message, frame, failures.append)
        self._session.output('console', logged + '\n', (breakpoint.path, breakpoint.line))
        for error in failures:
            self._tell_failure(breakpoint, _LOG_MESSAGE, error)
        return False

    def _tell_failure(self, breakpoint, which, error):
        if which not in breakpoint.failures:
            breakpoint.failures.add(which)
            self._session.output('important', 'sorrel: the %s of a breakpoint fails: %s\n' % (
                which, errors.error_text(*error)), (breakpoint.path, breakpoint.line))
