#include "nonlinear/qp_memory.hpp"

#include <algorithm>

#include "nonlinear/qp_settle.hpp"

namespace nlra {

namespace {

constexpr int kRounds = 12;

// The side that a column or row of these limits is at, if it was at `before`.
Active adapted(Active before, double low, double high) {
    if (before == Active::kLower && low <= -kInfinity) return Active::kNone;
    if (before == Active::kUpper && high >= kInfinity) return Active::kNone;
    return before;
}

}  // namespace

void QuadraticMemory::record(const ReducedProgram& reduced, const PrimalDual& point) {
    const QuadraticProgram& program = reduced.program;
    x_ = reduced.x;
    columns_.assign(x_.size(), Active::kBoth);
    for (int j = 0; j < program.columns; ++j) {
        const int column = reduced.columns[j];
        x_[column] = point.x[j];
        columns_[column] = point.x[j] <= program.lower[j]   ? Active::kLower
                           : point.x[j] >= program.upper[j] ? Active::kUpper
                                                            : Active::kNone;
    }
    const size_t rows = reduced.rows.empty() ? 0 : static_cast<size_t>(reduced.rows.back()) + 1;
    y_.assign(rows, 0.0);
    rows_.assign(rows, Active::kNone);
    for (int i = 0; i < program.rows; ++i) {
        const double y = point.y[i];
        y_[reduced.rows[i]] = y;
        rows_[reduced.rows[i]] = y > 0.0   ? Active::kLower
                                 : y < 0.0 ? Active::kUpper
                                           : Active::kNone;
    }
}

PrimalDual QuadraticMemory::recall(const ReducedProgram& reduced, ActiveSet& active) const {
    const QuadraticProgram& program = reduced.program;
    PrimalDual point;
    for (int j = 0; j < program.columns; ++j) {
        const size_t column = static_cast<size_t>(reduced.columns[j]);
        const double low = program.lower[j], high = program.upper[j];
        const bool known = column < x_.size();
        const double x = std::clamp(known ? x_[column] : 0.0, low, high);
        Active state = known ? columns_[column] : Active::kBoth;
        if (state == Active::kBoth) {
            state = x <= low ? Active::kLower : x >= high ? Active::kUpper : Active::kNone;
        }
        point.x.push_back(x);
        active.columns.push_back(adapted(state, low, high));
    }
    for (int i = 0; i < program.rows; ++i) {
        const size_t row = static_cast<size_t>(reduced.rows[i]);
        const bool known = row < y_.size();
        const bool equation = program.row_lower[i] == program.row_upper[i];
        point.y.push_back(known ? y_[row] : 0.0);
        active.rows.push_back(equation ? Active::kBoth
                              : known
                                  ? adapted(rows_[row], program.row_lower[i], program.row_upper[i])
                                  : Active::kNone);
    }
    return point;
}

bool QuadraticMemory::resume(const ReducedProgram& reduced, QpRun& run, PrimalDual& point) const {
    const QuadraticProgram& program = reduced.program;
    ActiveSet active;
    const PrimalDual origin = recall(reduced, active);
    point = origin;
    project(program, point);
    Residuals residuals = measure(program, point);
    if (run.accepts(residuals) && settle(program, run, point) == Settled::kOptimal) return true;
    pursue(program, active, origin, kRounds, run, point, residuals);
    // Where that did not end, active-set steps go on from a point that they can begin from.
    return residuals.primal <= run.feasibility_tolerance &&
           settle(program, run, point) == Settled::kOptimal;
}

}  // namespace nlra
