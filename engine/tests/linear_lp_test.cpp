// Linear problems: statuses, values, duals, methods, and re-solves after edits.
#include "solve_support.hpp"

using namespace nlra;
using namespace solve_support;

namespace {

const char* const kMethods[] = {"d", "p", "b", ""};

// Columns that change nothing, but make the model large enough for presolve.
void make_large(TestProblem& test) {
    for (int j = 0; j < 60; ++j) test.col(0, 0, 1);
}

}  // namespace

TEST("linear: duals are derivatives by the right-hand side, for both senses and all row types") {
    for (const char* method : kMethods) {
        TestProblem test;  // two products, at most 4 and 6 of two resources
        test.model.set_sense(-1);
        test.model.set_constant(10);
        const int a = test.col(3, 0, kInf);
        const int b = test.col(2, 0, kInf);
        test.row({{a, 1}, {b, 1}}, 'L', 4);
        test.row({{a, 1}, {b, 3}}, 'L', 6);
        test.row({{a, 1}}, 'N', 7);
        REQUIRE(test.lp(method) == NLRA_LP_OPTIMAL);
        CHECK_NEAR(test.objective(), 22, 1e-9);
        CHECK_NEAR(test.problem.info.lp_objective, 22, 1e-9);
        CHECK_NEAR(test.x(a), 4, 1e-9);
        const Solution& solution = test.problem.lp_solution;
        REQUIRE(solution.has_duals);
        CHECK_NEAR(solution.dual[0], 3, 1e-9);
        CHECK_NEAR(solution.dj[b], -1, 1e-9);
        CHECK_NEAR(solution.slack[1], 2, 1e-9);
        CHECK_NEAR(solution.slack[2], 3, 1e-9);

        test.model.set_sense(1);  // now the cheapest mix with at least 4, and exactly 6
        test.model.rowtype[0] = 'G';
        test.model.rowtype[1] = 'E';
        test.model.touch_structure();
        REQUIRE(test.lp(method) == NLRA_LP_OPTIMAL);
        CHECK_NEAR(test.objective(), 21, 1e-9);
        CHECK_NEAR(test.problem.lp_solution.dual[0], 3.5, 1e-9);
        CHECK_NEAR(test.problem.lp_solution.dual[1], -0.5, 1e-9);
    }
}

TEST("linear: random problems satisfy the optimality conditions by every method") {
    Random random(7);
    for (int round = 0; round < 60; ++round) {
        TestProblem test;
        if (random.chance(0.5)) test.model.set_sense(-1);
        test.model.set_constant(random.integer(-3, 3));
        random_lp(test, random, random.integer(0, 12), random.integer(1, 14), 0.5);
        if (round % 2 == 0) make_large(test);
        double reference = 0.0;
        for (const char* method : kMethods) {
            if (!CHECK(test.lp(method) == NLRA_LP_OPTIMAL)) break;
            CHECK(kkt_error(test.model, test.problem.lp_solution) < 1e-6);
            if (method == kMethods[0]) reference = test.objective();
            CHECK_NEAR(test.objective(), reference, 1e-6 * (1 + std::abs(reference)));
        }
    }
}

// One random change of every kind that a model knows.
static void random_edit(TestProblem& test, Random& random) {
    Model& model = test.model;
    const auto any_row = [&] { return random.integer(0, model.rows() - 1); };
    const auto any_col = [&] { return random.integer(0, model.cols() - 1); };
    const int kind = random.integer(0, 10);
    if (kind == 0 && model.rows() > 0) model.set_rhs(any_row(), random.integer(-9, 9));
    if (kind == 1) {
        const int lower = random.integer(-6, 3);
        model.set_bounds(any_col(), random.chance(0.1) ? -kInf : lower,
                         lower + random.integer(0, 6));
    }
    if (kind == 2) model.set_cost(any_col(), random.integer(-9, 9));
    if (kind == 3 && model.rows() > 0) {
        const int count = random.chance(0.05) ? 80 : 1;  // many: handed over as a whole
        for (int i = 0; i < count; ++i) model.set_coef(any_row(), any_col(), random.integer(-2, 3));
    }
    if (kind == 4) model.set_sense(-model.sense);
    if (kind == 5) model.set_constant(random.integer(-9, 9));
    if (kind == 6) {
        Terms terms;
        for (int j = 0; j < model.cols(); j += random.integer(1, 3)) {
            terms.emplace_back(j, random.integer(1, 4));
        }
        test.row(terms, "LGR"[random.integer(0, 2)], random.integer(-5, 9), 20);
    }
    if (kind == 7) {
        const int j = test.col(random.integer(-9, 9), 0, random.integer(1, 5));
        if (model.rows() > 0) model.set_coef(any_row(), j, random.integer(1, 3));
    }
    if (kind == 8 && model.rows() > 0) {
        const double cost = 1, lower = 0, upper = 4, value = 2;
        const int row = any_row();
        const int64_t start = 0;
        model.add_cols(1, 1, &cost, &start, &row, &value, &lower, &upper);
    }
    if (kind == 9 && model.rows() > 2) model.delete_rows({any_row()});
    if (kind == 10 && model.cols() > 2) model.delete_cols({any_col()});
    test.problem.drop_solutions();
}

TEST("linear: re-solves after edits agree with cold solves") {
    Random random(11);
    int optimal = 0;
    int infeasible = 0;
    int unbounded = 0;
    for (int round = 0; round < 40; ++round) {
        TestProblem warm;
        random_lp(warm, random, 6, 8, 0.5);
        for (int step = 0; step < 25; ++step) {
            const int status = warm.lp(kMethods[random.integer(0, 3)]);
            TestProblem cold;
            cold.model = warm.model;
            cold.model.edits = Edits();
            REQUIRE(cold.lp("d") == status);
            optimal += status == NLRA_LP_OPTIMAL;
            infeasible += status == NLRA_LP_INFEAS;
            unbounded += status == NLRA_LP_UNBOUNDED;
            REQUIRE(warm.problem.lp_solution.present == (status == NLRA_LP_OPTIMAL));
            if (status == NLRA_LP_OPTIMAL) {
                CHECK(kkt_error(warm.model, warm.problem.lp_solution) < 1e-6);
                CHECK_NEAR(warm.objective(), cold.objective(),
                           1e-6 * (1 + std::abs(cold.objective())));
            }
            for (int edit = random.integer(1, 3); edit > 0; --edit) random_edit(warm, random);
        }
    }
    CHECK(optimal > 100 && infeasible > 100 && unbounded > 20);
}

TEST("linear: a re-solve starts from the last basis, also across deletions") {
    Random random(3);
    TestProblem test;
    random_lp(test, random, 120, 150, 0.2);
    REQUIRE(test.lp("d") == NLRA_LP_OPTIMAL);
    const int64_t cold = test.problem.info.simplex_iterations;
    REQUIRE(cold > 60);
    test.model.set_rhs(0, test.model.rhs[0] + 0.5);
    REQUIRE(test.lp("d") == NLRA_LP_OPTIMAL);
    CHECK(test.problem.info.simplex_iterations < cold / 4);
    test.model.delete_rows({3, 50});
    test.model.delete_cols({7});
    test.row({{0, 1}, {5, 1}}, 'L', 1e3);
    REQUIRE(test.lp("d") == NLRA_LP_OPTIMAL);
    CHECK(test.problem.info.simplex_iterations < cold / 2);
    CHECK(kkt_error(test.model, test.problem.lp_solution) < 1e-6);
}

TEST("linear: infeasible and unbounded are told apart whatever presolve says") {
    for (const bool presolve : {false, true}) {
        for (const char* method : kMethods) {
            TestProblem unbounded, both, mistaken, scaled;
            unbounded.col(-1, 0, kInf);
            unbounded.col(0, 0, kInf);
            unbounded.row({{0, 1}, {1, -1}}, 'L', 4);
            both.col(-1, 0, kInf);  // infeasible, with a direction of unbounded improvement
            both.col(0, 0, 1);
            both.col(0, 0, 1);
            both.row({{1, 1}, {2, 1}}, 'G', 3);
            mistaken.col(-2, 0, kInf);  // feasible, but HiGHS's presolve says it is not
            mistaken.col(-2, 0, 2);
            mistaken.col(2, 0, 1);
            mistaken.col(2, -kInf, kInf);
            mistaken.col(0, 0, 1);
            mistaken.row({{0, 1}, {1, 1}, {2, 1}, {3, 2}}, 'L', 2);
            mistaken.row({{0, -2}, {1, -2}, {2, 1}, {3, -2}, {4, 2}}, 'L', 0);
            scaled.col(0, -kInf, kInf);  // bounded, but without presolve HiGHS says it is not
            scaled.col(0, -kInf, 0);
            scaled.col(300, 0, 3);
            scaled.col(-0.0003, 0, kInf);
            scaled.col(5000, 0, kInf);
            scaled.row({{0, -0.002}}, 'E', 500);
            scaled.row({{1, 0.0004}, {3, -0.4}, {4, 1000}}, 'E', 40);
            scaled.row({{2, -0.1}, {3, -100}}, 'L', 2000);
            scaled.row({{0, -3000}, {1, -200}, {4, 0.002}}, 'G', -0.5);
            scaled.row({{4, -0.0001}}, 'E', -0.05);
            for (TestProblem* test : {&unbounded, &both, &mistaken, &scaled}) {
                test->problem.controls.set_int(kPresolve, presolve);
                if (presolve && test != &scaled) make_large(*test);
            }
            CHECK(scaled.lp(method) == NLRA_LP_OPTIMAL);
            CHECK_NEAR(scaled.objective(), 2499625.03, 1e-2);
            CHECK(unbounded.lp(method) == NLRA_LP_UNBOUNDED);
            CHECK(!unbounded.problem.lp_solution.present);
            unbounded.row({{0, 1}}, 'L', -1);
            CHECK(unbounded.lp(method) == NLRA_LP_INFEAS);
            CHECK(both.lp(method) == NLRA_LP_INFEAS);
            CHECK(mistaken.lp(method) == NLRA_LP_UNBOUNDED);
        }
    }
}

TEST("linear: degenerate shapes") {
    TestProblem empty;
    CHECK(empty.lp() == NLRA_LP_OPTIMAL);
    empty.model.set_constant(5);
    CHECK(empty.lp() == NLRA_LP_OPTIMAL);
    CHECK(empty.objective() == 5);

    TestProblem no_cols;
    no_cols.row({}, 'L', 3);
    CHECK(no_cols.lp() == NLRA_LP_OPTIMAL);
    CHECK(no_cols.problem.lp_solution.slack == std::vector<double>{3});
    CHECK(no_cols.problem.lp_solution.dual.size() == 1);
    no_cols.row({}, 'E', 1);
    CHECK(no_cols.lp() == NLRA_LP_INFEAS);
    no_cols.col(1, 0, 1);
    no_cols.model.set_coef(1, 0, 2);
    CHECK(no_cols.lp() == NLRA_LP_OPTIMAL);
    CHECK_NEAR(no_cols.x(0), 0.5, 1e-9);

    for (const char* method : kMethods) {
        TestProblem no_rows;
        no_rows.col(1, -2, 7);
        no_rows.col(-1, -2, 7);
        no_rows.col(0, 3, 3);
        no_rows.row({{0, 1}, {1, 1}}, 'N', 0);
        CHECK(no_rows.lp(method) == NLRA_LP_OPTIMAL);
        CHECK_NEAR(no_rows.objective(), -9, 1e-7);
        CHECK_NEAR(no_rows.problem.lp_solution.slack[0], -5, 1e-7);
        no_rows.model.set_bounds(1, -2, kInf);
        CHECK(no_rows.lp(method) == NLRA_LP_UNBOUNDED);

        TestProblem fixed;
        fixed.col(2, 3, 3);
        fixed.col(2, -1, -1);
        fixed.row({{0, 1}, {1, 1}}, 'E', 2);
        CHECK(fixed.lp(method) == NLRA_LP_OPTIMAL);
        CHECK_NEAR(fixed.objective(), 4, 1e-9);
        fixed.model.set_rhs(0, 2.5);
        CHECK(fixed.lp(method) == NLRA_LP_INFEAS);
    }
}

TEST(
    "linear: bounds and sides that nothing can meet make a problem infeasible, and can be undone") {
    TestProblem test;
    test.col(1, 0, 10);
    test.col(1, 0, 10);
    test.row({{0, 1}, {1, 1}}, 'G', 1);
    const auto infeasible_with = [&](double lower, double upper, double rhs) {
        test.model.set_bounds(1, lower, upper);
        test.model.set_rhs(0, rhs);
        const bool infeasible = test.lp() == NLRA_LP_INFEAS && test.mip() == NLRA_MIP_INFEAS;
        test.model.set_bounds(1, 0, 10);
        test.model.set_rhs(0, 1);
        return infeasible && test.lp() == NLRA_LP_OPTIMAL;
    };
    CHECK(infeasible_with(3, 2, 1));
    CHECK(infeasible_with(kInf, kInf, 1));
    CHECK(infeasible_with(-kInf, -kInf, 1));
    CHECK(infeasible_with(0, 10, kInf));
    CHECK(!infeasible_with(0, 10, -kInf));
    CHECK(test.lp() == NLRA_LP_OPTIMAL);
    CHECK_NEAR(test.objective(), 1, 1e-9);
}

TEST("linear: huge numbers below infinity are numbers") {
    TestProblem test;
    test.col(1, -1e19, 1e19);
    test.col(-1, 0, 1e17);
    test.row({{0, 1e16}, {1, 1}}, 'G', -1e18);
    CHECK(test.lp("p") == NLRA_LP_OPTIMAL);
    CHECK_NEAR(test.x(1), 1e17, 1e4);
}
