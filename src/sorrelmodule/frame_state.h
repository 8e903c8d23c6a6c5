// What a frame holds that its attributes do not show, and attributes as they are stored. Nothing
// here runs Python code. Needs the interpreter lock.
#ifndef MORVIK_SORRELMODULE_FRAME_STATE_H
#define MORVIK_SORRELMODULE_FRAME_STATE_H

#include "host/python.h"
#include "host/ref.h"

namespace morvik {

// The frame's active blocks, the innermost first, as a list of (opcode, handler, object): the
// instruction that has set up the block, where the handler begins, and what lies on the value
// stack right below the block, None for nothing. Below that of a with statement it is __exit__.
// Empty with an error set.
Ref active_blocks(const PyFrameObject* frame);

// What a fast local variable holds, or a cell: they are numbered on after the variables, as
// LOAD_DEREF has them less the number of variables. Empty where it holds nothing; sets no error.
Ref variable(const PyFrameObject* frame, Py_ssize_t index);

}  // namespace morvik

#endif
