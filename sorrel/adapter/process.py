"""The process of a launched program, seen from outside: what it writes, and how it ends."""

from __future__ import absolute_import

import errno
import os
import select
import signal
import sys
import time

from sorrel.adapter import complaints
from sorrel.adapter.marked_stream import MarkedStream

# How much is told at once, in letters, if there is no end of a line before.
_TOLD_AT_ONCE = 65536
# How long the rest of a line is waited for, in seconds.
_REST_OF_LINE = 0.005
# The first complaint of a compiler counts, and many lines may follow it.
_COMPLAINT_LIMIT = 100000


class Process(object):

    def __init__(self, process, tell, word):
        """process: a subprocess.Popen. tell: called with 'stdout' or 'stderr' and what it wrote.

        word: in the marks that it writes.
        """
        self._process = process
        self._tell = tell
        # In the order in which they are told where both have something: what is printed before an
        # error ends the program comes before that.
        self._streams = [MarkedStream(process.stdout, 'stdout', word),
                         MarkedStream(process.stderr, 'stderr', word)]
        # The end of what it has written to stderr.
        self._complaint = u''

    @property
    def outputs(self):
        """What to wait for; each is gone when nothing more will be written to it."""
        return [stream for stream in self._streams if not stream.is_waiting()]

    def read(self):
        """Tells what has been written, up to marks; does not wait for more."""
        for stream in self._streams[:]:
            self._read(stream)

    def read_up_to(self, number, names):
        """Tells what has been written before the mark of this number.

        names: of the streams that have it.
        """
        for stream in self._streams[:]:
            stream.go_past(number - 1)
            while stream.name in names and stream.is_before(number) and self._read(stream):
                pass

    def read_past(self, number):
        """Tells what has been written after it."""
        for stream in self._streams:
            stream.go_past(number)
        self.read()

    def read_past_all(self):
        """No message will come any more that is to be told in between."""
        self.read_past(sys.maxint)

    def read_rest(self, seconds):
        """Tells what is still to be read; processes that it has started may go on writing."""
        end = time.time() + seconds
        while self._streams and time.time() < end:
            select.select(self.outputs, [], [], 0.01)
            self.read()

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

    def _read(self, stream):
        """Returns whether there was anything."""
        written, more = u'', stream.take(0)
        is_any = more is not None
        while more is not None:
            written += more
            more = stream.take(_REST_OF_LINE) if self._is_amid(stream, written) else None
        written += stream.take_unfinished()
        if stream.name == 'stderr':
            self._complaint = (self._complaint + written)[-_COMPLAINT_LIMIT:]
        if written:
            self._tell(stream.name, written)
        if stream.has_ended():
            self._streams.remove(stream)
        return is_any

    def _is_amid(self, stream, written):
        if len(written) > _TOLD_AT_ONCE:
            return False
        # The interpreter writes a line and its end apart: the other stream's is not to come
        # between.
        is_in_line = written != u'' and not written.endswith(u'\n')
        return is_in_line or stream.is_unfinished or stream.has_read_more()
