#include "returned_calls.h"

#include <cstdlib>

#include "host/ref.h"

namespace morvik {

namespace {

// The oldest is number 0.
const ReturnedCall& number(const ReturnedCalls& calls, unsigned index) {
    return calls.last[(calls.next + kMostReturnedCalls - calls.count + index) % kMostReturnedCalls];
}

void share(const ReturnedCall& call) {
    Py_INCREF(call.name);
    Py_INCREF(call.globals);
    Py_INCREF(call.value);
}

void release(const ReturnedCall& call) {
    Py_DECREF(call.name);
    Py_DECREF(call.globals);
    Py_DECREF(call.value);
}

void release(const ReturnedCalls& calls) {
    for (unsigned i = 0; i < calls.count; ++i) {
        release(number(calls, i));
    }
}

PyObject* listed(const ReturnedCalls& calls) {
    Ref list = Ref::steal(PyList_New(0));
    for (unsigned i = 0; list && i < calls.count; ++i) {
        const ReturnedCall& call = number(calls, i);
        const Ref item = Ref::steal(PyTuple_Pack(3, call.name, call.globals, call.value));
        if (!item || PyList_Append(list.get(), item.get()) != 0) {
            return nullptr;
        }
    }
    return list.release();
}

}  // namespace

ReturnedCalls* returned_calls_new() {
    return static_cast<ReturnedCalls*>(calloc(1, sizeof(ReturnedCalls)));
}

void returned_calls_free(ReturnedCalls* calls) {
    if (calls != nullptr) {
        release(*calls);
        free(calls);
    }
}

void returned_calls_begin(ReturnedCalls* calls, PyFrameObject* caller) {
    const ReturnedCalls old = *calls;
    *calls = {caller, 0, 0, {}};
    release(old);
}

void returned_calls_begin_with(ReturnedCalls* calls, PyFrameObject* caller,
                               const PyFrameObject* frame, PyObject* value) {
    const ReturnedCalls old = *calls;
    *calls = {caller, 0, 0, {}};
    returned_calls_add(calls, frame, value);
    release(old);
}

void returned_calls_add(ReturnedCalls* calls, const PyFrameObject* frame, PyObject* value) {
    ReturnedCall& place = calls->last[calls->next];
    const ReturnedCall old = place;
    place = {frame->f_code->co_name, frame->f_globals, value};
    share(place);
    calls->next = (calls->next + 1) % kMostReturnedCalls;
    if (calls->count == kMostReturnedCalls) {
        release(old);
    } else {
        ++calls->count;
    }
}

PyObject* returned_calls_list(const ReturnedCalls* calls) {
    // A garbage collection may run code that forgets them.
    const ReturnedCalls held = *calls;
    for (unsigned i = 0; i < held.count; ++i) {
        share(number(held, i));
    }
    PyObject* const list = listed(held);
    release(held);
    return list;
}

}  // namespace morvik
