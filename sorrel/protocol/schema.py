"""What the arguments of requests have to look like, and other parts of messages.

A shape is a type, a set of words, a list of one shape for an array of any length, Words, a
PathOrSwitch, a Mapping, a Number, a PortOrPlace, Rules, or a dict for an object: the shapes of its
attributes by their names. A "?" after a name says that the attribute may be missing or null;
attributes without a shape are nobody's business.
"""

from __future__ import absolute_import

from sorrel.common import patterns
from sorrel.common.decoding import text
from sorrel.protocol.messages import Refused

_MOST = (1 << 31) - 1
_MOST_PORT = 65535


class Number(object):
    """A whole number from 0 on, or its digits in a string, as editors' variables have it."""


class Words(object):
    """A string, or an array of them that is not empty: an array is what is handed out."""


class PathOrSwitch(object):
    """A string, or true or false."""


class Rules(object):
    """An array of objects with a pattern, "path" or "module", and whether to "include" it."""


class Mapping(object):
    """An object with attributes of any name, all of them strings or null."""


class PortOrPlace(object):
    """The number of a port, or an object with that and a host: an object is what is handed out."""


_SOURCE = {'name?': unicode, 'path?': unicode, 'sourceReference?': int}
_BREAKPOINT = {'condition?': unicode, 'hitCondition?': unicode}
_IN_FORMAT = {'format?': {'hex?': bool}}
_ON_THREAD = {'threadId': int}
_GOING_ON = dict(_ON_THREAD, **{'singleThread?': bool})
_RULE = {'path?': unicode, 'module?': unicode, 'include': bool}

# What every way to begin knows.
DEBUGGING = {
    'stopOnEntry?': bool, 'justMyCode?': bool, 'stopAllThreads?': bool,
    'steppingResumesAllThreads?': bool, 'postMortem?': bool,
    'learnExceptions?': bool, 'subProcess?': bool, 'autoAttach?': [unicode],
    'lazySubProcess?': bool, 'showReturnValue?': bool, 'redirectOutput?': bool,
    'rules?': Rules(), 'jinja?': bool, 'mako?': bool, 'django?': bool,
    'chameleon?': bool, 'zope?': bool,
    'evaluationTimeout?': float, 'pathMappings?': [{'localRoot': unicode, 'remoteRoot': unicode}]}
_PLACE = {'host?': unicode, 'port': int}
LAUNCH = dict(DEBUGGING, **{
    'logToFile?': PathOrSwitch(),
    'program?': unicode, 'module?': unicode, 'code?': Words(), 'args?': [unicode], 'cwd?': unicode,
    'env?': Mapping(), 'envFile?': unicode, 'python?': Words(), 'pythonArgs?': [unicode],
    'build?': bool, 'hooks?': [unicode], 'noDebug?': bool,
    'console?': frozenset(('internalConsole', 'integratedTerminal', 'externalTerminal'))})
ATTACH = dict(DEBUGGING, **{
    'logToFile?': PathOrSwitch(),
    'connect?': _PLACE, 'listen?': PortOrPlace(), 'host?': unicode, 'port?': int,
    'socket?': unicode, 'token?': unicode, 'tokenFile?': unicode, 'processId?': Number(),
    'subProcessId?': Number(), 'python?': Words(), 'build?': bool})

_SHAPES = {
    'initialize': {'linesStartAt1?': bool, 'columnsStartAt1?': bool, 'pathFormat?': unicode,
                   'supportsRunInTerminalRequest?': bool, 'supportsProgressReporting?': bool,
                   'supportsStartDebuggingRequest?': bool},
    'launch': LAUNCH,
    'attach': ATTACH,
    'disconnect': {'terminateDebuggee?': bool, 'restart?': bool},
    'setBreakpoints': {
        'source': _SOURCE,
        'breakpoints?': [dict(_BREAKPOINT, **{'line': int, 'logMessage?': unicode})]},
    'setPydevdSourceMap': {
        'source': {'path': unicode},
        'pydevdSourceMaps': [{'line': int, 'endLine': int, 'runtimeSource': {'path': unicode},
                              'runtimeLine': int}]},
    'breakpointLocations': {'source': _SOURCE, 'line': int, 'endLine?': int},
    'setFunctionBreakpoints': {'breakpoints': [dict(_BREAKPOINT, name=unicode)]},
    'setExceptionBreakpoints': {
        'filters?': [unicode],
        'filterOptions?': [{'filterId': unicode, 'condition?': unicode}],
        'exceptionOptions?': [{
            'breakMode': frozenset(('never', 'always', 'unhandled', 'userUnhandled')),
            'path?': [{'names': [unicode]}]}]},
    'exceptionInfo': _ON_THREAD,
    'continue': _GOING_ON,
    'next': _GOING_ON,
    'stepIn': dict(_GOING_ON, **{'targetId?': int}),
    'stepInTargets': {'frameId': int},
    'stepOut': _GOING_ON,
    'pause': _ON_THREAD,
    'goto': dict(_ON_THREAD, targetId=int),
    'gotoTargets': {'source': _SOURCE, 'line': int},
    'stackTrace': dict(_ON_THREAD, **{
        'startFrame?': int, 'levels?': int, 'format?': {
            'hex?': bool, 'parameters?': bool, 'parameterTypes?': bool, 'parameterNames?': bool,
            'parameterValues?': bool, 'line?': bool, 'module?': bool, 'includeAll?': bool}}),
    'scopes': {'frameId': int},
    'variables': dict(_IN_FORMAT, **{
        'variablesReference': int, 'filter?': frozenset(('indexed', 'named')), 'start?': int,
        'count?': int}),
    'setVariable': dict(_IN_FORMAT, variablesReference=int, name=unicode, value=unicode),
    'setExpression': dict(_IN_FORMAT, **{
        'expression': unicode, 'value': unicode, 'frameId?': int}),
    'evaluate': dict(_IN_FORMAT, **{'expression': unicode, 'frameId?': int, 'context?': unicode}),
    'completions': {'text': unicode, 'column': int, 'line?': int, 'frameId?': int},
    'modules': {'startModule?': int, 'moduleCount?': int},
    'source': {'source?': _SOURCE, 'sourceReference': int},
    'cancel': {'requestId?': int}}


def checked(request):
    """The arguments of a request, without what is null. Raises Refused."""
    arguments = request.get('arguments')
    return _checked(_SHAPES.get(request['command'], {}),
                    {} if arguments is None else arguments, u'arguments')


def conforming(shape, value, name):
    """A value of this shape, objects without what is null. Raises Refused, which calls it so."""
    return _checked(shape, value, name)


def _checked(shape, value, name):
    if isinstance(shape, dict):
        return _checked_object(shape, value, name)
    if isinstance(shape, list):
        _require(isinstance(value, list), name, u'is no array')
        return [_checked(shape[0], item, u'%s[%d]' % (name, number))
                for number, item in enumerate(value)]
    if isinstance(shape, Words):
        if isinstance(value, unicode):
            return [value]
        _require(isinstance(value, list), name, u'is neither a string nor an array')
        _require(value, name, u'is empty')
        return _checked([unicode], value, name)
    if isinstance(shape, PathOrSwitch):
        _require(isinstance(value, (bool, unicode)), name, u'is neither a string nor true or false')
        return value
    if isinstance(shape, Rules):
        return [_checked_rule(rule, u'%s[%d]' % (name, number))
                for number, rule in enumerate(_checked([_RULE], value, name))]
    if isinstance(shape, PortOrPlace):
        shape = _PLACE if isinstance(value, dict) else int
        found = _checked(shape, value, name)
        found = found if shape is _PLACE else {'port': found}
        _require(found['port'] <= _MOST_PORT, name, u'is no port')
        return found
    if isinstance(shape, Mapping):
        _require(isinstance(value, dict), name, u'is no object')
        for key, item in value.items():
            _require(item is None or isinstance(item, unicode), name + u'.' + key,
                     u'is no string')
    elif isinstance(shape, Number):
        digits = u'%d' % value if type(value) in (int, long) else value
        _require(isinstance(digits, unicode), name, u'is no whole number from 0 on')
        _require(digits.isdigit() and int(digits) <= _MOST, name, u'is no whole number from 0 on')
        return int(digits)
    elif isinstance(shape, frozenset):
        _require(isinstance(value, unicode) and value in shape, name,
                 u'is none of ' + u', '.join(text(word) for word in sorted(shape)))
    elif shape is int:
        _require(type(value) in (int, long) and 0 <= value <= _MOST, name,
                 u'is no whole number from 0 on')
    elif shape is float:
        _require(type(value) in (int, long, float) and 0 <= value <= _MOST, name,
                 u'is no number from 0 on')
    elif shape is bool:
        _require(isinstance(value, bool), name, u'is neither true nor false')
    else:
        _require(isinstance(value, unicode), name, u'is no string')
    return value


def _checked_object(shape, value, name):
    _require(isinstance(value, dict), name, u'is no object')
    found = dict((key, item) for key, item in value.items() if item is not None)
    prefix = u'' if name == u'arguments' else name + u'.'
    for key in sorted(shape):
        plain = key.rstrip('?')
        if plain in found:
            found[plain] = _checked(shape[key], found[plain], prefix + plain)
        else:
            _require(plain != key, prefix + plain, u'is missing')
    return found


def _checked_rule(rule, name):
    kinds = [kind for kind in (u'path', u'module') if kind in rule]
    _require(kinds, name, u'has neither a path nor a module')
    _require(len(kinds) == 1, name, u'has both a path and a module')
    kind, = kinds
    pattern, name = rule[kind].encode('utf-8'), u'%s.%s' % (name, kind)
    _require(pattern, name, u'is empty')
    _require('\0' not in pattern, name, u'is no pattern of names')
    try:
        (patterns.of_files if kind == u'path' else patterns.of_modules)(pattern)
    except ValueError:
        raise Refused(u'%s is no pattern of names' % name)
    return rule


def _require(holds, name, what):
    if not holds:
        raise Refused(u'%s %s' % (name, what))
