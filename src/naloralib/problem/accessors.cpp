// The accessor types: p.controls, p.attributes, and the module's controls.
#include "module/state.hpp"
#include "problem/controls.hpp"
#include "support/no_arguments.hpp"

namespace nalora {

namespace {

constexpr const char* kUnknown[] = {"Incorrect control name", "Incorrect attribute name"};
constexpr const char* kBadRequest[] = {"Bad control request", "Bad attribute request"};

Role role_of(PyObject* self) noexcept {
    return PyObject_TypeCheck(self, &AttributeType) ? Role::attribute : Role::control;
}

const char* text(const char* const (&texts)[2], Role role) noexcept {
    return texts[role == Role::control ? 0 : 1];
}

// Null for the module-wide defaults; raises when the problem is gone.
ProblemObject* problem_of(PyObject* self) {
    const AccessorLink* link = as_accessor(self)->link;
    if (link == nullptr) {
        if (role_of(self) == Role::control) return nullptr;
        raise(interface_error(), "These attributes belong to no problem");
    }
    if (link->problem == nullptr) {
        raise(interface_error(), "The problem of these %s no longer exists",
              role_of(self) == Role::control ? "controls" : "attributes");
    }
    return link->problem;
}

Ref checked_name(PyObject* self, PyObject* name) {
    Ref exact = exact_name(name);
    if (!exact) raise(model_error(), text(kBadRequest, role_of(self)));
    return exact;
}

// Names that Python's own protocols look up; no control begins with two underscores.
bool is_special(PyObject* exact) noexcept {
    return PyUnicode_GET_LENGTH(exact) > 2 && PyUnicode_READ_CHAR(exact, 0) == '_' &&
           PyUnicode_READ_CHAR(exact, 1) == '_';
}

Ref dictionary_copy(PyObject* self) {
    PyObject* own = as_accessor(self)->dictionary;
    return take(own != nullptr ? PyDict_Copy(own) : PyDict_New());
}

// The value that a new problem would start with.
Ref default_value(PyObject* self, PyObject* exact) {
    Ref value = recorded_default(exact);
    if (value) return value;
    PyObject* own = as_accessor(self)->dictionary;
    value = Ref::borrow(own != nullptr ? PyDict_GetItemWithError(own, exact) : nullptr);
    if (!value) raise(interface_error(), text(kUnknown, Role::control));
    return value;
}

Descriptor descriptor_of(PyObject* self, PyObject* exact) {
    const Role role = role_of(self);
    const Ref table = name_table(role);
    Descriptor d;
    if (!find_descriptor(table.get(), exact, d)) raise(interface_error(), text(kUnknown, role));
    return d;
}

// Every name but those of Python's protocols is a control or an attribute, so hasattr() and the
// like see InterfaceError instead of AttributeError for unknown ones.
PyObject* accessor_getattro(PyObject* self, PyObject* name) noexcept {
    return guarded([&] {
        const Ref exact = checked_name(self, name);
        if (is_special(exact.get())) {
            if (PyUnicode_CompareWithASCIIString(exact.get(), "__dict__") == 0) {
                return dictionary_copy(self);
            }
            return take(PyObject_GenericGetAttr(self, exact.get()));
        }
        ProblemObject* p = problem_of(self);
        if (p == nullptr) return default_value(self, exact.get());
        const Descriptor d = descriptor_of(self, exact.get());
        return problem_value(p, role_of(self), d);
    });
}

int accessor_setattro(PyObject* self, PyObject* name, PyObject* value) noexcept {
    return guarded([&] {
        const Ref exact = checked_name(self, name);
        if (role_of(self) == Role::attribute) {
            raise(model_error(), "A problem's attribute cannot be set");
        }
        if (value == nullptr) raise(model_error(), "A control cannot be deleted");
        ProblemObject* p = problem_of(self);
        const Descriptor d = descriptor_of(self, exact.get());
        if (p != nullptr) {
            set_problem_control(p, d, value);
        } else {
            try_control(d, value);
            record_default(exact.get(), value);
        }
    });
}

Ref present_values(PyObject* self) {
    ProblemObject* p = problem_of(self);
    return p != nullptr ? all_values(p, role_of(self)) : all_defaults();
}

PyObject* accessor_str(PyObject* self) noexcept {
    return guarded([&] { return take(PyObject_Str(present_values(self).get())); });
}

// Shown by debuggers and the interactive prompt: must not fail for an accessor that lost its
// problem.
PyObject* accessor_repr(PyObject* self) noexcept {
    return guarded([&] {
        const AccessorLink* link = as_accessor(self)->link;
        if (link != nullptr && link->problem != nullptr) return take(PyObject_Str(self));
        if (link == nullptr && role_of(self) == Role::control) return take(PyObject_Str(self));
        return take(PyUnicode_FromFormat("<%s without a problem>", Py_TYPE(self)->tp_name));
    });
}

PyObject* accessor_dir(PyObject* self, PyObject*) noexcept {
    return guarded([&] { return take(PyDict_Keys(name_table(role_of(self)).get())); });
}

// Shares the link, and so loses the problem together with the original.
PyObject* accessor_copy(PyObject* self, PyObject*) noexcept {
    return guarded([&] {
        Ref copy = take(Py_TYPE(self)->tp_alloc(Py_TYPE(self), 0));
        AccessorObject* a = copy.as<AccessorObject>();
        a->dictionary = dictionary_copy(self).release();
        a->link = as_accessor(self)->link;
        if (a->link != nullptr) ++a->link->users;
        return copy;
    });
}

PyObject* accessor_reduce(PyObject* self, PyObject*) noexcept {
    return guarded([&]() -> Ref {
        raise(PyExc_TypeError, "cannot pickle '%s' object: it belongs to a problem",
              Py_TYPE(self)->tp_name);
    });
}

void drop_link(AccessorLink* link) noexcept {
    if (link != nullptr && --link->users == 0) delete link;
}

void accessor_dealloc(PyObject* self) noexcept {
    AccessorObject* a = as_accessor(self);
    drop_link(std::exchange(a->link, nullptr));
    assign_field(a->dictionary, Ref());
    Py_TYPE(self)->tp_free(self);
}

PyMethodDef accessor_methods[] = {
    {"__dir__", accessor_dir, METH_NOARGS, "__dir__($self)\n--\n\nThe names, for completion."},
    {"__copy__", accessor_copy, METH_NOARGS,
     "__copy__($self)\n--\n\nAn accessor of the same problem."},
    {"__deepcopy__", accessor_copy, METH_O,
     "__deepcopy__($self, memo)\n--\n\nAn accessor of the same problem."},
    {"__reduce_ex__", accessor_reduce, METH_O,
     "__reduce_ex__($self, protocol)\n--\n\nRefused with TypeError."},
    {"__reduce__", accessor_reduce, METH_NOARGS,
     "__reduce__($self)\n--\n\nRefused with TypeError."},
    {},
};

PyTypeObject accessor_type(const char* name, const char* doc) {
    PyTypeObject type = {PyVarObject_HEAD_INIT(nullptr, 0)};
    type.tp_name = name;
    type.tp_doc = doc;
    type.tp_basicsize = sizeof(AccessorObject);
    type.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
    type.tp_init = init_without_arguments;
    type.tp_dealloc = accessor_dealloc;
    type.tp_str = accessor_str;
    type.tp_repr = accessor_repr;
    type.tp_getattro = accessor_getattro;
    type.tp_setattro = accessor_setattro;
    type.tp_methods = accessor_methods;
    return type;
}

Ref new_accessor(PyTypeObject* type, ProblemObject* p, Ref dictionary) {
    Ref object = take(type->tp_alloc(type, 0));
    AccessorObject* a = object.as<AccessorObject>();
    a->dictionary = dictionary.release();
    if (p != nullptr) a->link = new AccessorLink{p, 1};
    return object;
}

void cut_link(PyObject* accessor) noexcept {
    if (accessor != nullptr && as_accessor(accessor)->link != nullptr) {
        as_accessor(accessor)->link->problem = nullptr;
    }
}

}  // namespace

PyTypeObject ControlType = accessor_type(
    "nalora.control",
    "The controls of a problem as attributes: reading one gives its present value, assigning sets\n"
    "it. The module's own `controls` holds the defaults that every later problem starts with.\n"
    "Unknown names raise InterfaceError, values of a wrong type ModelError, values out of range\n"
    "SolverError.");

PyTypeObject AttributeType = accessor_type(
    "nalora.attribute",
    "The attributes of a problem, read-only: sizes, statuses, objective values and the like.\n"
    "Unknown names raise InterfaceError, assignments ModelError.");

Ref new_control_accessor(ProblemObject* p) {
    return new_accessor(&ControlType, p,
                        p != nullptr ? name_table(Role::control) : take(PyDict_New()));
}

Ref new_attribute_accessor(ProblemObject* p) {
    return new_accessor(&AttributeType, p, name_table(Role::attribute));
}

void detach_accessors(ProblemObject* p) noexcept {
    cut_link(p->controls);
    cut_link(p->attributes);
}

}  // namespace nalora
