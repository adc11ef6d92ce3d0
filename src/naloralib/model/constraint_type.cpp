// The type nalora.constraint.
#include "model/common_methods.hpp"
#include "model/constraint_object.hpp"
#include "model/names.hpp"
#include "module/state.hpp"
#include "support/boundary.hpp"
#include "support/nested_release.hpp"

namespace nalora {

namespace {

constexpr const char* kDoc =
    "constraint(constraint=None, body=None, lb=-2e+20, ub=2e+20, sense=0, rhs=-2e+20, name=None)\n"
    "--\n\n"
    "A constraint: a body with a lower and an upper bound. Comparisons such as x + y <= 3 make it\n"
    "too, with the constants moved to the bounds.\n\n"
    "constraint: another constraint, whose body is shared and whose bounds are taken over.\n"
    "body: a variable, term, expression, nonlinear expression or number; of a NumPy array the\n"
    "first element.\n"
    "lb, ub: bounds; values at or beyond 1e20 in magnitude are infinite.\n"
    "sense, rhs: nalora.leq, nalora.geq or nalora.eq, and the right-hand side, in place of lb and\n"
    "ub.\n"
    "name: any object; without one the constraint reads as R and its serial number.\n\n"
    "Raises ModelError for arguments that do not fit together or are missing.\n\n"
    "A constraint has no truth value: bool(c), chained comparisons and tests of membership raise\n"
    "ModelError.";

ConstraintObject* self_of(PyObject* o) noexcept { return as_constraint(o); }

int init(PyObject* self, PyObject* args, PyObject* keywords) noexcept {
    return guarded([&] { constraint_init(self_of(self), args, keywords); });
}

void dealloc(PyObject* self) noexcept {
    constraint_release_tables(self_of(self));
    Py_XDECREF(self_of(self)->body);
    ConstraintObjects::recycle(self);
}

int truth(PyObject*) noexcept {
    return guarded([]() -> int {
        raise(model_error(),
              "A constraint is neither true nor false. The usual causes: a chained comparison "
              "(for a <= x <= b use nalora.constraint(body=x, lb=a, ub=b) or two constraints), "
              "a test of membership (x in list compares with ==; keep variables in a set or dict, "
              "or compare by `is`), or a comparison of NumPy arrays of objects (make "
              "them arrays of variables first, by a.astype(nalora.npvar), or of expressions, by "
              "a.astype(nalora.npexpr))");
    });
}

// ---- attributes -----------------------------------------------------------------------------

PyObject* get_lb(PyObject* self, void*) noexcept {
    return PyFloat_FromDouble(constraint_lower(self_of(self)));
}
PyObject* get_ub(PyObject* self, void*) noexcept {
    return PyFloat_FromDouble(constraint_upper(self_of(self)));
}
PyObject* get_name(PyObject* self, void*) noexcept {
    return guarded([&] { return constraint_name(self_of(self)); });
}
[[noreturn]] void refuse_member() {
    raise(interface_error(), "Incorrect member name of type nalora.constraint");
}
PyObject* get_body(PyObject* self, void*) noexcept {
    return guarded([&] {
        if (self_of(self)->body == nullptr) refuse_member();
        return Ref::borrow(self_of(self)->body);
    });
}
PyObject* get_class(PyObject*, void*) noexcept { return Ref::borrow(&ConstraintType).release(); }
PyObject* get_dict(PyObject*, void*) noexcept {
    return Py_BuildValue("{sOsOsOsOsO}", "lb", Py_None, "ub", Py_None, "name", Py_None, "body",
                         Py_None, "copy", Py_None);
}

PyGetSetDef attributes[] = {
    {"lb", get_lb, nullptr, "Lower bound, a float; -1e+20 for none.", nullptr},
    {"ub", get_ub, nullptr, "Upper bound, a float; 1e+20 for none.", nullptr},
    {"name", get_name, nullptr, "Name; R and the serial number when none was set.", nullptr},
    {"body", get_body, nullptr, "Body, without its constant. Read only.", nullptr},
    {"__class__", get_class, nullptr, "nalora.constraint, also for instances of subclasses.",
     nullptr},
    {"__dict__", get_dict, nullptr, "A new dict with the attributes' names.", nullptr},
    {},
};

int setattro(PyObject* self, PyObject* name, PyObject* value) noexcept {
    return guarded([&] {
        constexpr const char* kType = "nalora.constraint";
        ConstraintObject* c = self_of(self);
        // An object that was never initialised has no serial to keep values by.
        if (constraint_serial(c) == 0) constraint_renew_serial(c);
        if (is_text(name, "lb")) {
            require_value(value, kType, name);
            constraint_set_lower(c, float_value(value));
        } else if (is_text(name, "ub")) {
            require_value(value, kType, name);
            constraint_set_upper(c, float_value(value));
        } else if (is_text(name, "name")) {
            require_value(value, kType, name);
            constraint_set_name(c, value);
        } else {
            refuse_member();
        }
    });
}

// ---- methods --------------------------------------------------------------------------------

PyObject* copy(PyObject* self, PyObject*) noexcept {
    return guarded([&] {
        const ConstraintObject* source = self_of(self);
        if (source->body == nullptr) {
            raise(model_error(), "Invalid constraint: a constraint without body cannot be copied");
        }
        Ref result = new_constraint();
        auto* c = result.as<ConstraintObject>();
        const Ref name = take(PyUnicode_FromFormat(
            "R%llu_copy_%S", static_cast<unsigned long long>(constraint_serial(source)),
            constraint_name(source).get()));
        constraint_set_name(c, name.get());
        constraint_set_lower(c, constraint_lower(source));
        constraint_set_upper(c, constraint_upper(source));
        c->body = scaled_copy(source->body, 1.0).release();
        return result;
    });
}

PyMethodDef methods[] = {
    {"copy", copy, METH_NOARGS,
     "copy($self)\n--\n\nReturn a copy of the constraint as a new object"},
    {"__copy__", copy, METH_NOARGS, "__copy__($self)\n--\n\nThe same as copy()."},
    {"__deepcopy__", copy, METH_O, "__deepcopy__($self, memo, /)\n--\n\nThe same as copy()."},
    NALORA_NO_PICKLING,
    {},
};

PyObject* text(PyObject* self) noexcept {
    return guarded([&] { return name_text(constraint_name(self_of(self))); });
}

PyNumberMethods make_slots() noexcept {
    PyNumberMethods slots{};
    slots.nb_bool = truth;
    return slots;
}
PyNumberMethods slots = make_slots();

PyTypeObject make_type() noexcept {
    PyTypeObject t = {PyVarObject_HEAD_INIT(nullptr, 0)};
    t.tp_name = "nalora.constraint";
    t.tp_doc = kDoc;
    t.tp_basicsize = sizeof(ConstraintObject);
    t.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
    t.tp_alloc = ConstraintObjects::allocate;
    t.tp_init = init;
    t.tp_dealloc = dealloc;
    t.tp_repr = text;
    t.tp_str = text;
    t.tp_as_number = &slots;
    t.tp_setattro = setattro;
    t.tp_getset = attributes;
    t.tp_methods = methods;
    return t;
}

}  // namespace

PyTypeObject ConstraintType = make_type();

}  // namespace nalora
