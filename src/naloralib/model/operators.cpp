// The number slots of the modeling types, and the operators of one operand.
#include "model/operators.hpp"

#include "model/operands.hpp"
#include "model/operator_table.hpp"
#include "nonlinear/node.hpp"

namespace nalora {

// One operand at least is of no kind; the other one, which made the interpreter call us, decides
// about the words.
void refuse_operands(PyObject* a, PyObject* b, const MessageRow& messages) {
    const Kind ka = kind_of(a), kb = kind_of(b);
    const Kind known = ka != Kind::invalid ? ka : kb;
    switch (known) {
        case Kind::linterm:
            raise(model_error(), messages.linterm);
        case Kind::quadterm:
            raise(model_error(), messages.quadterm);
        case Kind::expression:
        case Kind::nonlinear:
            require_kind(a);
            require_kind(b);
            [[fallthrough]];
        default:
            raise(model_error(), messages.var);
    }
}

Ref negate(PyObject* a) {
    switch (require_kind(a)) {
        case Kind::number:
            return make_float(-number_value(a));
        case Kind::var:
            return make_linterm(-1.0, as_var(a));
        case Kind::linterm:
            return make_linterm(-as_linterm(a)->coef, as_linterm(a)->var);
        case Kind::quadterm:
            return make_quadterm(-as_quadterm(a)->coef, as_quadterm(a)->var1, as_quadterm(a)->var2);
        case Kind::expression:
            return scaled_expression(as_expression(a), -1.0);
        default:
            return nonlinear_negation(a);
    }
}

Ref absolute(PyObject* a) { return make_unary(Op::abs, a); }

Ref multiply_in_place(PyObject* a, PyObject* b) {
    const bool extends = kind_of(a) == Kind::nonlinear && as_nonlinear(a)->op == Op::product;
    return extends && kind_of(b) != Kind::invalid ? extended_product(a, b) : multiply(a, b);
}

Ref logical_and(PyObject* a, PyObject* b) {
    if (is_array(b)) return take(PyNumber_And(b, a));
    PyObject* const both[] = {a, b};
    return make_nary(Op::logical_and, both);
}

Ref logical_or(PyObject* a, PyObject* b) {
    if (is_array(b)) return take(PyNumber_Or(b, a));
    PyObject* const both[] = {a, b};
    return make_nary(Op::logical_or, both);
}

namespace {

template <Ref (*Operator)(PyObject*, PyObject*)>
PyObject* binary_slot(PyObject* a, PyObject* b) noexcept {
    return guarded([=] { return Operator(a, b); });
}

template <Ref (*Operator)(PyObject*)>
PyObject* unary_slot(PyObject* a) noexcept {
    return guarded([=] { return Operator(a); });
}

PyObject* power_slot(PyObject* a, PyObject* b, PyObject* modulus) noexcept {
    return guarded([=] {
        if (modulus != Py_None) raise(model_error(), "Invalid operands in exponentiation");
        return power(a, b);
    });
}

// The in-place forms that differ from the plain ones; the interpreter uses the plain one for the
// rest, as no operand is ever changed.
Ref divide_in_place(PyObject* a, PyObject* b) {
    if (operand_kind(b) == Kind::number && operand_value(b) == 0.0) {
        raise(model_error(), "Division by zero");
    }
    return divide(a, b);
}

// No type has slots of its own: the interpreter then makes one call for two modeling operands, and
// none of them needs to know the other's rules.
PyNumberMethods make_slots() noexcept {
    PyNumberMethods slots{};
    slots.nb_add = binary_slot<add>;
    slots.nb_subtract = binary_slot<subtract>;
    slots.nb_multiply = binary_slot<multiply>;
    slots.nb_true_divide = binary_slot<divide>;
    slots.nb_power = power_slot;
    slots.nb_negative = unary_slot<negate>;
    slots.nb_absolute = unary_slot<absolute>;
    slots.nb_and = binary_slot<logical_and>;
    slots.nb_or = binary_slot<logical_or>;
    slots.nb_inplace_multiply = binary_slot<multiply_in_place>;
    slots.nb_inplace_true_divide = binary_slot<divide_in_place>;
    return slots;
}

}  // namespace

PyNumberMethods operator_slots = make_slots();

}  // namespace nalora
