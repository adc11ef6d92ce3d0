// Products: one table of builders by the kinds of the operands.
#include "model/operands.hpp"
#include "model/operator_table.hpp"
#include "nonlinear/node.hpp"

namespace nalora {

namespace {

using Builder = Ref (*)(PyObject* a, PyObject* b);

// An expression, or a single variable or term in its place, as the factors of a product see it.
struct Factor {
    double constant;
    std::span<const LinearEntry> linear;
    std::span<const QuadraticEntry> quadratic;
};

Factor factor_of(const ExpressionObject* e) {
    return {e->constant, e->linear.canonical(), e->quadratic.canonical()};
}

void add_scaled_entries(LinearTerms& terms, std::span<const LinearEntry> entries, double factor) {
    if (factor == 0.0) return;
    for (LinearEntry entry : entries) {
        entry.coef *= factor;
        terms.add(entry);
    }
}

// Both factors at most linear. Pairs that meet twice (x*y and y*x) add up as they are inserted.
Ref multiply_out(const Factor& a, const Factor& b) {
    Ref result = new_expression();
    auto* e = result.as<ExpressionObject>();
    e->constant = a.constant * b.constant;
    add_scaled_entries(e->linear, a.linear, b.constant);
    add_scaled_entries(e->linear, b.linear, a.constant);
    for (const LinearEntry& p : a.linear) {
        for (const LinearEntry& q : b.linear) {
            const bool ordered = p.serial <= q.serial;
            const LinearEntry& first = ordered ? p : q;
            const LinearEntry& second = ordered ? q : p;
            e->quadratic.add({first.serial, second.serial, first.var, second.var, p.coef * q.coef});
        }
    }
    return result;
}

Ref product_of_numbers(PyObject* a, PyObject* b) {
    return make_float(operand_value(a) * operand_value(b));
}

// Times one a variable stays itself, times zero everything linear becomes the number 0.
Ref scaled_var(double factor, PyObject* x) {
    if (factor == 1.0) return Ref::borrow(x);
    return make_linterm(factor, as_var(x));
}

Ref scaled_quadterm(double factor, PyObject* o) {
    const QuadtermObject* t = as_quadterm(o);
    return make_quadterm(factor * t->coef, t->var1, t->var2);
}

template <Kind B>
Ref scaled_operand(double factor, PyObject* b) {
    if constexpr (B == Kind::var) return scaled_var(factor, b);
    if constexpr (B == Kind::linterm) {
        return make_linterm(factor * as_linterm(b)->coef, as_linterm(b)->var);
    }
    if constexpr (B == Kind::quadterm) return scaled_quadterm(factor, b);
    if constexpr (B == Kind::expression) return scaled_expression(as_expression(b), factor);
}

template <Kind B>
Ref by_number(PyObject* a, PyObject* b) {
    return scaled_operand<B>(operand_value(a), b);
}
template <Kind A>
Ref number_right(PyObject* a, PyObject* b) {
    return scaled_operand<A>(operand_value(b), a);
}

template <Kind A, Kind B>
Ref linear(PyObject* a, PyObject* b) {
    const auto [coef_a, x] = linear_pair<A>(a);
    const auto [coef_b, y] = linear_pair<B>(b);
    return make_quadterm(coef_a * coef_b, x, y);
}

// A variable or linear term times an expression.
template <Kind A>
Ref linear_by_expression(PyObject* a, PyObject* b) {
    const ExpressionObject* e = as_expression(b);
    if (is_constant(e)) return scaled_operand<A>(e->constant, a);
    const Factor factor = factor_of(e);
    if (!factor.quadratic.empty()) return nonlinear_product(a, b);
    const auto [coef, x] = linear_pair<A>(a);
    const LinearEntry entry = linear_entry(x, coef);
    return multiply_out({0.0, {&entry, 1}, {}}, factor);
}
template <Kind B>
Ref expression_by_linear(PyObject* a, PyObject* b) {
    const ExpressionObject* e = as_expression(a);
    if (is_constant(e)) return scaled_operand<B>(e->constant, b);
    const Factor factor = factor_of(e);
    if (!factor.quadratic.empty()) return nonlinear_product(a, b);
    const auto [coef, x] = linear_pair<B>(b);
    const LinearEntry entry = linear_entry(x, coef);
    return multiply_out(factor, {0.0, {&entry, 1}, {}});
}

// Scaling when the expression has no terms, or none left; otherwise the degree exceeds two.
Ref quadterm_by_expression(PyObject* a, PyObject* b) {
    const Factor factor = factor_of(as_expression(b));
    if (factor.linear.empty() && factor.quadratic.empty()) {
        return scaled_quadterm(factor.constant, a);
    }
    return nonlinear_product(a, b);
}
Ref expression_by_quadterm(PyObject* a, PyObject* b) {
    const Factor factor = factor_of(as_expression(a));
    if (factor.linear.empty() && factor.quadratic.empty()) {
        return scaled_quadterm(factor.constant, b);
    }
    return nonlinear_product(a, b);
}

// What was never more than a constant scales the other factor. Of two factors with terms at most
// one may be quadratic, and the other must then have lost all of its terms.
Ref expressions(PyObject* a, PyObject* b) {
    const ExpressionObject *e = as_expression(a), *f = as_expression(b);
    if (is_constant(e)) return scaled_expression(f, e->constant);
    if (is_constant(f)) return scaled_expression(e, f->constant);
    const Factor p = factor_of(e), q = factor_of(f);
    if (p.quadratic.empty() && q.quadratic.empty()) return multiply_out(p, q);
    if (q.linear.empty() && q.quadratic.empty()) return scaled_expression(e, q.constant);
    if (p.linear.empty() && p.quadratic.empty()) return scaled_expression(f, p.constant);
    return nonlinear_product(a, b);
}

// A nonlinear product has rules of its own for numbers, so constants go there as numbers.
Ref expression_and_nonlinear(PyObject* a, PyObject* b) {
    const ExpressionObject* e = as_expression(a);
    if (is_constant(e)) return nonlinear_product(make_float(e->constant).get(), b);
    return nonlinear_product(a, b);
}
Ref nonlinear_and_expression(PyObject* a, PyObject* b) {
    const ExpressionObject* f = as_expression(b);
    if (is_constant(f)) return nonlinear_product(a, make_float(f->constant).get());
    return nonlinear_product(a, b);
}

constexpr auto nonlinear = nonlinear_product;
constexpr Kind V = Kind::var, L = Kind::linterm, Q = Kind::quadterm, E = Kind::expression;

// Rows: left operand; columns: right operand; in the order of the kinds' codes.
constexpr OperatorTable<Builder> kBuilders = {{
    {product_of_numbers, by_number<V>, by_number<L>, by_number<Q>, by_number<E>, nonlinear},
    {number_right<V>, linear<V, V>, linear<V, L>, nonlinear, linear_by_expression<V>, nonlinear},
    {number_right<L>, linear<L, V>, linear<L, L>, nonlinear, linear_by_expression<L>, nonlinear},
    {number_right<Q>, nonlinear, nonlinear, nonlinear, quadterm_by_expression, nonlinear},
    {number_right<E>, expression_by_linear<V>, expression_by_linear<L>, expression_by_quadterm,
     expressions, expression_and_nonlinear},
    {nonlinear, nonlinear, nonlinear, nonlinear, nonlinear_and_expression, nonlinear},
}};

constexpr MessageRow kMessages = {"Invalid operands in multiplication",
                                  "Invalid operands in product of linear terms",
                                  "Invalid operands in multiplication"};

}  // namespace

Ref multiply(PyObject* a, PyObject* b) {
    const Kind ka = operand_kind(a), kb = operand_kind(b);
    if (ka != Kind::invalid && kb != Kind::invalid) [[likely]]
        return kBuilders.find(ka, kb)(a, b);
    if (is_array(b)) return take(PyNumber_Multiply(b, a));
    refuse_operands(a, b, kMessages);
}

Ref scaled_copy(PyObject* object, double factor) {
    switch (kind_of(object)) {
        case Kind::number:
            return make_float(factor * number_value(object));
        case Kind::var:
            return scaled_operand<V>(factor, object);
        case Kind::linterm:
            return scaled_operand<L>(factor, object);
        case Kind::quadterm:
            return scaled_operand<Q>(factor, object);
        case Kind::expression:
            return scaled_operand<E>(factor, object);
        case Kind::nonlinear:
            return nonlinear_product(object, make_float(factor).get());
        case Kind::invalid:
            break;
    }
    raise(model_error(), "Invalid object being copied");
}

}  // namespace nalora
