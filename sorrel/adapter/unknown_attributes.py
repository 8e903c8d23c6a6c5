"""What a client's request to begin says that nothing is known of, told to the client."""

from __future__ import absolute_import

import difflib

from sorrel.protocol import schema

_KNOWN = {
    'launch': frozenset(name.rstrip('?') for name in schema.LAUNCH),
    'attach': frozenset(name.rstrip('?') for name in schema.ATTACH)}
# What editors keep in a configuration for themselves.
_OF_EDITORS = frozenset((
    'type', 'request', 'name', 'preLaunchTask', 'postDebugTask', 'internalConsoleOptions',
    'presentation', 'debugServer', 'serverReadyAction', 'suppressMultipleSessionView', 'order',
    'linux', 'osx', 'windows', 'trace', 'hostName', 'noDebug'))
# What is to be used instead of what adapters of other debuggers, and editors, know.
_INSTEAD = {
    'pythonPath': 'use "python"',
    'interpreter': 'use "python"',
    'runtimeExecutable': 'use "python"',
    'interpreterArgs': 'use "pythonArgs"',
    'runtimeArgs': 'use "pythonArgs"',
    'script': 'use "program"',
    'programArgs': 'use "args"',
    'arguments': 'use "args"',
    'environment': 'use "env"',
    'workingDirectory': 'use "cwd"',
    'dir': 'use "cwd"',
    'externalConsole': 'use "console": "externalTerminal"',
    'debugStdLib': 'use "justMyCode": false',
    'debugOptions': 'there is an attribute for each of them',
    'multiProcess': 'use "subProcess"',
    'stopAtEntry': 'use "stopOnEntry"',
    'waitOnAbnormalExit': 'use "postMortem"',
    'waitOnNormalExit': 'use "console": "integratedTerminal", where what was written stays',
    'flask': 'templates are found by themselves',
    'pyramid': 'templates are found by themselves',
    'localRoot': 'use "pathMappings"',
    'remoteRoot': 'use "pathMappings"',
    'address': 'use "host"',
    'secret': 'use "token"',
    'pid': 'use "processId"',
    'gevent': 'its greenlets are debugged as their thread',
    'sudo': 'attach to a program that listens'}
_LIKENESS = 0.75


def warning(request, arguments):
    """One line that names them all; '' where there are none."""
    command = request['command']
    unknown = sorted(name for name, value in arguments.items()
                     if value is not None and not _is_known(command, name))
    if not unknown:
        return u''
    return u'%s: left out, since there is no such attribute: %s\n' % (
        command, u'; '.join(_named(command, name) for name in unknown))


def _is_known(command, name):
    # Emacs's own have hyphens.
    return name in _KNOWN[command] or name in _OF_EDITORS or name.startswith('_') or '-' in name


def _named(command, name):
    advice = _advice(command, name)
    return u'%s (%s)' % (name, advice) if advice else name


def _advice(command, name):
    for other in sorted(_KNOWN):
        if name in _KNOWN[other]:
            return u'it is for %s' % other
    if name in _INSTEAD:
        return _INSTEAD[name]
    by_lower = dict((known.lower(), known) for known in _KNOWN[command])
    for like in difflib.get_close_matches(name.lower(), sorted(by_lower), 1, _LIKENESS):
        return u'use "%s"' % by_lower[like]
    return u''
