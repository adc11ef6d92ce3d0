// Values of variables, terms, expressions and trees.
#include "nonlinear/evaluate.hpp"

#include <cmath>

#include "model/operands.hpp"
#include "nonlinear/node.hpp"
#include "nonlinear/tree_value.hpp"
#include "problem/solution_values.hpp"
#include "support/numpy.hpp"

namespace nalora {

namespace {

[[noreturn]] void refuse_foreign() {
    raise(model_error(),
          "Object does not belong to problem or cannot be identified within expression");
}

double checked(double value) {
    if (value == -1.0 && PyErr_Occurred() != nullptr) throw PythonError();
    return value;
}

// Null without an error when there is none. A key of the same hash is asked whether it equals the
// variable, which makes a constraint without truth value; the variable cannot have been put beside
// such a key, for the same reason.
PyObject* find_key(PyObject* dictionary, PyObject* var) {
    PyObject* found = PyDict_GetItemWithError(dictionary, var);
    if (found != nullptr || PyErr_Occurred() == nullptr) return found;
    if (PyErr_ExceptionMatches(model_error()) == 0) throw PythonError();
    PyErr_Clear();
    return nullptr;
}

double dictionary_value(PyObject* dictionary, PyObject* var) {
    PyObject* found = find_key(dictionary, var);
    if (found == nullptr) raise(model_error(), "Variable <%S> not found in solution", var);
    const Ref value = Ref::borrow(found);
    return checked(PyFloat_AsDouble(value.get()));
}

// The serial is the term's, which is what the problem registered; a variable that was initialised
// again has another one by now.
double column_value(const EvaluationContext& context, uint64_t serial) {
    const int32_t column = context.problem->variable_index->find(serial);
    if (column < 0 || column >= context.values->count()) refuse_foreign();
    return (*context.values)[column];
}

// A variable under the serial number it has in a term.
double value_of(const EvaluationContext& context, uint64_t serial, void* var) {
    if (context.dictionary != nullptr) {
        return dictionary_value(context.dictionary, static_cast<PyObject*>(var));
    }
    return column_value(context, serial);
}

double value_of(const EvaluationContext& context, VarObject* var) {
    return value_of(context, var_serial(var), var);
}

// In the order of the terms, so that equal expressions give equal values to the last bit.
double expression_value(const ExpressionObject* e, const EvaluationContext& context) {
    double total = e->constant;
    for (const LinearEntry& term : e->linear.canonical()) {
        total += term.coef * value_of(context, term.serial, term.var);
    }
    for (const QuadraticEntry& term : e->quadratic.canonical()) {
        const double first = value_of(context, term.serial1, term.var1);
        const double second =
            term.serial1 == term.serial2 ? first : value_of(context, term.serial2, term.var2);
        total += term.coef * first * second;
    }
    return total;
}

}  // namespace

void require_depth(int depth) {
    if (depth <= 0) {
        raise(PyExc_RuntimeError, "Evaluation of expression exceeded recursion depth limit");
    }
}

double evaluate_object(PyObject* object, const EvaluationContext& context, int depth) {
    require_depth(depth);
    switch (kind_of(object)) {
        case Kind::number:
            return number_value(object);
        case Kind::var:
            return value_of(context, as_var(object));
        case Kind::linterm:
            return as_linterm(object)->coef * value_of(context, as_linterm(object)->var);
        case Kind::quadterm: {
            const QuadtermObject* t = as_quadterm(object);
            const double first = value_of(context, t->var1);
            const bool square = var_serial(t->var1) == var_serial(t->var2);
            return t->coef * first * (square ? first : value_of(context, t->var2));
        }
        case Kind::expression:
            return expression_value(as_expression(object), context);
        case Kind::nonlinear:
            return tree_value(as_nonlinear(object), context, depth);
        case Kind::invalid:
            break;
    }
    if (PyArray_IsScalar(object, Floating) || PyArray_IsScalar(object, Integer)) {
        return checked(PyFloat_AsDouble(object));
    }
    raise(model_error(), "Evaluation of object of incorrect type");
}

}  // namespace nalora
