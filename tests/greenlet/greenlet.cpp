// For tests: a module `greenlet` that switches C stacks inside one thread as extensions of that
// name do, with what matters to a debugger. Each greenlet has a chain of frames of its own: a
// switch saves and replaces the frame, the recursion depth and the handled exception of the
// thread's state, and nothing else of the interpreter's.
//
// Each has a stack of its own from the system. One that is suspended keeps itself alive.
#include <sys/mman.h>
#include <ucontext.h>

#include "host/python.h"
#include "host/ref.h"

namespace morvik {

namespace {

// The debug server runs on it, too, when a greenlet has stopped.
constexpr size_t kStackSize = 4UL * 1024 * 1024;
constexpr char kCurrentKey[] = "greenlet.current";

struct Greenlet {
    PyObject_HEAD PyThreadState* thread;
    PyObject* parent;  // nullptr for the one that a thread begins with
    PyObject* run;     // until it begins
    bool is_started;
    bool is_dead;
    void* stack;
    ucontext_t context;
    // What is the thread state's while it runs.
    PyFrameObject* frame;
    int recursion_depth;
    PyObject* exc_type;
    PyObject* exc_value;
    PyObject* exc_traceback;
};

PyTypeObject greenlet_type = {};
PyObject* exit_class;
PyObject* error_class;

// What the greenlet that is switched to is given: a value, or without one an error.
PyObject* given_value;
PyObject* given_error[3];

Greenlet* as_greenlet(PyObject* object) { return reinterpret_cast<Greenlet*>(object); }
PyObject* greenlet_object(Greenlet* greenlet) { return reinterpret_cast<PyObject*>(greenlet); }

Greenlet* new_greenlet() {
    auto* const made = as_greenlet(greenlet_type.tp_alloc(&greenlet_type, 0));
    if (made != nullptr) {
        made->thread = current_thread_state();
    }
    return made;
}

// Borrowed; nullptr with an error set.
Greenlet* current() {
    PyObject* const locals = PyThreadState_GetDict();
    PyObject* const found = PyDict_GetItemString(locals, kCurrentKey);
    if (found != nullptr) {
        return as_greenlet(found);
    }
    Greenlet* const main = new_greenlet();
    const Ref held = Ref::steal(greenlet_object(main));
    if (main == nullptr || PyDict_SetItemString(locals, kCurrentKey, held.get()) != 0) {
        return nullptr;
    }
    main->is_started = true;
    return main;
}

void save_state(Greenlet* greenlet) {
    PyThreadState* const thread = greenlet->thread;
    greenlet->frame = thread->frame;
    greenlet->recursion_depth = thread->recursion_depth;
    greenlet->exc_type = thread->exc_type;
    greenlet->exc_value = thread->exc_value;
    greenlet->exc_traceback = thread->exc_traceback;
}

void restore_state(Greenlet* greenlet) {
    PyThreadState* const thread = greenlet->thread;
    thread->frame = greenlet->frame;
    thread->recursion_depth = greenlet->recursion_depth;
    thread->exc_type = greenlet->exc_type;
    thread->exc_value = greenlet->exc_value;
    thread->exc_traceback = greenlet->exc_traceback;
    greenlet->frame = nullptr;
    greenlet->exc_type = greenlet->exc_value = greenlet->exc_traceback = nullptr;
}

// Gives up the value or the error that is pending for whoever is switched to.
void give(PyObject* value) {
    given_value = value;
    PyErr_Fetch(&given_error[0], &given_error[1], &given_error[2]);
}

// The first thing on the stack that has been switched to. What has ended goes only now.
PyObject* arrive(Greenlet* greenlet) {
    restore_state(greenlet);
    if (PyDict_SetItemString(PyThreadState_GetDict(), kCurrentKey, greenlet_object(greenlet)) !=
        0) {
        Py_FatalError("greenlet: no memory for the current one");
    }
    PyErr_Restore(given_error[0], given_error[1], given_error[2]);
    return given_value;
}

Greenlet* first_alive(Greenlet* greenlet) {
    while (greenlet->is_dead) {
        greenlet = as_greenlet(greenlet->parent);
    }
    return greenlet;
}

// What begins with the next switch, borrowed.
Greenlet* beginning;

PyObject* run_to_end(Greenlet* self) {
    const Ref arguments = Ref::steal(arrive(self));
    const Ref run = Ref::steal(self->run);
    self->run = nullptr;
    PyObject* const result = arguments ? PyObject_CallObject(run.get(), arguments.get()) : nullptr;
    if (result != nullptr || PyErr_ExceptionMatches(exit_class) == 0) {
        return result;
    }
    PyErr_Clear();
    return new_none();
}

// Is the stack of a greenlet. Nothing that is on it then is left to be destroyed at its end.
void live() {
    Greenlet* const self = beginning;
    give(run_to_end(self));
    self->is_dead = true;
    save_state(self);
    Py_DECREF(greenlet_object(self));  // The thread's dictionary holds it up to the arrival.
    setcontext(&first_alive(self)->context);
}

bool prepare(Greenlet* greenlet) {
    greenlet->stack = mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (greenlet->stack == MAP_FAILED) {
        greenlet->stack = nullptr;
        PyErr_NoMemory();
        return false;
    }
    getcontext(&greenlet->context);
    greenlet->context.uc_stack.ss_sp = greenlet->stack;
    greenlet->context.uc_stack.ss_size = kStackSize;
    greenlet->context.uc_link = nullptr;
    makecontext(&greenlet->context, live, 0);
    greenlet->recursion_depth = greenlet->thread->recursion_depth;
    beginning = greenlet;
    greenlet->is_started = true;
    Py_INCREF(greenlet_object(greenlet));
    return true;
}

// Goes on there with the value, or with the error that is set; what this one is given when it is
// switched to again.
PyObject* switch_to(Greenlet* target, Ref value) {
    Greenlet* const self = current();
    if (self == nullptr) {
        return nullptr;
    }
    if (target->thread != self->thread) {
        PyErr_SetString(error_class, "cannot switch to a different thread");
        return nullptr;
    }
    target = first_alive(target);
    if (target == self) {
        return value.release();
    }
    if (!target->is_started && !prepare(target)) {
        return nullptr;
    }
    const Ref kept = Ref::share(greenlet_object(self));
    save_state(self);
    give(value.release());
    swapcontext(&self->context, &target->context);
    return arrive(self);
}

PyObject* make(PyTypeObject* /*type*/, PyObject* args, PyObject* keywords) {
    static const char* names[] = {"run", "parent", nullptr};
    PyObject* run = nullptr;
    PyObject* parent = nullptr;
    if (PyArg_ParseTupleAndKeywords(args, keywords, "O|O!:greenlet", const_cast<char**>(names),
                                    &run, &greenlet_type, &parent) == 0) {
        return nullptr;
    }
    if (parent == nullptr) {
        parent = greenlet_object(current());
    }
    Greenlet* const made = parent != nullptr ? new_greenlet() : nullptr;
    if (made != nullptr) {
        set_slot(made->run, run);
        set_slot(made->parent, parent);
    }
    return greenlet_object(made);
}

void deallocate(PyObject* object) {
    Greenlet* const greenlet = as_greenlet(object);
    clear_slot(greenlet->run);
    clear_slot(greenlet->parent);
    clear_slot(greenlet->exc_type);
    clear_slot(greenlet->exc_value);
    clear_slot(greenlet->exc_traceback);
    if (greenlet->stack != nullptr) {
        munmap(greenlet->stack, kStackSize);
    }
    Py_TYPE(object)->tp_free(object);
}

PyObject* method_switch(PyObject* self, PyObject* args) {
    Greenlet* const target = first_alive(as_greenlet(self));
    // The function of a new one gets the arguments, a switch the one that there is.
    const bool is_one = target->is_started && PyTuple_GET_SIZE(args) == 1;
    return switch_to(target, Ref::share(is_one ? PyTuple_GET_ITEM(args, 0) : args));
}

PyObject* method_throw(PyObject* self, PyObject* args) {
    PyObject* type = exit_class;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
    if (PyArg_ParseTuple(args, "|OOO:throw", &type, &value, &traceback) == 0) {
        return nullptr;
    }
    if (PyExceptionInstance_Check(type)) {
        value = type;
        type = PyExceptionInstance_Class(type);
    }
    Py_INCREF(type);
    Py_XINCREF(value);
    Py_XINCREF(traceback);
    PyErr_Restore(type, value, traceback);
    return switch_to(as_greenlet(self), Ref());
}

PyObject* get_dead(PyObject* self, void* /*closure*/) {
    return PyBool_FromLong(as_greenlet(self)->is_dead ? 1 : 0);
}

PyObject* get_frame(PyObject* self, void* /*closure*/) {
    PyFrameObject* const frame = as_greenlet(self)->frame;
    return Ref::share(frame != nullptr ? as_object(frame) : Py_None).release();
}

PyObject* get_parent(PyObject* self, void* /*closure*/) {
    PyObject* const parent = as_greenlet(self)->parent;
    return Ref::share(parent != nullptr ? parent : Py_None).release();
}

PyObject* function_getcurrent(PyObject* /*self*/, PyObject* /*none*/) {
    PyObject* const found = greenlet_object(current());
    Py_XINCREF(found);
    return found;
}

PyMethodDef methods[] = {
    {"switch", method_switch, METH_VARARGS, "switch(*args)"},
    {"throw", method_throw, METH_VARARGS, "throw([type, [value, [traceback]]])"},
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef attributes[] = {
    {const_cast<char*>("dead"), get_dead, nullptr, nullptr, nullptr},
    {const_cast<char*>("gr_frame"), get_frame, nullptr, nullptr, nullptr},
    {const_cast<char*>("parent"), get_parent, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyMethodDef functions[] = {
    {"getcurrent", function_getcurrent, METH_NOARGS, "The one that runs in this thread."},
    {nullptr, nullptr, 0, nullptr},
};

bool add_to(PyObject* module, const char* name, PyObject* object) {
    Py_XINCREF(object);
    return object != nullptr && PyModule_AddObject(module, name, object) == 0;
}

}  // namespace

}  // namespace morvik

PyMODINIT_FUNC initgreenlet() {
    using namespace morvik;
    Py_REFCNT(&greenlet_type) = 1;
    greenlet_type.tp_name = "greenlet.greenlet";
    greenlet_type.tp_basicsize = sizeof(Greenlet);
    greenlet_type.tp_dealloc = deallocate;
    greenlet_type.tp_flags = Py_TPFLAGS_DEFAULT;
    greenlet_type.tp_methods = methods;
    greenlet_type.tp_getset = attributes;
    greenlet_type.tp_new = make;
    PyObject* const module = Py_InitModule("greenlet", functions);
    if (module == nullptr || PyType_Ready(&greenlet_type) != 0) {
        return;
    }
    exit_class = PyErr_NewException(const_cast<char*>("greenlet.GreenletExit"), PyExc_BaseException,
                                    nullptr);
    error_class = PyErr_NewException(const_cast<char*>("greenlet.error"), nullptr, nullptr);
    if (add_to(module, "greenlet", reinterpret_cast<PyObject*>(&greenlet_type)) &&
        add_to(module, "GreenletExit", exit_class)) {
        add_to(module, "error", error_class);
    }
}
