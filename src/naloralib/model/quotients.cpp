// Quotients and powers: one table of builders each, by the kinds of the operands.
#include <cmath>

#include "model/operands.hpp"
#include "model/operator_table.hpp"
#include "model/operators.hpp"
#include "nonlinear/node.hpp"

namespace nalora {

namespace {

using Builder = Ref (*)(PyObject* a, PyObject* b);

[[noreturn]] void refuse_zero() { raise(model_error(), "Division by zero"); }

// ---- quotients ------------------------------------------------------------------------------

Ref quotient_of_numbers(PyObject* a, PyObject* b) {
    const double divisor = operand_value(b);
    if (divisor == 0.0) refuse_zero();
    return make_float(operand_value(a) / divisor);
}

Ref number_by_var(PyObject* a, PyObject* b) {
    if (operand_value(a) == 0.0) return make_float(0.0);
    return nonlinear_quotient(a, b);
}

Ref var_by_number(PyObject* a, PyObject* b) {
    const double divisor = operand_value(b);
    if (divisor == 0.0) raise(model_error(), "Division of variable by zero");
    if (divisor == 1.0) return Ref::borrow(a);
    return make_linterm(1.0 / divisor, as_var(a));
}

Ref linterm_by_number(PyObject* a, PyObject* b) {
    const double divisor = operand_value(b);
    if (divisor == 0.0) refuse_zero();
    return make_linterm(as_linterm(a)->coef / divisor, as_linterm(a)->var);
}

Ref quadterm_by_number(PyObject* a, PyObject* b) {
    const double divisor = operand_value(b);
    if (divisor == 0.0) raise(model_error(), "Division by zero of a bilinear term");
    const QuadtermObject* t = as_quadterm(a);
    return make_quadterm(t->coef / divisor, t->var1, t->var2);
}

Ref expression_by_number(PyObject* a, PyObject* b) {
    const double divisor = operand_value(b);
    if (divisor == 0.0) refuse_zero();
    // Every coefficient is multiplied by the same reciprocal, which may differ from a true division
    // in the last bit but is one division instead of many.
    const double reciprocal = 1.0 / divisor;
    if (reciprocal == 0.0) return new_expression();
    return scaled_expression(as_expression(a), reciprocal);
}

Ref nonlinear_by_number(PyObject* a, PyObject* b) {
    const double divisor = operand_value(b);
    if (divisor == 0.0) refuse_zero();
    if (divisor == 1.0) return copy_node(as_nonlinear(a));
    return nonlinear_quotient(a, b);
}

Ref vars(PyObject* a, PyObject* b) {
    if (var_serial(as_var(a)) == var_serial(as_var(b))) return make_float(1.0);
    return nonlinear_quotient(a, b);
}

// The ratio of like terms is a number.
template <Kind B>
Ref linterm_by_linear(PyObject* a, PyObject* b) {
    const auto [coef, x] = linear_pair<B>(b);
    if (var_serial(as_linterm(a)->var) != var_serial(x)) return nonlinear_quotient(a, b);
    if (coef == 0.0) refuse_zero();
    return make_float(as_linterm(a)->coef / coef);
}

// An expression that never had terms divides like the number it is.
template <Builder ByNumber>
Ref by_expression(PyObject* a, PyObject* b) {
    const ExpressionObject* e = as_expression(b);
    if (!is_constant(e)) return nonlinear_quotient(a, b);
    return ByNumber(a, make_float(e->constant).get());
}

constexpr auto node = nonlinear_quotient;
constexpr Kind V = Kind::var, L = Kind::linterm;

// Rows: left operand; columns: right operand; in the order of the kinds' codes.
constexpr OperatorTable<Builder> kQuotients = {{
    {quotient_of_numbers, number_by_var, node, node, by_expression<quotient_of_numbers>, node},
    {var_by_number, vars, node, node, by_expression<var_by_number>, node},
    {linterm_by_number, linterm_by_linear<V>, linterm_by_linear<L>, node,
     by_expression<linterm_by_number>, node},
    {quadterm_by_number, node, node, node, by_expression<quadterm_by_number>, node},
    {expression_by_number, node, node, node, by_expression<expression_by_number>, node},
    {nonlinear_by_number, node, node, node, by_expression<nonlinear_by_number>, node},
}};

constexpr MessageRow kQuotientMessages = {"Invalid operands in division",
                                          "Invalid operands in product of linear terms",
                                          "Invalid operands in division"};

// ---- powers ---------------------------------------------------------------------------------

Ref power_of_numbers(PyObject* a, PyObject* b) {
    return make_float(std::pow(operand_value(a), operand_value(b)));
}

Ref number_base(PyObject* a, PyObject* b) {
    if (operand_value(a) == 1.0) return make_float(1.0);
    return nonlinear_power(a, b);
}

// Exponents 0, 1 and 2 stay in the quadratic world where the base allows it.
Ref var_base(PyObject* a, PyObject* b) {
    const double exponent = operand_value(b);
    if (exponent == 1.0) return Ref::borrow(a);
    if (exponent == 0.0) return make_float(1.0);
    if (exponent == 2.0) return make_quadterm(1.0, as_var(a), as_var(a));
    return nonlinear_power(a, b);
}

Ref linterm_base(PyObject* a, PyObject* b) {
    const double exponent = operand_value(b), coef = as_linterm(a)->coef;
    VarObject* x = as_linterm(a)->var;
    if (exponent == 0.0) return make_float(1.0);
    if (exponent == 1.0) return Ref::borrow(a);
    if (exponent == 2.0) return make_quadterm(coef * coef, x, x);
    return nonlinear_power(a, b);
}

// Already quadratic: only the exponent 1 does not leave it.
Ref quadterm_base(PyObject* a, PyObject* b) {
    if (operand_value(b) == 1.0) return Ref::borrow(a);
    return nonlinear_power(a, b);
}

Ref expression_base(PyObject* a, PyObject* b) {
    const double exponent = operand_value(b);
    if (exponent == 0.0) return make_float(1.0);
    if (exponent == 1.0) return share_expression(as_expression(a));
    if (exponent == 2.0) return multiply(a, a);
    return nonlinear_power(a, b);
}

Ref nonlinear_base(PyObject* a, PyObject* b) {
    const double exponent = operand_value(b);
    if (exponent == 0.0) return make_float(1.0);
    if (exponent == 1.0) return copy_node(as_nonlinear(a));
    return nonlinear_power(a, b);
}

constexpr auto raised = nonlinear_power;

constexpr OperatorTable<Builder> kPowers = {{
    {power_of_numbers, number_base, number_base, number_base, number_base, number_base},
    {var_base, raised, raised, raised, raised, raised},
    {linterm_base, raised, raised, raised, raised, raised},
    {quadterm_base, raised, raised, raised, raised, raised},
    {expression_base, raised, raised, raised, raised, raised},
    {nonlinear_base, raised, raised, raised, raised, raised},
}};

constexpr MessageRow kPowerMessages = {"Invalid operands in exponentiation",
                                       "Invalid operands in exponentiation",
                                       "Invalid operands in exponentiation"};

}  // namespace

Ref divide(PyObject* a, PyObject* b) {
    const Kind ka = operand_kind(a), kb = operand_kind(b);
    if (ka != Kind::invalid && kb != Kind::invalid) [[likely]]
        return kQuotients.find(ka, kb)(a, b);
    if (is_array(b)) {
        const Ref reciprocals = take(PyNumber_TrueDivide(make_float(1.0).get(), b));
        return take(PyNumber_Multiply(reciprocals.get(), a));
    }
    refuse_operands(a, b, kQuotientMessages);
}

Ref power(PyObject* a, PyObject* b) {
    const Kind ka = operand_kind(a), kb = operand_kind(b);
    if (ka != Kind::invalid && kb != Kind::invalid) [[likely]]
        return kPowers.find(ka, kb)(a, b);
    if (is_array(b)) {
        raise(model_error(), "Cannot obtain a power with a vector as an exponent");
    }
    refuse_operands(a, b, kPowerMessages);
}

}  // namespace nalora
