"""Files of variables for a program's environment: a line for each, with its name and its value."""

from __future__ import absolute_import

import re

from sorrel.protocol.messages import Refused

_LINE = re.compile(r'\s*(?:export\s+)?([A-Za-z_]\w*)\s*=\s*(.*?)\s*\Z')
_ESCAPED = re.compile(r'\\(.)')
_ESCAPES = {'n': '\n', 't': '\t', 'r': '\r'}
_REMARK = re.compile(r'\s#.*\Z')


def variables(path):
    """The values by their names, as the file has them. Raises Refused."""
    try:
        source = open(path)
        try:
            lines = source.read().splitlines()
        finally:
            source.close()
    except (EnvironmentError, TypeError) as error:  # TypeError: a NUL in the path.
        raise Refused("can't read envFile '%s': %s" % (
            path, getattr(error, 'strerror', None) or error))
    found = {}
    for number, line in enumerate(lines):
        if not line.strip() or line.lstrip().startswith('#'):
            continue
        parts = _LINE.match(line)
        if parts is None:
            raise Refused("envFile '%s', line %d: not NAME=VALUE" % (path, number + 1))
        found[parts.group(1)] = _value(parts.group(2))
    return found


def _value(written):
    for quote in '"\'':
        end = written.rfind(quote)
        if written.startswith(quote) and end > 0 and (
                end == len(written) - 1 or _REMARK.match(written[end + 1:])):
            inner = written[1:end]
            return _ESCAPED.sub(_meant, inner) if quote == '"' else inner
    return _REMARK.sub('', written)


def _meant(escaped):
    return _ESCAPES.get(escaped.group(1), escaped.group(1))
