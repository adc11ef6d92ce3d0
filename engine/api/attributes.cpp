#include "api/attributes.hpp"

#include <algorithm>
#include <limits>

#include "api/nonlinear_problem.hpp"

namespace nlra {
namespace {

using Problem = const nlra_problem&;

Attribute integer(int id, const char* name, Attribute::Int get, const char* description) {
    return {id, name, NLRA_TYPE_INT, get, description};
}

Attribute integer64(int id, const char* name, Attribute::Int get, const char* description) {
    return {id, name, NLRA_TYPE_INT64, get, description};
}

Attribute real(int id, const char* name, Attribute::Double get, const char* description) {
    return {id, name, NLRA_TYPE_DOUBLE, get, description};
}

Attribute text(int id, const char* name, Attribute::Text get, const char* description) {
    return {id, name, NLRA_TYPE_STRING, get, description};
}

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

double gap(Problem p) {
    const bool is_known =
        p.mip_solution.present || (!p.model.is_mip() && p.lp_solution.present) ||
        std::any_of(p.nonlinear.begin(), p.nonlinear.end(),
                    [](const nslp_problem* above) { return above->result.solution.present; });
    return is_known ? p.info.rel_gap : std::numeric_limits<double>::infinity();
}

int64_t row_count(Problem p) { return p.model.rows_left(); }
int64_t col_count(Problem p) { return p.model.cols_left(); }
int64_t set_count(Problem p) { return static_cast<int64_t>(p.model.sets.size()); }
int64_t none(Problem) { return 0; }

int64_t quadratic_row_terms(Problem p) {
    int64_t terms = 0;
    for (const auto& [row, list] : p.model.qrows) terms += static_cast<int64_t>(list.size());
    return terms;
}

int64_t longest_name(Problem p) {
    const int longest = std::max(
        {p.model.rownames.longest(), p.model.colnames.longest(), p.model.setnames.longest()});
    return std::max(longest, static_cast<int>(p.model.name.size()));
}

}  // namespace

const std::vector<Attribute>& attribute_table() {
    static const std::vector<Attribute>& table = *new std::vector<Attribute>{
        integer(NLRA_ROWS, "rows", row_count, "Rows of the problem in its present state."),
        integer(NLRA_COLS, "cols", col_count, "Columns of the problem in its present state."),
        integer(NLRA_SETS, "sets", set_count, "Special ordered sets."),
        integer(NLRA_SPAREROWS, "sparerows", none,
                "Rows that are kept free for cuts: none, cuts take up rows as they come."),
        integer64(
            1006, "elems", [](Problem p) { return p.model.matrix.nonzeros(); },
            "Non-zero coefficients of the matrix."),
        integer(
            NLRA_MIPENTS, "mipents", [](Problem p) { return int64_t{p.model.mip_entities()}; },
            "Columns that are not continuous."),
        integer(
            NLRA_QCONSTRAINTS, "qconstraints",
            [](Problem p) { return static_cast<int64_t>(p.model.qrows.size()); },
            "Rows with quadratic terms."),
        integer64(
            1030, "qelems", [](Problem p) { return static_cast<int64_t>(p.model.qobj.size()); },
            "Quadratic terms of the objective."),
        integer64(1031, "qconstraintelems", quadratic_row_terms, "Quadratic terms of all rows."),
        integer(
            1033, "indicators",
            [](Problem p) { return static_cast<int64_t>(p.model.indicators.size()); },
            "Indicator rows."),
        integer(NLRA_ORIGINALROWS, "originalrows", row_count, "Rows of the problem as loaded."),
        integer(NLRA_ORIGINALCOLS, "originalcols", col_count, "Columns of the problem as loaded."),
        integer(NLRA_ORIGINALSETS, "originalsets", set_count,
                "Special ordered sets of the problem as loaded."),
        integer(NLRA_ORIGINALPWLCONS, "originalpwlcons", none,
                "Piecewise linear constraints of the problem as loaded."),
        integer(NLRA_ORIGINALGENCONS, "originalgencons", none,
                "General constraints of the problem as loaded."),
        integer(
            1146, "objsense", [](Problem p) { return p.model.sense < 0.0 ? int64_t{-1} : 1; },
            "Sense of the objective: 1 minimize, -1 maximize."),
        integer(1150, "namelength", longest_name,
                "Bytes of the longest name of the problem, its rows, columns and sets."),
        integer(
            NLRA_LPSTATUS, "lpstatus", [](Problem p) { return int64_t{p.info.lp_status}; },
            "Status of the last linear solve, 0 before it and after changes of the problem."),
        integer(
            NLRA_MIPSTATUS, "mipstatus", [](Problem p) { return int64_t{p.info.mip_status}; },
            "Status of the last mixed integer solve, 0 before it and after changes of the "
            "problem."),
        integer(
            1179, "stopstatus", [](Problem p) { return int64_t{p.info.stop}; },
            "Why the last solve stopped early: 0 it did not, 1 time limit, 2 keyboard interrupt, "
            "3 node limit, 4 iteration limit, 5 gap, 6 solution limit, 9 user."),
        integer64(
            1180, "nodes", [](Problem p) { return p.info.nodes; },
            "Nodes of the last search tree."),
        integer64(
            1181, "simplexiter", [](Problem p) { return p.info.simplex_iterations; },
            "Simplex iterations of the last solve."),
        integer64(
            1182, "barriter", [](Problem p) { return p.info.barrier_iterations; },
            "Interior point iterations of the last solve."),
        integer(
            1183, "mipsols", [](Problem p) { return int64_t{p.info.mip_solutions}; },
            "Improving solutions that the last mixed integer solve found."),
        real(
            NLRA_LPOBJVAL, "lpobjval",
            [](Problem p) { return p.lp_solution.present ? p.info.lp_objective : kNone; },
            "Objective value of the last linear solve, NaN where there is no solution."),
        real(
            NLRA_MIPOBJVAL, "mipobjval",
            [](Problem p) { return p.mip_solution.present ? p.info.mip_objective : kNone; },
            "Objective value of the best solution of the last mixed integer solve, NaN where there "
            "is "
            "none."),
        real(
            NLRA_BESTBOUND, "bestbound", [](Problem p) { return p.info.best_bound; },
            "Best bound on the objective value of the last mixed integer solve."),
        real(
            2005, "mipgap", gap,
            "Relative gap between the best solution and the best bound, infinite where there is no "
            "solution."),
        real(
            2006, "time", [](Problem p) { return p.info.seconds; },
            "Seconds of elapsed time of the last solve."),
        real(
            NLRA_OBJCONSTANT, "objconstant", [](Problem p) { return p.model.constant; },
            "Constant of the objective."),
        text(
            3001, "probname", [](Problem p) { return p.model.name; }, "Name of the problem."),
    };
    return table;
}

}  // namespace nlra
