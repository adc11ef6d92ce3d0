// Mixed integer problems: statuses, starts, cutoffs, and what decides which solver runs.
#include "brute_force.hpp"
#include "solve_support.hpp"

using namespace nlra;
using namespace solve_support;

namespace {

// max 5a + 4b + 3c with 2a + 3b + c <= 5: 9 at (1, 1, 0), the relaxation 10 2/3.
void knapsack(TestProblem& test) {
    test.model.set_sense(-1);
    for (const double value : {5.0, 4.0, 3.0}) test.col(value, 0, 1, 'B');
    test.row({{0, 2}, {1, 3}, {2, 1}}, 'L', 5);
}

void add_start(TestProblem& test, const Terms& terms) {
    MipStart start;
    for (const auto& [col, value] : terms) {
        start.cols.push_back(col);
        start.values.push_back(value);
    }
    test.problem.mip_starts.push_back(start);
}

}  // namespace

TEST("mip: the relaxation, the search, and the relaxation again") {
    TestProblem test;
    knapsack(test);
    test.model.set_constant(100);
    CHECK(test.mip("l") == NLRA_MIP_LP_OPTIMAL);
    CHECK(test.problem.info.lp_status == NLRA_LP_OPTIMAL);
    CHECK_NEAR(test.objective(), 100 + 32.0 / 3, 1e-9);
    CHECK(!test.problem.mip_solution.present);
    CHECK(test.mip() == NLRA_MIP_OPTIMAL);
    CHECK(!test.problem.lp_solution.present);
    CHECK_NEAR(test.mip_objective(), 109, 1e-9);
    CHECK(test.problem.mip_solution.x == (std::vector<double>{1, 1, 0}));
    CHECK_NEAR(test.problem.mip_solution.slack[0], 0, 1e-9);
    CHECK_NEAR(test.problem.info.best_bound, 109, 1e-6);
    CHECK(test.problem.info.stop == NLRA_STOP_NONE);
    CHECK(test.lp() == NLRA_LP_OPTIMAL);
    CHECK_NEAR(test.objective(), 100 + 32.0 / 3, 1e-9);
    CHECK(kkt_error(test.model, test.problem.lp_solution) < 1e-9);
    CHECK(test.problem.info.mip_status == NLRA_MIP_OPTIMAL && test.problem.mip_solution.present);

    test.model.set_bounds(0, 0, 0);
    test.problem.drop_solutions();
    CHECK(test.mip() == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(test.mip_objective(), 107, 1e-9);
    test.row({{0, 1}, {1, 1}, {2, 1}}, 'G', 3);
    CHECK(test.mip() == NLRA_MIP_INFEAS);
    CHECK(!test.problem.mip_solution.present);
    CHECK(test.mip("l") == NLRA_MIP_LP_NOT_OPTIMAL);
    CHECK(test.problem.info.lp_status == NLRA_LP_INFEAS);
}

TEST("mip: unbounded problems are told from infeasible ones") {
    for (const int presolve : {0, 1}) {
        for (const bool feasible : {true, false}) {
            for (const bool row : {true, false}) {
                TestProblem test;  // x grows without end, if 2y - 2z = 2 or 1 has a solution
                test.problem.controls.set_int(kPresolve, presolve);
                test.col(-1, 0, kInf, 'I');
                test.col(0, 0, kInf, 'I');
                test.col(0, 0, kInf, 'I');
                test.row({{1, 2}, {2, -2}}, 'E', feasible ? 2 : 1);
                if (row) test.row({{0, 1}, {1, -1}}, 'L', 3);
                CHECK(test.mip() == (feasible ? NLRA_MIP_UNBOUNDED : NLRA_MIP_INFEAS));
                CHECK(!test.problem.mip_solution.present);
                // The objective is still the problem's own.
                test.model.set_bounds(0, 0, 7);
                test.model.set_bounds(1, 0, 50);
                CHECK(test.mip() == (feasible ? NLRA_MIP_OPTIMAL : NLRA_MIP_INFEAS));
                if (feasible) CHECK_NEAR(test.mip_objective(), -7, 1e-6);
            }
        }
    }
}

TEST("mip: random problems with infinite bounds are unbounded where their relaxation is") {
    Random random(5);
    int unbounded = 0;
    int unfinished = 0;
    for (int round = 0; round < 350; ++round) {
        TestProblem test;
        test.problem.controls.set_double(kTimeLimit, 3.0);
        for (int j = random.integer(2, 4); j > 0; --j) {
            const int kind = random.integer(0, 3);
            const double lower = kind == 0 || kind == 3 ? -kInf : random.integer(-2, 1);
            const double upper = kind == 1 || kind == 3 ? kInf : random.integer(1, 3);
            test.col(random.integer(-3, 3), lower, upper, random.chance(0.5) ? 'I' : 'C');
        }
        test.model.set_type(0, 'I');
        for (int i = random.integer(1, 3); i > 0; --i) {
            Terms terms;
            for (int j = 0; j < test.model.cols(); ++j) {
                if (const int a = random.integer(-2, 2)) terms.emplace_back(j, a);
            }
            test.row(terms, "LG"[random.integer(0, 1)], random.integer(-4, 4));
        }
        TestProblem box;  // a solution near the origin is a solution
        box.model = test.model;
        box.model.edits = Edits();
        for (int j = 0; j < box.model.cols(); ++j) {
            box.model.set_bounds(j, std::max(-5.0, box.model.lower[j]),
                                 std::min(5.0, box.model.upper[j]));
        }
        if (!brute_force::optimum(box.model)) continue;
        const bool expected = test.lp("p") == NLRA_LP_UNBOUNDED;
        unbounded += expected;
        const int status = test.mip();
        // A search among infinitely many integers may never end.
        unfinished += !expected && test.problem.info.stop == NLRA_STOP_TIMELIMIT;
        if (test.problem.info.stop == NLRA_STOP_TIMELIMIT && !expected) continue;
        CHECK(status == (expected ? NLRA_MIP_UNBOUNDED : NLRA_MIP_OPTIMAL));
    }
    CHECK(unbounded > 100 && unfinished < 5);
}

TEST("mip: what presolve solves alone is the optimum") {
    // HiGHS calls -10 optimal: undoing presolve rounds a column and loses half a unit.
    TestProblem test;
    test.col(1, 1, kInf, 'I');
    test.col(1, -1, 1, 'I');
    test.col(-1, 0, kInf, 'I');
    test.col(1, -3, 2);
    test.col(-2, -1, 3);
    test.row({{0, -2}, {2, 2}, {3, -2}, {4, -1}}, 'L', 4);
    REQUIRE(test.mip() == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(test.mip_objective(), -10.5, 1e-6);
}

TEST("mip: degenerate shapes") {
    TestProblem no_rows;
    no_rows.col(1, -2.5, 7.5, 'I');
    no_rows.col(-1, -2.5, 7.5, 'I');
    no_rows.col(3, 2, 2, 'I');
    CHECK(no_rows.mip() == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(no_rows.mip_objective(), -3, 1e-9);
    no_rows.model.set_bounds(0, 0.2, 0.8);
    CHECK(no_rows.mip() == NLRA_MIP_INFEAS);

    TestProblem fixed;  // nothing left to choose
    fixed.col(1, 2, 2, 'I');
    fixed.col(1, 0.5, 0.5);
    fixed.row({{0, 1}, {1, 2}}, 'E', 3);
    CHECK(fixed.mip() == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(fixed.mip_objective(), 2.5, 1e-9);
    CHECK_NEAR(fixed.problem.info.best_bound, 2.5, 1e-6);

    TestProblem continuous;  // by way of the mixed integer call
    continuous.col(-1, 0, 2.5);
    CHECK(continuous.mip() == NLRA_MIP_OPTIMAL);
    CHECK(continuous.problem.info.lp_status == NLRA_LP_OPTIMAL);
    CHECK_NEAR(continuous.mip_objective(), -2.5, 1e-9);
    CHECK(continuous.problem.lp_solution.has_duals);
    continuous.model.set_bounds(0, 0, kInf);
    CHECK(continuous.mip() == NLRA_MIP_UNBOUNDED);

    TestProblem only_sets;
    only_sets.col(-1, 0, 2);
    only_sets.col(-1, 0, 3);
    only_sets.set('1', {0, 1}, {1, 2});
    CHECK(only_sets.mip() == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(only_sets.mip_objective(), -3, 1e-9);
}

TEST("mip: starts are used, completed or passed over") {
    TestProblem test;
    knapsack(test);
    test.problem.controls.set_int(kSolLimit, 1);
    add_start(test, {{0, 0}, {1, 0}, {2, 0}});
    add_start(test, {{0, 1}, {1, 1}, {2, 0}});
    add_start(test, {{0, 1}, {1, 1}, {2, 1}});  // infeasible
    const int status = test.mip();
    CHECK(status == NLRA_MIP_SOLUTION || status == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(test.mip_objective(), 9, 1e-9);
    CHECK(test.problem.mip_starts.empty());

    // Four equations that no rounding solves: only the given part of a solution leads to one.
    for (const bool given : {false, true}) {
        TestProblem partial;
        Random random(4);
        std::vector<int> x;
        for (int j = 0; j < 40; ++j) {
            partial.col(0, 0, 1, 'B');
            x.push_back(random.integer(0, 1));
        }
        for (int i = 0; i < 4; ++i) {
            Terms terms;
            double side = 0;
            for (int j = 0; j < 40; ++j) {
                terms.emplace_back(j, random.integer(1, 99));
                side += terms.back().second * x[j];
            }
            partial.row(terms, 'E', side);
        }
        Terms start;
        for (int j = 0; j < 33; ++j) start.emplace_back(j, x[j]);
        if (given) add_start(partial, start);
        partial.problem.controls.set_int(kNodeLimit, 1);
        partial.mip();
        CHECK(partial.problem.mip_solution.present == given);
        if (given) CHECK_NEAR(partial.problem.mip_solution.slack[3], 0, 1e-6);
    }

    TestProblem wrong;  // no completion: the search finds its own
    knapsack(wrong);
    add_start(wrong, {{0, 1}, {1, 1}, {2, 1}});
    CHECK(wrong.mip() == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(wrong.mip_objective(), 9, 1e-9);

    TestProblem sets;  // also across a reformulation
    for (int j = 0; j < 4; ++j) sets.col(-1 - j, 0, 5, j == 2 ? 'S' : 'C', j == 2 ? 2 : 0);
    sets.set('2', {0, 1, 2, 3}, {1, 2, 3, 4});
    sets.row({{2, 1}, {3, 1}}, 'L', 1);
    sets.problem.controls.set_int(kSolLimit, 1);
    add_start(sets, {{0, 5}, {1, 5}, {2, 0}, {3, 0}});
    REQUIRE(sets.mip() >= NLRA_MIP_SOLUTION);
    CHECK(sets.mip_objective() <= -15 + 1e-6);
}

TEST("mip: the incumbent survives edits as a start") {
    TestProblem test;
    Random random(8);
    Terms all;
    for (int j = 0; j < 60; ++j) {
        test.col(-random.real(10, 20), 0, 1, 'B');
        all.emplace_back(j, random.real(10, 20));
    }
    test.row(all, 'L', 300);
    REQUIRE(test.mip() == NLRA_MIP_OPTIMAL);
    const double best = test.mip_objective();
    test.model.set_cost(0, test.model.obj[0] + 0.25);
    test.problem.drop_solutions();
    test.problem.controls.set_int(kNodeLimit, 0);
    test.problem.controls.set_double(kHeurEffort, 0.0);
    test.mip();
    REQUIRE(test.problem.mip_solution.present);
    CHECK(test.mip_objective() <= best + 0.25 + 1e-6);
}

TEST("mip: a cutoff admits better solutions only, for both senses") {
    const auto solve = [](double sense, double cutoff, double constant) {
        TestProblem test;
        knapsack(test);
        test.model.set_constant(constant);
        if (sense > 0) {
            test.model.set_sense(1);
            for (int j = 0; j < 3; ++j) test.model.set_cost(j, -test.model.obj[j]);
        }
        test.problem.controls.set_double(kCutoff, cutoff);
        const int status = test.mip();
        if (status == NLRA_MIP_OPTIMAL) {
            CHECK_NEAR(test.mip_objective(), constant - sense * 9, 1e-9);
        }
        return status;
    };
    CHECK(solve(-1, 8, 0) == NLRA_MIP_OPTIMAL);
    CHECK(solve(-1, 9, 0) == NLRA_MIP_INFEAS);
    CHECK(solve(-1, 10, 0) == NLRA_MIP_INFEAS);
    CHECK(solve(1, -8, 0) == NLRA_MIP_OPTIMAL);
    CHECK(solve(1, -9, 0) == NLRA_MIP_INFEAS);
    CHECK(solve(-1, 108, 100) == NLRA_MIP_OPTIMAL);
    CHECK(solve(-1, 110, 100) == NLRA_MIP_INFEAS);
    CHECK(solve(1, 92, 100) == NLRA_MIP_OPTIMAL);
    CHECK(solve(1, 90, 100) == NLRA_MIP_INFEAS);
}

TEST("mip: models with free integral columns are solved to the end") {
    // HiGHS called the first one solved at 11, and crashed on the second.
    const struct {
        std::vector<double> costs;
        std::vector<std::pair<Terms, double>> at_most;
        double best;
    } models[] = {
        {{-2, -1, 2, 0, 1, 1, 0},
         {{{{0, 1}, {1, -2}, {2, 1}}, 4},
          {{{6, -1}}, -1},
          {{{2, -2}, {3, 1}}, -2},
          {{{1, 1}, {2, -1}, {3, 1}}, 0},
          {{{2, -2}, {3, 2}, {4, 1}, {5, -1}}, 0},
          {{{2, 2}, {3, -2}, {4, -1}, {5, 1}}, 0},
          {{{0, 1}, {1, 1}, {2, 2}, {6, 1}}, -3},
          {{{2, -1}, {6, 1}}, 1}},
         10.0},
        {{2, 2, -2, 0, 0, 0, 0},
         {{{{0, 1}, {1, 1}, {2, 1}}, 1},
          {{{0, -2}, {1, 1}, {2, -1}}, -2},
          {{{0, -2}, {1, -2}, {2, 1}}, 0},
          {{{1, -2}, {2, 1}}, 2},
          {{{1, 2}, {2, -1}}, -2},
          {{{0, -4}, {1, 4}, {2, -3}}, -2}},
         0.0},
    };
    for (const auto& [costs, at_most, best] : models) {
        const bool is_first = best == 10.0;
        TestProblem test;
        for (int j = 0; j < 7; ++j) {
            const bool integral = is_first ? j < 3 : j == 2;
            test.col(costs[j], is_first && (j == 4 || j == 5) ? 0.0 : -kInf, kInf,
                     integral ? 'I' : 'C');
        }
        for (const auto& [terms, side] : at_most) test.row(terms, 'L', side);
        REQUIRE(test.mip() == NLRA_MIP_OPTIMAL);
        CHECK_NEAR(test.mip_objective(), best, 1e-6);
    }
}

TEST("mip: quadratic models are solved, or found not convex") {
    TestProblem test;  // min (x - 3)^2 + y, x + y >= 2
    const int x = test.col(-6, 0, 10);
    const int y = test.col(1, 0, 10);
    test.model.set_constant(9);
    test.model.set_qobj({{x, x, 1}});
    test.row({{x, 1}, {y, 1}}, 'G', 2);
    REQUIRE(test.lp() == NLRA_LP_OPTIMAL);
    CHECK_NEAR(test.x(x), 3, 1e-5);
    CHECK_NEAR(test.objective(), 0, 1e-5);

    const int z = test.col(0, 0, 4, 'I');
    CHECK(test.mip() == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(test.mip_objective(), 0, 1e-5);
    CHECK(test.mip("l") == NLRA_MIP_LP_OPTIMAL);
    test.model.set_bounds(z, 2, 2);
    CHECK(test.mip() == NLRA_MIP_OPTIMAL);
    CHECK_NEAR(test.mip_x(z), 2, 1e-6);
    test.model.set_bounds(z, 2.5, 2.5);
    CHECK(test.mip() == NLRA_MIP_INFEAS);

    // A conditional row is no part of the relaxation.
    test.model.set_type(z, 'B');
    test.model.set_bounds(z, 0, 1);
    test.model.set_indicator(test.row({{x, 1}}, 'L', 1), z, 1);
    CHECK(test.lp() == NLRA_LP_OPTIMAL);
    CHECK_NEAR(test.x(x), 3, 1e-5);

    test.model.set_qobj({{x, x, -1}});
    CHECK(error_code([&] { test.lp(); }) == NLRA_ERROR_NONCONVEX);
    CHECK(test.problem.info.lp_status == NLRA_LP_NONCONVEX);
    CHECK(error_code([&] { test.mip(); }) == NLRA_ERROR_NONCONVEX);
    CHECK(test.problem.info.mip_status == NLRA_MIP_NONCONVEX);
}
