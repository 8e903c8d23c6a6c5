"""The programs that are measured, each a module of its own.

It has run(times), whose work is in proportion to times; TIMES, which takes a hundredth of a
second or so under the trace function that only counts; and quiet, a function of the file that
is measured, never called.
"""

from bench.programs import calls, lines, pystone

ALL = [lines, calls, pystone]


def name(program):
    return program.__name__.split(".")[-1]
