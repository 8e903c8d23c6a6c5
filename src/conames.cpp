#include "conames.h"

#include <cctype>
#include <cstring>

#include "dbgcommon.h"
#include "dprintf.h"
#include "host/ref.h"

namespace morvik {

CodeNameRegistry code_names;

namespace {

constexpr int kCollectionBatch = 100;
constexpr int kDeepestClass = 10;
constexpr char kNoFile[] = "<string>";
constexpr char kTooLong[] = "<filename too long>";

PyObject* as_object(PyCodeObject* code) { return reinterpret_cast<PyObject*>(code); }

void forget_recent(CodeNameRegistry* registry, const PyCodeObject* code) {
    auto& slot = registry->recent[recent_slot(code)];
    if (slot.code == code) {
        slot.code = nullptr;
    }
}

// Item 0 of a registry entry, or nullptr when it is no string.
const char* entry_name(PyObject* entry) {
    PyObject* const name = PyTuple_Check(entry) ? PyTuple_GET_ITEM(entry, 0) : nullptr;
    return name != nullptr && PyString_Check(name) ? PyString_AS_STRING(name) : nullptr;
}

// The registry's entry of a code object (borrowed), or nullptr.
PyObject* find_entry(CodeNameRegistry* registry, PyCodeObject* code) {
    if (registry->names == nullptr) {
        return nullptr;
    }
    const Ref key = Ref::steal(PyLong_FromVoidPtr(code));
    if (!key) {
        drop_error("the name of a code object was not looked up");
        return nullptr;
    }
    return PyDict_GetItem(registry->names, key.get());
}

struct GarbageBatch {
    PyObject* keys[kCollectionBatch];
    PyCodeObject* codes[kCollectionBatch];
    int count;
};

void find_garbage(CodeNameRegistry* registry, GarbageBatch* batch) {
    batch->count = 0;
    Py_ssize_t position = 0;
    PyObject* key = nullptr;
    while (batch->count < kCollectionBatch &&
           PyDict_Next(registry->names, &position, &key, nullptr) != 0) {
        auto* const code = static_cast<PyCodeObject*>(PyLong_AsVoidPtr(key));
        if (Py_REFCNT(code) == 1) {
            // What goes may run code that collects too: it is not to find these again.
            Py_INCREF(code);
            Py_INCREF(key);
            batch->keys[batch->count] = key;
            batch->codes[batch->count] = code;
            ++batch->count;
        }
    }
}

// The entry goes before the code object does: from then on its address may be another's.
void drop_garbage(CodeNameRegistry* registry, const GarbageBatch& batch) {
    for (int i = 0; i < batch.count; ++i) {
        const Ref key = Ref::steal(batch.keys[i]);
        const Ref code = Ref::steal(as_object(batch.codes[i]));
        const Ref registrys_own = Ref::steal(as_object(batch.codes[i]));
        forget_recent(registry, batch.codes[i]);
        if (registry->let_go != nullptr) {
            registry->let_go(batch.codes[i]);
        }
        if (PyDict_DelItem(registry->names, key.get()) != 0) {
            dprintf(kLogFiles,
                    "FATAL ERROR: UNEXPECTED EXCEPTION in conames, CollectGarbage "
                    "(PyDict_DelItem)\n");
            PyErr_Clear();
        }
    }
}

// Registers the code objects among a code object's constants. 0, or -1 at the first failure.
int register_nested(CodeNameRegistry* registry, PyCodeObject* code, const char* pathname,
                    int force) {
    if (!PyTuple_Check(code->co_consts)) {
        return 0;
    }
    if (Py_EnterRecursiveCall(const_cast<char*>(" while registering nested code")) != 0) {
        return -1;
    }
    int result = 0;
    const Ref constants = Ref::share(code->co_consts);
    for (Py_ssize_t i = 0; result == 0 && i < PyTuple_GET_SIZE(constants.get()); ++i) {
        PyObject* const item = PyTuple_GET_ITEM(constants.get(), i);
        if (PyCode_Check(item)) {
            result =
                register_pathname(registry, reinterpret_cast<PyCodeObject*>(item), pathname, force);
        }
    }
    Py_LeaveRecursiveCall();
    return result;
}

// Stores a code object's entry, and takes the registry's reference to it if it has none yet.
int store_entry(CodeNameRegistry* registry, PyCodeObject* code, const char* pathname) {
    const Ref key = Ref::steal(PyLong_FromVoidPtr(code));
    // One string per file, which is never freed: whoever was handed its characters keeps them.
    PyObject* name = PyString_FromString(pathname);
    if (name != nullptr) {
        PyString_InternImmortal(&name);
    }
    const Ref held_name = Ref::steal(name);
    const Ref entry = key && held_name ? Ref::steal(PyTuple_Pack(2, name, Py_None)) : Ref();
    if (!entry) {
        return -1;
    }
    Ref code_reference =
        PyDict_GetItem(registry->names, key.get()) == nullptr ? Ref::share(as_object(code)) : Ref();
    if (PyDict_SetItem(registry->names, key.get(), entry.get()) != 0) {
        return -1;
    }
    const bool replaced = code_reference.release() == nullptr;
    forget_recent(registry, code);
    if (replaced && registry->renamed != nullptr) {
        registry->renamed(code);
    }
    return 0;
}

// Whether to go by a module's file rather than by the name that its code was compiled under.
bool is_preferable(const char* module_file, const char* code_file) {
    if (module_file == nullptr || code_file == nullptr) {
        return module_file != nullptr;
    }
    if (same_but_compiled_suffix(module_file, code_file) != 0) {
        return false;
    }
    if (!can_read_file(code_file)) {
        return true;
    }
    const size_t length = strlen(module_file);
    if (length >= kMaxPath || length == 0 || strchr("cCoO", module_file[length - 1]) == nullptr) {
        return false;
    }
    const auto base_name = [](const char* path) {
        const char* base = path;
        for (; *path != '\0'; ++path) {
            if (*path == '/' || *path == '\\') {
                base = path + 1;
            }
        }
        return base;
    };
    if (same_but_compiled_suffix(base_name(module_file), base_name(code_file)) == 0) {
        return false;
    }
    const OwnedText source(strdup(module_file));
    if (!source) {
        report_out_of_memory("the name of a module's file");
        return false;
    }
    strip_compiled_suffix(source.get());
    struct stat source_status = {};
    struct stat code_status = {};
    return file_stat(source.get(), &source_status) == 0 &&
           file_stat(code_file, &code_status) == 0 &&
           source_status.st_mtime == code_status.st_mtime &&
           source_status.st_size == code_status.st_size;
}

const char* exact_string(PyObject* object) {
    return object != nullptr && PyString_CheckExact(object) ? PyString_AS_STRING(object) : nullptr;
}

// What the walk over a module's values carries along.
struct MatchContext {
    CodeNameRegistry* registry;
    const char* pathname;
    PyObject* globals;
    int force;
    // Classes seen, with the least depth: classes that refer to each other would otherwise be
    // walked once per path between them.
    HashTable seen;
};

int RegisterMatchingDictValues(MatchContext* context, PyObject* dict, int depth);

int RegisterMatchingFunction(const MatchContext* context, PyObject* object, int depth) {
    if (Py_TYPE(object) != &PyFunction_Type) {
        dprintf(kLogFiles, "Non-function object passed to RegisterMatchingFunction\n");
        return -1;
    }
    const auto* const function = reinterpret_cast<const PyFunctionObject*>(object);
    dprintf(kLogFiles, "RegisterMatchingFunction called on %s; depth = %i\n",
            object_text(function->func_name), depth);
    if (depth >= kDeepestClass || !PyCode_Check(function->func_code) ||
        function->func_globals != context->globals) {
        return 0;
    }
    return register_pathname(context->registry,
                             reinterpret_cast<PyCodeObject*>(function->func_code),
                             context->pathname, context->force);
}

// Whether a class was walked already, at this depth or a lesser one.
bool was_walked(MatchContext* context, PyObject* value, int depth) {
    int is_new = 0;
    HashEntry* const entry = hash_create(&context->seen, &value, &is_new);
    if (entry == nullptr) {
        return false;
    }
    const auto least = reinterpret_cast<intptr_t>(hash_get_value(entry));
    if (is_new == 0 && least <= depth) {
        return true;
    }
    hash_set_value(entry, reinterpret_cast<void*>(static_cast<intptr_t>(depth)));
    return false;
}

int register_matching_class(MatchContext* context, PyObject* value, PyObject* dict, int depth) {
    if (dict == nullptr || was_walked(context, value, depth)) {
        return 0;
    }
    return RegisterMatchingDictValues(context, dict, depth);
}

int register_matching_value(MatchContext* context, PyObject* value, int depth) {
    if (PyFunction_Check(value)) {
        return RegisterMatchingFunction(context, value, depth);
    }
    if (PyMethod_Check(value)) {
        return RegisterMatchingFunction(context, PyMethod_GET_FUNCTION(value), depth);
    }
    if (PyType_Check(value)) {
        return register_matching_class(context, value,
                                       reinterpret_cast<PyTypeObject*>(value)->tp_dict, depth);
    }
    if (PyClass_Check(value)) {
        return register_matching_class(context, value,
                                       reinterpret_cast<PyClassObject*>(value)->cl_dict, depth);
    }
    return 0;
}

int RegisterMatchingDictValues(MatchContext* context, PyObject* dict, int depth) {
    dprintf(kLogFiles,
            "RegisterMatchingDictValues: obj = %p; pathname = %s; globals = %p; depth = %d\n", dict,
            context->pathname, context->globals, depth);
    if (depth >= kDeepestClass || !PyDict_Check(dict)) {
        return 0;
    }
    const Ref held_dict = Ref::share(dict);
    dprintf(kLogFiles, "Starting iteration; dict len = %d", static_cast<int>(PyDict_Size(dict)));
    Py_ssize_t position = 0;
    PyObject* key = nullptr;
    PyObject* value = nullptr;
    while (PyDict_Next(dict, &position, &key, &value) != 0) {
        // Registering allocates, so that a collection may run and change the dictionary.
        const Ref held_value = Ref::share(value);
        dprintf(kLogFiles, "Examining %s: type is %s\n", object_text(key), Py_TYPE(value)->tp_name);
        const int result = register_matching_value(context, value, depth + 1);
        if (result != 0) {
            dprintf(kLogFiles, "Returning %i from RegisterMatchingDictValues()\n", result);
        }
    }
    return 0;
}

// 1 if a class dictionary holds a function with this code, 0 if not.
bool dict_defines(PyObject* dict, const PyCodeObject* code) {
    Py_ssize_t position = 0;
    PyObject* value = nullptr;
    while (dict != nullptr && PyDict_Next(dict, &position, nullptr, &value) != 0) {
        if (PyFunction_Check(value) &&
            PyFunction_GET_CODE(value) == reinterpret_cast<const PyObject*>(code)) {
            return true;
        }
    }
    return false;
}

}  // namespace

int registry_init(CodeNameRegistry* registry, PathCache* path_cache) {
    registry->names = nullptr;
    registry->gc_counter = 0;
    registry->path_cache = path_cache;
    registry->file_key = nullptr;
    registry->rel_buf[0] = '\0';
    if (registry_complete(registry) != 0) {
        PyErr_Clear();
        return -1;
    }
    return 0;
}

int registry_complete(CodeNameRegistry* registry) {
    if (registry->file_key == nullptr) {
        registry->file_key = PyString_FromString("__file__");
    }
    return registry->file_key != nullptr ? 0 : -1;
}

void CollectGarbage(CodeNameRegistry* registry) {
    if (++registry->gc_counter < kCallsPerCollection) {
        return;
    }
    registry->gc_counter = 0;
    const PendingErrorGuard keep_error;
    GarbageBatch batch;
    do {
        batch.count = 0;
        if (registry->names != nullptr) {
            find_garbage(registry, &batch);
            drop_garbage(registry, batch);
        }
    } while (batch.count == kCollectionBatch);
}

const char* registered_pathname(CodeNameRegistry* registry, PyCodeObject* code) {
    CollectGarbage(registry);
    if (code == nullptr || registry->names == nullptr) {
        return nullptr;
    }
    auto& slot = registry->recent[recent_slot(code)];
    if (slot.code == code) {
        return slot.name;
    }
    PyObject* const entry = find_entry(registry, code);
    const char* const name = entry != nullptr ? entry_name(entry) : nullptr;
    if (name != nullptr) {
        slot = {code, name};
    }
    return name;
}

int register_pathname(CodeNameRegistry* registry, PyCodeObject* code, const char* pathname,
                      int force) {
    dprintf(kLogFiles, "Registering %s as pathname for code object %p (%s)\n", pathname, code,
            code != nullptr ? object_text(code->co_name) : text_or_null(nullptr));
    CollectGarbage(registry);
    if (code == nullptr) {
        return -1;
    }
    const PendingErrorGuard drop_errors;
    if (registry->names == nullptr) {
        // Making it may run code that makes it, too.
        const Ref names = Ref::steal(PyDict_New());
        if (registry->names == nullptr) {
            set_slot(registry->names, names.get());
        }
        if (registry->names == nullptr) {
            drop_error("the name of a code object");
            return -1;
        }
    }
    if (force == 0) {
        PyObject* const entry = find_entry(registry, code);
        if (entry != nullptr && entry_name(entry) != nullptr) {
            return 0;
        }
    }
    if (store_entry(registry, code, pathname) != 0) {
        drop_error("the name of a code object");
        return -1;
    }
    return register_nested(registry, code, pathname, force);
}

int RegisterMatchingCodeValues(CodeNameRegistry* registry, const char* pathname, PyObject* globals,
                               int force) {
    dprintf(kLogFiles, "RegisterMatchingCodeValues: globals = %p\n", globals);
    if (globals == nullptr || !PyDict_Check(globals)) {
        return 0;
    }
    MatchContext context = {registry, pathname, globals, force, {}};
    hash_init(&context.seen, sizeof(PyObject*));
    RegisterMatchingDictValues(&context, globals, 0);
    hash_delete_table(&context.seen);
    return 0;
}

const char* get_relative_path(CodeNameRegistry* registry, PyObject* globals,
                              PyObject* co_filename) {
    const char* const code_file = exact_string(co_filename);
    dprintf(kLogFiles, "get_relative_path(globals = %p, co_filename = %s)\n", globals,
            text_or_null(code_file));
    const Ref module_value =
        globals != nullptr && PyDict_Check(globals) && registry->file_key != nullptr
            ? Ref::share(PyDict_GetItem(globals, registry->file_key))
            : Ref();
    const char* const module_file = exact_string(module_value.get());
    const char* chosen = code_file != nullptr ? code_file : kNoFile;
    // What was compiled under "<string>" is not what stands in the module's file. Any other name
    // that no file has gives way to it, one in angle brackets, too.
    if ((code_file == nullptr || strcmp(code_file, kNoFile) != 0) &&
        is_preferable(module_file, code_file)) {
        chosen = module_file;
    }
    if (strlen(chosen) > kMaxPath) {
        chosen = kTooLong;
        dprintf(kLogFiles, "FAILURE: File name too long: %s\n", chosen);
    }
    memcpy(registry->rel_buf, chosen, strlen(chosen) + 1);
    strip_compiled_suffix(registry->rel_buf);
    return registry->rel_buf;
}

const char* LookupCOPathname(CodeNameRegistry* registry, PyFrameObject* frame) {
    if (!is_frame(frame)) {
        return "<cframe>";
    }
    PyCodeObject* const code = frame->f_code;
    const char* const registered = registered_pathname(registry, code);
    dprintf(kLogFiles, "LookupCOPathname(%s) => %s\n", object_text(code->co_name),
            text_or_null(registered));
    if (registered != nullptr) {
        return registered;
    }
    if (PyErr_Occurred() != nullptr) {
        PyErr_Clear();
        return nullptr;
    }
    const char* const relative = get_relative_path(registry, frame->f_globals, code->co_filename);
    const char* const full =
        registry->path_cache != nullptr ? full_path(registry->path_cache, relative) : nullptr;
    if (full == nullptr) {
        dprintf(kLogFiles, "No full name found for relative name %s\n",
                object_text(code->co_filename));
    }
    return full != nullptr ? full : relative;
}

const char* resolve_and_register(CodeNameRegistry* registry, PyObject* globals,
                                 PyObject* co_filename, PyCodeObject* code) {
    const char* const relative = get_relative_path(registry, globals, co_filename);
    dprintf(kLogFiles, "resolving %s\n", relative);
    if (is_pseudo_name(relative) || registry->path_cache == nullptr) {
        return nullptr;
    }
    const char* const full = full_path(registry->path_cache, relative);
    dprintf(kLogFiles, "fullname = %s\n", text_or_null(full));
    if (full == nullptr) {
        return nullptr;
    }
    if (code != nullptr) {
        register_pathname(registry, code, full, 1);
    } else {
        RegisterMatchingCodeValues(registry, full, globals, 0);
    }
    return full;
}

PyObject* find_defining_class(PyObject* dict, PyCodeObject* code) {
    Py_ssize_t position = 0;
    PyObject* value = nullptr;
    while (PyDict_Next(dict, &position, nullptr, &value) != 0) {
        PyObject* const class_dict =
            PyType_Check(value)    ? reinterpret_cast<PyTypeObject*>(value)->tp_dict
            : PyClass_Check(value) ? reinterpret_cast<PyClassObject*>(value)->cl_dict
                                   : nullptr;
        if (dict_defines(class_dict, code)) {
            Py_INCREF(value);
            return value;
        }
    }
    return new_none();
}

}  // namespace morvik
