"""A file with what the adapter and its client say to each other, for whoever wants to know."""

from __future__ import absolute_import

import json
import os
import tempfile
import time

from sorrel.common.decoding import text
from sorrel.protocol.messages import Refused

_SECRET = '...'


class MessageLog(object):

    def __init__(self, path, descriptor):
        self.path = path
        self._descriptor = descriptor
        self._kept_back = []

    def keep_back(self, word):
        """Of a text that this word is in, it is left out."""
        self._kept_back.append(word)

    @classmethod
    def wanted(cls, path):
        """path: where it is to be; True for a new file in the folder for such. Raises Refused."""
        try:
            if path is True:
                descriptor, path = tempfile.mkstemp('.log', 'sorrel-adapter-')
            else:
                path = os.path.abspath(os.path.expanduser(path.encode('utf-8')))
                # What a program is given may be nobody else's business.
                descriptor = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0600)
        except (EnvironmentError, TypeError) as error:  # TypeError: a NUL in the path.
            raise Refused("can't write logToFile '%s': %s" % (
                text(path), getattr(error, 'strerror', None) or error))
        return cls(path, descriptor)

    def note(self, speaker, message):
        """speaker: who says it, 'client' or 'adapter'."""
        line = '%.3f %s %s\n' % (time.time(), speaker, json.dumps(_without_token(message)))
        for word in self._kept_back:
            line = line.replace(json.dumps(word)[1:-1], _SECRET)
        try:
            os.write(self._descriptor, line)
        except OSError:
            pass  # A full device: the session is more than its log.


def _without_token(value):
    """A copy of a message that may be shown to others."""
    if isinstance(value, dict):
        return dict((name, _SECRET if name == 'token' else _without_token(item))
                    for name, item in value.items())
    if isinstance(value, list):
        return [_without_token(item) for item in value]
    return value
