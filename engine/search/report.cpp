#include "search/report.hpp"

#include <cmath>
#include <cstdio>
#include <string>

#include "api/problem.hpp"
#include "linear/linear_solver.hpp"
#include "search/monitor.hpp"

namespace nlra {
namespace {

std::string text(const char* format, double value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, value);
    return buffer;
}

std::string count(long long number, const char* one, const char* many) {
    return std::to_string(number) + ' ' + (number == 1 ? one : many);
}

const char* lp_text(int status) {
    switch (status) {
        case NLRA_LP_OPTIMAL:
            return "optimal";
        case NLRA_LP_INFEAS:
            return "infeasible";
        case NLRA_LP_CUTOFF:
        case NLRA_LP_CUTOFF_IN_DUAL:
            return "cut off";
        case NLRA_LP_UNFINISHED:
            return "unfinished";
        case NLRA_LP_UNBOUNDED:
            return "unbounded";
        case NLRA_LP_NONCONVEX:
            return "not convex";
        default:
            return "not solved";
    }
}

const char* mip_text(int status) {
    switch (status) {
        case NLRA_MIP_LP_NOT_OPTIMAL:
            return "relaxation not optimal";
        case NLRA_MIP_LP_OPTIMAL:
            return "relaxation optimal";
        case NLRA_MIP_NO_SOL_FOUND:
            return "unfinished, no solution found";
        case NLRA_MIP_SOLUTION:
            return "unfinished, solution found";
        case NLRA_MIP_INFEAS:
            return "infeasible";
        case NLRA_MIP_OPTIMAL:
            return "optimal";
        case NLRA_MIP_UNBOUNDED:
            return "unbounded";
        case NLRA_MIP_NONCONVEX:
            return "not convex";
        default:
            return "not solved";
    }
}

const char* stop_text(int reason) {
    switch (reason) {
        case NLRA_STOP_TIMELIMIT:
            return " (time limit)";
        case NLRA_STOP_CTRLC:
            return " (interrupted)";
        case NLRA_STOP_NODELIMIT:
            return " (node limit)";
        case NLRA_STOP_ITERLIMIT:
            return " (iteration limit)";
        case NLRA_STOP_SOLLIMIT:
            return " (solution limit)";
        case NLRA_STOP_USER:
            return " (stopped by the user)";
        default:
            return "";  // a search that ends by its gap is an ordinary end
    }
}

}  // namespace

void log_header(nlra_problem& problem, Monitor& monitor) {
    if (monitor.log_level() < 1) return;
    const Model& model = problem.model;
    std::string line = model.sense < 0 ? "Maximize" : "Minimize";
    if (!model.name.empty()) line += " problem " + model.name;
    line += ": " + count(model.rows(), "row", "rows");
    line += ", " + count(model.cols(), "column", "columns");
    line += ", " + count(model.matrix.nonzeros(), "element", "elements");
    if (model.mip_entities() > 0) line += ", " + count(model.mip_entities(), "entity", "entities");
    if (!model.sets.empty()) {
        line += ", " + count(static_cast<long long>(model.sets.size()), "set", "sets");
    }
    if (!model.indicators.empty()) {
        const auto indicators = static_cast<long long>(model.indicators.size());
        line += ", " + count(indicators, "indicator", "indicators");
    }
    if (!model.qobj.empty()) line += ", quadratic objective";
    if (!model.qrows.empty()) {
        const auto rows = static_cast<long long>(model.qrows.size());
        line += ", " + count(rows, "quadratic row", "quadratic rows");
    }
    monitor.log_line(1, line);
    if (!model.is_quadratic()) {
        monitor.log(2, "Linear and mixed integer solver: HiGHS %s", linear_solver_version());
    }
}

void log_lp_result(const nlra_problem& problem, Monitor& monitor) {
    if (monitor.log_level() < 1) return;
    const SolveInfo& info = problem.info;
    std::string line = std::string("Status: ") + lp_text(info.lp_status) + stop_text(info.stop);
    if (problem.lp_solution.present) line += text(", objective %.9g", info.lp_objective);
    if (info.barrier_iterations > 0) {
        line += ", " + count(info.barrier_iterations, "barrier iteration", "barrier iterations");
    }
    if (info.simplex_iterations > 0 || info.barrier_iterations == 0) {
        line += ", " + count(info.simplex_iterations, "simplex iteration", "simplex iterations");
    }
    monitor.log_line(1, line + text(", %.2f s", monitor.elapsed()));
}

void log_mip_result(const nlra_problem& problem, Monitor& monitor) {
    if (monitor.log_level() < 1) return;
    const SolveInfo& info = problem.info;
    std::string line = std::string("Status: ") + mip_text(info.mip_status) + stop_text(info.stop);
    if (problem.mip_solution.present) line += text(", objective %.9g", info.mip_objective);
    if (std::abs(info.best_bound) < kInfinity) {
        line += text(", best bound %.9g", info.best_bound);
        if (problem.mip_solution.present) line += text(", gap %.4g %%", 100.0 * info.rel_gap);
    }
    line += ", " + count(info.nodes, "node", "nodes");
    line += ", " + count(info.simplex_iterations, "simplex iteration", "simplex iterations");
    monitor.log_line(1, line + text(", %.2f s", monitor.elapsed()));
}

}  // namespace nlra
