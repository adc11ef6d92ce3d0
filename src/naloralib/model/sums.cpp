// Sums and differences: one table of builders by the kinds of the operands. Every builder computes
// a + s * b with s = 1 or s = -1.
#include "model/operands.hpp"
#include "model/operator_table.hpp"
#include "nonlinear/node.hpp"

namespace nalora {

namespace {

using Builder = Ref (*)(PyObject* a, PyObject* b, double s);

Ref numbers(PyObject* a, PyObject* b, double s) {
    return make_float(operand_value(a) + s * operand_value(b));
}

// Room for the operands and a few terms that are likely to follow.
constexpr std::size_t kTerms = 4;

// Two operands of which none is an expression or nonlinear.
template <Kind A, Kind B>
Ref fresh(PyObject* a, PyObject* b, double s) {
    Ref result = new_expression();
    auto* e = result.as<ExpressionObject>();
    accumulate<A>(e, a, 1.0);
    accumulate<B>(e, b, s);
    return result;
}

// Like terms stay a term, or become the number 0.
template <Kind A, Kind B>
Ref linear(PyObject* a, PyObject* b, double s) {
    const auto [coef_a, x] = linear_pair<A>(a);
    const auto [coef_b, y] = linear_pair<B>(b);
    if (var_serial(x) == var_serial(y)) return make_linterm(coef_a + s * coef_b, x);
    Ref result = new_expression();
    LinearTerms& terms = result.as<ExpressionObject>()->linear;
    terms.ensure(kTerms);
    terms.add(linear_entry(x, coef_a));
    terms.add(linear_entry(y, s * coef_b));
    return result;
}

// A small object plus a number, of which most results stay as they are.
template <Kind A>
Ref with_number(PyObject* a, double number) {
    Ref result = new_expression();
    auto* e = result.as<ExpressionObject>();
    e->constant = number;
    accumulate<A>(e, a, 1.0);
    return result;
}

// Zero changes nothing: variables and linear terms stay the objects they are.
template <Kind A>
Ref number_right(PyObject* a, PyObject* b, double s) {
    const double number = operand_value(b);
    if (number != 0.0) return with_number<A>(a, s * number);
    if constexpr (A == Kind::quadterm) {
        const QuadtermObject* t = as_quadterm(a);
        return make_quadterm(t->coef, t->var1, t->var2);
    } else {
        return Ref::borrow(a);
    }
}

// The built-in sum starts with 0: for a variable this gives an expression all the same.
Ref number_and_var(PyObject* a, PyObject* b, double s) {
    Ref result = new_expression();
    auto* e = result.as<ExpressionObject>();
    e->constant = operand_value(a);
    accumulate<Kind::var>(e, b, s);
    return result;
}

Ref number_and_linterm(PyObject* a, PyObject* b, double s) {
    if (operand_value(a) != 0.0) return fresh<Kind::number, Kind::linterm>(a, b, s);
    return make_linterm(s * as_linterm(b)->coef, as_linterm(b)->var);
}

Ref number_and_quadterm(PyObject* a, PyObject* b, double s) {
    if (operand_value(a) != 0.0) return fresh<Kind::number, Kind::quadterm>(a, b, s);
    return make_quadterm(s * as_quadterm(b)->coef, as_quadterm(b)->var1, as_quadterm(b)->var2);
}

// The step that sums are made of: it shares the terms of the left operand and appends to them.
template <Kind B>
Ref onto_left(PyObject* a, PyObject* b, double s) {
    Ref result = share_expression(as_expression(a));
    accumulate<B>(result.as<ExpressionObject>(), b, s);
    return result;
}

// The right operand is shared likewise in a sum; in a difference it has to be copied.
template <Kind A>
Ref onto_right(PyObject* a, PyObject* b, double s) {
    Ref result = scaled_expression(as_expression(b), s);
    accumulate<A>(result.as<ExpressionObject>(), a, 1.0);
    return result;
}

std::size_t raw_size(const ExpressionObject* e) noexcept {
    return e->linear.raw_size() + e->quadratic.raw_size();
}

// Whether a + b is b + a to the last detail. Zero coefficients stay those of the left operand only,
// and a constant remains one when terms are added to it that have cancelled.
bool commutes(const ExpressionObject* a, const ExpressionObject* b) noexcept {
    return !a->linear.may_hold_zeros() && !a->quadratic.may_hold_zeros() &&
           !b->linear.may_hold_zeros() && !b->quadratic.may_hold_zeros() && !is_constant(a);
}

// The longer operand of a sum is the one to share.
Ref expressions(PyObject* a, PyObject* b, double s) {
    const ExpressionObject *e = as_expression(a), *f = as_expression(b);
    if (s == 1.0 && raw_size(f) > raw_size(e) && commutes(e, f)) std::swap(a, b);
    return onto_left<Kind::expression>(a, b, s);
}

Ref nonlinear(PyObject* a, PyObject* b, double s) {
    return s == 1.0 ? nonlinear_sum(a, b) : nonlinear_difference(a, b);
}

constexpr Kind N = Kind::number, V = Kind::var, L = Kind::linterm, Q = Kind::quadterm;

// Rows: left operand; columns: right operand; in the order of the kinds' codes.
constexpr OperatorTable<Builder> kBuilders = {{
    {numbers, number_and_var, number_and_linterm, number_and_quadterm, onto_right<N>, nonlinear},
    {number_right<V>, linear<V, V>, linear<V, L>, fresh<V, Q>, onto_right<V>, nonlinear},
    {number_right<L>, linear<L, V>, linear<L, L>, fresh<L, Q>, onto_right<L>, nonlinear},
    {number_right<Q>, fresh<Q, V>, fresh<Q, L>, fresh<Q, Q>, onto_right<Q>, nonlinear},
    {onto_left<N>, onto_left<V>, onto_left<L>, onto_left<Q>, expressions, nonlinear},
    {nonlinear, nonlinear, nonlinear, nonlinear, nonlinear, nonlinear},
}};

constexpr MessageRow kAddition = {"Invalid operands in addition", "Invalid operands in sum",
                                  "Invalid operands in sum with quadratic term"};
constexpr MessageRow kSubtraction = {"Invalid object in subtraction", "Invalid operands in sum",
                                     "Invalid operands in sum with quadratic term"};

}  // namespace

Ref add(PyObject* a, PyObject* b) {
    const Kind ka = operand_kind(a), kb = operand_kind(b);
    if (ka != Kind::invalid && kb != Kind::invalid) [[likely]] {
        return kBuilders.find(ka, kb)(a, b, 1.0);
    }
    if (is_array(b)) return take(PyNumber_Add(b, a));
    refuse_operands(a, b, kAddition);
}

Ref subtract(PyObject* a, PyObject* b) {
    const Kind ka = operand_kind(a), kb = operand_kind(b);
    if (ka != Kind::invalid && kb != Kind::invalid) [[likely]] {
        return kBuilders.find(ka, kb)(a, b, -1.0);
    }
    if (is_array(b)) return take(PyNumber_Add(take(PyNumber_Negative(b)).get(), a));
    refuse_operands(a, b, kSubtraction);
}

}  // namespace nalora
