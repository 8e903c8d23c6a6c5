"""Waiting for sockets, however many files the program has open."""

from __future__ import absolute_import

from sorrel.common.originals import select


# Taken now: a program may replace what the interpreter's modules offer.
_Error = select.error
if hasattr(select, 'poll'):
    _poll, _IN, _OUT = select.poll, select.POLLIN, select.POLLOUT

    def wait(reading, writing, seconds):
        """The descriptors that can be read and those that can be written, as two lists.

        seconds: None for as long as it takes. Both are empty when a signal has come instead.
        Closed ones, and ones with an error, count as ready.
        """
        poll = _poll()
        for descriptor in set(reading + writing):
            poll.register(descriptor, _IN * (descriptor in reading)
                          | _OUT * (descriptor in writing))
        try:
            # Rounded up: what is to be done then is not to be too early by a hair.
            found = poll.poll(seconds if seconds is None else int(seconds * 1000) + 1)
        except _Error:
            return [], []
        # What is neither is an error or the end, which reading or writing will tell.
        return ([descriptor for descriptor, events in found
                 if descriptor in reading and events & ~_OUT],
                [descriptor for descriptor, events in found
                 if descriptor in writing and events & ~_IN])
else:
    _select = select.select

    def wait(reading, writing, seconds):
        """As above."""
        try:
            return _select(reading, writing, [], seconds)[:2]
        except _Error:
            return [], []
