// Whether a breakpoint stops a thread at a frame, and the counters that go with the question.
#ifndef MORVIK_BPOPS_MATCHING_H
#define MORVIK_BPOPS_MATCHING_H

#include "bpops/table.h"
#include "host/python.h"

namespace morvik {

// 1 to stop, else 0. `hook` is the sub-language hook that this frame is a key frame of, nullptr
// for a frame of plain Python; it receives the event's code. With `record` set, hits are counted,
// ignore counts used up and temporary breakpoints removed. Runs Python code where there is a hook
// or a condition; the pending exception is the same afterwards.
int bp_check(BreakpointTable* table, int event, PyObject* hook, PyFrameObject* frame, int record);

// Whether an enabled breakpoint may stop a thread anywhere in the frame's code, as a frame of plain
// Python. The answer holds for the code as long as the table's edition is the same; kPerhaps for
// this time only. Python code may run; errno and the pending exception are kept.
enum class MayStop { kNo, kYes, kPerhaps };
MayStop bp_ask_code(BreakpointTable* table, PyFrameObject* frame);

}  // namespace morvik

#endif
