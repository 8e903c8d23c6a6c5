#include "tracercore/watching.h"

#include "dbgcommon.h"
#include "host/ref.h"
#include "tracercore/rest.h"

namespace morvik {

void set_watch(PyObject* callback, PyObject* frames) {
    set_slot(core.watch_cb, callback);
    set_slot(core.watched_frames, frames);
    wake_all_threads();
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
