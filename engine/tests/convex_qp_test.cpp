// Convex quadratic programs: solutions known by construction or from the literature, programs
// without an optimum, limits and stops.
#include "nonlinear/convex_qp.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>
#include <vector>

#include "analysis/convexity.hpp"
#include "nonlinear/qp_polish.hpp"
#include "search/monitor.hpp"
#include "solve_support.hpp"

using namespace nlra;
using namespace solve_support;

namespace {

LpOutcome solve(TestProblem& test, const double* start = nullptr) {
    test.problem.stop_request = 0;
    Monitor monitor(test.problem);
    return solve_convex_quadratic(test.model, test.problem.controls, monitor, start);
}

using Dense = std::vector<std::vector<double>>;

// Terms of 0.5 x'Hx times a factor.
std::vector<QuadTerm> half_form(const Dense& h, double factor) {
    std::vector<QuadTerm> terms;
    const int n = static_cast<int>(h.size());
    for (int i = 0; i < n; ++i) {
        for (int j = i; j < n; ++j) {
            if (h[i][j] != 0.0) terms.push_back({i, j, factor * (i == j ? 0.5 : 1.0) * h[i][j]});
        }
    }
    return terms;
}

// A sum of `rank` squares of sparse linear forms, as Hessian.
Dense squares(int n, int rank, Random& random) {
    Dense h(n, std::vector<double>(n, 0.0));
    for (int k = 0; k < rank; ++k) {
        std::vector<double> v(n, 0.0);
        for (int t = 0; t < 3; ++t) v[random.integer(0, n - 1)] = random.integer(-3, 3);
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j) h[i][j] += v[i] * v[j];
        }
    }
    return h;
}

std::vector<double> times(const Dense& h, const std::vector<double>& x) {
    std::vector<double> out(x.size(), 0.0);
    for (size_t i = 0; i < x.size(); ++i) {
        for (size_t j = 0; j < x.size(); ++j) out[i] += h[i][j] * x[j];
    }
    return out;
}

struct Planted {
    std::vector<double> x;
    double objective;
};

struct PlantOptions {
    bool definite = true;     // Hessian of the objective
    bool forms = false;       // rows with quadratic terms
    bool degenerate = false;  // active bounds and rows without multipliers, repeated equations
};

// Build a problem around an optimal point: choose point, active sets and multipliers, and from the
// optimality conditions the costs and sides.
Planted plant(TestProblem& test, Random& random, const PlantOptions& options) {
    const int n = random.integer(2, 9);
    const double sense = random.chance(0.4) ? -1.0 : 1.0;
    test.model.set_sense(sense);
    Planted planted;
    Dense h = squares(n, options.definite ? n : random.integer(0, n - 1), random);
    if (options.definite) {
        for (int i = 0; i < n; ++i) h[i][i] += random.real(0.2, 1.0);
    }
    const auto multiplier = [&] {
        return options.degenerate && random.chance(0.5) ? 0.0 : random.real(0.1, 2.0);
    };
    std::vector<double> gradient(n, 0.0);  // of the minimized objective at the point
    for (int j = 0; j < n; ++j) {
        const double at = random.real(-4.0, 4.0);
        planted.x.push_back(at);
        double lower = -kInf;
        double upper = kInf;
        switch (random.integer(0, 5)) {
            case 0:
                lower = at;
                gradient[j] += multiplier();
                break;
            case 1:
                upper = at;
                lower = at - 1.0;
                gradient[j] -= multiplier();
                break;
            case 2:
                lower = at - 1.0;
                upper = at + 2.0;
                break;
            case 3:
                lower = upper = at;
                gradient[j] += random.real(-2.0, 2.0);
                break;
            default:
                break;
        }
        test.col(0.0, lower, upper);
    }
    const std::vector<double>& x = planted.x;
    const int rows = random.integer(0, 2 * n);
    int equations = 0;
    std::vector<double> repeated(n, 0.0);
    for (int i = 0; i < rows; ++i) {
        std::vector<double> slope(n, 0.0);
        Terms terms;
        double activity = 0.0;
        char type = "LLGGERN"[random.integer(0, 6)];
        if (type == 'E' && ++equations > n / 3 && !options.degenerate) type = 'N';
        const bool again = type == 'E' && options.degenerate && equations % 2 == 0;
        for (int j = 0; j < n; ++j) {
            slope[j] = again ? repeated[j] : random.chance(0.5) ? random.integer(-4, 4) : 0.0;
            if (type == 'E') repeated[j] = slope[j];
            if (slope[j] != 0.0) terms.emplace_back(j, slope[j]);
            activity += slope[j] * x[j];
        }
        const bool form = options.forms && (type == 'L' || type == 'G') && random.chance(0.5);
        if (form) {
            const double sign = type == 'L' ? 1.0 : -1.0;
            const Dense q = squares(n, random.integer(1, n), random);
            const std::vector<double> product = times(q, x);
            for (int j = 0; j < n; ++j) {
                slope[j] += sign * product[j];
                activity += 0.5 * sign * product[j] * x[j];
            }
            test.model.set_qrow(test.row(terms, type, 0.0), half_form(q, sign));
        } else {
            test.row(terms, type, 0.0);
        }
        const bool active = type == 'E' || random.chance(0.5);
        const double room = active ? 0.0 : random.real(0.5, 2.0);
        double dual = type == 'E' ? random.real(-2.0, 2.0) : active ? multiplier() : 0.0;
        if (type == 'L' || type == 'R') dual = -dual;
        if (type == 'N') dual = 0.0;
        if (type == 'R') test.model.range[i] = 3.0;
        test.model.rhs[i] = type == 'G' ? activity - room : activity + room;
        for (int j = 0; j < n; ++j) gradient[j] += dual * slope[j];
    }
    const std::vector<double> product = times(h, x);
    planted.objective = 0.0;
    for (int j = 0; j < n; ++j) {
        test.model.set_cost(j, sense * (gradient[j] - product[j]));
        planted.objective += test.model.obj[j] * x[j] + 0.5 * sense * product[j] * x[j];
    }
    test.model.set_qobj(half_form(h, sense));
    return planted;
}

// The optimality conditions from the model's own data; those of solve_support know no quadratic
// terms, so hand it a linear model with the same gradients.
double quadratic_kkt_error(const Model& model, const Solution& solution) {
    Model linear = model;
    const auto linearize = [&](const std::vector<QuadTerm>& terms, auto&& add) {
        double value = 0.0;
        for (const QuadTerm& term : terms) {
            add(term.col1, term.value * solution.x[term.col2]);
            add(term.col2, term.value * solution.x[term.col1]);
            value += term.value * solution.x[term.col1] * solution.x[term.col2];
        }
        return value;  // what the linearization has too much
    };
    linear.constant -= linearize(model.qobj, [&](int j, double g) { linear.obj[j] += g; });
    for (const auto& [row, terms] : model.qrows) {
        const int i = row;
        linear.rhs[i] += linearize(
            terms, [&](int j, double g) { linear.set_coef(i, j, linear.matrix.get(i, j) + g); });
    }
    return kkt_error(linear, solution);
}

}  // namespace

TEST("convex qp: planted solutions are found to full accuracy") {
    Random random(17);
    const PlantOptions kinds[] = {{true, false, false},
                                  {false, false, false},
                                  {true, true, false},
                                  {true, false, true},
                                  {false, true, true}};
    for (int trial = 0; trial < 400; ++trial) {
        const PlantOptions& options = kinds[trial % 5];
        TestProblem test;
        const Planted planted = plant(test, random, options);
        CHECK(find_nonconvexity(test.model).empty());
        const LpOutcome outcome = solve(test);
        if (!CHECK(outcome.status == NLRA_LP_OPTIMAL)) continue;
        REQUIRE(outcome.solution.present && outcome.solution.has_duals);
        const double scale = 1.0 + std::fabs(planted.objective);
        CHECK_NEAR(outcome.solution.objective, planted.objective, 1e-7 * scale);
        CHECK(quadratic_kkt_error(test.model, outcome.solution) < 1e-6);
        if (!options.definite) continue;
        for (int j = 0; j < test.model.cols(); ++j) {
            CHECK_NEAR(outcome.solution.x[j], planted.x[j], 1e-7);
        }
    }
}

TEST("convex qp: duals and reduced costs have their signs for both senses") {
    // max 4x + 3y - x^2 - y^2, x + y <= 2, y <= 0.5: at (1.5, 0.5).
    for (const double sense : {1.0, -1.0}) {
        TestProblem test;
        test.model.set_sense(sense);
        test.model.set_constant(sense);
        const int x = test.col(sense * -4, -kInf, kInf);
        const int y = test.col(sense * -3, -kInf, 0.5);
        test.row({{x, 1}, {y, 1}}, 'L', 2);
        test.row({{x, 1}}, 'N', 7);
        test.model.set_qobj({{x, x, sense}, {y, y, sense}});
        const Solution solution = solve(test).solution;
        REQUIRE(solution.has_duals);
        CHECK_NEAR(solution.x[x], 1.5, 1e-9);
        CHECK_NEAR(solution.objective, sense * -4.0, 1e-9);
        CHECK_NEAR(solution.dual[0], sense * -1.0, 1e-8);
        CHECK_NEAR(solution.dj[x], 0.0, 1e-8);
        CHECK_NEAR(solution.dj[y], sense * -1.0, 1e-8);
        CHECK_NEAR(solution.slack[0], 0.0, 1e-9);
        CHECK_NEAR(solution.slack[1], 5.5, 1e-9);
    }
}

namespace {

using Column = std::vector<long double>;

long double dot(const Column& a, const Column& b) {
    long double sum = 0.0;
    for (size_t i = 0; i < a.size(); ++i) sum += a[i] * b[i];
    return sum;
}

// Least sum of squares over the columns that are in use, by orthogonalization done twice.
long double least_squares(const std::vector<Column>& a, Column b, unsigned use, Column& x) {
    std::vector<Column> q;
    std::vector<size_t> chosen;
    std::vector<Column> r;
    for (size_t j = 0; j < a.size(); ++j) {
        if ((use >> j & 1) == 0) continue;
        Column v = a[j], row(a.size(), 0.0L);
        for (int pass = 0; pass < 2; ++pass) {
            for (size_t k = 0; k < q.size(); ++k) {
                const long double share = dot(q[k], v);
                row[k] += share;
                for (size_t i = 0; i < v.size(); ++i) v[i] -= share * q[k][i];
            }
        }
        const long double norm = std::sqrt(dot(v, v));
        if (norm <= 1e-15L * std::sqrt(dot(a[j], a[j]))) continue;
        for (long double& value : v) value /= norm;
        row[q.size()] = norm;
        q.push_back(v);
        r.push_back(row);
        chosen.push_back(j);
    }
    std::vector<long double> z;
    for (const Column& v : q) {
        z.push_back(dot(v, b));
        for (size_t i = 0; i < b.size(); ++i) b[i] -= z.back() * v[i];
    }
    x.assign(a.size(), 0.0L);
    for (size_t k = q.size(); k-- > 0;) {
        for (size_t t = k + 1; t < q.size(); ++t) z[k] -= r[t][k] * z[t];
        x[chosen[k]] = z[k] /= r[k][k];
    }
    return dot(b, b);
}

// The columns of a fit: powers, rational functions, nearly equal or equal ones, of any scale.
std::vector<Column> basis(int kind, int rows, int columns, Random& random) {
    std::vector<Column> a(columns, Column(rows));
    for (int j = 0; j < columns; ++j) {
        const double scale = std::pow(10.0, random.real(-4, 4));
        for (int i = 0; i < rows; ++i) {
            const double t = -1.8 + 3.6 * i / (rows - 1), noise = random.real(-1, 1);
            const Column& first = a[0];
            const long double values[] = {
                std::pow(t, 2 * j),
                1.0L / (i + j + 1),
                std::pow(0.1 + std::fabs(t), j),
                scale * noise,
                j + 1 == columns && j > 0 ? first[i] + 1e-5 * noise : noise,
                j % 2 == 1 ? 3 * a[j - 1][i] : noise};
            a[j][i] = static_cast<double>(values[kind]);
        }
    }
    return a;
}

}  // namespace

TEST("convex qp: least squares are optimal when they are said to be, however ill-conditioned") {
    Random random(8);
    int unfinished = 0;
    for (int trial = 0; trial < 120; ++trial) {
        const int rows = random.integer(9, 35), columns = random.integer(2, 9);
        const std::vector<Column> a = basis(trial % 6, rows, columns, random);
        const bool bounded = columns < 7 && random.chance(0.5);
        Column b(rows);
        for (int i = 0; i < rows; ++i) b[i] = 60 + 50 * std::cos(0.3 * i) + random.real(-1, 1);
        TestProblem test;
        std::vector<QuadTerm> terms;
        for (int j = 0; j < columns; ++j) {
            test.col(static_cast<double>(-2 * dot(a[j], b)), bounded ? 0 : -kInf, kInf);
            for (int k = 0; k <= j; ++k) {
                const double value = static_cast<double>((k < j ? 2 : 1) * dot(a[k], a[j]));
                terms.push_back({k, j, value});
            }
        }
        test.model.set_qobj(terms);
        test.model.set_constant(static_cast<double>(dot(b, b)));

        const unsigned all = (1u << columns) - 1;
        Column x;
        long double least = kInf;
        for (unsigned use = bounded ? 0 : all; use <= all; ++use) {
            const long double value = least_squares(a, b, use, x);
            const bool allowed =
                !bounded || std::all_of(x.begin(), x.end(), [](auto v) { return v >= 0; });
            if (allowed) least = std::min(least, value);
        }
        const LpOutcome outcome = solve(test);
        CHECK(outcome.status != NLRA_LP_INFEAS && outcome.status != NLRA_LP_UNBOUNDED);
        unfinished += outcome.status != NLRA_LP_OPTIMAL;
        if (outcome.status != NLRA_LP_OPTIMAL) continue;
        Column residual = b;
        for (int j = 0; j < columns; ++j) {
            for (int i = 0; i < rows; ++i) residual[i] -= a[j][i] * outcome.solution.x[j];
        }
        const long double value = dot(residual, residual);
        CHECK(value - least <= 1e-6L * std::max(1.0L, least));
    }
    // What is rounded away from the products of a fit's columns cannot be had back.
    CHECK(unfinished < 12);
}

TEST("convex qp: whatever was edited, a solve ends as that of a fresh problem does") {
    Random random(31);
    int optimal = 0;
    for (int trial = 0; trial < 12; ++trial) {
        TestProblem test;
        plant(test, random, {trial % 3 != 0, trial % 4 == 3, trial % 2 == 1});
        Model& model = test.model;
        for (int edit = 0; edit < 12; ++edit) {
            const int j = random.integer(0, model.cols() - 1);
            const int i = random.integer(0, std::max(0, model.rows() - 1));
            const int kind = edit == 0 ? 0 : random.integer(model.rows() > 0 ? 0 : 3, 8);
            if (kind == 1) model.set_rhs(i, model.rhs[i] + random.real(-0.5, 0.5));
            if (kind == 2) model.delete_rows({i});
            if (kind == 3) model.set_cost(j, model.obj[j] + random.real(-1, 1));
            if (kind == 4) model.set_bounds(j, random.real(-3, 0), random.real(0, 3));
            if (kind == 5) test.row({{j, random.real(1, 2)}}, 'L', random.real(0, 4));
            if (kind == 6 && model.cols() > 1) model.delete_cols({j});
            if (kind == 7) {
                const int col = test.col(random.real(-1, 1), 0, 2);
                model.set_qobj({{col, col, model.sense * random.real(0.5, 2)}});
            }
            if (kind == 8) {
                double square = model.sense;
                for (const QuadTerm& term : model.qobj) {
                    if (term.col1 == j && term.col2 == j) square += term.value;
                }
                model.set_qobj({{j, j, square}});
            }
            TestProblem fresh;
            fresh.model = model;
            const int status = fresh.lp();
            CHECK(test.lp() == status);
            if (status != NLRA_LP_OPTIMAL) continue;
            ++optimal;
            const double scale = 1.0 + std::fabs(fresh.objective());
            CHECK_NEAR(test.objective(), fresh.objective(), 1e-7 * scale);
            CHECK(quadratic_kkt_error(model, test.problem.lp_solution) < 1e-6 * scale);
        }
    }
    CHECK(optimal > 50);
}

TEST("convex qp: a portfolio by variance and by return gives the same mix") {
    Random random(5);
    const int n = 40;
    const Dense risk = [&] {
        Dense h = squares(n, 60, random);
        for (int i = 0; i < n; ++i) h[i][i] += 0.5;
        return h;
    }();
    TestProblem variance;
    Terms all;
    std::vector<double> profit;
    for (int j = 0; j < n; ++j) {
        profit.push_back(random.real(0.5, 3.0));
        all.emplace_back(variance.col(-profit[j], 0, kInf), 1.0);
    }
    variance.row(all, 'E', 1.0);
    variance.model.set_qobj(half_form(risk, 1.0));
    const Solution best = solve(variance).solution;
    REQUIRE(best.has_duals);
    CHECK(quadratic_kkt_error(variance.model, best) < 1e-9);

    // Greatest return at that risk: the multiplier of the risk is one over the price of risk.
    TestProblem greatest;
    greatest.model.set_sense(-1);
    for (int j = 0; j < n; ++j) greatest.col(profit[j], 0, kInf);
    greatest.row(all, 'E', 1.0);
    const std::vector<double> product = times(risk, best.x);
    double value = 0.0;
    for (int j = 0; j < n; ++j) value += 0.5 * product[j] * best.x[j];
    greatest.row({}, 'L', value);
    greatest.model.set_qrow(1, half_form(risk, 1.0));
    const Solution same = solve(greatest).solution;
    REQUIRE(same.has_duals);
    CHECK_NEAR(same.dual[1], 1.0, 1e-6);
    for (int j = 0; j < n; ++j) CHECK_NEAR(same.x[j], best.x[j], 1e-6);
}

TEST("convex qp: infeasible and unbounded problems are told apart") {
    const auto status = [](auto&& build) {
        TestProblem test;
        const int x = test.col(1, -kInf, kInf);
        const int y = test.col(0, -kInf, kInf);
        test.model.set_qobj({{x, x, 1.0}});
        build(test, x, y);
        const LpOutcome outcome = solve(test);
        CHECK(outcome.solution.present == (outcome.status == NLRA_LP_OPTIMAL));
        return outcome.status;
    };
    using Test = TestProblem&;
    const std::vector<QuadTerm> disk{{0, 0, 1.0}, {1, 1, 1.0}};
    // Contradicting bounds, sides, rows, and rows with quadratic terms.
    CHECK(status([](Test t, int x, int) { t.model.set_bounds(x, 1, 0); }) == NLRA_LP_INFEAS);
    CHECK(status([](Test t, int, int) { t.row({}, 'G', 1); }) == NLRA_LP_INFEAS);
    CHECK(status([](Test t, int x, int y) {
              t.model.set_bounds(x, 0, 1);
              t.model.set_bounds(y, 0, 1);
              t.row({{x, 1}, {y, 1}}, 'G', 3);
          }) == NLRA_LP_INFEAS);
    CHECK(status([](Test t, int x, int y) {
              t.row({{x, 1}, {y, 1}}, 'G', 3);
              t.row({{x, 1}, {y, 1}}, 'L', 2.9999);
          }) == NLRA_LP_INFEAS);
    CHECK(status([](Test t, int x, int y) {
              for (const double side : {3.0, 4.0, 5.0}) t.row({{x, 1}, {y, 2}}, 'E', side);
          }) == NLRA_LP_INFEAS);
    CHECK(status([&](Test t, int x, int y) {
              t.row({{x, 1}, {y, 1}}, 'G', 1.5);
              t.model.set_qrow(t.row({}, 'L', 1), disk);
          }) == NLRA_LP_INFEAS);
    // y is free to go where the cost pulls it.
    CHECK(status([](Test t, int, int y) { t.model.set_cost(y, 1); }) == NLRA_LP_UNBOUNDED);
    CHECK(status([](Test t, int x, int y) {
              t.model.set_cost(y, -1);
              t.row({{x, 1}, {y, 1}}, 'G', -5);
          }) == NLRA_LP_UNBOUNDED);
    CHECK(status([](Test t, int x, int y) {
              t.model.set_cost(y, -1);
              t.row({{x, -1}, {y, 1}}, 'L', 5);
          }) == NLRA_LP_OPTIMAL);
    // Both at once: infeasible.
    CHECK(status([](Test t, int x, int y) {
              t.model.set_cost(y, -1);
              t.row({{x, 1}}, 'G', 1);
              t.row({{x, 1}}, 'L', 0);
          }) == NLRA_LP_INFEAS);
    // Along a parabola the cost of x falls without end, though no ray improves it; a cost of y ends
    // that.
    for (const double cost : {0.0, 0.1}) {
        CHECK(status([&](Test t, int x, int y) {
                  t.model.set_qobj({{x, x, 0.0}});
                  t.model.set_cost(y, cost);
                  t.model.set_qrow(t.row({{y, -1}}, 'L', 0), {{x, x, 1.0}});
              }) == (cost == 0.0 ? NLRA_LP_UNBOUNDED : NLRA_LP_OPTIMAL));
    }
    // A single feasible point, where no multipliers exist.
    CHECK(status([&](Test t, int x, int y) {
              t.model.set_qobj({{x, x, 0.0}});
              t.row({{x, 1}, {y, 1}}, 'G', std::sqrt(2.0));
              t.model.set_qrow(t.row({}, 'L', 1), disk);
          }) == NLRA_LP_OPTIMAL);
}

TEST("convex qp: degenerate shapes") {
    {
        TestProblem test;  // nothing at all
        test.model.set_constant(3);
        const LpOutcome outcome = solve(test);
        CHECK(outcome.status == NLRA_LP_OPTIMAL);
        CHECK(outcome.solution.objective == 3);
    }
    {
        TestProblem test;  // all columns fixed, one by a product; rows left with numbers
        const int x = test.col(1, 2, 2);
        const int y = test.col(1, 3, 3);
        test.row({{x, 1}}, 'L', 2);
        test.row({}, 'E', 6);
        test.model.set_qrow(1, {{x, y, 1.0}});
        test.model.set_qobj({{x, y, -1.0}});
        CHECK(find_nonconvexity(test.model).empty());
        const LpOutcome outcome = solve(test);
        REQUIRE(outcome.status == NLRA_LP_OPTIMAL);
        CHECK_NEAR(outcome.solution.objective, -1, 1e-12);
        CHECK_NEAR(outcome.solution.dj[x], -2, 1e-12);
        CHECK_NEAR(outcome.solution.slack[1], 0, 1e-12);
        test.model.set_rhs(1, 5);
        CHECK(solve(test).status == NLRA_LP_INFEAS);
    }
    {
        TestProblem test;  // more equations than columns, and as many
        const int x = test.col(1, -kInf, kInf);
        const int y = test.col(0, 0, kInf);
        test.model.set_qobj({{x, x, 1.0}});
        test.row({{x, 1}, {y, 1}}, 'E', 3);
        test.row({{x, 1}, {y, -1}}, 'E', 1);
        for (int extra = 0; extra < 2; ++extra) {
            const LpOutcome outcome = solve(test);
            REQUIRE(outcome.status == NLRA_LP_OPTIMAL);
            CHECK_NEAR(outcome.solution.x[x], 2, 1e-9);
            CHECK_NEAR(outcome.solution.objective, 6, 1e-8);
            CHECK(quadratic_kkt_error(test.model, outcome.solution) < 1e-7);
            test.row({{x, 2}}, 'E', 4);
        }
    }
    {
        TestProblem test;  // columns without use go where their cost is least, or stay at zero
        const int x = test.col(-1, -kInf, kInf);
        test.col(2, -1, kInf);
        test.col(0, -kInf, kInf);
        test.col(0, 4, kInf);
        test.model.set_qobj({{x, x, 0.5}});
        const Solution solution = solve(test).solution;
        REQUIRE(solution.x.size() == 4);
        CHECK_NEAR(solution.x[0], 1, 1e-9);
        CHECK(solution.x[1] == -1);
        CHECK(solution.x[2] == 0);
        CHECK(solution.x[3] == 4);
        CHECK(solution.dj[1] == 2);
    }
    {
        TestProblem test;  // magnitudes far apart, and a far optimum of a flat objective
        const int x = test.col(1e6, -kInf, kInf);
        const int y = test.col(-3e6, 0, kInf);
        const int z = test.col(-1e-3, -kInf, kInf);
        test.row({{x, 1e3}, {y, 1e-2}}, 'E', 1e4);
        test.model.set_qobj({{x, x, 1e7}, {y, y, 1e-3}, {z, z, 1e-9}});
        const Solution solution = solve(test).solution;
        REQUIRE(solution.has_duals);
        // With x = 10 - 1e-5 y: gradient in y is -10 - 2000 + 2e-3 y - 3e6 + 2e-3 y = 0.
        const double exact = 3002010.0 / 4e-3;
        CHECK_NEAR(solution.x[y], exact, 1e-7 * exact);
        CHECK_NEAR(solution.x[z], 5e5, 1e-1);
    }
}

TEST("convex qp: limits and stops leave an unfinished solve") {
    TestProblem test;
    Random random(3);
    const int n = 60;
    for (int j = 0; j < n; ++j) test.col(random.real(-1, 1), 0, 1);
    test.model.set_qobj(half_form(squares(n, n, random), 1.0));
    for (int i = 0; i < 20; ++i) {
        test.row({{i, 1}, {i + 20, 1}, {i + 40, -1}}, 'G', 0.3);
    }
    test.problem.controls.set_int(kIterLimit, 2);
    LpOutcome outcome = solve(test);
    CHECK(outcome.status == NLRA_LP_UNFINISHED);
    CHECK(outcome.stop == NLRA_STOP_ITERLIMIT);
    CHECK(outcome.solution.present && !outcome.solution.has_duals);
    CHECK(outcome.iterations == 2);

    test.problem.controls.set_int(kIterLimit, 1000);
    test.problem.stop_request = NLRA_STOP_CTRLC;
    Monitor monitor(test.problem);
    outcome = solve_convex_quadratic(test.model, test.problem.controls, monitor, nullptr);
    CHECK(outcome.status == NLRA_LP_UNFINISHED);
    CHECK(outcome.stop == NLRA_STOP_CTRLC);
    outcome = solve(test);
    CHECK(outcome.status == NLRA_LP_OPTIMAL);
    CHECK(quadratic_kkt_error(test.model, outcome.solution) < 1e-7);
}

TEST("convex qp: a stop is served within half a second, whatever the size") {
    using Clock = std::chrono::steady_clock;
    TestProblem test;
    Random random(3);
    // One factorization of this system takes longer than anybody waits.
    const int n = 2500;
    std::vector<QuadTerm> terms;
    for (int i = 0; i < n; ++i) {
        test.col(random.real(-1, 1), 0, 1);
        for (int j = i; j < n; ++j) {
            terms.push_back({i, j, i == j ? 2.0 * n : random.real(-1, 1)});
        }
    }
    test.model.set_qobj(terms);
    static Clock::time_point asked;
    asked = {};
    test.problem.checktime_callbacks.push_back({[](NLRAprob, void*) {
                                                    static int polls = 0;
                                                    // Some time after the convexity check, in the
                                                    // midst of the first factorizations.
                                                    if (++polls < 40) return 0;
                                                    asked = Clock::now();
                                                    return 1;
                                                },
                                                nullptr, 0});
    test.problem.stop_request = 0;
    Monitor monitor(test.problem);
    const LpOutcome outcome =
        solve_convex_quadratic(test.model, test.problem.controls, monitor, nullptr);
    const double late = std::chrono::duration<double>(Clock::now() - asked).count();
    CHECK(outcome.status == NLRA_LP_UNFINISHED);
    CHECK(outcome.stop == NLRA_STOP_USER);
    CHECK(late < 0.5);
}

TEST("convex qp: duals that cancel are neither trusted nor kept") {
    // min x^2 + y^2 with x + y = 2 twice: at (1, 1), the duals add up to 2.
    QuadraticProgram program;
    for (int j = 0; j < 2; ++j) {
        program.add_column(0.0, -kInf, kInf);
        program.objective_terms.push_back({j, j, 1.0});
    }
    for (int i = 0; i < 2; ++i) {
        program.add_row(2.0, 2.0);
        for (int j = 0; j < 2; ++j) program.add_coefficient(j, 1.0);
    }
    CHECK(measure(program, {{1.0, 1.0}, {1.5, 0.5}}).worst() < 1e-14);
    CHECK(measure(program, {{1.0, 1.0}, {1.5, 0.4}}).dual > 1e-2);
    CHECK(measure(program, {{1.5, 0.5}, {1e20, -1e20}}).worst() > 1.0);

    InteriorResult interior;
    interior.point = {{1.5, 0.5}, {1e20, -1e20}};
    interior.lower_multipliers = interior.upper_multipliers = {0.0, 0.0};
    TestProblem test;
    Monitor monitor(test.problem);
    QpRun run{monitor, 1e-7, 1e-7, 1000};
    Residuals residuals;
    const PrimalDual polished = polish(program, interior, run, residuals);
    CHECK(residuals.worst() < 1e-12);
    CHECK_NEAR(polished.x[0], 1.0, 1e-12);
    CHECK_NEAR(polished.y[0] + polished.y[1], 2.0, 1e-12);
}
