// A problem that a test fills row by row and solves by way of the engine's own entry points.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "api/problem.hpp"
#include "check.hpp"
#include "linear/linear_solver.hpp"
#include "nlra.h"
#include "search/optimize.hpp"

namespace solve_support {

using Terms = std::vector<std::pair<int, double>>;

inline constexpr double kInf = nlra::kInfinity;

struct TestProblem {
    nlra_problem problem;
    nlra::Model& model = problem.model;

    int col(double cost, double lower, double upper, char type = 'C', double limit = 0.0) {
        model.add_cols(1, 0, &cost, nullptr, nullptr, nullptr, &lower, &upper);
        const int index = model.cols() - 1;
        if (type != 'C') model.set_type(index, type);
        if (limit != 0.0) model.set_limit(index, limit);
        return index;
    }
    int row(const Terms& terms, char type, double rhs, double range = 0.0) {
        std::vector<int> index;
        std::vector<double> value;
        for (const auto& [j, a] : terms) {
            index.push_back(j);
            value.push_back(a);
        }
        const int64_t start = 0;
        model.add_rows(1, static_cast<int64_t>(index.size()), &type, &rhs, &range, &start,
                       index.data(), value.data());
        return model.rows() - 1;
    }
    void set(char type, std::vector<int> cols, std::vector<double> weights) {
        model.add_sets({nlra::Set{type, std::move(cols), std::move(weights)}});
    }

    int lp(const char* flags = "") {
        problem.stop_request = 0;
        nlra::optimize_lp(problem, flags);
        return problem.info.lp_status;
    }
    int mip(const char* flags = "") {
        problem.stop_request = 0;
        nlra::optimize_mip(problem, flags);
        return problem.info.mip_status;
    }
    double x(int j) const { return problem.lp_solution.x[j]; }
    double mip_x(int j) const { return problem.mip_solution.x[j]; }
    double objective() const { return problem.lp_solution.objective; }
    double mip_objective() const { return problem.mip_solution.objective; }
};

// The error code that a call ends with, 0 for none.
template <class Call>
int error_code(Call&& call, std::string* text = nullptr) {
    try {
        call();
    } catch (const nlra::Error& error) {
        if (text != nullptr) *text = error.text;
        return error.code;
    }
    return 0;
}

struct Random {
    std::mt19937 engine;
    explicit Random(unsigned seed) : engine(seed) {}
    double real(double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(engine);
    }
    int integer(int low, int high) { return std::uniform_int_distribution<int>(low, high)(engine); }
    bool chance(double share) { return real(0.0, 1.0) < share; }
};

// A feasible, bounded LP of all row types: sides are placed around a random point, and every column
// whose cost pulls it away is bounded there.
inline void random_lp(TestProblem& test, Random& random, int rows, int cols, double density) {
    std::vector<double> point;
    for (int j = 0; j < cols; ++j) {
        const double at = random.integer(-5, 5);
        point.push_back(at);
        const double cost = random.integer(-9, 9);
        const double sense = test.model.sense;
        double lower = at - random.integer(0, 6);
        double upper = at + random.integer(0, 6);
        if (sense * cost <= 0.0 && random.chance(0.3)) lower = -kInf;
        if (sense * cost >= 0.0 && random.chance(0.3)) upper = kInf;
        test.col(cost, lower, upper);
    }
    for (int i = 0; i < rows; ++i) {
        Terms terms;
        double activity = 0.0;
        for (int j = 0; j < cols; ++j) {
            if (!random.chance(density)) continue;
            const double a = random.integer(1, 5) * (random.chance(0.4) ? -1.0 : 1.0);
            terms.emplace_back(j, a);
            activity += a * point[j];
        }
        const char type = "LGERN"[random.integer(0, 4)];
        const double room = random.integer(0, 4);
        const double rhs = type == 'L' || type == 'R' ? activity + room
                           : type == 'G'              ? activity - room
                                                      : activity;
        test.row(terms, type, rhs, type == 'R' ? room + random.integer(0, 4) : 0.0);
    }
}

// Largest violation of the conditions that make an LP's solution optimal, from the model's own
// data.
inline double kkt_error(const nlra::Model& model, const nlra::Solution& solution) {
    double worst = 0.0;
    const auto require = [&](double error) { worst = std::max(worst, error); };
    std::vector<double> gradient(model.obj);
    double objective = model.constant;
    for (int j = 0; j < model.cols(); ++j) {
        const double x = solution.x[j];
        objective += model.obj[j] * x;
        require(model.lower[j] - x);
        require(x - model.upper[j]);
    }
    // A multiplier pushes against the side that it belongs to: for minimization a positive one
    // against a lower side.
    const auto complementary = [&](double multiplier, double to_lower, double to_upper) {
        multiplier *= model.sense;
        require(std::min(std::max(0.0, multiplier), to_lower));
        require(std::min(std::max(0.0, -multiplier), to_upper));
    };
    for (int i = 0; i < model.rows(); ++i) {
        double activity = 0.0;
        for (int64_t k = model.matrix.start()[i]; k < model.matrix.start()[i + 1]; ++k) {
            const int j = model.matrix.index()[k];
            activity += model.matrix.value()[k] * solution.x[j];
            gradient[j] -= model.matrix.value()[k] * solution.dual[i];
        }
        require(std::abs(model.rhs[i] - activity - solution.slack[i]));
        require(model.row_lower(i) - activity);
        require(activity - model.row_upper(i));
        complementary(solution.dual[i], activity - model.row_lower(i),
                      model.row_upper(i) - activity);
    }
    for (int j = 0; j < model.cols(); ++j) {
        require(std::abs(gradient[j] - solution.dj[j]));
        complementary(solution.dj[j], solution.x[j] - model.lower[j],
                      model.upper[j] - solution.x[j]);
    }
    require(std::abs(objective - solution.objective));
    return worst;
}

}  // namespace solve_support
