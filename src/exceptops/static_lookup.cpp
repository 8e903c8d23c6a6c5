#include "exceptops/static_lookup.h"

#include "dbgcommon.h"

namespace morvik {

namespace {

PyObject* item_of(PyObject* dict, PyObject* name) {
    return dict != nullptr && PyDict_Check(dict) ? PyDict_GetItem(dict, name) : nullptr;
}

PyObject* classic_class_attribute(PyObject* object, PyObject* name) {
    const auto* const type = reinterpret_cast<const PyClassObject*>(object);
    PyObject* value = item_of(type->cl_dict, name);
    for (Py_ssize_t i = 0; value == nullptr && i < PyTuple_GET_SIZE(type->cl_bases); ++i) {
        PyObject* const base = PyTuple_GET_ITEM(type->cl_bases, i);
        value = PyClass_Check(base) ? classic_class_attribute(base, name) : nullptr;
    }
    return value;
}

PyObject* instance_dict(PyObject* object) {
    if (PyModule_Check(object)) {
        return PyModule_GetDict(object);
    }
    if (PyInstance_Check(object)) {
        return reinterpret_cast<PyInstanceObject*>(object)->in_dict;
    }
    PyObject** const slot = _PyObject_GetDictPtr(object);
    return slot != nullptr ? *slot : nullptr;
}

PyObject* inherited_attribute(PyObject* object, PyObject* name) {
    if (PyInstance_Check(object)) {
        return classic_class_attribute(
            reinterpret_cast<PyObject*>(reinterpret_cast<PyInstanceObject*>(object)->in_class),
            name);
    }
    return _PyType_Lookup(Py_TYPE(object), name);
}

bool is_computed(PyObject* value) { return Py_TYPE(value)->tp_descr_get != nullptr; }

}  // namespace

Ref static_attribute(PyObject* object, PyObject* name) {
    if (!PyString_Check(name)) {
        return Ref();
    }
    if (PyType_Check(object)) {
        return Ref::share(_PyType_Lookup(reinterpret_cast<PyTypeObject*>(object), name));
    }
    if (PyClass_Check(object)) {
        return Ref::share(classic_class_attribute(object, name));
    }
    PyObject* const inherited = inherited_attribute(object, name);
    if (inherited != nullptr && is_computed(inherited)) {
        return Ref();
    }
    PyObject* const own = item_of(instance_dict(object), name);
    return Ref::share(own != nullptr ? own : inherited);
}

}  // namespace morvik
