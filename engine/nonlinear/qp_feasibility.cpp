#include <algorithm>
#include <cmath>

#include "nonlinear/qp_attempts.hpp"
#include "nonlinear/qp_certificates.hpp"

namespace nlra {

namespace {

// Columns of the program, then one for each finite side of a row: by how much it is violated.
QuadraticProgram violation_program(const QuadraticProgram& program) {
    QuadraticProgram phase;
    for (int j = 0; j < program.columns; ++j) {
        phase.add_column(0.0, program.lower[j], program.upper[j]);
    }
    const std::vector<double> norms = program.row_norms();
    std::vector<QuadTerm> terms;
    auto form = program.forms.begin();
    for (int i = 0; i < program.rows; ++i) {
        const double scale = 1.0 / norms[i];
        const auto side = [&](double value) {
            return std::fabs(value) >= kInfinity ? value : scale * value;
        };
        phase.add_row(side(program.row_lower[i]), side(program.row_upper[i]));
        for (int64_t k = program.start[i]; k < program.start[i + 1]; ++k) {
            phase.add_coefficient(program.index[k], scale * program.value[k]);
        }
        if (program.row_lower[i] > -kInfinity) {
            phase.add_coefficient(phase.add_column(1.0, 0.0, kInfinity), 1.0);
        }
        if (program.row_upper[i] < kInfinity) {
            phase.add_coefficient(phase.add_column(1.0, 0.0, kInfinity), -1.0);
        }
        if (form == program.forms.end() || form->row != i) continue;
        terms.assign(program.form_terms.begin() + form->begin,
                     program.form_terms.begin() + form->end);
        for (QuadTerm& term : terms) term.value *= scale;
        phase.add_form(terms.data(), terms.data() + terms.size());
        ++form;
    }
    return phase;
}

}  // namespace

Feasibility check_feasibility(const QuadraticProgram& program, QpRun& run, std::vector<double>& x) {
    const QuadraticProgram phase = violation_program(program);
    PrimalDual point;
    const bool solved =
        find_optimum(phase, Attempts::kFirst, nullptr, run, 2, point) ||
        (!run.over() && find_optimum(phase, Attempts::kOthers, nullptr, run, 2, point));
    if (point.x.empty()) return Feasibility::kUnknown;
    x.assign(point.x.begin(), point.x.begin() + program.columns);
    if (row_violation(program, x) <= run.feasibility_tolerance) return Feasibility::kFeasible;
    if (!solved) return Feasibility::kUnknown;
    const double violation = phase.objective(point.x.data());
    const Residuals residuals = measure(phase, point);
    const double doubt =
        10.0 * (residuals.complementarity + residuals.dual) * std::max(1.0, violation);
    return violation > doubt ? Feasibility::kInfeasible : Feasibility::kUnknown;
}

}  // namespace nlra
