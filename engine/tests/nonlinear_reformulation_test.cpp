// Models of piecewise linear functions against the best of all their linear pieces.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <optional>

#include "brute_force.hpp"
#include "check.hpp"
#include "nonlinear/nonsmooth_reformulation.hpp"
#include "nonlinear_support.hpp"
#include "search/optimize_nonlinear.hpp"
#include "solve_support.hpp"

using namespace formulas;
using nlra::NonsmoothReformulation;
using solve_support::kInf;
using solve_support::Random;
using solve_support::Terms;

namespace {

// A linear function of the columns.
struct Line {
    std::vector<double> slope = std::vector<double>(4, 0.0);
    double constant = 0.0;

    Line plus(double factor, const Line& other) const {
        Line sum = *this;
        for (size_t j = 0; j < slope.size(); ++j) sum.slope[j] += factor * other.slope[j];
        sum.constant += factor * other.constant;
        return sum;
    }
    Line times(double factor) const { return Line().plus(factor, *this); }
    Line less(double constant_part) const {
        Line out = *this;
        out.constant -= constant_part;
        return out;
    }
};

// Where all of `nonnegative` are, the expression is `value`.
struct Case {
    Line value;
    std::vector<Line> nonnegative;

    Case with(Line new_value, const std::vector<Line>& more) const {
        Case out{std::move(new_value), nonnegative};
        out.nonnegative.insert(out.nonnegative.end(), more.begin(), more.end());
        return out;
    }
};
using Cases = std::vector<Case>;

// All combinations; f joins the values.
template <class Join>
Cases joined(const Cases& left, const Cases& right, const Join& join) {
    Cases out;
    for (const Case& a : left) {
        for (const Case& b : right) out.push_back(a.with(join(a.value, b.value), b.nonnegative));
    }
    return out;
}

Cases cases_of(const Ptr& expression, double gap);

Cases cases_of_extreme(const std::vector<Ptr>& args, double sign, double gap) {
    Cases out = cases_of(args[0], gap);
    for (size_t i = 1; i < args.size(); ++i) {
        Cases next;
        for (const Case& a : out) {
            for (const Case& b : cases_of(args[i], gap)) {
                const Line difference = a.value.plus(-1.0, b.value).times(sign);
                const Case both = a.with(a.value, b.nonnegative);
                next.push_back(both.with(a.value, {difference}));
                next.push_back(both.with(b.value, {difference.times(-1.0)}));
            }
        }
        out = std::move(next);
    }
    return out;
}

Cases cases_of_pieces(const Ptr& expression, double gap) {
    std::vector<std::pair<double, double>> points;
    for (size_t i = 1; i < expression->args.size(); i += 2) {
        points.emplace_back(expression->args[i]->value, expression->args[i + 1]->value);
    }
    Cases out;
    for (const Case& a : cases_of(expression->args[0], gap)) {
        for (size_t i = 1; i < points.size(); ++i) {
            const auto [x0, y0] = points[i - 1];
            const auto [x1, y1] = points[i];
            if (x0 == x1) continue;
            std::vector<Line> within;
            if (i > 1) within.push_back(a.value.less(x0));
            const bool jump = i + 1 < points.size() && points[i + 1].first == x1;
            if (i + 1 < points.size()) {
                within.push_back(a.value.less(jump ? x1 - gap : x1).times(-1.0));
            }
            const double slope = (y1 - y0) / (x1 - x0);
            out.push_back(a.with(a.value.less(x0).times(slope).less(-y0), within));
        }
    }
    return out;
}

Cases cases_of_function(const Ptr& expression, double gap) {
    const std::vector<Ptr>& args = expression->args;
    Cases out;
    switch (static_cast<int>(expression->value)) {
        case nlra::kFunctionMax:
            return cases_of_extreme(args, 1.0, gap);
        case nlra::kFunctionMin:
            return cases_of_extreme(args, -1.0, gap);
        case nlra::kFunctionAbs:
            return cases_of_extreme({args[0], -args[0]}, 1.0, gap);
        case nlra::kFunctionPiecewise:
            return cases_of_pieces(expression, gap);
        default:  // sign
            for (const Case& a : cases_of(args[0], gap)) {
                const Line none;
                out.push_back(a.with(none.less(-1.0), {a.value.less(gap)}));
                out.push_back(a.with(none.less(1.0), {a.value.less(-gap).times(-1.0)}));
                out.push_back(a.with(none, {a.value, a.value.times(-1.0)}));
            }
            return out;
    }
}

Cases cases_of(const Ptr& expression, double gap) {
    Case single;
    const std::vector<Ptr>& args = expression->args;
    switch (expression->type) {
        case NSLP_TOKEN_CONSTANT:
            single.value.constant = expression->value;
            return {single};
        case NSLP_TOKEN_COLUMN:
            single.value.slope[static_cast<size_t>(expression->value)] = 1.0;
            return {single};
        case NSLP_TOKEN_FUNCTION:
            return cases_of_function(expression, gap);
        default:
            break;
    }
    const Cases left = cases_of(args[0], gap);
    switch (static_cast<int>(expression->value)) {
        case NSLP_OPERATOR_PLUS:
            return joined(left, cases_of(args[1], gap),
                          [](const Line& a, const Line& b) { return a.plus(1.0, b); });
        case NSLP_OPERATOR_MINUS:
            return joined(left, cases_of(args[1], gap),
                          [](const Line& a, const Line& b) { return a.plus(-1.0, b); });
        case NSLP_OPERATOR_NEGATE:
            return joined(left, {single}, [](const Line& a, const Line&) { return a.times(-1.0); });
        default:  // times: by a constant on the left
            return joined(left, cases_of(args[1], gap),
                          [](const Line& a, const Line& b) { return b.times(a.constant); });
    }
}

// Infinite where it is unbounded.
std::optional<double> linear_optimum(const nlra::Model& model) {
    bool limited = true;
    for (int j = 0; j < model.cols(); ++j) {
        limited = limited && model.lower[j] > -kInf && model.upper[j] < kInf;
    }
    if (limited) return brute_force::optimum(model);
    static solve_support::TestProblem test;
    test.model = model;
    test.model.touch_structure();
    const int status = test.mip();
    CHECK(status == NLRA_MIP_OPTIMAL || status == NLRA_MIP_INFEAS || status == NLRA_MIP_UNBOUNDED);
    if (status == NLRA_MIP_UNBOUNDED) return -model.sense * HUGE_VAL;
    if (status == NLRA_MIP_INFEAS) return {};
    return test.mip_objective();
}

struct NonlinearProblem : solve_support::TestProblem {
    nslp_problem nonlinear{problem};
    Ptr objective = constant(0.0);
    std::vector<std::pair<int, Ptr>> rows;

    static nlra::Formula formula(const Ptr& expression) {
        Tokens all = tokens(expression);
        return {{1.0, -1, std::move(all.types), std::move(all.values)}};
    }
    void minimize(const Ptr& expression, double sense = 1.0) {
        objective = expression;
        model.sense = sense;
        model.formulas.objective = formula(expression);
    }
    void require(const Ptr& expression, char type, double rhs, double range = 0.0) {
        rows.emplace_back(row({}, type, rhs, range), expression);
        model.formulas.rows[model.rows() - 1] = formula(expression);
    }
    int solve() {
        problem.stop_request = 0;
        nlra::optimize_nonlinear(nonlinear);
        return nonlinear.result.status;
    }
    const nlra::Solution& solution() const { return nonlinear.result.solution; }
    double value() const { return solution().objective; }

    void best_of(size_t next, nlra::Model linear, double gap, std::optional<double>& best) {
        const auto add = [&](const Line& line, char type, double rhs, double range) {
            std::vector<int> index;
            for (int j = 0; j < linear.cols(); ++j) index.push_back(j);
            const int64_t start = 0;
            const double side = rhs - line.constant;
            linear.add_rows(1, linear.cols(), &type, &side, &range, &start, index.data(),
                            line.slope.data());
        };
        const auto join = [&](const Case& piece) {
            for (const Line& line : piece.nonnegative) add(line, 'G', 0.0, 0.0);
        };
        if (next < rows.size()) {
            const int at = rows[next].first;
            for (const Case& piece : cases_of(rows[next].second, gap)) {
                const nlra::Model before = linear;
                add(piece.value, model.rowtype[at], model.rhs[at], model.range[at]);
                const auto rule = model.indicators.find(at);
                if (rule != model.indicators.end()) {
                    linear.set_indicator(linear.rows() - 1, rule->second.col,
                                         rule->second.complement);
                }
                join(piece);
                if (linear_optimum(linear)) best_of(next + 1, linear, gap, best);
                linear = before;
            }
            return;
        }
        for (const Case& piece : cases_of(objective, gap)) {
            const nlra::Model before = linear;
            for (int j = 0; j < linear.cols(); ++j)
                linear.set_cost(j, model.obj[j] + piece.value.slope[j]);
            linear.set_constant(piece.value.constant);
            join(piece);
            const std::optional<double> found = linear_optimum(linear);
            linear = before;
            if (found && (!best || model.sense * *found < model.sense * *best)) best = found;
        }
    }
    // The optimum over all combinations of linear pieces.
    std::optional<double> enumerated(double gap) {
        nlra::Model linear = model;
        linear.formulas = {};
        for (const auto& [at, expression] : rows) linear.rowtype[at] = 'N';
        std::optional<double> best;
        best_of(0, std::move(linear), gap, best);
        return best;
    }
};

Ptr max(std::vector<Ptr> args) { return applied(nlra::kFunctionMax, std::move(args)); }
Ptr min(std::vector<Ptr> args) { return applied(nlra::kFunctionMin, std::move(args)); }
Ptr abs(const Ptr& a) { return applied(nlra::kFunctionAbs, {a}); }
Ptr sign(const Ptr& a) { return applied(nlra::kFunctionSign, {a}); }
Ptr pwl(const Ptr& a, const std::vector<double>& points) {
    std::vector<Ptr> args{a};
    for (const double value : points) args.push_back(constant(value));
    return applied(nlra::kFunctionPiecewise, args);
}

// Whole coefficients, so that arguments over integer columns are integral.
Ptr random_line(Random& random, int cols) {
    Ptr sum = constant(random.integer(-3, 3));
    for (int j = 0; j < cols; ++j) {
        if (random.chance(0.6)) sum = sum + constant(random.integer(-2, 2)) * column(j);
    }
    return sum;
}

Ptr random_function(Random& random, int cols, int depth, bool jumps) {
    const auto argument = [&] {
        if (depth == 0) return random_line(random, cols);
        return random_line(random, cols) +
               constant(random.integer(-2, 2)) * random_function(random, cols, depth - 1, jumps);
    };
    switch (random.integer(jumps ? 0 : 1, 4)) {
        case 0:
            return random.chance(0.5) ? sign(argument())
                                      : pwl(argument(), {-2, 1, 0, double(random.integer(-2, 2)), 0,
                                                         1, 3, double(random.integer(-4, 4))});
        case 1:
            return abs(argument());
        case 2:
            return max({argument(), random_line(random, cols), constant(random.integer(-2, 2))});
        case 3:
            return min({argument(), random_line(random, cols)});
        default: {
            std::vector<double> points;
            for (int k = 0; k < random.integer(2, 4); ++k) {
                points.push_back(2 * k - 3);
                points.push_back(random.integer(-4, 4));
            }
            if (points.size() < 4) points = {-1, 2, 1, 0};
            return pwl(argument(), points);
        }
    }
}

void compare(NonlinearProblem& test, double gap, double tolerance, bool jumps) {
    const std::optional<double> best = test.enumerated(gap);
    const int status = test.solve();
    if (!best) {
        CHECK(status == NSLP_INFEASIBLE);
        return;
    }
    if (std::isinf(*best)) {
        CHECK(status == NSLP_UNBOUNDED);
        return;
    }
    if (!CHECK(status == NSLP_GLOBALLY_OPTIMAL)) return;
    CHECK_NEAR(test.value(), *best, tolerance * std::max(1.0, std::fabs(*best)));
    const std::vector<double>& x = test.solution().x;
    // Within the tolerance of a jump the value is that on its other side.
    for (const auto& [at, expression] : test.rows) {
        if (jumps) break;
        CHECK_NEAR(test.solution().slack[at],
                   test.model.rhs[at] - evaluate(expression, x.data()).value, 1e-4);
    }
    CHECK(x.size() == static_cast<size_t>(test.model.cols()));
}

// A semi-continuous column, a set, and a row with a formula that holds under a condition.
void add_conditions(NonlinearProblem& test, Random& random) {
    test.model.set_type(0, 'S');
    test.model.set_bounds(0, -2.0, -1.0);
    test.set('1', {0, 1}, {1.0, 2.0});
    test.model.set_type(2, 'B');
    test.model.set_bounds(2, 0.0, 1.0);
    test.model.set_indicator(test.rows[0].first, 2, random.chance(0.5) ? 1 : -1);
}

void random_model(unsigned seed, bool integral, bool jumps, bool conditions = false,
                  double unlimited = 0.0) {
    Random random(seed);
    NonlinearProblem test;
    const int cols = 3;
    for (int j = 0; j < cols; ++j) {
        const bool discrete = integral || (j == 2 && unlimited == 0.0);
        test.col(random.integer(-2, 2), random.integer(-3, 0), random.integer(1, 3),
                 discrete ? 'I' : 'C');
        if (random.chance(unlimited)) test.model.lower[j] = -kInf;
        if (random.chance(unlimited)) test.model.upper[j] = kInf;
    }
    test.row({{0, 1.0}, {1, random.integer(-2, 2)}, {2, 1.0}}, 'L', random.integer(0, 4));
    test.minimize(random_function(random, cols, 1, jumps), random.chance(0.5) ? 1.0 : -1.0);
    for (int i = 0; i < random.integer(1, 2); ++i) {
        const char type = "LGR"[random.integer(0, 2)];
        test.require(random_function(random, cols, random.integer(0, 1), jumps), type,
                     random.integer(-1, 3), type == 'R' ? 2.0 : 0.0);
    }
    if (conditions) add_conditions(test, random);
    const int before = check::failures();
    compare(test, integral ? 1.0 : NonsmoothReformulation::kJumpGap,
            jumps && !integral ? 1e-3 : 2e-6, jumps);
    if (check::failures() != before) std::fprintf(stderr, "seed %u\n", seed);
}

}  // namespace

TEST("reformulation: random models have the value of their best linear piece") {
    for (unsigned seed = 1; seed <= 60; ++seed) random_model(seed, false, false);
}

TEST("reformulation: semi-continuous columns, sets and indicators stay what they are") {
    for (unsigned seed = 1; seed <= 60; ++seed) random_model(3000 + seed, false, false, true);
}

TEST("reformulation: sign and jumps over integral arguments are exact") {
    for (unsigned seed = 1; seed <= 20; ++seed) random_model(1000 + seed, true, true);
}

TEST("reformulation: sign and jumps over continuous arguments keep a gap") {
    for (unsigned seed = 1; seed <= 40; ++seed) random_model(2000 + seed, false, true);
}

TEST("reformulation: columns without finite bounds are solved by the pieces of their functions") {
    for (unsigned seed = 1; seed <= 90; ++seed) {
        random_model(4000 + seed, seed % 3 == 0, seed % 4 == 0, false, seed % 2 == 0 ? 0.5 : 1.0);
    }
}

TEST("reformulation: convex use needs no binaries and leaves the duals of the model's own rows") {
    // Minimize |x - 1| + 2 |y + x| + max(x, 2 y, 1) over x + y >= 3, |x - y| <= 1 / 2.
    NonlinearProblem test;
    for (int j = 0; j < 2; ++j) test.col(0.0, -kInf, kInf);
    const Ptr x = column(0);
    const Ptr y = column(1);
    test.row({{0, 1.0}, {1, 1.0}}, 'G', 3.0);
    test.minimize(abs(x - constant(1)) + constant(2) * abs(y + x) +
                  max({x, constant(2) * y, constant(1)}));
    test.require(abs(x - y), 'L', 0.5);
    CHECK(!NonsmoothReformulation(test.model).plain().is_mip());
    REQUIRE(test.solve() == NSLP_GLOBALLY_OPTIMAL);
    const double value = test.value();
    CHECK_NEAR(value, 0.75 + 6.0 + 2.5, 1e-7);
    const std::vector<double> dual = test.solution().dual;
    for (int i = 0; i < 2; ++i) {
        test.model.set_rhs(i, test.model.rhs[i] + 1e-4);
        REQUIRE(test.solve() == NSLP_GLOBALLY_OPTIMAL);
        CHECK_NEAR((test.value() - value) / 1e-4, dual[i], 1e-4);
        test.model.set_rhs(i, test.model.rhs[i] - 1e-4);
    }
    CHECK_NEAR(test.solution().dj[0], 0.0, 1e-9);
}

TEST("reformulation: bounds of arguments follow from rows with formulas, or its pieces decide") {
    NonlinearProblem test;
    const Ptr x = column(test.col(0.0, -kInf, kInf));
    const Ptr y = column(test.col(0.0, -kInf, kInf));
    test.minimize(-abs(x - y));
    CHECK(test.solve() == NSLP_UNBOUNDED);
    test.require(abs(x) + max({y, constant(-1)}), 'L', 4.0);
    test.require(min({x, y + constant(1)}), 'G', -2.0);
    CHECK(NonsmoothReformulation(test.model).open_conditions().empty());
    REQUIRE(test.solve() == NSLP_GLOBALLY_OPTIMAL);
    CHECK_NEAR(test.value(), -8.0, 1e-6);
}

TEST("reformulation: products with a binary factor") {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        Random random(seed);
        NonlinearProblem test;
        const int b = test.col(random.integer(-2, 2), 0.0, 1.0, 'B');
        const int c = test.col(random.integer(-2, 2), 0.0, 1.0, 'B');
        const int x = test.col(random.integer(-2, 2), -2.0, 3.0);
        test.model.set_qobj({{b, c, double(random.integer(-4, 4))},
                             {b, b, double(random.integer(-4, 4))},
                             {b, x, double(random.integer(-4, 4))}});
        test.minimize(column(b) * column(c) * column(x) + power(column(c), 3.0) * column(x),
                      random.chance(0.5) ? 1.0 : -1.0);
        test.require(column(x) * (constant(1) - column(c)) + column(b) * column(x), 'L', 1.5);
        std::optional<double> best;
        for (const double bv : {0.0, 1.0}) {
            for (const double cv : {0.0, 1.0}) {
                nlra::Solution at;
                // The objective is linear in x, whose coefficient in the row decides its range.
                const double slope = 1.0 - cv + bv;
                for (const double xv : {-2.0, slope > 0.5 ? 1.5 / slope : 3.0}) {
                    at.x = {bv, cv, xv};
                    nlra::evaluate(test.model, at);
                    const double value = at.objective + bv * cv * xv + cv * xv;
                    if (!best || test.model.sense * (value - *best) < 0.0) best = value;
                }
            }
        }
        REQUIRE(test.solve() == NSLP_GLOBALLY_OPTIMAL);
        CHECK_NEAR(test.value(), *best, 1e-6);
    }
}

TEST("reformulation: a jump at the value that costs nothing is attained") {
    // 0 up to 2, from there 5: the cheapest x >= 2 pays, x < 2 does not.
    NonlinearProblem test;
    const int x = test.col(-1.0, 0.0, 10.0);
    test.minimize(pwl(column(x), {0, 0, 2, 0, 2, 5, 10, 5}));
    REQUIRE(test.solve() == NSLP_GLOBALLY_OPTIMAL);
    CHECK_NEAR(test.value(), -5.0, 1e-9);
    test.model.upper[x] = 6.0;
    REQUIRE(test.solve() == NSLP_GLOBALLY_OPTIMAL);
    CHECK_NEAR(test.value(), -2.0, 1e-4);
    CHECK(test.solution().x[x] < 2.0);
}

TEST("reformulation: building takes linear time") {
    const auto seconds = [](int functions) {
        NonlinearProblem test;
        Random random(7);
        Ptr sum = constant(0.0);
        std::vector<Ptr> terms;
        for (int j = 0; j < functions; ++j) {
            terms.push_back(
                pwl(column(test.col(0.0, 0.0, 10.0)), {0, 0, 3, 5, 6, random.real(5, 7), 10, 9}));
        }
        while (terms.size() > 1) {
            std::vector<Ptr> next;
            for (size_t i = 0; i + 1 < terms.size(); i += 2) {
                next.push_back(terms[i] + terms[i + 1]);
            }
            if (terms.size() % 2 == 1) next.push_back(terms.back());
            terms = next;
        }
        test.minimize(terms[0]);
        const auto begin = std::chrono::steady_clock::now();
        NonsmoothReformulation reformulation(test.model);
        CHECK(reformulation.obstacle().empty());
        CHECK(reformulation.plain().is_mip());
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    double least = 1.0;
    for (int k = 0; k < 3; ++k) least = std::min(least, seconds(1000));
    CHECK(least < 0.05);
}
