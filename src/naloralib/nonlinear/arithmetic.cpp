// Sums, differences, products, quotients and powers that leave the quadratic world. Sums stay flat:
// a sum plus a term is one sum with one term more.
#include "model/operands.hpp"
#include "nonlinear/node_build.hpp"

namespace nalora {

namespace {

bool is_nonlinear(PyObject* o) noexcept { return kind_of(o) == Kind::nonlinear; }

bool is_node(PyObject* o, Op op) noexcept { return is_nonlinear(o) && as_nonlinear(o)->op == op; }
bool is_sum(PyObject* o) noexcept { return is_node(o, Op::sum); }

// A sum of one nonlinear argument is that argument.
Ref finish_sum(ArgumentLog log, Ref number) {
    if (!number && log.size() == 1 && is_nonlinear(log[0].object)) {
        return Ref::borrow(log[0].object);
    }
    return logged_node(Op::sum, std::move(log), std::move(number));
}

Ref number_of(PyObject* sum) { return Ref::borrow(trailing_number(as_nonlinear(sum))); }

// The sum of two numbers either of which may be missing; none for zero.
Ref merged(Ref a, Ref b) {
    if (!a || !b) {
        Ref& only = a ? a : b;
        return only && operand_value(only.get()) == 0.0 ? Ref() : std::move(only);
    }
    const double total = operand_value(a.get()) + operand_value(b.get());
    return total != 0.0 ? make_float(total) : Ref();
}

// Numbers merge with the one that the sum already has.
Ref plus_number(PyObject* f, Ref number) {
    if (is_sum(f)) {
        return finish_sum(argument_log(as_nonlinear(f)), merged(number_of(f), std::move(number)));
    }
    ArgumentLog log;
    log.append({f});
    return finish_sum(std::move(log), merged(Ref(), std::move(number)));
}

Ref plus_term(PyObject* sum, PyObject* term) {
    ArgumentLog log = log_to_extend(as_nonlinear(sum), term);
    log.append({term});
    return finish_sum(std::move(log), number_of(sum));
}

// Appends the arguments of the shorter sum to those of the longer one, unless it has so many that
// sums which double again and again (f = f + f) would fill the memory.
Ref sum_of_sums(PyObject* a, PyObject* b) {
    constexpr uint32_t kLongest = 1U << 18;
    const auto size = [](PyObject* sum) {
        const NonlinearObject* node = as_nonlinear(sum);
        return argument_count(node) - (trailing_number(node) != nullptr ? 1 : 0);
    };
    if (size(a) < size(b)) std::swap(a, b);
    if (size(b) > kLongest) {
        PyObject* const sums[] = {a, b};
        return make_nary(Op::sum, sums);
    }
    Ref number = merged(number_of(a), number_of(b));
    const ArgumentLog shorter = argument_log(as_nonlinear(b));
    ArgumentLog longer = log_to_extend(as_nonlinear(a), b);
    longer.reserve(shorter.size());
    for (uint32_t i = 0; i < shorter.size(); ++i) {
        const NodeArgument argument = shorter[i];
        longer.append(argument);
    }
    return finish_sum(std::move(longer), std::move(number));
}

// Long chains of differences become sums, or they would nest without end.
bool is_chain_of_differences(PyObject* o) noexcept {
    return is_node(o, Op::minus) && is_node(argument(as_nonlinear(o), 0), Op::minus);
}

Ref negated_number(PyObject* number) {
    if (PyLong_CheckExact(number)) return take(PyNumber_Negative(number));
    return make_float(-operand_value(number));
}

// f - number, f nonlinear.
Ref minus_number(PyObject* f, PyObject* number) {
    if (operand_value(number) == 0.0) return copy_node(as_nonlinear(f));
    if (is_sum(f) || is_chain_of_differences(f)) return plus_number(f, negated_number(number));
    return few_node(Op::minus, f, number);
}

// Trivial factors: an object without a product node; none for other numbers.
Ref product_by_number(double factor, PyObject* f) {
    if (factor == 0.0) return make_float(0.0);
    if (factor == 1.0) return copy_node(as_nonlinear(f));
    if (factor == -1.0) return nonlinear_negation(f);
    return Ref();
}

}  // namespace

Ref without_number(const NonlinearObject* sum) { return finish_sum(argument_log(sum), Ref()); }

// The nonlinear operand stands first where a new sum is made, so that a number added to it comes
// last.
Ref nonlinear_sum(PyObject* a, PyObject* b) {
    if (kind_of(a) == Kind::number) std::swap(a, b);
    if (kind_of(b) == Kind::number) {
        if (operand_value(b) == 0.0) return Ref::borrow(a);
        return plus_number(a, Ref::borrow(b));
    }
    if (is_sum(a) && is_sum(b)) return sum_of_sums(a, b);
    if (is_sum(a)) return plus_term(a, b);
    if (is_sum(b)) return plus_term(b, a);
    if (!is_nonlinear(a)) std::swap(a, b);
    ArgumentLog log;
    log.reserve(4);
    log.append({a});
    log.append({b});
    return finish_sum(std::move(log), Ref());
}

Ref nonlinear_difference(PyObject* a, PyObject* b) {
    if (kind_of(b) == Kind::number) return minus_number(a, b);
    if (kind_of(a) == Kind::number && operand_value(a) == 0.0) return nonlinear_negation(b);
    if (is_sum(a)) return plus_term(a, scaled_copy(b, -1.0).get());
    if (is_chain_of_differences(a)) return nonlinear_sum(a, scaled_copy(b, -1.0).get());
    return few_node(Op::minus, a, b);
}

Ref nonlinear_product(PyObject* a, PyObject* b) {
    Ref simple;
    if (kind_of(a) == Kind::number) {
        simple = product_by_number(operand_value(a), b);
    } else if (kind_of(b) == Kind::number) {
        simple = product_by_number(operand_value(b), a);
    }
    if (simple) return simple;
    return make_binary(Op::product, a, b);
}

// The log makes this safe whoever else holds the product: the old node does not see the new factor.
Ref extended_product(PyObject* a, PyObject* b) {
    const Kind kind = kind_of(b);
    Ref factor = Ref::borrow(b);
    if (kind == Kind::expression && is_constant(as_expression(b))) {
        factor = make_float(as_expression(b)->constant);
    }
    if (kind_of(factor.get()) == Kind::number) {
        Ref simple = product_by_number(operand_value(factor.get()), a);
        if (simple) return simple;
    }
    ArgumentLog log = log_to_extend(as_nonlinear(a), factor.get());
    log.append({factor.get()});
    return logged_node(Op::product, std::move(log), Ref());
}

Ref extended_nary(Op op, PyObject* a, PyObject* b) {
    if (!is_node(a, op) || kind_of(b) == Kind::invalid) {
        PyObject* const both[] = {a, b};
        return make_nary(op, both);
    }
    ArgumentLog log = log_to_extend(as_nonlinear(a), b);
    log.append({b});
    return logged_node(op, std::move(log), Ref());
}

Ref nonlinear_negation(PyObject* a) { return few_node(Op::negation, a, nullptr); }
Ref nonlinear_quotient(PyObject* a, PyObject* b) { return few_node(Op::quotient, a, b); }
Ref nonlinear_power(PyObject* a, PyObject* b) { return few_node(Op::power, a, b); }

}  // namespace nalora
