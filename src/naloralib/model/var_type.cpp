// The type nalora.var.
#include "model/common_methods.hpp"
#include "model/names.hpp"
#include "model/operators.hpp"
#include "model/var_object.hpp"
#include "module/state.hpp"
#include "numpy/loops.hpp"
#include "support/boundary.hpp"

namespace nalora {

namespace {

constexpr const char* kDoc =
    "var(name=None, lb=0.0, ub=1e+20, threshold=-1e+20, vartype=continuous)\n--\n\n"
    "A decision variable.\n\n"
    "name: a str or bytes; without one the variable reads as C and its serial number.\n"
    "lb, ub: bounds; values at or beyond 1e20 in magnitude are infinite.\n"
    "threshold: of semi-continuous, semi-integer and partially integer variables.\n"
    "vartype: continuous, binary, integer, semicontinuous, semiinteger or partiallyinteger; the\n"
    "bounds of a binary variable are cut to 0 and 1.\n\n"
    "Raises ModelError for lb > ub + 1e-6 and for a name that is neither str nor bytes.\n\n"
    "Arithmetic gives linear terms, quadratic terms, expressions or nonlinear expressions, and "
    "the\n"
    "comparisons <=, == and >= give constraints; no operator changes a variable. Variables are\n"
    "hashable by serial number, which makes them keys of dictionaries and members of sets. As ==\n"
    "does not compare, only the very same object finds an entry. Do not mix variables with keys "
    "of\n"
    "other types: where two keys have the same hash (that of an int is its value) the dictionary\n"
    "asks whether they are equal, which makes a constraint and raises ModelError.";

// ---- construction ---------------------------------------------------------------------------

struct Arguments : VarSettings {
    PyObject* name = nullptr;
};

void initialise(VarObject* v, const Arguments& a) {
    require_feasible(a, "Variable has empty feasible set: lower bound > upper bound");
    if (a.name != nullptr && !PyUnicode_Check(a.name) && !PyBytes_Check(a.name)) {
        raise(model_error(), "Invalid variable name (must be a string)");
    }
    var_apply(v, a);
    if (a.name != nullptr) var_set_name(v, a.name);
}

// Arguments in the types that they mostly have, read without the interpreter's parser. Whatever
// else comes, errors included, is left to the parser: the functions then return false.
class PlainArguments {
  public:
    explicit PlainArguments(Arguments& arguments) noexcept : arguments_(arguments) {}

    bool read_positional(PyObject* const* values, Py_ssize_t count) {
        if (count > kCount) return false;
        for (; positional_ < count; ++positional_) {
            if (!read(positional_, values[positional_])) return false;
        }
        return true;
    }
    bool read_keyword(PyObject* name, PyObject* value) {
        const int index = index_of(name);
        return index >= positional_ && read(index, value);
    }

  private:
    static constexpr int kCount = 5;

    // -1 for a keyword that is not the interned object of the name, as it is in code.
    static int index_of(PyObject* keyword) {
        static PyObject* const names[kCount] = {
            PyUnicode_InternFromString("name"), PyUnicode_InternFromString("lb"),
            PyUnicode_InternFromString("ub"), PyUnicode_InternFromString("threshold"),
            PyUnicode_InternFromString("vartype")};
        for (int i = 0; i < kCount; ++i) {
            if (keyword == names[i]) return i;
        }
        PyErr_Clear();  // an allocation of the names may have failed
        return -1;
    }

    bool read(int index, PyObject* value) {
        switch (index) {
            case 0:
                arguments_.name = value;
                return true;
            case 1:
                return read_double(value, arguments_.lower);
            case 2:
                return read_double(value, arguments_.upper);
            case 3:
                return read_double(value, arguments_.threshold);
            default:
                if (!PyLong_CheckExact(value)) return false;
                arguments_.type = PyLong_AsLong(value);
                return no_error(arguments_.type == -1);
        }
    }

    static bool read_double(PyObject* value, double& result) {
        if (PyFloat_CheckExact(value)) {
            result = PyFloat_AS_DOUBLE(value);
            return true;
        }
        if (!PyLong_CheckExact(value)) return false;
        result = PyLong_AsDouble(value);
        return no_error(result == -1.0);
    }

    static bool no_error(bool suspected) {
        if (!suspected || PyErr_Occurred() == nullptr) return true;
        PyErr_Clear();  // the parser meets it again
        return false;
    }

    Arguments& arguments_;
    int positional_ = 0;
};

bool read_plain(PyObject* args, PyObject* keywords, Arguments& a) {
    PlainArguments plain(a);
    if (!plain.read_positional(PySequence_Fast_ITEMS(args), PyTuple_GET_SIZE(args))) return false;
    if (keywords == nullptr) return true;
    PyObject *name, *value;
    for (Py_ssize_t position = 0; PyDict_Next(keywords, &position, &name, &value) != 0;) {
        if (!plain.read_keyword(name, value)) return false;
    }
    return true;
}

int init(PyObject* self, PyObject* args, PyObject* keywords) noexcept {
    return guarded([&] {
        var_renew_serial(as_var(self));
        Arguments a;
        if (!read_plain(args, keywords, a)) {
            a = Arguments();
            static const char* const names[] = {"name",      "lb",      "ub",
                                                "threshold", "vartype", nullptr};
            if (!PyArg_ParseTupleAndKeywords(args, keywords, "|Odddl", const_cast<char**>(names),
                                             &a.name, &a.lower, &a.upper, &a.threshold, &a.type)) {
                throw PythonError();
            }
        }
        initialise(as_var(self), a);
    });
}

// nalora.var(...) by the general way: tp_new, tp_init.
Ref call_type(PyObject* type, PyObject* const* args, Py_ssize_t count, PyObject* keywords) {
    const Ref positional = take(PyTuple_New(count));
    for (Py_ssize_t i = 0; i < count; ++i) {
        PyTuple_SET_ITEM(positional.get(), i, Ref::borrow(args[i]).release());
    }
    Ref named;
    if (keywords != nullptr) {
        named = take(PyDict_New());
        for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(keywords); ++i) {
            check_python(
                PyDict_SetItem(named.get(), PyTuple_GET_ITEM(keywords, i), args[count + i]));
        }
    }
    return take(PyType_Type.tp_call(type, positional.get(), named.get()));
}

// Used by interpreters that call types without a tuple of arguments (3.9 and later).
PyObject* vectorcall(PyObject* type, PyObject* const* args, std::size_t flags,
                     PyObject* keywords) noexcept {
    return guarded([&] {
        const Py_ssize_t count = PyVectorcall_NARGS(flags);
        Arguments a;
        PlainArguments plain(a);
        bool readable =
            type == reinterpret_cast<PyObject*>(&VarType) && plain.read_positional(args, count);
        const Py_ssize_t named = keywords != nullptr ? PyTuple_GET_SIZE(keywords) : 0;
        for (Py_ssize_t i = 0; readable && i < named; ++i) {
            readable = plain.read_keyword(PyTuple_GET_ITEM(keywords, i), args[count + i]);
        }
        if (!readable) return call_type(type, args, count, keywords);
        Ref object = new_var();
        initialise(object.as<VarObject>(), a);
        return object;
    });
}

void dealloc(PyObject* self) noexcept {
    var_release_tables(as_var(self));
    VarObjects::recycle(self);
}

// ---- attributes -----------------------------------------------------------------------------

PyObject* get_lb(PyObject* self, void*) noexcept {
    return PyFloat_FromDouble(var_lower(as_var(self)));
}
PyObject* get_ub(PyObject* self, void*) noexcept {
    return PyFloat_FromDouble(var_upper(as_var(self)));
}
PyObject* get_threshold(PyObject* self, void*) noexcept {
    return PyFloat_FromDouble(var_threshold(as_var(self)));
}
PyObject* get_vartype(PyObject* self, void*) noexcept {
    return PyLong_FromLong(var_type(as_var(self)));
}
PyObject* get_name(PyObject* self, void*) noexcept {
    return guarded([&] { return var_name(as_var(self)); });
}
PyObject* get_class(PyObject*, void*) noexcept { return Ref::borrow(&VarType).release(); }
PyObject* get_dict(PyObject*, void*) noexcept {
    return Py_BuildValue("{sOsOsOsOsO}", "lb", Py_None, "ub", Py_None, "threshold", Py_None,
                         "vartype", Py_None, "name", Py_None);
}

PyGetSetDef attributes[] = {
    {"lb", get_lb, nullptr, "Lower bound, a float; -1e+20 for none.", nullptr},
    {"ub", get_ub, nullptr, "Upper bound, a float; 1e+20 for none.", nullptr},
    {"threshold", get_threshold, nullptr, "Threshold, a float; -1e+20 for none.", nullptr},
    {"vartype", get_vartype, nullptr, "Type, one of the constants such as nalora.integer.",
     nullptr},
    {"name", get_name, nullptr, "Name; C and the serial number when none was set.", nullptr},
    {"__class__", get_class, nullptr, "nalora.var, also for instances of subclasses.", nullptr},
    {"__dict__", get_dict, nullptr, "A new dict with the attributes' names.", nullptr},
    {},
};

int setattro(PyObject* self, PyObject* name, PyObject* value) noexcept {
    return guarded([&] {
        constexpr const char* kType = "nalora.var";
        VarObject* v = as_var(self);
        // An object that was never initialised has no serial to keep values by.
        if (var_serial(v) == 0) var_renew_serial(v);
        if (is_text(name, "lb")) {
            require_value(value, kType, name);
            var_set_lower(v, float_value(value));
        } else if (is_text(name, "ub")) {
            require_value(value, kType, name);
            var_set_upper(v, float_value(value));
        } else if (is_text(name, "threshold")) {
            require_value(value, kType, name);
            var_set_threshold(v, float_value(value));
        } else if (is_text(name, "vartype")) {
            require_value(value, kType, name);
            var_set_type(v, static_cast<int>(integer_bits(value) & 7));
        } else if (is_text(name, "name")) {
            require_value(value, kType, name);
            var_set_name(v, value);
        } else {
            raise(interface_error(), "Incorrect member name of type nalora.var");
        }
    });
}

// ---- methods --------------------------------------------------------------------------------

PyObject* extract_linear(PyObject* self, PyObject*) noexcept {
    return Py_BuildValue("[O][d]", self, 1.0);
}
PyObject* extract_quadratic(PyObject*, PyObject*) noexcept { return Py_BuildValue("[][][]"); }

PyMethodDef methods[] = {
    {"extractLinear", extract_linear, METH_NOARGS,
     "extractLinear($self)\n--\n\nThe linear terms: ([variables], [coefficients])."},
    {"extractQuadratic", extract_quadratic, METH_NOARGS,
     "extractQuadratic($self)\n--\n\n"
     "The quadratic terms: ([first variables], [second variables], [coefficients])."},
    NALORA_VALUE_METHODS,
    NALORA_NO_PICKLING,
    NALORA_ARRAY_UFUNC,
    {},
};

PyObject* text(PyObject* self) noexcept {
    return guarded([&] { return name_text(var_name(as_var(self))); });
}

Py_hash_t hash(PyObject* self) noexcept {
    return static_cast<Py_hash_t>(var_serial(as_var(self)) & 0xFFFFFFFFu);
}

PyTypeObject make_type() noexcept {
    PyTypeObject t = {PyVarObject_HEAD_INIT(nullptr, 0)};
    t.tp_name = "nalora.var";
    t.tp_doc = kDoc;
    t.tp_basicsize = sizeof(VarObject);
    t.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
    t.tp_alloc = VarObjects::allocate;
    t.tp_init = init;
    t.tp_vectorcall = vectorcall;
    t.tp_dealloc = dealloc;
    t.tp_repr = text;
    t.tp_str = text;
    t.tp_hash = hash;
    t.tp_richcompare = compare_slot;
    t.tp_as_number = &operator_slots;
    t.tp_setattro = setattro;
    t.tp_getset = attributes;
    t.tp_methods = methods;
    return t;
}

}  // namespace

PyTypeObject VarType = make_type();

}  // namespace nalora
