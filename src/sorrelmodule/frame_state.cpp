#include "sorrelmodule/frame_state.h"

namespace morvik {

namespace {

// Everything on the value stack below an active block is alive: the frame cannot drop it before
// it leaves the block.
PyObject* below(const PyFrameObject* frame, const PyTryBlock& block) {
    const bool is_there = block.b_level > 0 && block.b_level <= frame->f_code->co_stacksize;
    PyObject* const object = is_there ? frame->f_valuestack[block.b_level - 1] : nullptr;
    return object != nullptr ? object : Py_None;
}

}  // namespace

Ref active_blocks(const PyFrameObject* frame) {
    // Held before anything is allocated: that may run Python code, and a generator go on.
    PyTryBlock blocks[CO_MAXBLOCKS];
    Ref objects[CO_MAXBLOCKS];
    int count = 0;
    for (int i = frame->f_iblock - 1; i >= 0; --i, ++count) {
        blocks[count] = frame->f_blockstack[i];
        objects[count] = Ref::share(below(frame, blocks[count]));
    }
    Ref list = Ref::steal(PyList_New(0));
    for (int i = 0; list && i < count; ++i) {
        const Ref item = Ref::steal(
            Py_BuildValue("(iiO)", blocks[i].b_type, blocks[i].b_handler, objects[i].get()));
        if (!item || PyList_Append(list.get(), item.get()) != 0) {
            return Ref();
        }
    }
    return list;
}

Ref variable(const PyFrameObject* frame, Py_ssize_t index) {
    const PyCodeObject* const code = frame->f_code;
    const Py_ssize_t cells =
        PyTuple_GET_SIZE(code->co_cellvars) + PyTuple_GET_SIZE(code->co_freevars);
    if (index < 0 || index >= code->co_nlocals + cells) {
        return Ref();
    }
    PyObject* const held = frame->f_localsplus[index];
    if (index >= code->co_nlocals && held != nullptr) {
        return PyCell_Check(held) ? Ref::share(PyCell_GET(held)) : Ref();
    }
    return Ref::share(held);
}

}  // namespace morvik
