// The problem's methods for controls and attributes.
#include "problem/controls.hpp"

#include "module/parts.hpp"
#include "module/state.hpp"

namespace nalora {

namespace {

void set_control_by_name(ProblemObject* p, PyObject* name, PyObject* value) {
    const Ref exact = exact_name(name);
    Descriptor d;
    if (!exact || !find_descriptor(name_table(Role::control).get(), exact.get(), d)) {
        raise(interface_error(), "Incorrect control name");
    }
    set_problem_control(p, d, value);
}

// In the mapping's own order, which for an ordered subclass is not that of its table.
void set_controls(ProblemObject* p, PyObject* dictionary) {
    if (!PyDict_Check(dictionary)) {
        raise(model_error(), "Single argument to setControl must be a dictionary");
    }
    const Ref items = take(PyMapping_Items(dictionary));
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(items.get()); ++i) {
        PyObject* item = PyList_GET_ITEM(items.get(), i);
        if (!PyTuple_Check(item) || PyTuple_GET_SIZE(item) != 2) {
            raise(model_error(), "Single argument to setControl must be a dictionary");
        }
        set_control_by_name(p, PyTuple_GET_ITEM(item, 0), PyTuple_GET_ITEM(item, 1));
    }
}

PyObject* set_control(PyObject* self, PyObject* args) noexcept {
    return guarded([&] {
        ProblemObject* p = as_problem(self);
        require_initialised(p);
        switch (PyTuple_GET_SIZE(args)) {
            case 0:
                raise(model_error(),
                      "setControl requires at least one argument of type dictionary or two "
                      "elements: parameter, value");
            case 1:
                set_controls(p, PyTuple_GET_ITEM(args, 0));
                break;
            case 2:
                set_control_by_name(p, PyTuple_GET_ITEM(args, 0), PyTuple_GET_ITEM(args, 1));
                break;
            default:
                raise(model_error(), "setControl: arguments mismatch");
        }
        return none();
    });
}

// ---- reading ----------------------------------------------------------------------------------

Ref value_by_name(ProblemObject* p, Role role, PyObject* table, PyObject* name) {
    const Ref exact = exact_name(name);
    Descriptor d;
    if (!exact || !find_descriptor(table, exact.get(), d)) {
        raise(interface_error(), role == Role::control ? "Requested value of an unknown control"
                                                       : "Requested value of an unknown attribute");
    }
    return problem_value(p, role, d);
}

Ref values_by_name(ProblemObject* p, Role role, PyObject* table, PyObject* names) {
    const Ref values = take(PyDict_New());
    const Ref iterator = take(PyObject_GetIter(names));
    for (;;) {
        const Ref name = Ref::steal(PyIter_Next(iterator.get()));
        if (!name) break;
        const Ref value = value_by_name(p, role, table, name.get());
        check_python(PyDict_SetItem(values.get(), name.get(), value.get()));
    }
    if (PyErr_Occurred() != nullptr) throw PythonError{};
    return Ref::borrow(values.get());
}

// A str is one name, not a collection of letters.
bool is_collection(PyObject* object) noexcept {
    if (PyUnicode_Check(object) || PyBytes_Check(object)) return false;
    return Py_TYPE(object)->tp_iter != nullptr || PySequence_Check(object);
}

Ref get_values(ProblemObject* p, Role role, PyObject* args) {
    require_initialised(p);
    const Py_ssize_t count = PyTuple_GET_SIZE(args);
    if (count == 0) return all_values(p, role);
    const Ref table = name_table(role);
    if (count > 1) return values_by_name(p, role, table.get(), args);
    PyObject* only = PyTuple_GET_ITEM(args, 0);
    return is_collection(only) ? values_by_name(p, role, table.get(), only)
                               : value_by_name(p, role, table.get(), only);
}

PyObject* get_control(PyObject* self, PyObject* args) noexcept {
    return guarded([&] { return get_values(as_problem(self), Role::control, args); });
}

PyObject* get_attribute(PyObject* self, PyObject* args) noexcept {
    return guarded([&] { return get_values(as_problem(self), Role::attribute, args); });
}

const PyMethodDef kMethods[] = {
    {"setControl", set_control, METH_VARARGS,
     "setControl($self, /, *args)\n--\n\n"
     "setControl(name, value) sets one control, setControl({name: value, ...}) several, in the\n"
     "dictionary's order. Raises InterfaceError for an unknown name (controls before it stay "
     "set),\n"
     "ModelError for a value of the wrong type, SolverError for one out of the control's range."},
    {"getControl", get_control, METH_VARARGS,
     "getControl($self, /, *names)\n--\n\n"
     "getControl(name) returns the value of one control. Several names, or one list, tuple or\n"
     "other iterable of names, give a dict of them, no name a dict of all controls. Raises\n"
     "InterfaceError for an unknown name."},
    {"getAttrib", get_attribute, METH_VARARGS,
     "getAttrib($self, /, *names)\n--\n\n"
     "getAttrib(name) returns the value of one attribute. Several names, or one list, tuple or\n"
     "other iterable of names, give a dict of them, no name a dict of all attributes. Raises\n"
     "InterfaceError for an unknown name."},
};

}  // namespace

std::span<const PyMethodDef> problem_control_methods() { return kMethods; }

}  // namespace nalora
