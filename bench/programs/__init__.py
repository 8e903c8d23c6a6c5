"""The programs that are measured, each a module of its own.

It has run(times), whose work is in proportion to times; TIMES, which takes a hundredth of a
second or so under the trace function that only counts; hot, a function whose first line runs
again and again; and quiet, a function of the same file that never runs.
"""

from bench.programs import builtins, callers, calls, lines, pickling, pystone, raises

ALL = [lines, calls, raises, builtins, callers, pickling, pystone]


def name(program):
    return program.__name__.split(".")[-1]
