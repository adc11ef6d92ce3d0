// Where derivatives exist, which are chosen at kinks, how sparse they are, and opaque functions.
#include <limits>
#include <stdexcept>

#include "check.hpp"
#include "nonlinear/tape.hpp"
#include "nonlinear_support.hpp"

using namespace formulas;
using nlra::FormulaRoots;
using nlra::RootParts;
using nlra::Tape;

namespace {

struct One {
    FormulaRoots roots;
    std::unique_ptr<Tape> tape;
    double value = 0.0;
    bool has_value, has_gradient, has_hessian;
    std::vector<double> gradient, hessian;

    explicit One(const Ptr& expression, int columns = 2, nlra::OpaqueFunction* function = nullptr) {
        roots.set_columns(columns);
        if (function != nullptr) roots.add_function(function);
        const RootParts& parts = roots.parts(add(roots, expression));
        tape = std::make_unique<Tape>(roots.graph(), std::vector<const RootParts*>{&parts},
                                      roots.functions());
        REQUIRE(tape->plan_hessian());
        gradient.resize(tape->jacobian_col().size() + 1);
        hessian.resize(tape->hessian_col().size() + 1);
    }
    One& at(std::vector<double> x) {
        const double weight = 1.0;
        has_value = tape->values(x.data(), &value);
        has_gradient = tape->jacobian(x.data(), gradient.data());
        has_hessian = tape->hessian(x.data(), &weight, hessian.data());
        return *this;
    }
};

}  // namespace

TEST("nonlinear: powers, quotients and kinks at their special points") {
    const Ptr x = column(0);
    const Ptr y = column(1);
    const double none = std::numeric_limits<double>::quiet_NaN();
    const auto piece = [&](double a, double b) {
        return applied(nlra::kFunctionPiecewise,
                       {x, constant(0), constant(0), constant(1), constant(2), constant(a),
                        constant(b), constant(3), constant(1)});
    };
    struct Row {
        Ptr expression;
        double x, y;
        double value, gradient, hessian;  // by x only; NaN: not defined
    };
    const Row table[] = {
        {power(x, 2), 0, 0, 0, 0, 2},
        {power(x, 3), 0, 0, 0, 0, 0},
        {power(x, 3), -2, 0, -8, 12, -12},
        {power(x, 4), 0, 0, 0, 0, 0},
        {power(x, -3), -2, 0, -0.125, -0.1875, -0.375},
        {power(x, -1), 0, 0, none, none, none},
        {power(x, -2), 0, 0, none, none, none},
        {power(x, 0.5), 0, 0, 0, none, none},
        {power(x, 0.5), -1, 0, none, none, none},
        {power(x, 1.5), 0, 0, 0, 0, none},
        {power(x, 2.5), 0, 0, 0, 0, 0},
        {power(x, 1.5), -1, 0, none, none, none},
        {power(x, y), -2, 2, none, none, none},
        {power(constant(2), x), 3, 0, 8, 8 * std::log(2.0), 8 * std::log(2.0) * std::log(2.0)},
        {y / x, 0, 1, none, none, none},
        {applied(nlra::kFunctionLog, {x}), 0, 0, none, none, none},
        {applied(nlra::kFunctionLog, {x}), -1, 0, none, none, none},
        {applied(nlra::kFunctionAsin, {x}), 1.5, 0, none, none, none},
        {applied(nlra::kFunctionExp, {x}), 1000, 0, none, none, none},
        {applied(nlra::kFunctionMin, {applied(nlra::kFunctionLog, {x}), constant(1)}), -1, 0, none,
         none, none},
        {applied(nlra::kFunctionAbs, {x}), 0, 0, 0, 0, 0},
        {applied(nlra::kFunctionAbs, {power(x, 3)}), -2, 0, 8, -12, 12},
        {applied(nlra::kFunctionMax, {power(x, 2), y}), 2, 4, 4, 4, 2},
        {applied(nlra::kFunctionMax, {power(x, 2), y}), 1, 4, 4, 0, 0},
        {power(applied(nlra::kFunctionMax, {x, y}), 2), 3, 1, 9, 6, 2},
        {x * applied(nlra::kFunctionSign, {x}), -3, 0, 3, -1, 0},
        {piece(1, 5), 1, 0, 5, -2, 0},  // a jump: what is right of it
        {piece(2, 2), 1, 0, 2, 0, 0},
        {piece(2, 2), -1, 0, -2, 2, 0},
        {piece(2, 2), 4, 0, 0, -1, 0},
    };
    for (const Row& row : table) {
        One one(row.expression);
        one.at({row.x, row.y});
        CHECK(one.has_value == !std::isnan(row.value));
        CHECK(one.has_gradient == !std::isnan(row.gradient));
        CHECK(one.has_hessian == !std::isnan(row.hessian));
        if (one.has_value) CHECK_NEAR(one.value, row.value, 1e-12);
        if (one.has_gradient) CHECK_NEAR(one.gradient[0], row.gradient, 1e-12);
        if (one.has_hessian) CHECK_NEAR(one.hessian[0], row.hessian, 1e-12);
    }
}

TEST("nonlinear: Hessians are as sparse as the functions") {
    constexpr int kColumns = 300;
    Ptr sum = constant(0);
    Ptr product = column(0);
    std::vector<Ptr> arguments;
    for (int j = 0; j < kColumns; ++j) {
        sum = sum + applied(nlra::kFunctionExp, {column(j)});
        if (j > 0 && j < 20) product = product * column(j);
        arguments.push_back(power(column(j), 2));
    }
    CHECK(One(sum, kColumns).tape->hessian_row().size() == kColumns);
    CHECK(One(product, kColumns).tape->hessian_row().size() == 190);
    CHECK(One(power(applied(nlra::kFunctionMax, arguments), 2), kColumns)
              .tape->hessian_row()
              .size() == kColumns);
    CHECK(One(applied(nlra::kFunctionSign, {sum}), kColumns).tape->jacobian_col().empty());

    // A dense one is planned only when it may cost as much.
    FormulaRoots roots;
    roots.set_columns(kColumns);
    const RootParts& parts = roots.parts(add(roots, applied(nlra::kFunctionSqrt, {sum})));
    Tape dense(roots.graph(), {&parts}, {});
    CHECK(!dense.plan_hessian(kColumns * kColumns / 4));
    CHECK(dense.plan_hessian());
    CHECK(dense.hessian_row().size() == kColumns * (kColumns + 1) / 2);
}

TEST("nonlinear: opaque functions are called once per point and may fail") {
    struct Root : nlra::OpaqueFunction {
        int calls = 0;
        double failing = 1e9;
        Root() { gives_derivatives = true; }
        bool call(const double* args, int, double* value, double* gradient) override {
            ++calls;
            if (args[0] >= failing) throw std::runtime_error("failing");
            if (args[0] < 0.0) return false;
            *value = std::sqrt(args[0]);
            if (gradient != nullptr) gradient[0] = 0.5 / *value;
            return true;
        }
    };
    Root root;
    const Ptr once = call(0, {column(0)});
    One one(once * column(1) + applied(nlra::kFunctionSin, {once}), 2, &root);
    std::vector<double> out(10);
    double x[] = {4.0, 3.0};
    CHECK(one.tape->values(x, out.data()));
    CHECK(one.tape->jacobian(x, out.data()));
    x[1] = 5.0;  // not an argument
    CHECK(one.tape->values(x, out.data()));
    CHECK_NEAR(out[0], 10.0 + std::sin(2.0), 1e-14);
    CHECK(root.calls == 1);
    CHECK(!one.at({-1.0, 1.0}).has_value);
    CHECK(!one.has_gradient);
    CHECK(!one.has_hessian);
    root.failing = 9.0;
    CHECK_THROWS(one.at({9.0, 1.0}), std::runtime_error);
    CHECK_THROWS(one.at({9.0, 1.0}), std::runtime_error);
    CHECK(one.at({4.0, 1.0}).has_hessian);
    CHECK_NEAR(one.value, 2.0 + std::sin(2.0), 1e-14);

    // Differences at the end of a domain: one side only.
    root.gives_derivatives = false;
    One edge(call(0, {column(0) - constant(3.0)}), 1, &root);
    CHECK(edge.at({3.000001}).has_gradient);
    CHECK_NEAR(edge.at({5.0}).gradient[0], 0.5 / std::sqrt(2.0), 1e-9);
    // Any number of arguments, none included.
    Wavy wavy(false);
    CHECK_NEAR(One(call(0, {}) + constant(3.0), 1, &wavy).at({0.0}).value, 3.0, 0.0);
}
