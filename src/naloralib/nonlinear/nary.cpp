// The module functions of any number of arguments: max, min, And, Or and user.
#include "library/library.hpp"
#include "model/operands.hpp"
#include "nonlinear/node.hpp"
#include "numpy/element_types.hpp"

namespace nalora {

namespace {

// ---- max, min, And, Or ----------------------------------------------------------------------

struct Function {
    const char* name;
    Op op;
    bool needs_arguments;  // otherwise the value of none is 0
};
constexpr Function kMax = {"max", Op::max, true};
constexpr Function kMin = {"min", Op::min, true};
constexpr Function kAnd = {"And", Op::logical_and, false};
constexpr Function kOr = {"Or", Op::logical_or, false};

// Modeling objects come first: a subclass of theirs may have items of its own.
bool is_sequence(PyObject* o) noexcept {
    return kind_of(o) == Kind::invalid && PySequence_Check(o) != 0;
}

// How many operands an only argument stands for.
Py_ssize_t operand_count(const Function& f, PyObject* argument) {
    if (is_array(argument)) {
        constexpr int kMaxDimensions = 64;
        if (PyArray_NDIM(as_array(argument)) > kMaxDimensions) {
            raise(model_error(),
                  "Array has far too many dimensions to be used in a nonlinear expression");
        }
        return PyArray_SIZE(as_array(argument));
    }
    if (!is_sequence(argument)) return 1;
    const Py_ssize_t size = PySequence_Size(argument);
    if (size < 0) raise_chained(model_error(), "Incorrect argument for nalora.%s function", f.name);
    return size;
}

Ref first_element(PyObject* argument) {
    if (is_array(argument)) {
        PyArrayObject* array = as_array(argument);
        if (holds_objects(PyArray_TYPE(array))) {
            return Ref::borrow(element_object(PyArray_BYTES(array)));
        }
        return take(PyArray_GETITEM(array, PyArray_BYTES(array)));
    }
    if (is_sequence(argument)) return take(PySequence_GetItem(argument, 0));
    return Ref::borrow(argument);
}

// NumPy's scalars as Python's numbers.
Ref without_numpy(Ref element) {
    PyObject* o = element.get();
    if (PyArray_IsScalar(o, Integer) || PyArray_IsScalar(o, Bool)) return take(PyNumber_Long(o));
    if (PyArray_IsScalar(o, Floating)) return take(PyNumber_Float(o));
    return element;
}

// The extremum or conjunction of one operand is that operand.
Ref only_operand(const Function& f, PyObject* argument) {
    Ref operand = without_numpy(first_element(argument));
    if (kind_of(operand.get()) == Kind::invalid) {
        raise(model_error(), "Incorrect argument for nalora.%s function", f.name);
    }
    return operand;
}

std::span<PyObject* const> items(PyObject* tuple) noexcept {
    return {&PyTuple_GET_ITEM(tuple, 0), static_cast<std::size_t>(PyTuple_GET_SIZE(tuple))};
}

Ref combine(const Function& f, PyObject* args) {
    Py_ssize_t count = PyTuple_GET_SIZE(args);
    if (count == 1) count = operand_count(f, PyTuple_GET_ITEM(args, 0));
    if (count == 1) return only_operand(f, PyTuple_GET_ITEM(args, 0));
    if (count > 1) return make_nary(f.op, items(args));
    if (!f.needs_arguments) return make_float(0.0);
    raise(model_error(), "The function nalora.%s must have at least one argument", f.name);
}

template <const Function& F>
PyObject* call(PyObject*, PyObject* args) noexcept {
    return guarded([=] { return combine(F, args); });
}

#define NALORA_OPERANDS                                                                          \
    "operands: modeling objects and numbers. A collection (list, tuple, array) stands for its\n" \
    "operand only if it holds exactly one; pass several as separate arguments.\n\n"

// ---- user -----------------------------------------------------------------------------------

bool wants_derivatives(PyObject* keywords) {
    bool derivatives = false;
    if (keywords == nullptr) return derivatives;
    PyObject *key, *value;
    for (Py_ssize_t position = 0; PyDict_Next(keywords, &position, &key, &value) != 0;) {
        if (PyUnicode_CompareWithASCIIString(key, "derivatives") != 0) {
            raise(PyExc_TypeError, "'%U' is an invalid keyword argument for user()", key);
        }
        const int truth = PyObject_IsTrue(value);
        check_python(truth);
        derivatives = truth != 0;
    }
    return derivatives;
}

PyObject* user(PyObject*, PyObject* args, PyObject* keywords) noexcept {
    return guarded([=] {
        const bool derivatives = wants_derivatives(keywords);
        if (PyTuple_GET_SIZE(args) == 0) {
            raise(model_error(),
                  "Invalid user function, must specify at least one argument (the user function "
                  "itself)");
        }
        PyObject* function = PyTuple_GET_ITEM(args, 0);
        if (kind_of(function) != Kind::invalid && PyCallable_Check(function) == 0) {
            raise(model_error(), "First argument of a user() operator must be the function itself");
        }
        return make_nary(derivatives ? Op::user_with_derivatives : Op::user, items(args));
    });
}

// ---- the module's functions -----------------------------------------------------------------

const PyMethodDef kFunctions[] = {
    {"max", call<kMax>, METH_VARARGS,
     "max(*operands)\n--\n\n"
     "The largest of the operands, as a nonlinear expression; an only operand is returned itself.\n"
     "\n" NALORA_OPERANDS "Raises ModelError without operands and for anything else among them."},
    {"min", call<kMin>, METH_VARARGS,
     "min(*operands)\n--\n\n"
     "The smallest of the operands, as a nonlinear expression; an only operand is returned\n"
     "itself.\n\n" NALORA_OPERANDS
     "Raises ModelError without operands and for anything else among them."},
    {"user", keyword_function(user), METH_VARARGS | METH_KEYWORDS,
     "user(*arguments, derivatives=False)\n--\n\n"
     "An expression whose value a Python function computes.\n\n"
     "arguments: the function f, then its arguments: modeling objects and numbers. f is called as\n"
     "f(t1, ..., tn) with the arguments' values as floats, from within the solve or evaluate().\n"
     "derivatives: whether f returns the tuple (value, df/dt1, ..., df/dtn) of floats; otherwise\n"
     "it returns the value as a float.\n\n"
     "Raises ModelError when the first argument is not callable or another one is neither a\n"
     "modeling object nor a number. What f raises is passed on to the caller of solve or\n"
     "evaluate()."},
};

const PyMethodDef kLogicFunctions[] = {
    {"And", call<kAnd>, METH_VARARGS,
     "And(*operands)\n--\n\n"
     "Conjunction of binary expressions: 1 where all of them are 1, else 0. An only operand is\n"
     "returned itself; the conjunction of none is 0.0.\n\n" NALORA_OPERANDS
     "Raises ModelError for anything else among the operands."},
    {"Or", call<kOr>, METH_VARARGS,
     "Or(*operands)\n--\n\n"
     "Disjunction of binary expressions: 1 where at least one of them is 1, else 0. An only\n"
     "operand is returned itself; the disjunction of none is 0.0.\n\n" NALORA_OPERANDS
     "Raises ModelError for anything else among the operands."},
};

#undef NALORA_OPERANDS

}  // namespace

std::span<const PyMethodDef> nary_functions() { return kFunctions; }
std::span<const PyMethodDef> logic_functions() { return kLogicFunctions; }

}  // namespace nalora
