// Constraints from comparisons.
#include "model/constraint_object.hpp"
#include "model/operands.hpp"
#include "model/operators.hpp"
#include "nonlinear/node.hpp"

namespace nalora {

namespace {

// `body` compared with `rhs`: what is left of a - b compared with 0 when the constant went over.
struct Sides {
    Ref body;
    double rhs = 0.0;
    int op;
};

// A linear operand without its constant as an expression of one term.
Ref single_term(const LinearEntry& entry) {
    Ref result = new_expression();
    LinearTerms& terms = result.as<ExpressionObject>()->linear;
    terms.ensure(1);
    terms.add(entry);
    return result;
}

// The expression with constant 0, which is the very object where it already is (nothing changes
// an expression).
Ref without_constant(PyObject* object) {
    const ExpressionObject* e = as_expression(object);
    if (e->constant == 0.0 && Py_TYPE(object) == &ExpressionType) return Ref::borrow(object);
    Ref result = share_expression(e);
    result.as<ExpressionObject>()->constant = 0.0;
    return result;
}

// The comparison that holds when the two sides change places.
int mirrored(int op) noexcept { return op == Py_LE ? Py_GE : op == Py_GE ? Py_LE : op; }

// Nonlinear bodies: the number in a sum, or either side of a difference.
void move_constant_of_node(Sides& sides) {
    const NonlinearObject* node = as_nonlinear(sides.body.get());
    if (node->op == Op::sum) {
        PyObject* number = trailing_number(node);
        if (number == nullptr || argument_count(node) < 2) return;
        sides.rhs = -number_value(number);
        sides.body = without_number(node);
    } else if (node->op == Op::minus) {
        PyObject *first = argument(node, 0), *second = argument(node, 1);
        if (kind_of(first) == Kind::number) {
            sides.rhs = number_value(first);
            sides.op = mirrored(sides.op);
            sides.body = Ref::borrow(second);
        } else if (kind_of(second) == Kind::number) {
            sides.rhs = number_value(second);
            sides.body = Ref::borrow(first);
        }
    }
}

// Any operands: their difference, taken apart.
Sides general_sides(PyObject* a, PyObject* b, int op) {
    Sides sides{subtract(a, b), 0.0, op};
    switch (kind_of(sides.body.get())) {
        case Kind::expression:
            sides.rhs = -sides.body.as<ExpressionObject>()->constant;
            sides.body = without_constant(sides.body.get());
            break;
        case Kind::nonlinear:
            move_constant_of_node(sides);
            break;
        case Kind::invalid:
            raise(model_error(), "Invalid constraint body");
        default:
            break;
    }
    return sides;
}

// The frequent forms take no temporary object.
Sides split(PyObject* a, PyObject* b, int op) {
    if (operand_kind(b) == Kind::number) {
        switch (operand_kind(a)) {
            case Kind::expression:
                return {without_constant(a), operand_value(b) - as_expression(a)->constant, op};
            case Kind::var:
                if (operand_value(b) == 0.0) return {Ref::borrow(a), 0.0, op};
                return {single_term(linear_entry(as_var(a), 1.0)), operand_value(b), op};
            case Kind::linterm:
                if (operand_value(b) == 0.0) return {Ref::borrow(a), 0.0, op};
                return {single_term(linear_entry(as_linterm(a)->var, as_linterm(a)->coef)),
                        operand_value(b), op};
            default:
                break;
        }
    }
    return general_sides(a, b, op);
}

// Two numbers meet here when arrays are compared element by element.
Ref numeric_body(PyObject* a) {
    Ref result = new_expression();
    result.as<ExpressionObject>()->constant = number_value(a);
    return result;
}

// Strict comparisons with an array on the right make equalities, which nobody should meet unawares.
void warn_of_equalities(int op) {
    const char* text =
        op == Py_NE ? "!= with an array makes constraints with ==: != cannot be enforced. Write == "
                      "where equality is meant."
        : op == Py_LT
            ? "< with an array makes constraints with ==: strict inequalities cannot be enforced. "
              "Write <= for inequalities, == where equality is meant."
            : "> with an array makes constraints with ==: strict inequalities cannot be enforced. "
              "Write >= for inequalities, == where equality is meant.";
    check_python(PyErr_WarnEx(PyExc_UserWarning, text, 1));
}

// The array's own comparison and no other: the interpreter's would come back to us when the array
// gives up, as some versions of NumPy do when an element raises an error.
Ref compared_by_numpy(PyObject* array, PyObject* other, int op) {
    Ref result = take(Py_TYPE(array)->tp_richcompare(array, other, op));
    if (result.get() == Py_NotImplemented) {
        raise(model_error(),
              "NumPy could not compare the array with <%S>: compare element by element", other);
    }
    return result;
}

Ref constraint_from(PyObject* a, PyObject* b, int op) {
    Sides sides = split(a, b, op);
    if (sides.op == Py_LT || sides.op == Py_GT || sides.op == Py_NE) {
        raise(model_error(), "Invalid constraint: cannot enforce f(x) != 0, f(x) > 0, or f(x) < 0");
    }
    if (sides.op != Py_LE && sides.op != Py_EQ && sides.op != Py_GE) {
        raise(model_error(), "Invalid constraint: unrecognized comparison operator");
    }
    return new_constraint(std::move(sides.body), sides.op != Py_LE ? sides.rhs : -kInfinity,
                          sides.op != Py_GE ? sides.rhs : kInfinity);
}

}  // namespace

Ref compare(PyObject* a, PyObject* b, int op) {
    const Kind ka = operand_kind(a), kb = operand_kind(b);
    if (ka == Kind::number && kb == Kind::number) {
        return constraint_from(numeric_body(a).get(), b, op);
    }
    if (kb == Kind::invalid && is_array(b)) {
        if (is_array(a)) raise(interface_error(), "Ill-defined constraint array");
        if (op == Py_LT || op == Py_GT || op == Py_NE) {
            warn_of_equalities(op);
            op = Py_EQ;
        }
        return compared_by_numpy(b, a, mirrored(op));
    }
    if (ka == Kind::invalid && kb == Kind::invalid) require_kind(a);
    return constraint_from(a, b, op);
}

PyObject* compare_slot(PyObject* a, PyObject* b, int op) noexcept {
    return guarded([=] { return compare(a, b, op); });
}

}  // namespace nalora
