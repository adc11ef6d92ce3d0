#include "problem/solution.hpp"

#include <vector>

#include "mirror/convert.hpp"
#include "module/state.hpp"
#include "nonlinear/evaluate.hpp"
#include "problem/solution_values.hpp"
#include "problem/walker.hpp"

namespace nalora {

namespace {

using Arguments = std::span<PyObject* const>;

// What the getters differ in.
struct Getter {
    const char* name;
    SolutionKind values;
    Conv kind;
};
constexpr Getter kSolution = {"getSolution", SolutionKind::primal, Conv::col};
constexpr Getter kSlack = {"getSlack", SolutionKind::slack, Conv::row};
constexpr Getter kDual = {"getDual", SolutionKind::dual, Conv::row};
constexpr Getter kReducedCost = {"getRCost", SolutionKind::reduced_cost, Conv::col};

double value_of(ProblemObject* p, const Getter& getter, PointValues& values, PyObject* object) {
    const int32_t index = conv_obj2index(object, p, getter.kind);
    if (index < 0 || index >= values.count()) {
        raise(interface_error(), "Call to nalora.problem.%s() contains an out-of-range index",
              getter.name);
    }
    return values[index];
}

Ref list_of(const double* values, int64_t count) {
    Ref list = take(PyList_New(count));
    for (int64_t i = 0; i < count; ++i) {
        PyList_SET_ITEM(list.get(), i, take(PyFloat_FromDouble(values[i])).release());
    }
    return list;
}

Ref common_getter(ProblemObject* p, const Getter& getter, Arguments args) {
    PointValues values(p, getter.values);
    if (args.empty()) return list_of(values.all(), values.count());
    if (args.size() == 1 && is_leaf(args[0])) {
        return take(PyFloat_FromDouble(value_of(p, getter, values, args[0])));
    }
    if (!is_plain_structure(args)) values.all();
    std::vector<double> wanted;
    for (PyObject* object : args) {
        walk(object, [&](PyObject* leaf) { wanted.push_back(value_of(p, getter, values, leaf)); });
    }
    return list_of(wanted.data(), static_cast<int64_t>(wanted.size()));
}

bool is_true(PyObject* value) {
    if (value == nullptr || value == Py_False || value == Py_True) return value == Py_True;
    const int equal = PyObject_RichCompareBool(value, Py_True, Py_EQ);
    check_python(equal);
    return equal != 0;
}

// The value of the only keyword, `flatten`.
PyObject* flatten_argument(Arguments args, PyObject* names) {
    const Py_ssize_t count = names != nullptr ? PyTuple_GET_SIZE(names) : 0;
    PyObject* flatten = nullptr;
    for (Py_ssize_t i = 0; i < count; ++i) {
        PyObject* name = PyTuple_GET_ITEM(names, i);
        if (PyUnicode_CompareWithASCIIString(name, "flatten") != 0) {
            raise(PyExc_TypeError, "getSolution() got an unexpected keyword argument '%U'", name);
        }
        flatten = args.data()[args.size() + i];
    }
    return flatten;
}

}  // namespace

Ref get_solution(ProblemObject* p, Arguments args, PyObject* names) {
    if (is_true(flatten_argument(args, names)) || args.empty()) {
        return common_getter(p, kSolution, args);
    }
    PointValues values(p, SolutionKind::primal);
    if (!is_plain_structure(args)) values.all();
    EvaluationContext context;
    context.problem = p;
    context.values = &values;
    context.from_getsolution = true;
    if (args.size() == 1) return evaluate_structured(args[0], context, kEvaluationDepth);
    Ref results = take(PyTuple_New(static_cast<Py_ssize_t>(args.size())));
    for (std::size_t i = 0; i < args.size(); ++i) {
        PyTuple_SET_ITEM(results.get(), static_cast<Py_ssize_t>(i),
                         evaluate_structured(args[i], context, kEvaluationDepth).release());
    }
    return results;
}

Ref get_dual(ProblemObject* p, Arguments args) { return common_getter(p, kDual, args); }
Ref get_slack(ProblemObject* p, Arguments args) { return common_getter(p, kSlack, args); }
Ref get_reduced_cost(ProblemObject* p, Arguments args) {
    return common_getter(p, kReducedCost, args);
}

}  // namespace nalora
