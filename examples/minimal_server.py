import sys
import __builtin__
import tmorvik26_vs2012_x64 as core

def nothing(*args):
    pass

def line_cb(frame, changed_bps):
    print '%s:%d in %s()' % (core.get_frame_file(frame), frame.f_lineno, frame.f_code.co_name)
    core.step_over()            # stop again at the next line of this frame

core.init(1.0, 0, nothing, nothing, line_cb, nothing, nothing, nothing, None,
          __builtin__.__import__, None, {})
core.set_break(sys.argv[1], int(sys.argv[2]), 1, 0, None, 0)
core.start_trace()
core.continue_run()             # run freely until the breakpoint
execfile(sys.argv[1], {'__name__': '__main__'})
core.stop_trace()
