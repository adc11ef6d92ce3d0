#include "problem/solution.hpp"

#include <memory>
#include <vector>

#include "mirror/convert.hpp"
#include "module/state.hpp"
#include "nonlinear/evaluate.hpp"
#include "problem/walker.hpp"

namespace nalora {

namespace {

using Arguments = std::span<PyObject* const>;

enum class Source { primal, slack, dual, reduced_cost };

// What the getters differ in: their name, whether they run over rows or columns, and what they say
// when there is nothing to read.
struct Getter {
    const char* name;
    Source source;
    Conv kind;
    const char* failure;      // null: the library's own text
    const char* mip_failure;  // null: mixed integer problems have such values
};
constexpr Getter kSolution = {"getSolution", Source::primal, Conv::col, nullptr, nullptr};
constexpr Getter kSlack = {"getSlack", Source::slack, Conv::row, "Could not get constraints' slack",
                           nullptr};
constexpr Getter kDual = {"getDual", Source::dual, Conv::row, "Could not get dual solution",
                          "Cannot retrieve dual variables in a MIP"};
constexpr Getter kReducedCost = {"getRCost", Source::reduced_cost, Conv::col,
                                 "Could not retrieve reduced costs",
                                 "Cannot retrieve reduced cost in a MIP"};

void fill(ProblemObject* p, const Getter& getter, double* values) {
    const bool nonlinear = has_nonlinear_solution(p);
    const bool mixed_integer = !nonlinear && is_mixed_integer(p);
    if (mixed_integer && getter.mip_failure != nullptr) {
        raise(solver_error(), getter.mip_failure);
    }
    double* vector[4] = {};
    vector[static_cast<int>(getter.source)] = values;
    const int status =
        nonlinear       ? NSLPgetslpsol(p->nonlinear, vector[0], vector[1], vector[2], vector[3])
        : mixed_integer ? NLRAgetmipsol(p->prob, vector[0], vector[1])
                        : NLRAgetlpsol(p->prob, vector[0], vector[1], vector[2], vector[3]);
    if (status == 0) return;
    if (getter.failure == nullptr) throw LibraryError{as_object(p)};
    raise(solver_error(), getter.failure);
}

struct Vector {
    std::unique_ptr<double[]> values;
    int64_t count;
};

Vector read(ProblemObject* p, const Getter& getter) {
    const int64_t count =
        getter.kind == Conv::row ? int_attribute(p, NLRA_ORIGINALROWS) : column_count(p);
    // One entry more, so that an empty vector is not taken for one that is not wanted.
    Vector vector{std::unique_ptr<double[]>(new double[count + 1]), count};
    fill(p, getter, vector.values.get());
    return vector;
}

double value_of(ProblemObject* p, const Getter& getter, const Vector& vector, PyObject* object) {
    const int32_t index = conv_obj2index(object, p, getter.kind);
    if (index < 0 || index >= vector.count) {
        raise(interface_error(), "Call to nalora.problem.%s() contains an out-of-range index",
              getter.name);
    }
    return vector.values[index];
}

Ref list_of(const double* values, int64_t count) {
    Ref list = take(PyList_New(count));
    for (int64_t i = 0; i < count; ++i) {
        PyList_SET_ITEM(list.get(), i, take(PyFloat_FromDouble(values[i])).release());
    }
    return list;
}

Ref common_getter(ProblemObject* p, const Getter& getter, Arguments args) {
    const Vector vector = read(p, getter);
    if (args.empty()) return list_of(vector.values.get(), vector.count);
    if (args.size() == 1 && is_leaf(args[0])) {
        return take(PyFloat_FromDouble(value_of(p, getter, vector, args[0])));
    }
    std::vector<double> values;
    for (PyObject* object : args) {
        walk(object, [&](PyObject* leaf) { values.push_back(value_of(p, getter, vector, leaf)); });
    }
    return list_of(values.data(), static_cast<int64_t>(values.size()));
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

int64_t column_count(ProblemObject* p) {
    if (!has_nonlinear_solution(p)) return int_attribute(p, NLRA_ORIGINALCOLS);
    int count = 0;
    check_library(NSLPgetintattrib(p->nonlinear, NSLP_COLS, &count), as_object(p));
    return count;
}

void primal_values(ProblemObject* p, double* values) { fill(p, kSolution, values); }

Ref get_solution(ProblemObject* p, Arguments args, PyObject* names) {
    if (is_true(flatten_argument(args, names)) || args.empty()) {
        return common_getter(p, kSolution, args);
    }
    const Vector vector = read(p, kSolution);
    EvaluationContext context;
    context.problem = p;
    context.values = vector.values.get();
    context.count = vector.count;
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
