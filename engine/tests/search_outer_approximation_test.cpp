// Convex mixed integer problems that are not linear, against going through all integral values.
#include <chrono>
#include <optional>
#include <thread>

#include "api/nonlinear_problem.hpp"
#include "nonlinear_support.hpp"
#include "search/optimize_nonlinear.hpp"
#include "search/square_sum.hpp"
#include "solve_support.hpp"

using namespace nlra;
using namespace solve_support;

namespace {

using Row = solve_support::Terms;
constexpr double kTight = 1e-9;

void add_formula(Model& model, int row, const formulas::Ptr& expression) {
    const formulas::Tokens tokens = formulas::tokens(expression);
    Formula& formula = row < 0 ? model.formulas.objective : model.formulas.rows[row];
    formula.push_back({1.0, -1, tokens.types, tokens.values});
}

int solve_nonlinear(nslp_problem& problem) {
    problem.base->stop_request = 0;
    optimize_nonlinear(problem);
    return problem.result.status;
}

// The best objective value of the problem with its columns of type I fixed in all ways.
std::optional<double> enumerate(TestProblem& test, int col = 0) {
    Model& model = test.model;
    while (col < model.cols() && model.coltype[col] != 'I') ++col;
    if (col == model.cols()) {
        if (model.formulas.empty()) {
            const int status = test.lp();
            CHECK(status == NLRA_LP_OPTIMAL || status == NLRA_LP_INFEAS);
            if (status != NLRA_LP_OPTIMAL) return std::nullopt;
            return test.objective();
        }
        nslp_problem nonlinear(test.problem);
        const int status = solve_nonlinear(nonlinear);
        CHECK(status == NSLP_GLOBALLY_OPTIMAL || status == NSLP_INFEASIBLE);
        if (status != NSLP_GLOBALLY_OPTIMAL) return std::nullopt;
        return nonlinear.result.solution.objective;
    }
    const double low = model.lower[col], high = model.upper[col];
    std::optional<double> best;
    for (double value = low; value <= high; ++value) {
        model.set_bounds(col, value, value);
        const std::optional<double> found = enumerate(test, col + 1);
        if (found && (!best || model.sense * *found < model.sense * *best)) best = found;
    }
    model.set_bounds(col, low, high);
    return best;
}

// Up to three integral columns and two others between linear rows, one of them an equation.
void random_frame(TestProblem& test, Random& random) {
    test.model.set_sense(random.chance(0.5) ? 1 : -1);
    test.model.set_constant(random.integer(-5, 5));
    const int integral = random.integer(1, 3);
    for (int j = 0; j < 5; ++j) {
        const double low = j < integral ? random.integer(-2, 0) : random.integer(-3, 0);
        test.col(random.integer(-4, 4), low, low + random.integer(1, 4), j < integral ? 'I' : 'C');
    }
    for (int i = 0; i < 3; ++i) {
        Row terms;
        for (int j = 0; j < 5; ++j) {
            if (random.chance(0.7)) terms.emplace_back(j, random.integer(-3, 3) + 0.5);
        }
        test.row(terms, i == 0 ? 'E' : "LG"[random.integer(0, 1)], random.integer(-3, 3));
    }
    if (!random.chance(0.5)) return;
    test.model.set_bounds(0, 0, 1);  // switches the last column
    test.model.set_bounds(4, 0, 4);
    test.row({{4, 2}, {0, -5}}, 'L', 0);
}

// sign * a sum of squares of random forms.
std::vector<QuadTerm> random_form(Random& random, double sign) {
    double sum[5][5] = {};
    const bool separable = random.chance(0.3);
    for (int k = 0; k < 3; ++k) {
        double form[5];
        for (double& value : form) value = random.chance(0.5) ? random.integer(-3, 3) : 0.0;
        for (int i = 0; i < 5; ++i) {
            for (int j = 0; j < (separable ? 0 : i); ++j) sum[j][i] += 2.0 * form[i] * form[j];
            sum[i][i] += form[i] * form[i];
        }
    }
    std::vector<QuadTerm> terms;
    for (int i = 0; i < 5; ++i) {
        for (int j = i; j < 5; ++j) {
            if (sum[i][j] != 0.0) terms.push_back({i, j, sign * sum[i][j]});
        }
    }
    return terms;
}

formulas::Ptr random_convex(Random& random) {
    using namespace formulas;
    const Ptr x = column(random.integer(0, 4)), y = column(random.integer(0, 4));
    const double shift = 8.0 + random.integer(0, 3);
    switch (random.integer(0, 4)) {
        case 0:
            return applied(kFunctionExp, {constant(0.5) * x - constant(0.4) * y});
        case 1:
            return -(constant(5) * applied(kFunctionLog, {x + y + constant(shift)}));
        case 2:
            return -(constant(4) * applied(kFunctionSqrt, {x + constant(shift)}));
        case 3:
            return constant(0.3) * power(x - y + constant(0.5), 4.0);
        default:
            return constant(20) / (x + constant(shift));
    }
}

// Whether a solution is one and the best, or there is none where none has been found.
void check_by_enumeration(TestProblem& test, const Solution& found) {
    const std::optional<double> best = enumerate(test);
    CHECK(found.present == best.has_value());
    if (!best || !found.present) return;
    CHECK_NEAR(found.objective, *best, 1e-5 * std::max(1.0, std::fabs(*best)));
    CHECK(!found.has_duals);
    for (int j = 0; j < test.model.cols(); ++j) {
        const double x = found.x[j];
        CHECK(x >= test.model.lower[j] && x <= test.model.upper[j]);
        if (test.model.coltype[j] == 'I') CHECK(x == std::round(x));
    }
    for (int i = 0; i < test.model.rows(); ++i) {
        if (test.model.rowtype[i] != 'G') CHECK(found.slack[i] > -1e-5);
        if (test.model.rowtype[i] != 'L') CHECK(found.slack[i] < 1e-5);
    }
}

// min the variance of n assets, 5 of them at most, each between 5 and 40 percent if it is held.
void portfolio(TestProblem& test, int n) {
    Random random(7);
    for (int j = 0; j < n; ++j) test.col(0, 0, 0.4, 'S', 0.05);
    for (int j = 0; j < n; ++j) test.col(0, 0, 1, 'B');
    Row budget, yield, count;
    for (int j = 0; j < n; ++j) {
        budget.emplace_back(j, 1.0);
        yield.emplace_back(j, random.real(0.02, 0.12));
        count.emplace_back(n + j, 1.0);
        test.row({{j, 1.0}, {n + j, -0.4}}, 'L', 0);
    }
    test.row(budget, 'E', 1);
    test.row(yield, 'G', 0.08);
    test.row(count, 'L', 5);
    std::vector<std::vector<double>> loads(n);
    for (auto& load : loads) {
        for (int k = 0; k < 4; ++k) load.push_back(random.real(-0.1, 0.3));
    }
    std::vector<QuadTerm> terms;
    for (int i = 0; i < n; ++i) {
        for (int j = i; j < n; ++j) {
            double value = i == j ? random.real(0.01, 0.09) : 0.0;
            for (int k = 0; k < 4; ++k) value += loads[i][k] * loads[j][k];
            terms.push_back({i, j, i == j ? value : 2.0 * value});
        }
    }
    test.model.set_qobj(terms);
}

}  // namespace

TEST("outer approximation: a form is the sum of its squares") {
    Random random(3);
    for (int round = 0; round < 30; ++round) {
        const std::vector<QuadTerm> terms = random_form(random, 1.0);
        const SquareSum sum = sum_of_squares(terms, [](int col) { return col % 2 == 0; });
        CHECK(sum.rest.empty());
        double x[5], expected = 0.0, found = 0.0;
        for (double& value : x) value = random.real(-2, 2);
        for (const QuadTerm& term : terms) expected += term.value * x[term.col1] * x[term.col2];
        for (const Square& square : sum.squares) {
            double form = 0.0;
            for (const LinearTerm& term : square.form) form += term.value * x[term.col];
            CHECK(square.weight >= 0.0);
            found += square.weight * form * form;
        }
        CHECK_NEAR(found, expected, 1e-7 * std::max(1.0, expected));
    }
    const std::vector<QuadTerm> saddle{{0, 0, 1.0}, {0, 1, 3.0}, {1, 1, 1.0}};
    CHECK(sum_of_squares(saddle, [](int) { return true; }).rest == saddle);
}

TEST("outer approximation: random quadratic problems") {
    Random random(11);
    int feasible = 0;
    for (int round = 0; round < 30; ++round) {
        TestProblem test;
        test.problem.controls.set_double(kRelGap, kTight);
        random_frame(test, random);
        test.model.set_qobj(random_form(random, test.model.sense));
        if (round % 2 == 0) {
            const double sign = test.model.rowtype[2] == 'L' ? 1.0 : -1.0;
            test.model.set_qrow(2, random_form(random, sign));
            test.model.set_rhs(2, sign * random.integer(0, 15));
        }
        const int status = test.mip();
        const Solution found = test.problem.mip_solution;
        const SolveInfo info = test.problem.info;
        feasible += found.present;
        CHECK(status == (found.present ? NLRA_MIP_OPTIMAL : NLRA_MIP_INFEAS));
        CHECK(info.mip_objective == found.objective);
        CHECK(!found.present || info.mip_solutions > 0);
        if (found.present) CHECK_NEAR(info.best_bound, found.objective, 1e-4);
        check_by_enumeration(test, found);
    }
    CHECK(feasible > 10);
}

TEST("outer approximation: random problems with formulas") {
    Random random(5);
    int feasible = 0;
    for (int round = 0; round < 20; ++round) {
        TestProblem test;
        test.problem.controls.set_double(kRelGap, kTight);
        random_frame(test, random);
        const formulas::Ptr objective = random_convex(random) + random_convex(random);
        add_formula(test.model, -1, test.model.sense > 0 ? objective : -objective);
        const formulas::Ptr row = random_convex(random) + random_convex(random);
        add_formula(test.model, 2, test.model.rowtype[2] == 'L' ? row : -row);
        if (random.chance(0.5)) test.model.set_qobj(random_form(random, test.model.sense));
        nslp_problem nonlinear(test.problem);
        const int status = solve_nonlinear(nonlinear);
        const Solution found = nonlinear.result.solution;
        feasible += found.present;
        CHECK(status == (found.present ? NSLP_GLOBALLY_OPTIMAL : NSLP_INFEASIBLE));
        check_by_enumeration(test, found);
    }
    CHECK(feasible > 7);
}

TEST("outer approximation: a ball between the integers") {
    // The relaxation is feasible, and so are its tangents at most integral points.
    TestProblem test;
    std::vector<QuadTerm> terms;
    Row linear;
    for (int j = 0; j < 6; ++j) {
        test.col(1, 0, 1, 'B');
        terms.push_back({j, j, 1.0});
        linear.emplace_back(j, -1.0);
    }
    test.row(linear, 'L', -1.45);  // sum of (x - 1/2)^2 <= 0.05
    test.model.set_qrow(0, terms);
    CHECK(test.mip() == NLRA_MIP_INFEAS);
    CHECK(!test.problem.mip_solution.present);
    test.model.set_rhs(0, 0.0);  // through all corners
    CHECK(test.mip() == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(test.mip_objective(), 0, 1e-6);
}

TEST("outer approximation: unbounded problems are told from infeasible ones") {
    for (const bool feasible : {true, false}) {
        TestProblem test;  // min x^2 - y, where 2 u - 2 v = 2 or 1
        test.col(0, -5, 5, 'I');
        test.col(-1, 0, kInf);
        test.col(0, 0, 9, 'I');
        test.col(0, 0, 9, 'I');
        test.row({{2, 2}, {3, -2}}, 'E', feasible ? 2 : 1);
        test.model.set_qobj({{0, 0, 1.0}});
        CHECK(test.mip() == (feasible ? NLRA_MIP_UNBOUNDED : NLRA_MIP_INFEAS));
        CHECK(!test.problem.mip_solution.present);
        // With y^2 / 100 instead there is an optimum, at y = 50.
        test.model.set_qobj({{1, 1, 0.01}});
        CHECK(test.mip() == (feasible ? NLRA_MIP_OPTIMAL : NLRA_MIP_INFEAS));
        if (feasible) CHECK_NEAR(test.mip_objective(), -25, 3e-3);
    }
}

TEST("outer approximation: conditions on columns and rows") {
    TestProblem test;  // min sum of (x - target)^2
    const double targets[] = {0.7, 2.4, 2.6, 1.5, 0.6};
    std::vector<QuadTerm> terms;
    for (int j = 0; j < 5; ++j) {
        test.col(-2 * targets[j], 0, 4);
        terms.push_back({j, j, 1.0});
        test.model.set_constant(test.model.constant + targets[j] * targets[j]);
    }
    test.model.set_qobj(terms);
    test.model.set_type(0, 'S');
    test.model.set_limit(0, 1.6);  // 0 is nearer to 0.7
    test.model.set_type(1, 'P');
    test.model.set_limit(1, 3.0);   // 2
    test.set('1', {2, 3}, {1, 2});  // 3 gives way: 1.5^2
    test.col(-1, 0, 1, 'B');        // 1 is worth 1, but demands x4 >= 2
    const int row = test.row({{4, 1}}, 'G', 2);
    test.model.set_indicator(row, 5, 1);
    test.problem.controls.set_double(kRelGap, kTight);
    CHECK(test.mip() == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(test.mip_objective(), 0.49 + 0.16 + 2.25, 1e-5);
    const double expected[] = {0, 2, 2.6, 0, 0.6, 0};
    for (int j = 0; j < 6; ++j) CHECK_NEAR(test.mip_x(j), expected[j], 1e-4);
    CHECK(test.mip_x(0) == 0 && test.mip_x(3) == 0);

    test.model.set_qrow(row, {{4, 4, -1.0}});
    std::string text;
    CHECK(error_code([&] { test.mip(); }, &text) == NLRA_ERROR_UNSUPPORTED);
    CHECK(text.find("indicator") != std::string::npos);
}

TEST("outer approximation: a start, a cutoff, and what is not convex") {
    TestProblem test;  // min (x - 2.6)^2 + (y - 1.2)^2: 0.2
    test.col(-5.2, 0, 9, 'I');
    test.col(-2.4, 0, 9, 'I');
    test.model.set_constant(6.76 + 1.44);
    test.model.set_qobj({{0, 0, 1}, {1, 1, 1}});
    test.problem.mip_starts.push_back({"start", {0, 1}, {3, 1}});
    CHECK(test.mip() == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(test.mip_objective(), 0.2, 1e-6);
    CHECK(test.mip() == NLRA_MIP_OPTIMAL);
    test.problem.controls.set_double(kCutoff, 0.3);
    CHECK(test.mip() == NLRA_MIP_OPTIMAL);
    test.problem.controls.set_double(kCutoff, 0.19);
    CHECK(test.mip() == NLRA_MIP_INFEAS);
    test.model.set_qobj({{0, 1, 9}});
    CHECK(error_code([&] { test.mip(); }) == NLRA_ERROR_NONCONVEX);
    CHECK(test.problem.info.mip_status == NLRA_MIP_NONCONVEX);

    TestProblem sine;
    sine.col(1, 0, 9, 'I');
    add_formula(sine.model, -1, formulas::applied(kFunctionSin, {formulas::column(0)}));
    nslp_problem nonlinear(sine.problem);
    CHECK(error_code([&] { solve_nonlinear(nonlinear); }) == NLRA_ERROR_UNSUPPORTED);
    CHECK(!nonlinear.result.solution.present);
}

TEST("outer approximation: functions that are not defined everywhere") {
    // max log(x) + log(y) - x / 4 with x + 2 y <= 9: the first tangents lead to where x is 0.
    using namespace formulas;
    TestProblem test;
    test.model.set_sense(-1);
    test.problem.controls.set_double(kRelGap, kTight);
    test.col(-0.25, 0, 50, 'I');
    test.col(0, 0, kInf);
    test.row({{0, 1}, {1, 2}}, 'L', 9);
    for (const int j : {0, 1}) add_formula(test.model, -1, applied(kFunctionLog, {column(j)}));
    nslp_problem nonlinear(test.problem);
    CHECK(solve_nonlinear(nonlinear) == NSLP_GLOBALLY_OPTIMAL);
    CHECK_NEAR(nonlinear.result.solution.objective, std::log(3.0) + std::log(3.0) - 0.75, 1e-6);
    CHECK(nonlinear.result.solution.x[0] == 3.0);
    test.model.set_bounds(1, 0, 0);  // nowhere defined
    CHECK(solve_nonlinear(nonlinear) != NSLP_GLOBALLY_OPTIMAL);
    CHECK(!nonlinear.result.solution.present);
}

TEST("outer approximation: a portfolio of at most five out of thirty assets") {
    TestProblem test;
    portfolio(test, 30);
    const auto begin = std::chrono::steady_clock::now();
    CHECK(test.mip() == NLRA_MIP_OPTIMAL);
    CHECK(std::chrono::steady_clock::now() - begin < std::chrono::seconds(30));
    CHECK(test.problem.info.rel_gap <= 1e-4);
    int held = 0;
    double sum = 0.0;
    for (int j = 0; j < 30; ++j) {
        const double x = test.mip_x(j);
        CHECK(x == 0.0 || (x > 0.05 - 1e-6 && x < 0.4 + 1e-6));
        held += x != 0.0;
        sum += x;
    }
    CHECK(held <= 5);
    CHECK_NEAR(sum, 1.0, 1e-6);
}

TEST("outer approximation: limits and interrupts end the search and leave what is known") {
    TestProblem test;
    portfolio(test, 150);
    test.problem.controls.set_double(kRelGap, 0);
    test.problem.controls.set_double(kTimeLimit, 1.5);
    const auto begin = std::chrono::steady_clock::now();
    test.mip();
    CHECK(std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(2500));
    CHECK(test.problem.info.stop == NLRA_STOP_TIMELIMIT);
    CHECK(test.problem.info.mip_status ==
          (test.problem.mip_solution.present ? NLRA_MIP_SOLUTION : NLRA_MIP_NO_SOL_FOUND));
    test.problem.controls.set_double(kTimeLimit, kInf);
    std::chrono::steady_clock::time_point asked;
    std::thread interrupter([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        asked = std::chrono::steady_clock::now();
        test.problem.stop_request = NLRA_STOP_CTRLC;
    });
    test.mip();
    const auto end = std::chrono::steady_clock::now();
    interrupter.join();
    CHECK(end - asked < std::chrono::milliseconds(500));
    CHECK(test.problem.info.stop == NLRA_STOP_CTRLC);

    TestProblem small;
    portfolio(small, 12);
    small.problem.controls.set_int(kSolLimit, 1);
    small.problem.controls.set_double(kRelGap, 0);
    CHECK(small.mip() == NLRA_MIP_SOLUTION || small.problem.info.mip_status == NLRA_MIP_OPTIMAL);
    CHECK(small.problem.info.mip_solutions == 1);
    small.problem.controls.set_int(kIterLimit, 0);
    CHECK(small.mip() == NLRA_MIP_NO_SOL_FOUND);
    CHECK(small.problem.info.stop == NLRA_STOP_ITERLIMIT);
}
