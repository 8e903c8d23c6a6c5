"""Steps that take several of the protocol's, which knows of no frame but the innermost.

A step is a generator of requests. It is sent where the thread has stopped after each of them.
"""

from __future__ import absolute_import

from sorrel.common.records import record

# Where a thread is. depth: the number of its frames.
Here = record('Here', 'depth line')


def into(here, count):
    for _ in range(count):
        yield 'stepIn'


def over(here, depth, count):
    """depth: of the frame in which lines count."""
    for _ in range(count):
        while here.depth > depth:
            here = yield 'stepOut'
        here = yield 'next'


def until(here, depth, last):
    """last: the line in that frame to be passed."""
    while here.depth > depth:
        here = yield 'stepOut'
    while here.depth == depth and here.line <= last or here.depth > depth:
        here = yield 'next'


def out(here, depth):
    while here.depth >= depth:
        here = yield 'stepOut'


def on(here):
    yield 'continue'
