#include "nonlinear_support.hpp"

#include "nslp.h"

namespace formulas {

bool Wavy::call(const double* args, int n, double* value, double* gradient) {
    ++calls;
    *value = 0.0;
    for (int i = 0; i < n; ++i) {
        if (gradient != nullptr) gradient[i] = 2.0 * args[i];
    }
    for (int i = 0; i < n; ++i) {
        const double next = i + 1 < n ? args[i + 1] : 1.0;
        *value += std::sin(args[i]) * next + args[i] * args[i];
        if (gradient == nullptr) continue;
        gradient[i] += std::cos(args[i]) * next;
        if (i + 1 < n) gradient[i + 1] += std::sin(args[i]);
    }
    return true;
}

Ptr constant(double value) {
    return std::make_shared<Expression>(Expression{NSLP_TOKEN_CONSTANT, value, {}});
}
Ptr column(int index) {
    return std::make_shared<Expression>(
        Expression{NSLP_TOKEN_COLUMN, static_cast<double>(index), {}});
}
Ptr applied(int function, std::vector<Ptr> args) {
    return std::make_shared<Expression>(
        Expression{NSLP_TOKEN_FUNCTION, static_cast<double>(function), std::move(args)});
}
Ptr call(int function, std::vector<Ptr> args) {
    return std::make_shared<Expression>(
        Expression{NSLP_TOKEN_USERFUNCTION, static_cast<double>(function), std::move(args)});
}
Ptr operate(int op, std::vector<Ptr> args) {
    return std::make_shared<Expression>(
        Expression{NSLP_TOKEN_OPERATOR, static_cast<double>(op), std::move(args)});
}
Ptr operator+(const Ptr& a, const Ptr& b) { return operate(NSLP_OPERATOR_PLUS, {a, b}); }
Ptr operator-(const Ptr& a, const Ptr& b) { return operate(NSLP_OPERATOR_MINUS, {a, b}); }
Ptr operator-(const Ptr& a) { return operate(NSLP_OPERATOR_NEGATE, {a}); }
Ptr operator*(const Ptr& a, const Ptr& b) { return operate(NSLP_OPERATOR_MULTIPLY, {a, b}); }
Ptr operator/(const Ptr& a, const Ptr& b) { return operate(NSLP_OPERATOR_DIVIDE, {a, b}); }
Ptr power(const Ptr& a, const Ptr& b) { return operate(NSLP_OPERATOR_POWER, {a, b}); }
Ptr power(const Ptr& a, double b) { return power(a, constant(b)); }

void emit(const Ptr& expression, Tokens& out) {
    const bool lists =
        expression->type == NSLP_TOKEN_FUNCTION || expression->type == NSLP_TOKEN_USERFUNCTION;
    if (lists) out.add(NSLP_TOKEN_ARGUMENTS);
    for (size_t i = 0; i < expression->args.size(); ++i) {
        if (lists && i > 0) out.add(NSLP_TOKEN_COMMA);
        emit(expression->args[i], out);
    }
    out.add(expression->type, expression->value);
}

Tokens tokens(const Ptr& expression) {
    Tokens out;
    emit(expression, out);
    out.add(NSLP_TOKEN_END);
    return out;
}

namespace {

// Value and two derivatives of an internal function of one argument.
std::array<double, 3> calculus(int function, double x) {
    const double s = 1.0 - x * x;
    const double bell = 2.0 / std::sqrt(std::acos(-1.0)) * std::exp(-x * x);
    switch (function) {
        case nlra::kFunctionExp:
            return {std::exp(x), std::exp(x), std::exp(x)};
        case nlra::kFunctionLog:
            return {std::log(x), 1 / x, -1 / (x * x)};
        case nlra::kFunctionLog10:
            return {std::log10(x), 1 / (x * std::log(10.0)), -1 / (x * x * std::log(10.0))};
        case nlra::kFunctionSin:
            return {std::sin(x), std::cos(x), -std::sin(x)};
        case nlra::kFunctionCos:
            return {std::cos(x), -std::sin(x), -std::cos(x)};
        case nlra::kFunctionTan:
            return {std::tan(x), std::pow(std::cos(x), -2),
                    2 * std::sin(x) * std::pow(std::cos(x), -3)};
        case nlra::kFunctionAsin:
            return {std::asin(x), std::pow(s, -0.5), x * std::pow(s, -1.5)};
        case nlra::kFunctionAcos:
            return {std::acos(x), -std::pow(s, -0.5), -x * std::pow(s, -1.5)};
        case nlra::kFunctionAtan:
            return {std::atan(x), 1 / (1 + x * x), -2 * x * std::pow(1 + x * x, -2)};
        case nlra::kFunctionSqrt:
            return {std::sqrt(x), 0.5 * std::pow(x, -0.5), -0.25 * std::pow(x, -1.5)};
        case nlra::kFunctionErf:
            return {std::erf(x), bell, -2 * x * bell};
        case nlra::kFunctionErfc:
            return {std::erfc(x), -bell, 2 * x * bell};
        case nlra::kFunctionAbs:
            return {std::fabs(x), x < 0 ? -1.0 : 1.0, 0.0};
        default:
            return {x < 0 ? -1.0 : x > 0 ? 1.0 : 0.0, 0.0, 0.0};
    }
}

Taylor line(const Taylor& x, const std::vector<Taylor>& points) {
    size_t k = 3;
    while (k + 2 < points.size() && points[k].value <= x.value) k += 2;
    const double slope =
        (points[k + 1].value - points[k - 1].value) / (points[k].value - points[k - 2].value);
    return x.apply(x, points[k - 1].value + slope * (x.value - points[k - 2].value), slope, 0, 0, 0,
                   0);
}

Taylor operated(int op, const std::vector<Taylor>& args) {
    const Taylor& a = args[0];
    const Taylor& b = args.back();
    const double x = a.value;
    const double y = b.value;
    switch (op) {
        case NSLP_OPERATOR_NEGATE:
            return a.apply(a, -x, -1, 0, 0, 0, 0);
        case NSLP_OPERATOR_PLUS:
            return a.apply(b, x + y, 1, 1, 0, 0, 0);
        case NSLP_OPERATOR_MINUS:
            return a.apply(b, x - y, 1, -1, 0, 0, 0);
        case NSLP_OPERATOR_MULTIPLY:
            return a.apply(b, x * y, y, x, 0, 1, 0);
        case NSLP_OPERATOR_DIVIDE:
            return a.apply(b, x / y, 1 / y, -x / (y * y), 0, -1 / (y * y), 2 * x / (y * y * y));
        default:
            break;
    }
    const double f = std::pow(x, y);
    if (b.is_flat()) {
        return a.apply(a, f, y * std::pow(x, y - 1), 0, y * (y - 1) * std::pow(x, y - 2), 0, 0);
    }
    const double l = std::log(x);
    return a.apply(b, f, y * f / x, f * l, y * (y - 1) * f / (x * x), f / x * (1 + y * l),
                   f * l * l);
}

}  // namespace

Taylor evaluate(const Expression& node, const std::vector<Taylor>& args, const double* x) {
    const int number = static_cast<int>(node.value);
    Taylor out;
    switch (node.type) {
        case NSLP_TOKEN_CONSTANT:
            out.value = node.value;
            return out;
        case NSLP_TOKEN_COLUMN:
            out.value = x[number];
            out.gradient[number] = 1.0;
            return out;
        case NSLP_TOKEN_OPERATOR:
            return operated(number, args);
        case NSLP_TOKEN_USERFUNCTION: {
            Taylor one;
            one.value = 1.0;
            for (size_t i = 0; i < args.size(); ++i) {
                const auto [f, d, h] = calculus(nlra::kFunctionSin, args[i].value);
                const Taylor sine = args[i].apply(args[i], f, d, 0, h, 0, 0);
                const Taylor& next = i + 1 < args.size() ? args[i + 1] : one;
                out = operated(NSLP_OPERATOR_PLUS,
                               {out, operated(NSLP_OPERATOR_MULTIPLY, {sine, next})});
                out = operated(NSLP_OPERATOR_PLUS,
                               {out, operated(NSLP_OPERATOR_MULTIPLY, {args[i], args[i]})});
            }
            return out;
        }
        default:
            break;
    }
    if (number == nlra::kFunctionPiecewise) return line(args[0], args);
    if (number == nlra::kFunctionMin || number == nlra::kFunctionMax) {
        out = args[0];
        for (const Taylor& arg : args) {
            if (number == nlra::kFunctionMin ? arg.value < out.value : arg.value > out.value) {
                out = arg;
            }
        }
        return out;
    }
    const auto [f, d, h] = calculus(number, args[0].value);
    return args[0].apply(args[0], f, d, 0, h, 0, 0);
}

Taylor evaluate(const Ptr& expression, const double* x) {
    std::vector<Taylor> args;
    args.reserve(expression->args.size());
    for (const Ptr& arg : expression->args) args.push_back(evaluate(arg, x));
    return evaluate(*expression, args, x);
}

int add(nlra::FormulaRoots& roots, const Ptr& expression) {
    const Tokens all = tokens(expression);
    return roots.add({all.piece()});
}

}  // namespace formulas
