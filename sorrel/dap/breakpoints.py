"""The client's breakpoints: where they are in the program, and which of them are due at a stop."""

import os
import re
import sys

import tmorvik26_vs2012_x64 as core

from sorrel import codelines, evaluate, source
from sorrel.dap import sources
from sorrel.dap.protocol import Refused, text
from sorrel.records import CONTINUE, INTERRUPTED, STEPPED

_HIT_CONDITION = re.compile(r'\s*(==|>=|<=|>|<|=|%)?\s*(\d+)\s*$')
_EXPRESSION = re.compile(r'\{([^{}]+)\}')
_WAITING = 'Waits for its module to be loaded.'


class Breakpoint(object):

    def __init__(self, id, asked):
        """asked: what tells it from other breakpoints of its file or of its kind."""
        self.id = id
        self.asked = asked
        self.path = self.line = None
        self.condition = self.hit_condition = self.log_message = None
        self.hits = 0
        self.is_verified = False
        self.message = None


class Breakpoints(object):

    def __init__(self, session):
        self._session = session
        self._last_id = 0
        self._in_sources = {}
        self._functions = []
        self._lines = {}

    # For the session.

    def set_in_source(self, arguments):
        path = self._session.sources.to_program(arguments['source']['path'])
        old = dict((breakpoint.asked, breakpoint)
                   for breakpoint in self._in_sources.get(path, ()))
        self._lines.pop(path, None)
        self._in_sources[path] = new = []
        for wanted in arguments.get('breakpoints') or ():
            breakpoint = self._make(wanted, wanted['line'], old)
            breakpoint.path = path
            self._find_line(breakpoint, self._session.to_program_line(wanted['line']))
            new.append(breakpoint)
        self._give_to_core(path)
        return {'breakpoints': [self._describe(breakpoint) for breakpoint in new]}

    def set_functions(self, arguments):
        old = dict((breakpoint.asked, breakpoint) for breakpoint in self._functions)
        paths = set(breakpoint.path for breakpoint in self._functions)
        self._functions = []
        for wanted in arguments['breakpoints']:
            breakpoint = self._make(wanted, wanted['name'], old)
            self._find_function(breakpoint)
            self._functions.append(breakpoint)
            paths.add(breakpoint.path)
        for path in paths:
            self._give_to_core(path)
        return {'breakpoints': [self._describe(breakpoint) for breakpoint in self._functions]}

    def modules_loaded(self):
        """Breakpoints that have waited for a module are looked at again."""
        for breakpoint in self._all():
            if breakpoint.is_verified or breakpoint.message != _WAITING:
                continue
            if breakpoint in self._functions:
                self._find_function(breakpoint)
                if breakpoint.path is not None:
                    self._give_to_core(breakpoint.path)
            else:
                self._find_line(breakpoint, breakpoint.line)
            if breakpoint.message != _WAITING:
                self._session.event('breakpoint', {
                    'reason': 'changed', 'breakpoint': self._describe(breakpoint)})

    def hits(self, stop, may_be_step):
        """The ids of those that the thread is to stop for.

        may_be_step: whether it may have stopped for another reason.
        """
        if stop.reason not in (STEPPED, INTERRUPTED):
            return []
        path, line = source.file_name(stop.frame), stop.frame.f_lineno
        there = [breakpoint for breakpoint in self._all()
                 if breakpoint.line == line and self._same(breakpoint.path, path)]
        # The core has tried the conditions, but tells only that one of them held.
        is_sure = len(there) == 1 and not may_be_step
        return [breakpoint.id for breakpoint in there
                if (is_sure or self._condition_holds(breakpoint, stop.frame))
                and self._is_due(breakpoint, stop.frame)]

    # Where they are.

    def _make(self, wanted, place, old):
        asked = (place, wanted.get('condition'), wanted.get('hitCondition'),
                 wanted.get('logMessage'))
        breakpoint = old.get(asked)
        if breakpoint is None:
            self._last_id += 1
            breakpoint = Breakpoint(self._last_id, asked)
            breakpoint.condition = (wanted.get('condition') or '').encode('utf-8') or None
            breakpoint.hit_condition = wanted.get('hitCondition') or None
            breakpoint.log_message = wanted.get('logMessage') or None
        return breakpoint

    def _find_line(self, breakpoint, line):
        breakpoint.line = line
        breakpoint.is_verified = False
        breakpoint.message = self._mistake(breakpoint)
        if breakpoint.message is not None:
            return
        lines = self._lines_of(breakpoint.path)
        if lines is not None:
            after = [candidate for candidate in lines if candidate >= line]
            if not after:
                breakpoint.message = 'There is no code from this line on.'
                return
            breakpoint.line = after[0]
        breakpoint.is_verified = self._is_loaded(breakpoint.path)
        if not breakpoint.is_verified:
            breakpoint.message = _WAITING

    def _find_function(self, breakpoint):
        name = breakpoint.asked[0].encode('utf-8')
        breakpoint.path = breakpoint.line = None
        breakpoint.message = self._mistake(breakpoint)
        if breakpoint.message is not None:
            return
        for module, path in self._session.own_modules():
            inside = name[len(module) + 1:] if name.startswith(module + '.') else name
            code = self._functions_of(path).get(inside)
            if code is not None:
                breakpoint.path, breakpoint.line = path, codelines.of_code(code)[0]
                breakpoint.is_verified = True
                return
        breakpoint.message = _WAITING

    def _mistake(self, breakpoint):
        if breakpoint.hit_condition and not _HIT_CONDITION.match(breakpoint.hit_condition):
            return 'Not a hit condition: use a number, or one after ==, >=, >, <=, < or %.'
        if breakpoint.condition:
            try:
                compile(breakpoint.condition.strip(), '<condition>', 'eval', 0, True)
            except (SyntaxError, TypeError) as error:
                return text(evaluate.error_text(type(error), error))
        return None

    def _lines_of(self, path):
        if path not in self._lines:
            try:
                self._lines[path] = codelines.of_file(path)
            except (IOError, SyntaxError, TypeError):
                self._lines[path] = None
        return self._lines[path]

    def _functions_of(self, path):
        try:
            found = list(codelines.functions(codelines.compiled(path)))
        except (IOError, SyntaxError, TypeError):
            return {}
        found.reverse()
        return dict(found)

    def _is_loaded(self, path):
        return [loaded for _, loaded in self._session.modules() if self._same(path, loaded)] != []

    def _same(self, path, other):
        if path == other:
            return True
        if path is None or os.path.basename(path) != os.path.basename(other):
            return False
        return os.path.realpath(path) == os.path.realpath(other)

    def _all(self):
        found = list(self._functions)
        for breakpoints in self._in_sources.values():
            found += breakpoints
        return found

    def _give_to_core(self, path):
        """All breakpoints of a file: the core clears those of a line only together."""
        if path is None:
            return
        for known in core.get_file_breaks(path):
            core.clear_breaks(path, known[0])
        for breakpoint in self._all():
            if breakpoint.path == path and breakpoint.message in (None, _WAITING):
                core.set_break(path, breakpoint.line, 1, 0, breakpoint.condition, 0)

    def _describe(self, breakpoint):
        shown = {'id': breakpoint.id, 'verified': breakpoint.is_verified}
        if breakpoint.message is not None:
            shown['message'] = text(breakpoint.message)
        if breakpoint.path is not None:
            shown['source'] = self._session.sources.describe(breakpoint.path)
            shown['line'] = self._session.to_client_line(breakpoint.line)
        return shown

    # At a stop.

    def _condition_holds(self, breakpoint, frame):
        if breakpoint.condition is None:
            return True
        try:
            return bool(evaluate.expression(breakpoint.condition, frame))
        except KeyboardInterrupt:
            raise
        except:
            return True  # As in the core: whoever wrote it is to see it.

    def _is_due(self, breakpoint, frame):
        breakpoint.hits += 1
        if breakpoint.hit_condition is not None:
            relation, number = _HIT_CONDITION.match(breakpoint.hit_condition).groups()
            if not _RELATIONS[relation](breakpoint.hits, int(number)):
                return False
        if breakpoint.log_message is None:
            return True
        self._session.output('console', self._logged(breakpoint, frame) + '\n',
                             (breakpoint.path, breakpoint.line))
        return False

    def _logged(self, breakpoint, frame):
        def value(found):
            try:
                shown = evaluate.expression(found.group(1), frame)
                return text(shown) if isinstance(shown, basestring) else text(repr(shown))
            except KeyboardInterrupt:
                raise
            except:
                return '<%s>' % text(evaluate.error_text(*sys.exc_info()[:2]))
        return _EXPRESSION.sub(value, breakpoint.log_message)


_RELATIONS = {
    None: lambda hits, number: hits >= number, '>=': lambda hits, number: hits >= number,
    '==': lambda hits, number: hits == number, '=': lambda hits, number: hits == number,
    '>': lambda hits, number: hits > number, '<': lambda hits, number: hits < number,
    '<=': lambda hits, number: hits <= number,
    '%': lambda hits, number: number and hits % number == 0}
