#include "tracercore/watching.h"

#include "dbgcommon.h"
#include "host/ref.h"

namespace morvik {

namespace {

constexpr char kAttribute[] = "watch";

bool is_well_formed(PyObject* watch) {
    return watch != nullptr && PyTuple_Check(watch) && PyTuple_GET_SIZE(watch) == 2 &&
           PyCallable_Check(PyTuple_GET_ITEM(watch, 0)) != 0 &&
           (PyTuple_GET_ITEM(watch, 1) == Py_None || PyTuple_Check(PyTuple_GET_ITEM(watch, 1)));
}

}  // namespace

void learn_watch() {
    PyObject* const watch = core.module != nullptr
                                ? PyDict_GetItemString(PyModule_GetDict(core.module), kAttribute)
                                : nullptr;
    if (!is_well_formed(watch)) {
        forget_watch();
        return;
    }
    PyObject* const frames = PyTuple_GET_ITEM(watch, 1);
    const Ref held = Ref::share(watch);
    set_slot(core.watch_cb, PyTuple_GET_ITEM(watch, 0));
    set_slot(core.watched_frames, frames != Py_None ? frames : nullptr);
}

void forget_watch() {
    clear_slot(core.watch_cb);
    clear_slot(core.watched_frames);
}

bool is_among_watched(const PyFrameObject* frame) {
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(core.watched_frames); ++i) {
        if (PyTuple_GET_ITEM(core.watched_frames, i) == reinterpret_cast<const PyObject*>(frame)) {
            return true;
        }
    }
    return false;
}

void look_at_watched(PyFrameObject* frame, bool is_return) {
    if (!is_watched(frame) || core.import_cb_thread != kNoOwner) {
        return;
    }
    const PendingErrorGuard keep_error;
    // A generator that yields comes back to its frame.
    const bool is_end = is_return && frame->f_stacktop == nullptr;
    const Ref callback = Ref::share(core.watch_cb);
    const Ref result =
        Ref::steal(call_with_2(callback.get(), as_object(frame), is_end ? Py_True : Py_False));
    if (!result) {
        discard_callback_error();
    }
}

}  // namespace morvik
