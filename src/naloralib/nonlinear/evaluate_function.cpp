// nalora.evaluate().
#include <optional>

#include "mirror/convert.hpp"
#include "module/parts.hpp"
#include "module/state.hpp"
#include "nonlinear/evaluate.hpp"
#include "problem/solution_values.hpp"
#include "problem/walker.hpp"
#include "support/buffer.hpp"
#include "support/numpy.hpp"

namespace nalora {

namespace {

constexpr const char* kDoc =
    "evaluate(*expressions, problem=None, solution=None)\n--\n\n"
    "Values of expressions for given values of the variables.\n\n"
    "expressions: variables, terms, expressions, numbers, tuples, lists and dicts of them, or\n"
    "NumPy arrays of one of the module's element types.\n"
    "problem: the problem whose current solution gives the values.\n"
    "solution: a dict from variable to value; or, with problem, a list or a one-dimensional NumPy\n"
    "array of values by column.\n\n"
    "Returns a float for one expression, a tuple for several; collections give collections of\n"
    "the same shape, arrays arrays of floats.\n\n"
    "Raises InterfaceError without problem and solution and for arrays of other types, ModelError\n"
    "for a variable that has no value and for what has none (a constraint, an element that was\n"
    "never set), ZeroDivisionError for a fraction with divisor 0, and RuntimeError for nestings of "
    "more\n"
    "than 64 levels.";

struct Keywords {
    PyObject* problem = nullptr;  // borrowed; null when absent or None
    PyObject* solution = nullptr;
};

Keywords read_keywords(PyObject* keywords) {
    Keywords result;
    if (keywords == nullptr) return result;
    PyObject *key, *value;
    for (Py_ssize_t position = 0; PyDict_Next(keywords, &position, &key, &value) != 0;) {
        PyObject* given = value != Py_None ? value : nullptr;
        if (PyUnicode_CompareWithASCIIString(key, "problem") == 0) {
            result.problem = given;
        } else if (PyUnicode_CompareWithASCIIString(key, "solution") == 0) {
            result.solution = given;
        } else {
            raise(PyExc_TypeError, "'%U' is an invalid keyword argument for evaluate()", key);
        }
    }
    return result;
}

// What the values of a context live in.
struct Point {
    Array given;
    std::optional<PointValues> values;
};

// Checks the keywords and fills the context.
void prepare(const Keywords& given, EvaluationContext& context, Point& point) {
    if (given.problem != nullptr) {
        if (!is_problem(given.problem)) {
            raise(interface_error(), "Argument \"problem\" must be an nalora.problem object");
        }
        context.problem = as_problem(given.problem);
        require_initialised(context.problem);
    } else if (given.solution == nullptr) {
        raise(interface_error(),
              "nalora.evaluate() requires at least of the two arguments \"solution\" and "
              "\"problem\".\nSee the documentation of nalora.evaluate for details.");
    }
    if (given.solution == nullptr) {
        context.values = &point.values.emplace(context.problem, SolutionKind::primal);
        return;
    }
    if (PyDict_Check(given.solution)) {
        context.dictionary = given.solution;
        return;
    }
    if (!PyList_Check(given.solution) && !PyArray_Check(given.solution)) {
        raise(interface_error(),
              "Argument \"solution\" must be a dictionary, a list, or a one-dimensional NumPy "
              "array.\nSee the documentation for nalora.evaluate");
    }
    if (context.problem == nullptr) {
        raise(interface_error(),
              "Argument \"problem\" is necessary when passing a list or NumPy array of variable "
              "values");
    }
    int64_t count = int_attribute(context.problem, NLRA_ORIGINALCOLS);
    point.given = conv_obj2arr(context.problem, &count, given.solution, Conv::real);
    if (!point.given.exists()) raise(model_error(), "Invalid sequence of values");
    context.values = &point.values.emplace(point.given.data<double>(), count);
}

PyObject* evaluate(PyObject*, PyObject* args, PyObject* keywords) noexcept {
    return guarded([&] {
        EvaluationContext context;
        Point point;
        prepare(read_keywords(keywords), context, point);
        const std::span objects(PySequence_Fast_ITEMS(args), PyTuple_GET_SIZE(args));
        if (context.values != nullptr && !is_plain_structure(objects)) context.values->all();
        if (PyTuple_GET_SIZE(args) == 1) {
            return evaluate_structured(PyTuple_GET_ITEM(args, 0), context, kEvaluationDepth);
        }
        Ref result = take(PyTuple_New(PyTuple_GET_SIZE(args)));
        for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(args); ++i) {
            Ref value = evaluate_structured(PyTuple_GET_ITEM(args, i), context, kEvaluationDepth);
            PyTuple_SET_ITEM(result.get(), i, value.release());
        }
        return result;
    });
}

const PyMethodDef kFunctions[] = {
    {"evaluate", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(evaluate)),
     METH_VARARGS | METH_KEYWORDS, kDoc},
};

}  // namespace

std::span<const PyMethodDef> evaluation_functions() { return kFunctions; }

}  // namespace nalora
