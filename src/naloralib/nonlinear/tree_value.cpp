#include "nonlinear/tree_value.hpp"

#include <cmath>
#include <unordered_map>

#include "model/operands.hpp"
#include "problem/solution_values.hpp"

namespace nalora {

// Values of the subtrees that occur at several places, remembered after many visits: before, it
// would cost more than it saves.
struct TreeMemory {
    struct Known {
        double value;
        int depth;  // the budget that sufficed
    };
    static constexpr unsigned kForgotten = 1U << 14;  // visits that leave no trace

    unsigned visits = 0;
    std::unordered_map<PyObject*, Known> values;
};

namespace {

// The arguments of one node and how to evaluate them. Arguments are looked up anew each time, as
// the evaluation of one may run Python code.
class Arguments {
  public:
    Arguments(const NonlinearObject* node, const EvaluationContext& context, int depth) noexcept
        : node_(node), context_(context), depth_(depth) {}

    uint32_t count() const noexcept { return argument_count(node_); }
    PyObject* object(uint32_t index) const noexcept { return argument(node_, index); }
    double value(uint32_t index) const {
        PyObject* o = object(index);
        TreeMemory& memory = *context_.memory;
        if (memory.visits < TreeMemory::kForgotten || !may_occur_elsewhere(o)) [[likely]]
            return evaluate_object(o, context_, depth_);
        const auto found = memory.values.find(o);
        if (found != memory.values.end() && found->second.depth <= depth_) {
            return found->second.value;
        }
        const double result = evaluate_object(o, context_, depth_);
        memory.values.insert_or_assign(o, TreeMemory::Known{result, depth_});
        return result;
    }
    // The values of the point, whatever the code does that runs from here on.
    void settle() const {
        if (context_.values != nullptr) context_.values->all();
    }
    // Nodes that the bare allocator made may lack arguments.
    void require(uint32_t count) const {
        if (this->count() < count) raise(model_error(), "Unknown nonlinear type");
    }

  private:
    // Several nodes refer to it, or a log of arguments that several nodes share does.
    bool may_occur_elsewhere(PyObject* o) const noexcept {
        const bool shared = Py_REFCNT(o) > 1 || (node_->logged && node_->many.log.is_shared());
        return shared && kind_of(o) == Kind::nonlinear;
    }

    const NonlinearObject* node_;
    const EvaluationContext& context_;
    int depth_;
};

// As the C library has it: no exception for overflow or for arguments out of the domain.
double unary_value(Op op, double x) {
    switch (op) {
        case Op::negation:
            return -x;
        case Op::exp:
            return std::exp(x);
        case Op::log:
            return std::log(x);
        case Op::log10:
            return std::log(x) / std::log(10.0);
        case Op::sin:
            return std::sin(x);
        case Op::cos:
            return std::cos(x);
        case Op::tan:
            return std::tan(x);
        case Op::asin:
            return std::asin(x);
        case Op::acos:
            return std::acos(x);
        case Op::atan:
            return std::atan(x);
        case Op::abs:
            return std::fabs(x);
        case Op::sign:
            return x > 0.0 ? 1.0 : x < 0.0 ? -1.0 : 0.0;
        case Op::erf:
            return std::erf(x);
        case Op::erfc:
            return std::erfc(x);
        case Op::sqrt:
            return std::sqrt(x);
        default:
            raise(model_error(), "Unknown nonlinear type");
    }
}

double binary_value(Op op, double a, double b) {
    if (op == Op::minus) return a - b;
    if (op == Op::power) return std::pow(a, b);
    if (b == 0.0) {
        raise(PyExc_ZeroDivisionError,
              "Division by zero in evaluation of expression containing fraction");
    }
    return a / b;
}

// The empty extremum is the neutral element.
double extremum(const Arguments& arguments, bool largest) {
    double best = largest ? -HUGE_VAL : HUGE_VAL;
    for (uint32_t i = 0; i < arguments.count(); ++i) {
        const double value = arguments.value(i);
        if (i == 0 || (largest ? value > best : value < best)) best = value;
    }
    return best;
}

// What counts as 0 or 1: the integrality tolerance that is set for all problems.
double logical_tolerance() {
    constexpr double kDefault = 5.0e-6;
    PyObject* controls = state().default_controls;
    if (controls == nullptr) return kDefault;
    PyObject* found = PyObject_GetAttrString(controls, "miptol");
    if (found == nullptr) {
        PyErr_Clear();
        return kDefault;
    }
    const Ref value = Ref::steal(found);
    const double tolerance = PyFloat_AsDouble(value.get());
    if (tolerance == -1.0 && PyErr_Occurred() != nullptr) throw PythonError();
    return tolerance;
}

// The first argument that decides ends the evaluation.
double logical_value(const Arguments& arguments, bool conjunction) {
    if (arguments.count() == 0) return conjunction ? 1.0 : 0.0;
    const double tolerance = logical_tolerance();
    for (uint32_t i = 0; i < arguments.count(); ++i) {
        const double value = arguments.value(i);
        if (conjunction && !(value > tolerance)) return 0.0;
        if (!conjunction && value > 1.0 - tolerance) return 1.0;
    }
    return conjunction ? 1.0 : 0.0;
}

// Arguments are x, x1, y1, x2, y2, ... with ascending breakpoints. Beyond the last one the last
// segment goes on, as the first one does before the first.
double piecewise_linear_value(const Arguments& arguments) {
    arguments.require(3);
    const uint32_t points = (arguments.count() - 1) / 2;
    const auto x_of = [&](uint32_t i) { return arguments.value(2 * i + 1); };
    const auto y_of = [&](uint32_t i) { return arguments.value(2 * i + 2); };
    const double x = arguments.value(0);
    uint32_t i = 0;
    while (i < points && !(x_of(i) > x)) ++i;
    if (points == 1) {
        if (i == 1) return y_of(0);
        raise(interface_error(),
              "Not enough points to extrapolate value of piecewise linear containing fraction for "
              "%S = %S",
              arguments.object(0), make_float(x).get());
    }
    const uint32_t end = i == 0 ? 1 : i == points ? points - 1 : i;
    const double x1 = x_of(end - 1), y1 = y_of(end - 1), x2 = x_of(end), y2 = y_of(end);
    if (x1 == x2) {
        if (i == points) return y2;  // a jump at the last breakpoint
        raise(interface_error(),
              "Piecewise linear function has discontinuity at first breakpoint %S = %S and can't "
              "be evaluated at %S",
              arguments.object(0), arguments.object(1), make_float(x).get());
    }
    return y1 + (y2 - y1) / (x2 - x1) * (x - x1);
}

// A function that gives derivatives returns them behind the value.
double user_value(const Arguments& arguments) {
    arguments.require(1);
    const Ref values = take(PyTuple_New(arguments.count() - 1));
    for (uint32_t i = 1; i < arguments.count(); ++i) {
        PyTuple_SET_ITEM(values.get(), i - 1, make_float(arguments.value(i)).release());
    }
    arguments.settle();
    Ref result = take(PyObject_Call(arguments.object(0), values.get(), nullptr));
    if (PyTuple_Check(result.get())) {
        result = Ref::borrow(take(PySequence_GetItem(result.get(), 0)).get());
    }
    const double value = PyFloat_AsDouble(result.get());
    if (value == -1.0 && PyErr_Occurred() != nullptr) throw PythonError();
    return value;
}

double node_value(const NonlinearObject* node, const EvaluationContext& context, int depth) {
    const Arguments arguments(node, context, depth - 1);
    const uint32_t count = arguments.count();
    switch (node->op) {
        case Op::sum: {
            double total = 0.0;
            for (uint32_t i = 0; i < count; ++i) total += arguments.value(i);
            return total;
        }
        case Op::product: {
            double total = 1.0;
            for (uint32_t i = 0; i < count; ++i) total *= arguments.value(i);
            return total;
        }
        case Op::minus:
        case Op::quotient:
        case Op::power: {
            arguments.require(2);
            const double a = arguments.value(0);
            return binary_value(node->op, a, arguments.value(1));
        }
        case Op::max:
        case Op::min:
            return extremum(arguments, node->op == Op::max);
        case Op::logical_and:
        case Op::logical_or:
            return logical_value(arguments, node->op == Op::logical_and);
        case Op::pwl:
            return piecewise_linear_value(arguments);
        case Op::user:
        case Op::user_with_derivatives:
            return user_value(arguments);
        default:
            arguments.require(1);
            return unary_value(node->op, arguments.value(0));
    }
}

}  // namespace

double tree_value(const NonlinearObject* node, const EvaluationContext& context, int depth) {
    if (context.memory == nullptr) {
        TreeMemory memory;
        EvaluationContext remembering = context;
        remembering.memory = &memory;
        return node_value(node, remembering, depth);
    }
    if ((++context.memory->visits & 0xFFFF) == 0) check_python(PyErr_CheckSignals());
    return node_value(node, context, depth);
}

}  // namespace nalora
