"""What event_cost.cpp runs under the core: begin(how) once, then measure(times).

allocations() is its own: the number of blocks allocated so far.
"""

import gc
from __builtin__ import __import__ as builtin_import

import tmorvik26_vs2012_x64 as core

on_line = core.continue_run
stops = 0


def loop(times):
    while times:
        times = times - 1
        low = times & 7
        low = low + 1


def measure(times):
    """Allocations while the loop runs."""
    before = allocations()
    loop(times)
    return allocations() - before


def stopped(frame, changed_breakpoints):
    global stops
    stops += 1
    on_line()


def ignore(*arguments):
    pass


def set_break(path, function, offset, enabled=1):
    core.set_break(path, function.func_code.co_firstlineno + offset, enabled, 0, None, 0)


def running():
    pass


def stepping_over():
    global on_line
    on_line = core.step_over
    core.stop()


def allocating_at_every_line():
    global on_line
    on_line = allocate
    core.stop()


def allocate():
    core.step_into()
    str(stops)


def breakpoint_on_another_line():
    set_break(__file__, ignore, 1)


def breakpoint_in_another_file():
    set_break(__file__ + ".other", loop, 2)


def disabled_breakpoint():
    set_break(__file__, loop, 2, 0)


def begin(how):
    gc.disable()
    # No idle callback: it comes when the clock says so.
    core.init(0.0, 0, ignore, ignore, stopped, ignore, ignore, ignore, None, builtin_import, None,
              {})
    core.start_trace()
    globals()[how]()
