"""The process of a launched program, seen from outside: what it writes, and how it ends."""

from __future__ import absolute_import

import codecs
import errno
import os
import select
import signal
import time

from sorrel.adapter import complaints

_READ_AT_ONCE = 65536
# How long the rest of a line is waited for, in seconds.
_REST_OF_LINE = 0.005
# The first complaint of a compiler counts, and many lines may follow it.
_COMPLAINT_LIMIT = 100000


class Process(object):
    """outputs: descriptors to wait for; each is gone when nothing more will be written to it."""

    def __init__(self, process, tell):
        """process: a subprocess.Popen. tell: called with 'stdout' or 'stderr' and what it wrote."""
        self._process = process
        self._tell = tell
        # In the order in which they are told where both have something: what is printed before an
        # error ends the program comes before that.
        self._written = [
            (pipe.fileno(), name, codecs.getincrementaldecoder('utf-8')('replace'))
            for pipe, name in ((process.stdout, 'stdout'), (process.stderr, 'stderr'))]
        # The end of what it has written to stderr.
        self._complaint = u''

    @property
    def outputs(self):
        return [output for output, _, _ in self._written]

    def read(self, readable=None):
        """Tells what has been written to these outputs, or to all; does not wait for more."""
        for written in self._written[:]:
            output = written[0]
            if (readable is None or output in readable) \
                    and select.select([output], [], [], 0)[0]:
                self._read(*written)

    def read_rest(self, seconds):
        """Tells what is still to be read; processes that it has started may go on writing."""
        end = time.time() + seconds
        while self._written and time.time() < end:
            self.read(select.select(self.outputs, [], [], 0.01)[0])

    def status(self):
        """The exit status, or 128 and a signal's number; None while it runs."""
        status = self._process.poll()
        return 128 - status if status is not None and status < 0 else status

    def send(self, number):
        """Sends a signal, if the process is still there."""
        try:
            if self._process.poll() is None:
                os.kill(self._process.pid, number)
        except OSError as error:
            if error.errno != errno.ESRCH:
                raise

    def kill(self):
        self.send(signal.SIGKILL)

    def complaint(self):
        """What was wrong, as one of the commands that start a program says it; '' for nothing."""
        return complaints.complaint(self._complaint)

    def _read(self, output, name, decoder):
        written, is_end = u'', False
        # The interpreter writes a line and its end apart: the other stream's is not to come between.
        while not (is_end or written.endswith(u'\n') or len(written) > _READ_AT_ONCE) \
                and select.select([output], [], [], _REST_OF_LINE if written else 0)[0]:
            data = os.read(output, _READ_AT_ONCE)
            is_end = not data
            written += decoder.decode(data, is_end)
        if name == 'stderr':
            self._complaint = (self._complaint + written)[-_COMPLAINT_LIMIT:]
        if written:
            self._tell(name, written)
        if is_end:
            self._written.remove((output, name, decoder))
