// Random expressions with shared parts: values and all derivatives against independent ones.
#include <algorithm>
#include <cmath>
#include <random>

#include "check.hpp"
#include "nonlinear/tape.hpp"
#include "nonlinear_support.hpp"

using formulas::Ptr;
using formulas::Taylor;
using nlra::FormulaRoots;
using nlra::RootParts;
using nlra::Tape;

namespace {

constexpr int kColumns = Taylor::kSize;

struct Shared {
    Ptr expression;
    Taylor taylor;
    size_t tokens;
};

// Grows a pool of expressions over each other, all tame at the point.
class Generator {
  public:
    Generator(unsigned seed, int functions) : random_(seed), functions_(functions) {
        std::uniform_real_distribution<double> any(-2.0, 2.0);
        for (double& value : x) value = any(random_);
        for (int i = 0; i < kColumns; ++i) take(formulas::column(i));
        take(formulas::constant(any(random_)));
        take(formulas::constant(std::floor(any(random_))));
    }

    void grow(size_t size) {
        while (pool.size() < size) take(next());
    }
    const Shared& pick() {
        // Recent ones preferred: deep rather than wide.
        const size_t range = random_() % 2 == 0 ? std::min<size_t>(6, pool.size()) : pool.size();
        return pool[pool.size() - 1 - random_() % range];
    }
    double number(double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random_);
    }

    std::array<double, kColumns> x;
    std::vector<Shared> pool;

  private:
    Ptr any() { return pick().expression; }

    Ptr next() {
        using namespace formulas;
        static constexpr int kUnary[] = {
            nlra::kFunctionExp,  nlra::kFunctionLog,  nlra::kFunctionLog10, nlra::kFunctionSin,
            nlra::kFunctionCos,  nlra::kFunctionTan,  nlra::kFunctionAsin,  nlra::kFunctionAcos,
            nlra::kFunctionAtan, nlra::kFunctionSqrt, nlra::kFunctionErf,   nlra::kFunctionErfc,
            nlra::kFunctionAbs,  nlra::kFunctionSign};
        static constexpr double kExponents[] = {2, 3, 0.5, -1, -2, 1.5, 4, 5, -0.7, 1, 0, -3};
        switch (random_() % 12) {
            case 0:
            case 1:
                return any() + any();
            case 2:
                return any() - any();
            case 3:
            case 4:
                return any() * any();
            case 5:
                return any() / any();
            case 6:
                return power(any(), kExponents[random_() % std::size(kExponents)]);
            case 7:
                return power(any(), any());
            case 8: {
                const bool least = random_() % 2 == 0;
                std::vector<Ptr> args(1 + random_() % 4);
                for (Ptr& arg : args) arg = any();
                return formulas::applied(least ? nlra::kFunctionMin : nlra::kFunctionMax, args);
            }
            case 9:
                if (functions_ > 0) {
                    std::vector<Ptr> args(1 + random_() % 3);
                    for (Ptr& arg : args) arg = any();
                    return call(static_cast<int>(random_() % 64) % functions_, args);
                }
                return formulas::applied(
                    nlra::kFunctionPiecewise,
                    {any(), constant(-1.0), constant(2.0), constant(number(-0.9, 0.5)),
                     constant(0.5), constant(1.0), constant(-1.5), constant(2.5), constant(4.0)});
            default:
                return formulas::applied(kUnary[random_() % std::size(kUnary)], {any()});
        }
    }

    // Keeps what is defined, of moderate size and, where it has kinks, away from them.
    void take(const Ptr& expression) {
        std::vector<Taylor> args;
        size_t size = 3;
        for (const Ptr& arg : expression->args) {
            const auto found = std::find_if(pool.begin(), pool.end(), [&](const Shared& shared) {
                return shared.expression == arg;
            });
            args.push_back(found == pool.end() ? formulas::evaluate(arg, x.data()) : found->taylor);
            size += found == pool.end() ? 1 : found->tokens + 1;
        }
        const Taylor result = formulas::evaluate(*expression, args, x.data());
        if (!(result.scale < 1e3) || size > 4000) return;
        const bool is_power = expression->type == NSLP_TOKEN_OPERATOR &&
                              static_cast<int>(expression->value) == NSLP_OPERATOR_POWER;
        // A base near zero magnifies rounding, and so do arguments near the ends of a domain.
        if (is_power && args[0].value < 0.05 &&
            (expression->args[1]->type != NSLP_TOKEN_CONSTANT || args[0].value > -0.05)) {
            return;
        }
        if (expression->type == NSLP_TOKEN_FUNCTION && near_kink(*expression, args)) return;
        pool.push_back({expression, result, size});
    }

    static bool near_kink(const formulas::Expression& node, const std::vector<Taylor>& args) {
        const int function = static_cast<int>(node.value);
        if (function == nlra::kFunctionAbs || function == nlra::kFunctionSign) {
            return std::fabs(args[0].value) < 1e-6;
        }
        if (function == nlra::kFunctionPiecewise) {
            for (size_t k = 1; k < args.size(); k += 2) {
                if (std::fabs(args[0].value - args[k].value) < 1e-6) return true;
            }
        }
        if (function != nlra::kFunctionMin && function != nlra::kFunctionMax) return false;
        for (size_t i = 0; i < args.size(); ++i) {
            for (size_t j = 0; j < i; ++j) {
                if (std::fabs(args[i].value - args[j].value) < 1e-6) return true;
            }
        }
        return false;
    }

    std::mt19937 random_;
    int functions_;
};

struct Case {
    std::vector<Taylor> expected;
    FormulaRoots roots;
    std::unique_ptr<Tape> tape;

    void build() {
        std::vector<const RootParts*> parts;
        for (size_t i = 0; i < expected.size(); ++i) {
            parts.push_back(&roots.parts(static_cast<int>(i)));
        }
        tape = std::make_unique<Tape>(roots.graph(), parts, roots.functions());
        REQUIRE(tape->plan_hessian());
    }
};

// Differences of the tape's own values; across a kink they may be off.
int compared = 0, off = 0;

void count_differences(Case& test, const double* x) {
    constexpr double kStep = 1e-7;
    const int count = test.tape->roots();
    std::vector<double> above(count), below(count);
    for (int j = 0; j < kColumns; ++j) {
        std::vector<double> moved(x, x + kColumns);
        moved[j] = x[j] + kStep;
        const bool defined = test.tape->values(moved.data(), above.data());
        moved[j] = x[j] - kStep;
        if (!defined || !test.tape->values(moved.data(), below.data())) continue;
        for (int root = 0; root < count; ++root) {
            const double slope = (above[root] - below[root]) / (2.0 * kStep);
            const double error = std::fabs(slope - test.expected[root].gradient[j]);
            ++compared;
            off += error <= 1e-4 * std::fmax(1.0, std::fabs(slope)) ? 0 : 1;
        }
    }
}

void check_derivatives(Case& test, const double* x, const std::vector<double>& weights,
                       double tolerance) {
    const auto near = [&](double a, double b) {
        return CHECK_NEAR(a, b, tolerance * std::fmax(1.0, std::fabs(b)));
    };
    Tape& tape = *test.tape;
    const int count = tape.roots();
    std::vector<double> values(count);
    std::vector<double> jacobian(tape.jacobian_col().size());
    std::vector<double> gradient(kColumns);
    std::vector<double> hessian(tape.hessian_row().size());
    // The Hessian first: it must not depend on what was asked before.
    REQUIRE(tape.hessian(x, weights.data(), hessian.data()));
    REQUIRE(tape.values(x, values.data()));
    REQUIRE(tape.jacobian(x, jacobian.data()));
    for (int root = 0; root < count; ++root) {
        near(values[root], test.expected[root].value);
        double dense[kColumns] = {};
        const int64_t begin = tape.jacobian_start()[root];
        REQUIRE(tape.gradient(x, root, gradient.data()));
        for (int64_t k = begin; k < tape.jacobian_start()[root + 1]; ++k) {
            dense[tape.jacobian_col()[k]] = jacobian[k];
            CHECK(gradient[k - begin] == jacobian[k]);
        }
        for (int j = 0; j < kColumns; ++j) near(dense[j], test.expected[root].gradient[j]);
    }
    if (tolerance <= 1e-10) count_differences(test, x);
    double dense[kColumns][kColumns] = {};
    for (size_t k = 0; k < hessian.size(); ++k) {
        CHECK(tape.hessian_row()[k] >= tape.hessian_col()[k]);
        dense[tape.hessian_row()[k]][tape.hessian_col()[k]] = hessian[k];
    }
    for (int i = 0; i < kColumns; ++i) {
        for (int j = 0; j <= i; ++j) {
            double sum = 0.0;
            for (int root = 0; root < count; ++root) {
                sum += weights[root] * test.expected[root].hessian[i][j];
            }
            near(dense[i][j], sum);
        }
    }
}

void run(int cases, unsigned first_seed, std::vector<nlra::OpaqueFunction*> functions,
         double tolerance) {
    for (int seed = 0; seed < cases && check::failures() < 5; ++seed) {
        Generator generator(first_seed + seed, static_cast<int>(functions.size()));
        generator.grow(20 + seed % 100);
        Case test;
        test.roots.set_columns(kColumns);
        for (nlra::OpaqueFunction* function : functions) test.roots.add_function(function);
        std::vector<double> weights;
        for (int root = 0; root < 3; ++root) {
            const Shared a = generator.pick();
            const Shared b = generator.pick();
            const Shared c = generator.pick();
            const Ptr expression = a.expression * b.expression - c.expression;
            formulas::add(test.roots, expression);
            test.expected.push_back(formulas::evaluate(
                *expression,
                {formulas::evaluate(*expression->args[0], {a.taylor, b.taylor}, nullptr), c.taylor},
                nullptr));
            weights.push_back(generator.number(-2.0, 2.0));
        }
        test.build();
        check_derivatives(test, generator.x.data(), weights, tolerance);
    }
}

}  // namespace

TEST("nonlinear: derivatives of random expressions") {
    run(6000, 1, {}, 1e-10);
    CHECK(compared > 50000 && off * 1000 < compared);
}

TEST("nonlinear: derivatives of random expressions with opaque functions") {
    formulas::Wavy with(true);
    formulas::Wavy without(false);
    run(1000, 100000, {&with}, 1e-6);
    run(1000, 200000, {&with, &without}, 1e-3);
}
