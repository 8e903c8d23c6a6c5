#include "sorrelmodule/redirection.h"

#include <algorithm>
#include <cstring>

#include "host/opcodes.h"

namespace morvik {

namespace {

// The items of what the streams and functions of one redirection share: what was written, None when
// it has ended; how much that is, how much more there was, and how much it may become.
enum Caught { kTexts, kWaiting, kLeftOut, kLimit };

struct Stream {
    // clang-format off
    PyObject_HEAD
    PyObject* original;
    // clang-format on
    PyObject* name;
    PyObject* caught;
};

// What keeping a text costs beside the text, about.
constexpr Py_ssize_t kCostOfOne = 100;

PyTypeObject stream_type = {};

Stream* as_stream(PyObject* object) { return reinterpret_cast<Stream*>(object); }

bool is_stream(PyObject* object) { return Py_TYPE(object) == &stream_type; }

PyObject* original_of(PyObject* object) { return as_stream(object)->original; }

Py_ssize_t number(PyObject* caught, Caught item) {
    return PyInt_AsSsize_t(PyList_GET_ITEM(caught, item));
}

bool set_number(PyObject* caught, Caught item, Py_ssize_t value) {
    PyObject* const made = PyInt_FromSsize_t(value);
    return made != nullptr && PyList_SetItem(caught, item, made) == 0;
}

// The beginning of a text, at most `room` of it, and how long it is; nothing where it is none.
Ref beginning_of(PyObject* text, Py_ssize_t room, Py_ssize_t* size) {
    if (PyUnicode_Check(text)) {
        *size = PyUnicode_GET_SIZE(text);
        return Ref::steal(PyUnicode_FromUnicode(PyUnicode_AS_UNICODE(text), std::min(*size, room)));
    }
    const char* bytes = nullptr;
    return PyObject_AsCharBuffer(text, &bytes, size) == 0
               ? Ref::steal(PyString_FromStringAndSize(bytes, std::min(*size, room)))
               : Ref();
}

bool append(PyObject* caught, PyObject* name, PyObject* text) {
    if (PyList_GET_ITEM(caught, kTexts) == Py_None) {
        return true;
    }
    const Py_ssize_t room =
        std::max<Py_ssize_t>(0, number(caught, kLimit) - number(caught, kWaiting));
    Py_ssize_t size = 0;
    const Ref kept = beginning_of(text, room, &size);
    if (!kept) {
        return false;
    }
    const Py_ssize_t fitting = std::min(size, room);
    const Ref pair = Ref::steal(PyTuple_Pack(2, name, kept.get()));
    // Fetched last: what is made above may have let other threads run.
    const Ref texts = Ref::share(PyList_GET_ITEM(caught, kTexts));
    if (texts.get() == Py_None) {
        return true;
    }
    return pair && (fitting == 0 || PyList_Append(texts.get(), pair.get()) == 0) &&
           set_number(caught, kWaiting, number(caught, kWaiting) + fitting + kCostOfOne) &&
           set_number(caught, kLeftOut, number(caught, kLeftOut) + size - fitting);
}

// The program has written it: whatever fails here is nothing to it.
void catch_text(PyObject* caught, PyObject* name, PyObject* text) {
    const ErrnoGuard keep_errno;
    if (!append(caught, name, text)) {
        PyErr_Clear();
    }
}

// The items of the tuple that the functions below are bound to.
enum Bound { kStream, kMethod };

PyObject* caught_by(PyObject* bound) { return as_stream(PyTuple_GET_ITEM(bound, kStream))->caught; }

PyObject* name_of(PyObject* bound) { return as_stream(PyTuple_GET_ITEM(bound, kStream))->name; }

PyObject* call_write(PyObject* bound, PyObject* args, PyObject* keywords) {
    Ref result = Ref::steal(PyObject_Call(PyTuple_GET_ITEM(bound, kMethod), args, keywords));
    if (result && PyTuple_GET_SIZE(args) > 0) {
        catch_text(caught_by(bound), name_of(bound), PyTuple_GET_ITEM(args, 0));
    }
    return result.release();
}

// As print writes to a file, which encodes where 2.6's file.write does not.
PyObject* call_print(PyObject* bound, PyObject* text) {
    PyObject* const file = original_of(PyTuple_GET_ITEM(bound, kStream));
    if (PyFile_WriteObject(text, file, Py_PRINT_RAW) != 0) {
        return nullptr;
    }
    catch_text(caught_by(bound), name_of(bound), text);
    return new_none();
}

// Each line is written before the next one is asked for.
PyObject* write_one_by_one(PyObject* bound, PyObject* iterator) {
    PyObject* const method = PyTuple_GET_ITEM(bound, kMethod);
    for (;;) {
        const Ref line = Ref::steal(PyIter_Next(iterator));
        if (!line) {
            return PyErr_Occurred() == nullptr ? new_none() : nullptr;
        }
        const Ref lines = Ref::steal(PyTuple_Pack(1, line.get()));
        if (!lines || !Ref::steal(PyObject_CallFunctionObjArgs(method, lines.get(), nullptr))) {
            return nullptr;
        }
        catch_text(caught_by(bound), name_of(bound), line.get());
    }
}

PyObject* call_writelines(PyObject* bound, PyObject* lines) {
    const Ref iterator = Ref::steal(PyObject_GetIter(lines));
    if (iterator) {
        return write_one_by_one(bound, iterator.get());
    }
    // The stream has its own words for what is wrong with it.
    PyErr_Clear();
    return PyObject_CallFunctionObjArgs(PyTuple_GET_ITEM(bound, kMethod), lines, nullptr);
}

PyMethodDef write_definition = {
    "write", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(call_write)),
    METH_VARARGS | METH_KEYWORDS, nullptr};
PyMethodDef print_definition = {"write", call_print, METH_O, nullptr};
PyMethodDef writelines_definition = {"writelines", call_writelines, METH_O, nullptr};

// Whether Python code names an attribute right now; else C code asks for it, as print does.
bool is_named_by_code() {
    const PyFrameObject* const frame = current_thread_state()->frame;
    if (frame == nullptr || frame->f_lasti < 0 || !PyString_Check(frame->f_code->co_code) ||
        frame->f_lasti >= PyString_GET_SIZE(frame->f_code->co_code)) {
        return false;
    }
    const char* const code = PyString_AS_STRING(frame->f_code->co_code);
    return static_cast<unsigned char>(code[frame->f_lasti]) == kHostOpcodes.load_attr;
}

PyObject* bound_to(PyMethodDef* definition, PyObject* stream, PyObject* method) {
    const Ref bound = Ref::steal(PyTuple_Pack(2, stream, method));
    return bound ? PyCFunction_New(definition, bound.get()) : nullptr;
}

PyMethodDef* write_definition_for(PyObject* original) {
    return PyFile_Check(original) && !is_named_by_code() ? &print_definition : &write_definition;
}

PyObject* get_attribute(PyObject* self, PyObject* name) {
    Ref found = Ref::steal(PyObject_GetAttr(original_of(self), name));
    if (!found || !PyString_Check(name)) {
        return found.release();
    }
    const char* const wanted = PyString_AS_STRING(name);
    if (std::strcmp(wanted, "write") == 0) {
        return bound_to(write_definition_for(original_of(self)), self, found.get());
    }
    if (std::strcmp(wanted, "writelines") == 0) {
        return bound_to(&writelines_definition, self, found.get());
    }
    return std::strcmp(wanted, "__enter__") == 0 ? PyObject_GenericGetAttr(self, name)
                                                 : found.release();
}

int set_attribute(PyObject* self, PyObject* name, PyObject* value) {
    return PyObject_SetAttr(original_of(self), name, value);
}

PyObject* represent(PyObject* self) { return PyObject_Repr(original_of(self)); }

PyObject* make_string(PyObject* self) { return PyObject_Str(original_of(self)); }

long hash(PyObject* self) { return PyObject_Hash(original_of(self)); }

PyObject* compare(PyObject* self, PyObject* other, int operation) {
    return PyObject_RichCompare(original_of(self), is_stream(other) ? original_of(other) : other,
                                operation);
}

PyObject* iterate(PyObject* self) { return PyObject_GetIter(original_of(self)); }

PyObject* enter(PyObject* self, PyObject* /*none*/) {
    const Ref entered = call_method(original_of(self), "__enter__", nullptr);
    return Ref::share(entered.get() == original_of(self) ? self : entered.get()).release();
}

PyObject* leave(PyObject* self, PyObject* args) {
    const Ref method = Ref::steal(PyObject_GetAttrString(original_of(self), "__exit__"));
    return method ? PyObject_Call(method.get(), args, nullptr) : nullptr;
}

// 2.7 looks these up in the class, 2.6 as other attributes.
PyMethodDef stream_methods[] = {
    {"__enter__", enter, METH_NOARGS, nullptr},
    {"__exit__", leave, METH_VARARGS, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

int traverse(PyObject* self, visitproc visit, void* arg) {
    Py_VISIT(as_stream(self)->original);
    Py_VISIT(as_stream(self)->caught);
    return 0;
}

void deallocate(PyObject* self) {
    PyObject_GC_UnTrack(self);
    Py_DECREF(as_stream(self)->original);
    Py_DECREF(as_stream(self)->name);
    Py_DECREF(as_stream(self)->caught);
    PyObject_GC_Del(self);
}

int ready_stream_type() {
    if (stream_type.tp_dict != nullptr) {
        return 0;
    }
    Py_REFCNT(&stream_type) = 1;
    stream_type.tp_name = "_sorrel.stream";
    stream_type.tp_basicsize = sizeof(Stream);
    stream_type.tp_flags = Py_TPFLAGS_DEFAULT;
    stream_type.tp_flags |= Py_TPFLAGS_HAVE_GC;
    stream_type.tp_dealloc = deallocate;
    stream_type.tp_traverse = traverse;
    stream_type.tp_getattro = get_attribute;
    stream_type.tp_setattro = set_attribute;
    stream_type.tp_repr = represent;
    stream_type.tp_str = make_string;
    stream_type.tp_hash = hash;
    stream_type.tp_richcompare = compare;
    stream_type.tp_iter = iterate;
    stream_type.tp_methods = stream_methods;
    return PyType_Ready(&stream_type);
}

Ref new_stream(PyObject* original, const char* name, PyObject* caught) {
    const Ref named = Ref::steal(PyString_FromString(name));
    Stream* const stream = named ? PyObject_GC_New(Stream, &stream_type) : nullptr;
    if (stream == nullptr) {
        return Ref();
    }
    stream->original = Ref::share(original).release();
    stream->name = Ref::share(named.get()).release();
    stream->caught = Ref::share(caught).release();
    PyObject_GC_Track(stream);
    return Ref::steal(reinterpret_cast<PyObject*>(stream));
}

constexpr const char* kNames[] = {"stdout", "stderr"};

int put_in_place(const char* name, PyObject* caught) {
    PyObject* original = PySys_GetObject(const_cast<char*>(name));
    while (original != nullptr && is_stream(original)) {
        // The program has brought back what it had from an earlier redirection.
        original = original_of(original);
    }
    if (original == nullptr || original == Py_None) {
        return 0;
    }
    const Ref stream = new_stream(original, name, caught);
    return stream ? PySys_SetObject(const_cast<char*>(name), stream.get()) : -1;
}

int take_away(const char* name, PyObject* caught) {
    const Ref current = Ref::share(PySys_GetObject(const_cast<char*>(name)));
    return current && is_stream(current.get()) && as_stream(current.get())->caught == caught
               ? PySys_SetObject(const_cast<char*>(name), original_of(current.get()))
               : 0;
}

PyObject* take(PyObject* caught, PyObject* /*none*/) {
    const Ref texts = Ref::share(PyList_GET_ITEM(caught, kTexts));
    const Py_ssize_t left_out = number(caught, kLeftOut);
    Ref next = Ref::steal(PyList_New(0));
    if (!next || !set_number(caught, kWaiting, 0) || !set_number(caught, kLeftOut, 0)) {
        return nullptr;
    }
    if (texts.get() == Py_None) {
        return Py_BuildValue("(On)", next.get(), left_out);
    }
    if (PyList_SetItem(caught, kTexts, next.release()) != 0) {
        return nullptr;
    }
    return Py_BuildValue("(On)", texts.get(), left_out);
}

PyObject* end(PyObject* caught, PyObject* /*none*/) {
    for (const char* const name : kNames) {
        if (take_away(name, caught) != 0) {
            return nullptr;
        }
    }
    return PyList_SetItem(caught, kTexts, new_none()) == 0 ? new_none() : nullptr;
}

PyMethodDef take_definition = {"take", take, METH_NOARGS, nullptr};
PyMethodDef end_definition = {"end", end, METH_NOARGS, nullptr};

}  // namespace

Ref begin_redirection(Py_ssize_t limit) {
    const Ref caught = Ref::steal(Py_BuildValue("[[]iin]", 0, 0, limit));
    const Ref taking = caught ? Ref::steal(PyCFunction_New(&take_definition, caught.get())) : Ref();
    const Ref ending = caught ? Ref::steal(PyCFunction_New(&end_definition, caught.get())) : Ref();
    Ref functions =
        taking && ending ? Ref::steal(PyTuple_Pack(2, taking.get(), ending.get())) : Ref();
    if (!functions || ready_stream_type() != 0) {
        return Ref();
    }
    for (const char* const name : kNames) {
        if (put_in_place(name, caught.get()) != 0) {
            return Ref();
        }
    }
    return functions;
}

}  // namespace morvik
