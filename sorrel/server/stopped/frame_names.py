"""The names of frames, with as much of what is known of these as the client asks for."""

from __future__ import absolute_import

from sorrel.common.decoding import text
from sorrel.inspection import values

_VARARGS, _VARKEYWORDS = 4, 8


def name(frame, line, format, show):
    """line: as the client counts. format: a StackFrameFormat. show: makes a text of a value."""
    shown = text(frame.f_code.co_name)
    module = frame.f_globals.get('__name__')
    if format.get('module') and isinstance(module, str):
        shown = text(module) + u'.' + shown
    wanted = [format.get('parameter' + part, False) for part in ('Types', 'Names', 'Values')]
    if format.get('parameters', True in wanted):
        if True not in wanted:
            wanted = [False, True, False]
        shown += u'(%s)' % u', '.join([
            _parameter(stars, known, frame.f_locals, wanted, show)
            for stars, known in _parameters(frame.f_code)])
    if format.get('line'):
        shown += u' line %d' % line
    return shown


def _parameters(code):
    """(stars, name) of each."""
    count = code.co_argcount
    found = [('', known) for known in code.co_varnames[:count]]
    for flag, stars in (_VARARGS, '*'), (_VARKEYWORDS, '**'):
        if code.co_flags & flag:
            found.append((stars, code.co_varnames[count]))
            count += 1
    return found


def _parameter(stars, known, variables, wanted, show):
    has_type, has_name, has_value = wanted
    # The function may have deleted it.
    is_there = known in variables
    words = []
    if has_type and is_there:
        words.append(text(values.type_name(variables[known])))
    if has_name or not is_there:
        words.append(text(stars + known))
    shown = u' '.join(words)
    if has_value and is_there:
        shown += (u'=' if words else u'') + show(variables[known])
    return shown
