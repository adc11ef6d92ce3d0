// Kinks bounded from one side: what the new model's points say of the old one's, and formulas that
// are written back to tokens.
#include <algorithm>
#include <cmath>
#include <random>

#include "check.hpp"
#include "nonlinear/epigraph.hpp"
#include "nonlinear/formula_writer.hpp"
#include "nonlinear/model_values.hpp"
#include "nonlinear/tape.hpp"
#include "nonlinear_support.hpp"
#include "search/optimize_nonlinear.hpp"
#include "solve_support.hpp"
#include "store/error.hpp"

using namespace formulas;
using nlra::epigraph_form;
using nlra::Model;
using nlra::Solution;

namespace {

constexpr int kColumns = 4;
constexpr double kLower[kColumns] = {-2.0, 0.5, -1.0, -1e20};
constexpr double kUpper[kColumns] = {2.0, 2.0, 0.0, 1e20};

int product_of_two(void*, const double* args, int, double* value, double*) {
    *value = args[0] * args[1];
    return 0;
}

class Expressions {
  public:
    explicit Expressions(unsigned seed) : random_(seed) {}

    double number(double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random_);
    }
    int below(int count) { return static_cast<int>(random_() % static_cast<unsigned>(count)); }

    Ptr any(int depth) {
        if (depth == 0) return below(5) == 0 ? constant(number(-1, 2)) : column(below(kColumns));
        const Ptr a = any(depth - 1);
        switch (below(12)) {
            case 0:
                return a + any(depth - 1);
            case 1:
                return a - any(depth - 1);
            case 2:
                return a * any(depth - 1);
            case 3:
                return a / any(depth - 1);
            case 4:
                return power(a, std::vector<double>{2, 3, -1, -2, 0.5, 1.5, -0.5}[below(7)]);
            case 5:
                return power(any(depth - 1), a);
            case 6:
            case 7:
                return applied(below(2) == 0 ? nlra::kFunctionMin : nlra::kFunctionMax,
                               {a, any(depth - 1), any(depth - 1)});
            case 8:
                return applied(nlra::kFunctionAbs, {a});
            case 9:
                return piecewise(a);
            case 10:
                return below(4) == 0 ? call(0, {a, any(depth - 1)}) : -a;
            default:
                return applied(kUnary[below(static_cast<int>(std::size(kUnary)))], {a});
        }
    }

    std::vector<double> point() {
        std::vector<double> x;
        for (int j = 0; j < kColumns; ++j) {
            x.push_back(number(std::max(kLower[j], -2.0), std::min(kUpper[j], 2.0)));
        }
        return x;
    }

  private:
    static constexpr int kUnary[] = {nlra::kFunctionExp,  nlra::kFunctionLog,  nlra::kFunctionLog10,
                                     nlra::kFunctionSin,  nlra::kFunctionCos,  nlra::kFunctionTan,
                                     nlra::kFunctionAsin, nlra::kFunctionAcos, nlra::kFunctionAtan,
                                     nlra::kFunctionSqrt, nlra::kFunctionErf,  nlra::kFunctionErfc,
                                     nlra::kFunctionSign};

    // Convex, concave, neither; at times with a jump.
    Ptr piecewise(const Ptr& x) {
        const double y[][4] = {{1, -0.5, 0, 3}, {-2, 0, 0.5, 0}, {0, 1, 0, 1}};
        const double* const values = y[below(3)];
        const double third = below(5) == 0 ? 0.0 : 0.5;
        return applied(nlra::kFunctionPiecewise,
                       {x, constant(-1), constant(values[0]), constant(0), constant(values[1]),
                        constant(third), constant(values[2]), constant(1), constant(values[3])});
    }

    std::mt19937 random_;
};

nlra::Formula formula(const Ptr& expression) {
    Tokens all;
    emit(expression, all);
    return {{1.0, -1, all.types, all.values}};
}

// One expression as the objective, others below and above a side.
Model model_of(const Ptr& objective, const Ptr& low, const Ptr& high) {
    Model model;
    const std::vector<double> costs(kColumns, 0.0);
    model.add_cols(kColumns, 0, costs.data(), nullptr, nullptr, nullptr, kLower, kUpper);
    const double rhs[] = {1.0, -1.0};
    model.add_rows(2, 0, "LG", rhs, nullptr, nullptr, nullptr, nullptr);
    model.set_coef(0, 1, 2.0);
    model.set_qrow(1, {{0, 1, 1.0}});
    model.set_cost(0, -1.0);
    model.set_qobj({{0, 0, 1.0}});
    model.formulas.functions.add({"product", product_of_two, nullptr, 2, false});
    model.formulas.objective = formula(objective);
    model.formulas.rows[0] = formula(low);
    model.formulas.rows[1] = formula(high);
    return model;
}

bool evaluated(const Model& model, const std::vector<double>& x, Solution& solution) {
    solution.x = x;
    try {
        nlra::evaluate_with_formulas(model, solution);
    } catch (const nlra::Error&) {
        return false;
    }
    return true;
}

bool is_added_part_feasible(const Model& before, const Model& after, const Solution& point) {
    for (int j = before.cols(); j < after.cols(); ++j) {
        if (point.x[j] < after.lower[j] || point.x[j] > after.upper[j]) return false;
    }
    for (int i = before.rows(); i < after.rows(); ++i) {
        const double slack = after.rowtype[i] == 'L' ? point.slack[i] : -point.slack[i];
        if (!(slack >= -1e-9 * std::max(1.0, std::fabs(after.rhs[i])))) return false;
    }
    return true;
}

// Whether the old model's values are as good as the new one's.
void check_dominance(const Model& model, const Solution& old_point, const Solution& new_point) {
    const auto margin = [](double a) { return 1e-7 * std::max(1.0, std::fabs(a)); };
    const double loss = model.sense * (old_point.objective - new_point.objective);
    CHECK(loss <= margin(new_point.objective));
    // A slack of a row rewritten counts from another side: compare what is left.
    CHECK(old_point.slack[0] >= new_point.slack[0] - margin(new_point.slack[0]));
    CHECK(old_point.slack[1] <= new_point.slack[1] + margin(new_point.slack[1]));
}

struct Counts {
    int replaced = 0, tight = 0, loose = 0, undefined = 0;
};

void try_points(Expressions& random, Model model, Counts& counts) {
    for (int trial = 0; trial < 12; ++trial) {
        const std::vector<double> x = random.point();
        for (int j = 0; j < kColumns; ++j) model.formulas.start[j] = x[j];
        const std::optional<Model> smooth = epigraph_form(model);
        if (!smooth) return;
        counts.replaced += trial == 0;
        Solution before, after;
        const bool defined = evaluated(model, x, before);
        // At the functions' own values nothing changes.
        std::vector<double> all = x;
        for (int j = kColumns; j < smooth->cols(); ++j) {
            const auto start = smooth->formulas.start.find(j);
            const double low = std::max(smooth->lower[j], -10.0);
            all.push_back(
                start != smooth->formulas.start.end()
                    ? start->second
                    : random.number(low, std::max(low, std::min(smooth->upper[j], 10.0))));
        }
        if (defined && evaluated(*smooth, all, after)) {
            CHECK(is_added_part_feasible(model, *smooth, after));
            CHECK_NEAR(before.objective, after.objective, 1e-9 * (1 + std::fabs(before.objective)));
            CHECK_NEAR(before.slack[0], after.slack[0], 1e-9 * (1 + std::fabs(before.slack[0])));
            CHECK_NEAR(before.slack[1], after.slack[1], 1e-9 * (1 + std::fabs(before.slack[1])));
            ++counts.tight;
        }
        // Anywhere else that the bounds allow it, it does not get better.
        for (int k = 0; k < 6; ++k) {
            std::vector<double> other = all;
            for (int j = kColumns; j < smooth->cols(); ++j) {
                other[j] += random.number(-1, 1) * std::pow(10.0, random.below(4) - 2);
            }
            if (!evaluated(*smooth, other, after)) continue;
            if (!is_added_part_feasible(model, *smooth, after)) continue;
            CHECK(defined);
            if (!defined) continue;
            check_dominance(model, before, after);
            ++counts.loose;
        }
        counts.undefined += !defined;
    }
}

}  // namespace

TEST("nonlinear: bounds in place of kinks keep values, and promise nothing better") {
    Counts counts;
    for (unsigned seed = 0; seed < 1500; ++seed) {
        Expressions random(seed);
        Model model = model_of(random.any(3), random.any(2), random.any(3));
        if (seed % 2 == 1) model.set_sense(-1.0);
        try_points(random, model, counts);
    }
    CHECK(counts.replaced > 300);
    CHECK(counts.tight > 1500);
    CHECK(counts.loose > 1500);
    CHECK(counts.undefined > 300);
}

TEST("nonlinear: kinks are bounded only where their position is convex") {
    const auto added = [](const Ptr& objective, const Ptr& low, const Ptr& high, double sense) {
        Model model = model_of(objective, low, high);
        model.set_sense(sense);
        const std::optional<Model> smooth = epigraph_form(model);
        return smooth ? smooth->cols() - model.cols() : 0;
    };
    const Ptr zero = constant(0), x = column(0), y = column(1), z = column(3);
    const Ptr bent = applied(nlra::kFunctionAbs, {z - x});
    const Ptr least = applied(nlra::kFunctionMin, {z, x * x});
    CHECK(added(bent, zero, zero, 1.0) == 1);
    CHECK(added(bent, zero, zero, -1.0) == 0);
    CHECK(added(zero, bent, zero, 1.0) == 1);
    CHECK(added(zero, zero, bent, 1.0) == 0);
    CHECK(added(zero, zero, least, 1.0) == 1);
    // Each once, and not where another position wants the reverse.
    CHECK(added(bent, bent, -bent, 1.0) == 1);
    CHECK(added(bent, bent, bent, 1.0) == 0);
    CHECK(added(least, zero, least, -1.0) == 1);
    // Through factors of known sign and monotone functions; not through others.
    CHECK(added(y * bent, applied(nlra::kFunctionExp, {bent}), -bent / y, 1.0) == 1);
    CHECK(added(x * bent, zero, zero, 1.0) == 0);
    CHECK(added(applied(nlra::kFunctionSin, {bent}), zero, zero, 1.0) == 0);
    CHECK(added(call(0, {bent, y}), zero, zero, 1.0) == 0);
    // A logarithm that is to be low would be glad of an argument that is too high where its own is
    // not defined.
    const Ptr most = applied(nlra::kFunctionMax, {x, z});
    CHECK(added(applied(nlra::kFunctionLog, {most}), zero, zero, 1.0) == 0);
    CHECK(added(applied(nlra::kFunctionLog, {most + y}), zero, zero, 1.0) == 0);
    CHECK(added(zero, zero, applied(nlra::kFunctionLog, {least}), 1.0) == 1);
    Model model = model_of(bent, zero, zero);
    model.set_type(2, 'S');
    CHECK(!epigraph_form(model));
}

TEST("nonlinear: written formulas parse to the same functions") {
    int finite = 0;
    for (unsigned seed = 0; seed < 2000; ++seed) {
        Expressions random(seed + 10000);
        Wavy first(false), second(false);
        nlra::FormulaRoots roots, written;
        roots.add_function(&first);
        written.add_function(&second);
        roots.set_columns(kColumns);
        written.set_columns(kColumns);
        const int root = add(roots, random.any(4) + column(0) * column(1) - column(2));
        const nlra::Coefficient tokens = nlra::write_formula(roots.graph(), roots.parts(root));
        const int again = written.add(
            {{1.0, -1, tokens.types.data(), tokens.values.data(), tokens.types.size()}});
        nlra::Tape tape(roots.graph(), {&roots.parts(root)}, roots.functions());
        nlra::Tape other(written.graph(), {&written.parts(again)}, written.functions());
        for (int k = 0; k < 5; ++k) {
            const std::vector<double> x = random.point();
            double a = NAN, b = NAN;
            tape.values(x.data(), &a);
            other.values(x.data(), &b);
            CHECK(std::isfinite(a) == std::isfinite(b));
            if (!std::isfinite(a) || std::fabs(a) > 1e6) continue;
            CHECK_NEAR(a, b, 1e-7 * std::max(1.0, std::fabs(a)));
            ++finite;
        }
    }
    CHECK(finite > 2000);
}

TEST("nonlinear: formulas of any depth are written") {
    nlra::FormulaRoots roots;
    roots.set_columns(1);
    Tokens all;
    constexpr int kDepth = 100000;
    for (int k = 0; k < kDepth; ++k) all.add(NSLP_TOKEN_ARGUMENTS);
    all.add(NSLP_TOKEN_COLUMN, 0);
    for (int k = 0; k < kDepth; ++k) all.add(NSLP_TOKEN_FUNCTION, nlra::kFunctionSin);
    const int root = roots.add({all.piece()});
    const nlra::Coefficient tokens = nlra::write_formula(roots.graph(), roots.parts(root));
    CHECK(tokens.types == all.types);
    CHECK(tokens.values == all.values);
}

// Maxima of convex functions that all have the same value at one point, with slopes there whose sum
// is zero: the point is optimal. A row leaves it free.
TEST("nonlinear: optima at kinks that are known") {
    for (unsigned seed = 0; seed < 40; ++seed) {
        Expressions random(seed);
        solve_support::TestProblem test;
        nslp_problem nonlinear(test.problem);
        const double sense = seed % 2 == 0 ? 1.0 : -1.0;
        test.model.set_sense(sense);
        std::vector<Ptr> shift;
        std::vector<double> best, sum(3, 0.0);
        for (int j = 0; j < 3; ++j) {
            test.col(0.0, seed % 3 == 0 ? -3.0 : -solve_support::kInf, solve_support::kInf);
            best.push_back(random.number(-2, 2));
            shift.push_back(column(j) - constant(best[j]));
        }
        const auto part = [&](const std::vector<double>& slope) {
            const int j = random.below(3);
            Ptr out = applied(nlra::kFunctionExp, {shift[j]}) - shift[j] - constant(1.0);
            for (int k = 0; k < 3; ++k) out = out + constant(slope[k]) * shift[k];
            return out;
        };
        Ptr total = constant(1.5);
        for (int k = 0; k < 3; ++k) {
            std::vector<Ptr> parts;
            for (int i = 0; i < 3; ++i) {
                std::vector<double> slope;
                for (double& other : sum) {
                    slope.push_back(k == 2 && i == 2 ? -other : random.number(-1, 1));
                    other += slope.back();
                }
                parts.push_back(part(slope));
            }
            total = total + applied(nlra::kFunctionMax, parts);
        }
        const Ptr bend = applied(nlra::kFunctionAbs, {shift[0] - shift[2]});
        total = total + applied(nlra::kFunctionExp, {bend}) - constant(1.0);
        test.model.formulas.objective = formula(constant(sense) * total);
        const int row = test.row({}, 'L', 0.0);
        test.model.formulas.rows[row] = formula(bend + shift[1] * shift[1] - constant(0.5));
        test.problem.stop_request = 0;
        nlra::optimize_nonlinear(nonlinear);
        CHECK(nonlinear.result.status == NSLP_GLOBALLY_OPTIMAL);
        const Solution& solution = nonlinear.result.solution;
        REQUIRE(solution.present);
        CHECK(solution.x.size() == 3 && solution.dj.size() == 3);
        CHECK(solution.slack.size() == 1 && solution.dual.size() == 1);
        CHECK_NEAR(solution.objective, sense * 1.5, 1e-6);
        CHECK_NEAR(solution.slack[0], 0.5, 1e-3);
        CHECK_NEAR(solution.dual[0], 0.0, 1e-5);
        CHECK(test.model.formulas.last.x.size() == 3);
    }
}
