// nalora.constraint(...): a constraint from keywords.
#include "model/constraint_object.hpp"
#include "module/state.hpp"
#include "support/boundary.hpp"
#include "support/numpy.hpp"

namespace nalora {

namespace {

// Twice infinity marks a bound that was not given.
constexpr double kNotGiven = 2.0 * kInfinity;
constexpr double kFeasibilityTolerance = 1.0e-6;
constexpr int kLeq = 1, kGeq = 2, kEq = 3;  // nalora.leq, .geq, .eq

struct Arguments {
    PyObject* constraint = nullptr;
    PyObject* body = nullptr;
    double lower = -kNotGiven, upper = kNotGiven;
    int sense = 0;
    double rhs = -kNotGiven;
    PyObject* name = nullptr;

    bool lower_given() const noexcept { return lower != -kNotGiven; }
    bool upper_given() const noexcept { return upper != kNotGiven; }
    bool rhs_given() const noexcept { return rhs != -kNotGiven; }
};

Arguments parse(PyObject* args, PyObject* keywords) {
    static const char* const names[] = {"constraint", "body", "lb",   "ub",
                                        "sense",      "rhs",  "name", nullptr};
    Arguments a;
    if (!PyArg_ParseTupleAndKeywords(args, keywords, "|OOddidO", const_cast<char**>(names),
                                     &a.constraint, &a.body, &a.lower, &a.upper, &a.sense, &a.rhs,
                                     &a.name)) {
        throw PythonError();
    }
    return a;
}

// An array stands for its first element.
Ref body_of(PyObject* given) {
    Ref body = Ref::borrow(given);
    if (PyArray_Check(given)) {
        auto* array = reinterpret_cast<PyArrayObject*>(given);
        if (PyArray_SIZE(array) > 0) {
            body = take(PyArray_GETITEM(array, static_cast<char*>(PyArray_DATA(array))));
        }
    }
    if (kind_of(body.get()) == Kind::invalid) {
        raise(model_error(), "Invalid expression passed as body of constraint");
    }
    return body;
}

// Of the very type only: what a subclass adds would be lost without a word.
Ref body_of_constraint(PyObject* given) {
    const bool usable = Py_TYPE(given) == &ConstraintType && as_constraint(given)->body != nullptr;
    if (!usable) {
        raise(model_error(),
              "Attempt to generate an empty constraint failed. Consider using "
              "nalora.constraint(body=..., sense=..., rhs=...) instead.");
    }
    return Ref::borrow(as_constraint(given)->body);
}

// Either a bound (or both), or a sense with its right-hand side. A sense alone is accepted and
// leaves the constraint free.
void check_combination(const Arguments& a) {
    const bool bounds_given = a.lower_given() || a.upper_given();
    if (a.body == nullptr || (a.sense == 0 && !bounds_given)) {
        raise(model_error(),
              "Arguments required for nalora.constraint(): constraint OR {body, lb and/or ub} OR "
              "{body,sense,rhs}.");
    }
    if (a.rhs_given() && bounds_given) {
        raise(model_error(), "Cannot create constraint by specifying both rhs AND lb/ub.");
    }
}

}  // namespace

void constraint_init(ConstraintObject* c, PyObject* args, PyObject* keywords) {
    // Called again on a constraint it starts afresh; only the name stays unless a new one is given.
    constraint_renew_serial(c);
    assign_field(c->body, Ref());
    constraint_set_lower(c, -kInfinity);
    constraint_set_upper(c, kInfinity);
    const Arguments a = parse(args, keywords);
    if (a.name != nullptr) constraint_set_name(c, a.name);
    if (a.lower > a.upper + kFeasibilityTolerance) {
        raise(model_error(), "Constraint defined infeasible: lower bound > upper bound");
    }
    if (a.lower_given()) constraint_set_lower(c, a.lower);
    if (a.upper_given()) constraint_set_upper(c, a.upper);
    Ref body;
    if (a.body != nullptr) body = body_of(a.body);
    if (a.constraint != nullptr) {
        body = body_of_constraint(a.constraint);
        const ConstraintObject* source = as_constraint(a.constraint);
        constraint_set_lower(c, constraint_lower(source));
        constraint_set_upper(c, constraint_upper(source));
    } else {
        // With an rhs but without one of the three senses nothing is set.
        check_combination(a);
        if (a.rhs_given() && (a.sense == kGeq || a.sense == kEq)) constraint_set_lower(c, a.rhs);
        if (a.rhs_given() && (a.sense == kLeq || a.sense == kEq)) constraint_set_upper(c, a.rhs);
    }
    assign_field(c->body, std::move(body));
}

}  // namespace nalora
