// Sets, indicators, semi-continuous and partial integer columns: the reformulation is exact, and
// refuses what it cannot express.
#include "brute_force.hpp"
#include "search/reformulate.hpp"
#include "solve_support.hpp"

using namespace nlra;
using namespace solve_support;

namespace {

void random_column(TestProblem& test, Random& random) {
    const char type = "CCBIISSRRPP"[random.integer(0, 10)];
    double lower = random.chance(0.4) ? 0 : random.integer(-3, 2);
    double upper = lower + random.integer(0, 5);
    double limit = 0.0;
    if (type == 'B') lower = random.chance(0.1), upper = 1 - random.chance(0.1) * (1 - lower);
    if (type == 'S' || type == 'R' || type == 'P') {
        limit = random.chance(0.2) ? 0 : random.integer(-2, 5) * (random.chance(0.3) ? 0.5 : 1.0);
    }
    if (type == 'I' && random.chance(0.2)) upper += 0.5;
    if (type == 'R' && random.chance(0.2)) upper += 0.5;
    test.col(random.integer(-9, 9), lower, upper, type, limit);
}

void random_problem(TestProblem& test, Random& random) {
    if (random.chance(0.5)) test.model.set_sense(-1);
    test.model.set_constant(random.integer(-2, 2));
    const int cols = random.integer(2, 5);
    for (int j = 0; j < cols; ++j) random_column(test, random);
    const int rows = random.integer(0, 3);
    for (int i = 0; i < rows; ++i) {
        Terms terms;
        for (int j = 0; j < cols; ++j) {
            const int a = random.integer(-3, 4);
            if (a != 0 && random.chance(0.7)) terms.emplace_back(j, a);
        }
        test.row(terms, "LLGGERN"[random.integer(0, 6)], random.integer(-4, 6),
                 random.integer(0, 5));
    }
    for (int sets = random.integer(0, 2); sets > 0; --sets) {
        std::vector<int> members;
        std::vector<double> weights;
        for (int j = 0; j < cols; ++j) {
            if (random.chance(0.25)) continue;
            members.push_back(j);
            weights.push_back(10 * random.integer(1, 5) + j);
        }
        if (!members.empty()) test.set("12"[random.integer(0, 1)], members, weights);
    }
    for (int i = 0; i < rows; ++i) {
        const int j = random.integer(0, cols - 1);
        if (test.model.coltype[j] == 'B' && random.chance(0.6)) {
            test.model.set_indicator(i, j, random.chance(0.5) ? 1 : -1);
        }
    }
}

// One that leaves the kinds of columns, sets and indicators as they are.
void random_edit(TestProblem& test, Random& random) {
    Model& model = test.model;
    const int kind = random.integer(0, 3);
    if (kind == 0 || model.rows() == 0) {
        Terms terms;
        for (int j = 0; j < model.cols(); ++j) terms.emplace_back(j, random.integer(-3, 4));
        test.row(terms, "LGE"[random.integer(0, 2)], random.integer(-3, 6));
    } else if (kind == 1) {
        model.set_rhs(0, random.integer(-5, 9));
    } else if (kind == 2) {
        model.set_cost(random.integer(0, model.cols() - 1), random.integer(-9, 9));
    } else {
        model.delete_rows({random.integer(0, model.rows() - 1)});
    }
    test.problem.drop_solutions();
}

}  // namespace

TEST("reformulate: random problems have the optimum that enumeration finds, also after edits") {
    Random random(2024);
    int optimal = 0;
    int infeasible = 0;
    const auto check = [&](TestProblem& test) {
        const std::optional<double> best = brute_force::optimum(test.model);
        const int status = test.mip();
        if (!best) {
            CHECK(status == NLRA_MIP_INFEAS);
            ++infeasible;
            return;
        }
        ++optimal;
        if (!CHECK(status == NLRA_MIP_OPTIMAL)) return;
        CHECK_NEAR(test.mip_objective(), *best, 1e-5);
        CHECK(brute_force::is_feasible(test.model, test.problem.mip_solution.x, 1e-5));
        CHECK_NEAR(test.problem.info.best_bound, *best, 1e-5);
        CHECK(static_cast<int>(test.problem.mip_solution.x.size()) == test.model.cols());
        CHECK(static_cast<int>(test.problem.mip_solution.slack.size()) == test.model.rows());
        // The relaxation is one.
        if (test.mip("l") == NLRA_MIP_LP_OPTIMAL) {
            CHECK(test.model.sense * test.objective() <= test.model.sense * *best + 1e-6);
        } else {
            CHECK(test.problem.info.lp_status != NLRA_LP_INFEAS);
        }
    };
    for (int round = 0; round < 600; ++round) {
        TestProblem test;
        random_problem(test, random);
        if (!test.model.is_mip()) continue;
        test.problem.controls.set_double(kRelGap, 0.0);
        for (int step = 0; step < 3; ++step) {
            check(test);
            random_edit(test, random);
        }
    }
    CHECK(optimal > 500 && infeasible > 200);
}

TEST("reformulate: points are extended to the added columns") {
    Random random(77);
    int checked = 0;
    for (int round = 0; round < 400; ++round) {
        TestProblem test;
        random_problem(test, random);
        if (!test.model.is_mip() || test.mip() != NLRA_MIP_OPTIMAL) continue;
        Reformulation reformulation(test.model);
        std::vector<double> x = test.problem.mip_solution.x;
        for (double& value : x) {
            if (std::abs(value - std::round(value)) < 1e-6) value = std::round(value);
        }
        CHECK(reformulation.violation(x) < 1e-6);
        CHECK(brute_force::is_feasible(reformulation.plain(), reformulation.extend(x), 1e-5));
        x[0] = std::nan("");
        const std::vector<double> partial = reformulation.extend(x);
        CHECK(partial.size() == static_cast<size_t>(reformulation.plain().cols()));
        ++checked;
    }
    CHECK(checked > 100);
}

TEST("reformulate: violation measures what the binaries let pass") {
    TestProblem test;
    const int s = test.col(0, 0, 10, 'S', 4);
    const int p = test.col(0, 0, 10, 'P', 4);
    const int a = test.col(0, -5, 5);
    const int b = test.col(0, -5, 5);
    const int c = test.col(0, -5, 5);
    const int z = test.col(0, 0, 1, 'B');
    test.set('1', {a, c}, {1, 2});
    test.set('2', {c, a, b}, {3, 1, 2});  // order a b c
    test.row({{a, 1}, {b, 1}}, 'L', 1);
    test.model.set_indicator(0, z, -1);
    const Reformulation reformulation(test.model);
    const auto violation = [&](double vs, double vp, double va, double vb, double vc, double vz) {
        std::vector<double> x(6);
        x[s] = vs, x[p] = vp, x[a] = va, x[b] = vb, x[c] = vc, x[z] = vz;
        return reformulation.violation(x);
    };
    CHECK(violation(0, 0, 0, 0, 0, 0) == 0);
    CHECK(violation(4, 5.5, 0, 1, 3, 1) == 0);
    CHECK_NEAR(violation(3.5, 0, 0, 0, 0, 0), 0.5, 1e-12);
    CHECK_NEAR(violation(0.25, 0, 0, 0, 0, 0), 0.25, 1e-12);
    CHECK_NEAR(violation(0, 2.25, 0, 0, 0, 0), 0.25, 1e-12);
    CHECK_NEAR(violation(0, 0, 3, 0, -0.5, 1), 0.5, 1e-12);
    CHECK_NEAR(violation(0, 0, 0, 2, 0, 0), 0.5, 1e-12);  // 2 <= 1, by the size of the terms
}

TEST("reformulate: missing bounds are taken from rows, or the model is refused") {
    const auto build = [](TestProblem& test, int what) {
        const int x = test.col(-1, 0, kInf,
                               what == 0   ? 'S'
                               : what == 1 ? 'P'
                                           : 'C',
                               what < 2 ? 2 : 0);
        const int y = test.col(-1, 0, kInf);
        const int z = test.col(3.5, 0, 1, 'B');
        if (what == 2) test.set('1', {x, y}, {1, 2});
        if (what == 3) test.model.set_indicator(test.row({{x, 1}}, 'L', 1), z, -1);
        if (what == 4) test.model.set_indicator(test.row({{x, -1}}, 'E', -1), z, -1);
        return std::pair(x, y);
    };
    const double expected[] = {-5, -5, -5, -2.5, -2.5};
    for (int what = 0; what < 5; ++what) {
        TestProblem refused;
        build(refused, what);
        std::string text;
        CHECK(error_code([&] { refused.mip(); }, &text) == NLRA_ERROR_UNSUPPORTED);
        CHECK(text.find(what < 3 ? "C1" : "R1") != std::string::npos);
        // A row bounds both: x + y <= 5.
        TestProblem test;
        const auto [x, y] = build(test, what);
        test.row({{x, 1}, {y, 1}}, 'L', 5);
        if (what > 2) test.model.set_bounds(y, 0, 0);
        REQUIRE(test.mip() == NLRA_MIP_OPTIMAL);
        CHECK_NEAR(test.mip_objective(), what > 2 ? std::min(-1.0, -5 + 3.5) : expected[what],
                   1e-6);
    }
}

TEST("reformulate: an indicator on a column that is binary no more is refused") {
    TestProblem test;
    const int z = test.col(-1, 0, 1, 'B');
    test.model.set_indicator(test.row({{z, 1}}, 'L', 0), z, 1);
    test.model.set_type(z, 'I');
    test.model.set_bounds(z, 0, 2);
    std::string text;
    CHECK(error_code([&] { test.mip(); }, &text) == NLRA_ERROR_UNSUPPORTED);
    CHECK(text.find("C1") != std::string::npos && text.find("R1") != std::string::npos);
}

TEST("reformulate: wide bounds do not let a switch leak") {
    // A million times the tolerance of a binary is one: zero must come out as zero all the same.
    TestProblem test;
    for (int j = 0; j < 6; ++j) test.col(1 + 0.1 * j, 0, 1e7, 'S', 3);
    Terms all;
    for (int j = 0; j < 6; ++j) all.emplace_back(j, 1);
    test.row(all, 'G', 4);
    test.set('1', {0, 1, 2, 3, 4, 5}, {1, 2, 3, 4, 5, 6});
    REQUIRE(test.mip() == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(test.mip_objective(), 4, 1e-6);
    CHECK(brute_force::is_feasible(test.model, test.problem.mip_solution.x, 1e-6));

    TestProblem charge;  // a fixed charge of 1000 for a flow of 0.05, behind a bound of a million
    const int flow = charge.col(0, 0, 1e6);
    const int open = charge.col(1000, 0, 1, 'B');
    const int other = charge.col(1e5, 0, 1);
    charge.row({{flow, 1}, {other, 1}}, 'G', 0.05);
    charge.model.set_indicator(charge.row({{flow, 1}}, 'E', 0), open, -1);
    REQUIRE(charge.mip() == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(charge.mip_objective(), 1000, 1e-3);
    CHECK_NEAR(charge.mip_x(open), 1, 1e-6);
}
