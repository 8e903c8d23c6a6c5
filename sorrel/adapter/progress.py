"""What the morvik command says while it builds, told to the client as progress."""

from __future__ import absolute_import

import re

from sorrel.common.decoding import text

_SAID = 'morvik: '
_STEP = re.compile(r'\[(\d+)/(\d+)\] ')


class Progress(object):

    def __init__(self, tell, request):
        """tell: sends an event with a body. request: the client's, which waits for this."""
        self._tell = tell
        self._request = request['seq']
        self._id = u'request %d' % self._request
        self._has_begun = False
        self._rest = u''

    def hear(self, written):
        """What has been written by whatever is on its way: of the command, or not."""
        lines = (self._rest + written).split(u'\n')
        self._rest = lines.pop()[-1000:]
        for line in lines:
            step = _STEP.match(line)
            if line.startswith(_SAID):
                self._say(text(line[len(_SAID):]))
            elif step is not None and self._has_begun and int(step.group(2)):
                self._tell('progressUpdate', {
                    'progressId': self._id, 'message': u'step %s of %s' % step.groups(),
                    'percentage': min(100 * int(step.group(1)) // int(step.group(2)), 100)})

    def end(self):
        """The request is answered, or is about to be."""
        if self._has_begun:
            self._has_begun = False
            self._tell('progressEnd', {'progressId': self._id})

    def _say(self, message):
        if self._has_begun:
            self._tell('progressUpdate', {'progressId': self._id, 'message': message})
        else:
            self._has_begun = True
            self._tell('progressStart', {
                'progressId': self._id, 'title': u'Morvik', 'requestId': self._request,
                'message': message})
