// Proofs of convexity: known functions, and random ones against second derivatives.
#include <random>
#include <string>

#include "check.hpp"
#include "nonlinear/curvature.hpp"
#include "nonlinear_support.hpp"

using namespace formulas;
using nlra::CurvatureAnalysis;
using nlra::FormulaRoots;
using nlra::Shape;

namespace {

// "linear", "convex", "concave" or "unknown"
std::string shape_name(const Ptr& expression, const std::vector<double>& lower,
                       const std::vector<double>& upper) {
    FormulaRoots roots;
    roots.set_columns(static_cast<int>(lower.size()));
    Wavy wavy(true);
    roots.add_function(&wavy);
    const int root = add(roots, expression);
    const Shape shape =
        CurvatureAnalysis(roots.graph(), lower.data(), upper.data()).shape(roots.parts(root));
    return shape.linear()  ? "linear"
           : shape.convex  ? "convex"
           : shape.concave ? "concave"
                           : "unknown";
}

Ptr f(int function, const Ptr& a) { return applied(function, {a}); }

}  // namespace

TEST("nonlinear: curvature of known functions") {
    using namespace nlra;
    const Ptr x = column(0);    // 0 to infinity
    const Ptr y = column(1);    // -3 to 3
    const Ptr z = column(2);    // free
    const Ptr two = column(3);  // fixed at -2
    const std::vector<double> lower = {0.0, -3.0, -kInfinity, -2.0};
    const std::vector<double> upper = {kInfinity, 3.0, kInfinity, -2.0};
    const auto one = constant(1.0);
    const auto exp_square = f(kFunctionExp, power(z, 2));
    struct Row {
        const char* shape;
        Ptr expression;
    };
    const Row table[] = {
        {"linear", x - constant(2) * y},
        {"linear", two * y + two * two * two},
        {"concave", two * f(kFunctionExp, z)},
        {"convex", f(kFunctionExp, y - z) + power(y, 2)},
        {"convex", f(kFunctionExp, power(z, 2))},
        {"unknown", f(kFunctionExp, -power(z, 2))},
        {"concave", f(kFunctionLog, x + one) - power(z, 4)},
        {"concave", f(kFunctionLog, f(kFunctionSqrt, x))},
        {"unknown", f(kFunctionLog, power(z, 2) + one)},
        {"convex", -f(kFunctionLog, y)},
        {"convex", power(x, 3) + power(x, 1.5)},
        {"concave", power(x, 0.4)},
        {"unknown", power(z, 3)},
        {"convex", one / x},
        {"unknown", one / z},
        {"convex", one / f(kFunctionSqrt, x)},
        {"convex", power(z, 2) / (x + one)},
        {"unknown", power(z, 2) / (z + one)},
        {"convex", (x + one) * f(kFunctionLog, x + one)},
        {"unknown", x * f(kFunctionLog, z)},
        // The set where it is defined is not convex.
        {"unknown", power(power(z, 2) - one, 1.5)},
        {"convex", power(f(kFunctionAbs, z), 1.5)},
        {"convex", f(kFunctionAbs, y - z)},
        {"convex", applied(kFunctionMax, {x, power(z, 2), one})},
        {"concave", applied(kFunctionMin, {x, f(kFunctionLog, x)})},
        {"unknown", applied(kFunctionMin, {x, power(z, 2)})},
        {"convex", power(constant(0.5), z) + power(constant(3), power(y, 2))},
        {"convex", power(y, 2) + power(z, 2) - y * z},
        {"unknown", power(y, 2) + power(z, 2) - constant(3) * y * z},
        {"convex", power(x + y - z, 2) + power(f(kFunctionExp, z) + one, 2)},
        {"concave",
         f(kFunctionSin, (y + constant(3)) / constant(2)) - f(kFunctionExp, z) + power(y, 2) * two},
        {"unknown", f(kFunctionSin, x)},
        {"concave", f(kFunctionCos, y / constant(2))},
        {"concave", f(kFunctionAtan, x) + f(kFunctionErf, x)},
        {"convex", applied(kFunctionPiecewise, {z, constant(0), constant(0), constant(1),
                                                constant(1), constant(2), constant(4)})},
        {"unknown", applied(kFunctionPiecewise, {z, constant(0), constant(0), constant(1),
                                                 constant(1), constant(1), constant(2)})},
        {"convex", f(kFunctionLog, f(kFunctionExp, y) + constant(2) * exp_square + one)},
        {"convex", f(kFunctionLog, f(kFunctionExp, y) / (x + one) + power(exp_square, 0.3))},
        {"unknown", f(kFunctionLog, f(kFunctionExp, y) - f(kFunctionExp, -z))},
        {"unknown", f(kFunctionLog, f(kFunctionExp, y) + x)},
        {"convex", f(kFunctionSqrt, power(y, 2) + power(z, 2) + one)},
        {"convex", f(kFunctionSqrt, power(y - z + one, 2) + power(x + one, 4) + exp_square)},
        {"convex", power(power(y, 2) + constant(2) * z * y + power(z, 2), 0.7)},
        {"convex", (power(y, 2) + power(x - z, 2)) / f(kFunctionSqrt, x + one)},
        {"unknown", f(kFunctionSqrt, power(y, 2) + constant(2.1) * z * y + power(z, 2))},
        {"unknown", f(kFunctionSqrt, power(z, 2) + constant(2) * z + constant(0.9))},
        {"unknown", f(kFunctionSqrt, power(power(z, 2) - one, 2) + one)},
        {"unknown", call(0, {x})},
    };
    for (const Row& row : table) {
        const std::string shape = shape_name(row.expression, lower, upper);
        if (!CHECK(shape == row.shape)) {
            std::fprintf(stderr, "  row %td: %s, not %s\n", &row - table, shape.c_str(), row.shape);
        }
    }
}

TEST("nonlinear: no curvature is proven that second derivatives refute") {
    using namespace nlra;
    std::mt19937 random(5);
    static constexpr int kFunctions[] = {kFunctionExp,  kFunctionLog,  kFunctionSin,  kFunctionCos,
                                         kFunctionTan,  kFunctionAsin, kFunctionAcos, kFunctionAtan,
                                         kFunctionSqrt, kFunctionErf,  kFunctionErfc, kFunctionAbs,
                                         kFunctionSign};
    static constexpr double kExponents[] = {2, 3, -1, -2, 0.5, 1.5, -0.5, 4, 5, -3};
    int proven = 0;
    for (int trial = 0; trial < 20000; ++trial) {
        std::vector<double> lower(2);
        std::vector<double> upper(2);
        for (int j = 0; j < 2; ++j) {
            lower[j] = static_cast<double>(random() % 9) / 2.0 - 2.0;
            upper[j] = lower[j] + 0.5 + static_cast<double>(random() % 4) / 2.0;
        }
        std::vector<Ptr> pool = {column(0), column(1), constant(lower[0]), constant(2.0)};
        const auto any = [&] {
            return pool[pool.size() - 1 - random() % std::min<size_t>(5, pool.size())];
        };
        for (int step = 0; step < 4; ++step) {
            switch (random() % 7) {
                case 0:
                    pool.push_back(any() + any());
                    break;
                case 1:
                    pool.push_back(any() - any());
                    break;
                case 2:
                    pool.push_back(any() * any());
                    break;
                case 3:
                    pool.push_back(any() / any());
                    break;
                case 4:
                    pool.push_back(power(any(), kExponents[random() % std::size(kExponents)]));
                    break;
                default:
                    pool.push_back(f(kFunctions[random() % std::size(kFunctions)], any()));
            }
        }
        const std::string shape = shape_name(pool.back(), lower, upper);
        if (shape == "unknown" || shape == "linear") continue;
        ++proven;
        for (int sample = 0; sample < 20; ++sample) {
            double x[Taylor::kSize] = {};
            for (int j = 0; j < 2; ++j) {
                x[j] = std::uniform_real_distribution<double>(lower[j], upper[j])(random);
            }
            const Taylor at = evaluate(pool.back(), x);
            if (!(at.scale < 1e5)) continue;
            const auto& h = at.hessian;
            const double sign = shape == "convex" ? 1.0 : -1.0;
            const double slack = 1e-9 * at.scale;
            CHECK(sign * h[0][0] >= -slack);
            CHECK(sign * h[1][1] >= -slack);
            CHECK(h[0][0] * h[1][1] - h[0][1] * h[0][1] >= -slack * at.scale);
        }
    }
    CHECK(proven > 1000);
}
