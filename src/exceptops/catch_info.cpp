#include "exceptops/catch_info.h"

#include <cstring>
#include <utility>

#include "conames.h"
#include "dbgcommon.h"
#include "dprintf.h"

namespace morvik {

namespace {

constexpr int kDeadPerPass = 100;
constexpr int kLongestTraceback = 1001;
// Of objects that stand for tracebacks: these may lead back to themselves.
constexpr int kLongestForeignChain = 1 << 16;
// One reference is the store's own.
constexpr Py_ssize_t kAliveReferences = 2;

// A cached attribute name (borrowed), or nullptr with an error set.
PyObject* cached_name(PyObject** slot, const char* text) {
    if (*slot == nullptr) {
        *slot = PyString_FromString(text);
    }
    return *slot;
}

Ref attribute(PyObject* instance, PyObject** slot, const char* text) {
    PyObject* const name = cached_name(slot, text);
    return name != nullptr ? Ref::steal(PyObject_GetAttr(instance, name)) : Ref();
}

// The list of instances under a code name (borrowed), made when missing; nullptr with an error.
PyObject* list_for(PyObject* catch_dict, PyObject* co_name) {
    PyObject* const known = PyDict_GetItem(catch_dict, co_name);
    if (known != nullptr) {
        return known;
    }
    const Ref list = Ref::steal(PyList_New(0));
    return list && PyDict_SetItem(catch_dict, co_name, list.get()) == 0 ? list.get() : nullptr;
}

bool is_wildcard(PyObject* text) { return strcmp(PyString_AS_STRING(text), "*") == 0; }

bool equal_strings(PyObject* a, PyObject* b) {
    return PyString_Check(b) && PyString_GET_SIZE(a) == PyString_GET_SIZE(b) &&
           memcmp(PyString_AS_STRING(a), PyString_AS_STRING(b),
                  static_cast<size_t>(PyString_GET_SIZE(a))) == 0;
}

// 1 or 0, -1 with an error set.
int module_matches(CatchInfoStore* store, PyObject* instance, PyFrameObject* frame) {
    const Ref mod_name = attribute(instance, &store->mod_name, "mod_name");
    if (!mod_name) {
        return -1;
    }
    if (!PyString_Check(mod_name.get())) {
        return 0;
    }
    if (is_wildcard(mod_name.get())) {
        return 1;
    }
    PyObject* const key = cached_name(&store->name, "__name__");
    if (key == nullptr) {
        return -1;
    }
    const Ref name = Ref::share(PyDict_GetItem(frame->f_globals, key));
    return name && equal_strings(mod_name.get(), name.get()) ? 1 : 0;
}

// The name of a class of either kind, or nullptr.
const char* class_name(PyObject* object) {
    if (PyType_Check(object)) {
        return reinterpret_cast<PyTypeObject*>(object)->tp_name;
    }
    PyObject* const name =
        PyClass_Check(object) ? reinterpret_cast<PyClassObject*>(object)->cl_name : nullptr;
    return name != nullptr && PyString_Check(name) ? PyString_AS_STRING(name) : nullptr;
}

// 1 or 0, -1 where the search must end (with or without an error set).
int class_matches(CatchInfoStore* store, PyObject* instance, PyFrameObject* frame) {
    const Ref wanted = attribute(instance, &store->containing_class, "containing_class");
    if (!wanted || !PyString_Check(wanted.get())) {
        return -1;
    }
    if (is_wildcard(wanted.get())) {
        return 1;
    }
    const Ref found = Ref::steal(find_defining_class(frame->f_globals, frame->f_code));
    if (!found) {
        return -1;
    }
    const char* const name = class_name(found.get());
    return name != nullptr && strcmp(PyString_AS_STRING(wanted.get()), name) == 0 ? 1 : 0;
}

// 1 or 0, -1 where the search must end.
int instance_matches(CatchInfoStore* store, PyObject* instance, PyFrameObject* frame) {
    const int by_module = module_matches(store, instance, frame);
    if (by_module != 1) {
        return by_module;
    }
    dprintf(kLogExceptions, "  match1\n");
    const int by_class = class_matches(store, instance, frame);
    if (by_class == 1) {
        dprintf(kLogExceptions, "  match2\n");
    }
    return by_class;
}

int truth_of(PyObject* instance, PyObject** slot, const char* text, int* truth) {
    const Ref value = attribute(instance, slot, text);
    *truth = value ? PyObject_IsTrue(value.get()) : -1;
    return *truth < 0 ? -1 : 0;
}

const PyTracebackObject* as_traceback(PyObject* object) {
    return reinterpret_cast<const PyTracebackObject*>(object);
}

// How often a frame occurs on the stacks under a traceback, counted no further than `enough`; 0
// where it is less often, or may be, and for a traceback that is longer than can be.
Py_ssize_t occurrences(PyObject* traceback, const PyFrameObject* sought, Py_ssize_t enough) {
    Py_ssize_t length = 0;
    for (const PyTracebackObject* entry = as_traceback(traceback); entry != nullptr;
         entry = entry->tb_next) {
        if (++length > kLongestTraceback) {
            return 0;
        }
    }
    if (length < enough) {
        return 0;  // no stack has a frame twice
    }
    Py_ssize_t count = 0;
    for (const PyTracebackObject* entry = as_traceback(traceback); entry != nullptr;
         entry = entry->tb_next) {
        for (PyFrameObject* frame = entry->tb_frame; frame != nullptr; frame = frame_back(frame)) {
            if (frame == sought && ++count >= enough) {
                return count;
            }
        }
    }
    return count;
}

// Whether a frame lives only through the store and the exception that is stored for it.
bool is_dead(PyObject* frame, PyObject* exception) {
    const Py_ssize_t references = Py_REFCNT(frame);
    if (references < kAliveReferences) {
        return true;
    }
    if (!PyTuple_Check(exception) || PyTuple_GET_SIZE(exception) < 3) {
        return false;
    }
    PyObject* const traceback = PyTuple_GET_ITEM(exception, 2);
    if (traceback == nullptr || !PyTraceBack_Check(traceback)) {
        return false;
    }
    const Py_ssize_t enough = references - kAliveReferences + 1;
    return occurrences(traceback, as_frame(frame), enough) >= enough;
}

// A frame's share of the fingerprint, which changes whenever a reference count does: what pruning
// found then holds no more.
uintptr_t share_of(PyObject* frame) {
    return reinterpret_cast<uintptr_t>(frame) * static_cast<uintptr_t>(Py_REFCNT(frame));
}

// The entries of a dictionary that nothing changes meanwhile. Pruning goes through them twice at
// every exception, where calls of PyDict_Next() would be felt.
class Entries {
  public:
    explicit Entries(PyObject* dict)
        : next_(reinterpret_cast<PyDictObject*>(dict)->ma_table),
          left_(reinterpret_cast<PyDictObject*>(dict)->ma_used) {}
    // The next one, or nullptr.
    const PyDictEntry* next() {
        if (left_ == 0) {
            return nullptr;
        }
        --left_;
        while (next_->me_value == nullptr) {
            ++next_;
        }
        return next_++;
    }

  private:
    const PyDictEntry* next_;
    Py_ssize_t left_;
};

bool is_settled(const CatchInfoStore* store) {
    if (store->settled == 0) {
        return false;
    }
    uintptr_t fingerprint = 0;
    Entries entries(store->frame_exc_info);
    while (const PyDictEntry* const entry = entries.next()) {
        fingerprint += share_of(entry->me_key);
    }
    return fingerprint == store->settled;
}

// Drops frames that nothing else keeps alive. 0, or -1 with an error set.
int prune(CatchInfoStore* store) {
    if (is_settled(store)) {
        return 0;
    }
    PyObject* dead[kDeadPerPass];
    int count = 0;
    uintptr_t fingerprint = 0;
    Entries entries(store->frame_exc_info);
    const PyDictEntry* entry = nullptr;
    while (count < kDeadPerPass && (entry = entries.next()) != nullptr) {
        fingerprint += share_of(entry->me_key);
        if (is_dead(entry->me_key, entry->me_value)) {
            dead[count++] = entry->me_key;
        }
    }
    store->settled = count == 0 ? fingerprint : 0;
    if (count == 0) {
        return 0;
    }
    for (int i = 0; i < count; ++i) {
        Py_INCREF(dead[i]);
    }
    // What goes runs destructors, which may empty the store.
    const Ref frame_exc_info = Ref::share(store->frame_exc_info);
    int result = 0;
    for (int i = 0; i < count; ++i) {
        const Ref key = Ref::steal(dead[i]);
        if (result == 0) {
            result = PyDict_DelItem(frame_exc_info.get(), key.get());
        }
    }
    return result;
}

}  // namespace

int set_catch_info_list(CatchInfoStore* store, PyObject* list) {
    clear_slot(store->catch_dict);
    if (PyList_GET_SIZE(list) == 0) {
        return 0;
    }
    const Ref catch_dict = Ref::steal(PyDict_New());
    if (!catch_dict) {
        return -1;
    }
    set_slot(store->catch_dict, catch_dict.get());
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(list); ++i) {
        const Ref instance = Ref::share(PyList_GET_ITEM(list, i));
        const Ref co_name = attribute(instance.get(), &store->co_name, "co_name");
        PyObject* const instances = co_name ? list_for(catch_dict.get(), co_name.get()) : nullptr;
        if (instances == nullptr || PyList_Append(instances, instance.get()) != 0) {
            return -1;
        }
    }
    return 0;
}

Ref find_catch_info(CatchInfoStore* store, PyFrameObject* frame) {
    dprintf(kLogExceptions, "find_catch_info\n");
    if (store->catch_dict == nullptr || !is_frame(frame)) {
        dprintf(kLogExceptions, "  null dict or not frame\n");
        return Ref();
    }
    PyObject* const co_name = frame->f_code->co_name;
    // Names are compared as the instances' own code says, which may replace the list.
    const Ref catch_dict = Ref::share(store->catch_dict);
    const Ref instances = Ref::share(PyDict_GetItem(catch_dict.get(), co_name));
    if (!instances) {
        dprintf(kLogExceptions, "  null info_list; looking for %s\n", object_text(co_name));
        return Ref();
    }
    if (!PyList_Check(instances.get())) {
        dprintf(kLogExceptions, "  not list\n");
        dprintf(kLogExceptions, "  failure\n");
        PyErr_Clear();
        return Ref();
    }
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(instances.get()); ++i) {
        Ref instance = Ref::share(PyList_GET_ITEM(instances.get(), i));
        const int match = instance_matches(store, instance.get(), frame);
        if (match == 1) {
            return instance;
        }
        if (match < 0) {
            dprintf(kLogExceptions, "  failure\n");
            PyErr_Clear();
            break;
        }
    }
    return Ref();
}

int get_prints_and_parent(CatchInfoStore* store, PyObject* instance, int* prints, int* parent) {
    return truth_of(instance, &store->prints, "prints", prints) != 0
               ? -1
               : truth_of(instance, &store->parent, "parent", parent);
}

int frame_prints_exc(CatchInfoStore* store, PyFrameObject* frame) {
    const Ref instance = find_catch_info(store, frame);
    dprintf(kLogExceptions, "frame_prints_exc");
    if (!instance) {
        dprintf(kLogExceptions, "catch_info == NULL\n");
        return 0;
    }
    int prints = 0;
    int parent = 0;
    if (get_prints_and_parent(store, instance.get(), &prints, &parent) != 0) {
        dprintf(kLogExceptions, "get_prints_and_parent failed\n");
        PyErr_Clear();
        return 0;
    }
    dprintf(kLogExceptions, "prints=%i, parent=%i\n", prints, parent);
    return prints != 0 && parent == 0 ? 1 : 0;
}

int frame_parent_prints_exc(CatchInfoStore* store, PyFrameObject* frame) {
    const Ref instance = find_catch_info(store, frame);
    int prints = 0;
    int parent = 0;
    if (!instance || get_prints_and_parent(store, instance.get(), &prints, &parent) != 0) {
        drop_error("whether an exception is printed");
        return 0;
    }
    return prints != 0 && parent != 0 ? 1 : 0;
}

int set_frame_exc_info(CatchInfoStore* store, PyFrameObject* frame, PyObject* exception) {
    dprintf(kLogExceptions, "set_frame_exc_info\n");
    if (store->frame_exc_info != nullptr && prune(store) != 0) {
        PyErr_Clear();
    }
    store->settled = 0;
    if (store->frame_exc_info == nullptr) {
        const Ref created = Ref::steal(PyDict_New());
        if (!created) {
            return -1;
        }
        set_slot(store->frame_exc_info, created.get());
    }
    const Ref frame_exc_info = Ref::share(store->frame_exc_info);
    return PyDict_SetItem(frame_exc_info.get(), as_object(frame), exception);
}

PyObject* get_frame_exc_info(CatchInfoStore* store, PyFrameObject* frame) {
    return store->frame_exc_info != nullptr
               ? PyDict_GetItem(store->frame_exc_info, as_object(frame))
               : nullptr;
}

int clear_frame_exc_info(CatchInfoStore* store, PyFrameObject* frame) {
    if (store->frame_exc_info == nullptr) {
        return 0;
    }
    const PendingErrorGuard keep_error;
    const Ref frame_exc_info = Ref::share(store->frame_exc_info);
    if (PyDict_GetItem(frame_exc_info.get(), as_object(frame)) != nullptr) {
        store->settled = 0;
        if (PyDict_DelItem(frame_exc_info.get(), as_object(frame)) != 0) {
            PyErr_Clear();
        }
    }
    if (store->frame_exc_info != frame_exc_info.get()) {
        return 0;  // a destructor emptied the store
    }
    if (prune(store) != 0) {
        PyErr_Clear();
    }
    if (store->frame_exc_info == frame_exc_info.get() && PyDict_Size(frame_exc_info.get()) == 0) {
        clear_slot(store->frame_exc_info);
    }
    return 0;
}

void catch_info_store_clear(CatchInfoStore* store) {
    clear_slot(store->frame_exc_info);
    clear_slot(store->co_name);
    clear_slot(store->mod_name);
    clear_slot(store->prints);
    clear_slot(store->parent);
}

PyObject* last_traceback_frame(PyObject* traceback) {
    if (traceback == Py_None) {
        return new_none();
    }
    Ref last = Ref::share(traceback);
    for (int length = 0; !PyTraceBack_Check(last.get()); ++length) {
        Ref next = Ref::steal(PyObject_GetAttrString(last.get(), "tb_next"));
        if (!next) {
            PyErr_Clear();
        }
        if (!next || next.get() == Py_None) {
            return PyObject_GetAttrString(last.get(), "tb_frame");
        }
        if (length == kLongestForeignChain) {
            PyErr_SetString(PyExc_RuntimeError, "a traceback has no end");
            return nullptr;
        }
        last = std::move(next);
    }
    const PyTracebackObject* entry = as_traceback(last.get());
    while (entry->tb_next != nullptr) {
        entry = entry->tb_next;
    }
    return Ref::share(as_object(entry->tb_frame)).release();
}

}  // namespace morvik
