#include "linear/handover.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "linear/relaxation.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {
namespace {

// HiGHS inserts a new coefficient by moving all that follow it.
constexpr size_t kMaxCoefficientEdits = 50;

double finite_or_inf(double value) {
    if (value >= kInfinity) return kHighsInf;
    if (value <= -kInfinity) return -kHighsInf;
    return value;
}

// The store lets NaN in when its checks are switched off; HiGHS would go on with it.
double number(double value, const char* what) {
    if (std::isnan(value)) {
        fail(NLRA_ERROR_ARGUMENT, "the model cannot be solved: %s is not a number", what);
    }
    return value;
}

// HiGHS refuses a lower bound of plus infinity and an upper one of minus infinity. Nothing lies
// within such bounds, which any crossed pair says as well.
Bounds highs_bounds(Bounds bounds) {
    number(bounds.lower + bounds.upper, "a bound or right-hand side");
    if (bounds.lower >= kInfinity || bounds.upper <= -kInfinity) return {1.0, -1.0};
    return {finite_or_inf(bounds.lower), finite_or_inf(bounds.upper)};
}

void check(HighsStatus status, const char* what) {
    if (status == HighsStatus::kError) {
        fail(NLRA_ERROR_SOLVER, "the solver refused the model's %s", what);
    }
}

HighsInt to_highs_count(int64_t count) {
    if (count > std::numeric_limits<HighsInt>::max()) {
        fail(NLRA_ERROR_UNSUPPORTED, "the matrix has %lld coefficients, more than the solver takes",
             static_cast<long long>(count));
    }
    return static_cast<HighsInt>(count);
}

HighsVarType variable_type(char type) {
    return is_integral(type) ? HighsVarType::kInteger : HighsVarType::kContinuous;
}

// Transposed in two passes; HiGHS wants its matrix by columns.
void fill_matrix(HighsSparseMatrix& matrix, const RowMatrix& rows, int cols) {
    const std::vector<int64_t>& start = rows.start();
    const std::vector<int>& index = rows.index();
    const std::vector<double>& value = rows.value();
    const HighsInt count = to_highs_count(start.back());
    const int row_count = rows.rows();
    matrix.format_ = MatrixFormat::kColwise;
    matrix.num_col_ = cols;
    matrix.num_row_ = row_count;
    matrix.start_.assign(static_cast<size_t>(cols) + 1, 0);
    matrix.index_.resize(count);
    matrix.value_.resize(count);
    // start_[j + 1] counts, then runs from the start of column j to its end.
    for (HighsInt k = 0; k < count; ++k) ++matrix.start_[index[k] + 1];
    HighsInt sum = 0;
    for (int j = 0; j < cols; ++j) {
        const HighsInt entries = matrix.start_[j + 1];
        matrix.start_[j + 1] = sum;
        sum += entries;
    }
    for (int i = 0; i < row_count; ++i) {
        for (int64_t k = start[i]; k < start[i + 1]; ++k) {
            const HighsInt position = matrix.start_[index[k] + 1]++;
            matrix.index_[position] = i;
            matrix.value_[position] = number(value[k], "a coefficient");
        }
    }
}

HighsLp build_lp(const Model& model) {
    HighsLp lp;
    const int cols = model.cols();
    const int rows = model.rows();
    lp.num_col_ = cols;
    lp.num_row_ = rows;
    lp.sense_ = model.sense < 0 ? ObjSense::kMaximize : ObjSense::kMinimize;
    lp.offset_ = model.constant;
    lp.col_cost_ = model.obj;
    lp.col_lower_.resize(cols);
    lp.col_upper_.resize(cols);
    bool integral = false;
    for (int j = 0; j < cols; ++j) {
        const Bounds bounds = highs_bounds(relaxed_column(model, j));
        lp.col_lower_[j] = bounds.lower;
        lp.col_upper_[j] = bounds.upper;
        number(model.obj[j], "an objective coefficient");
        integral = integral || is_integral(model.coltype[j]);
    }
    if (integral) {
        lp.integrality_.resize(cols);
        for (int j = 0; j < cols; ++j) lp.integrality_[j] = variable_type(model.coltype[j]);
    }
    lp.row_lower_.resize(rows);
    lp.row_upper_.resize(rows);
    for (int i = 0; i < rows; ++i) {
        const Bounds bounds = highs_bounds({model.row_lower(i), model.row_upper(i)});
        lp.row_lower_[i] = bounds.lower;
        lp.row_upper_[i] = bounds.upper;
    }
    for (const auto& [row, indicator] : model.indicators) {
        lp.row_lower_[row] = -kHighsInf;
        lp.row_upper_[row] = kHighsInf;
    }
    fill_matrix(lp.a_matrix_, model.matrix, cols);
    return lp;
}

// Where a nonbasic variable sits; `before` where it still makes sense.
HighsBasisStatus nonbasic_status(HighsBasisStatus before, double lower, double upper) {
    const bool has_lower = lower > -kHighsInf;
    const bool has_upper = upper < kHighsInf;
    if (before == HighsBasisStatus::kUpper && has_upper) return before;
    if (has_lower) return HighsBasisStatus::kLower;
    return has_upper ? HighsBasisStatus::kUpper : HighsBasisStatus::kZero;
}

// Statuses of what survives the deletions; `fresh` for what was appended.
std::vector<HighsBasisStatus> map_statuses(const std::vector<HighsBasisStatus>& before,
                                           const std::vector<int>& map, HighsBasisStatus fresh,
                                           const std::vector<double>& lower,
                                           const std::vector<double>& upper) {
    std::vector<HighsBasisStatus> after(lower.size(), fresh);
    for (size_t i = 0; i < before.size(); ++i) {
        const int target = map.empty() ? static_cast<int>(i) : i < map.size() ? map[i] : -1;
        if (target >= 0 && target < static_cast<int>(after.size())) after[target] = before[i];
    }
    for (size_t i = 0; i < after.size(); ++i) {
        if (after[i] == HighsBasisStatus::kBasic) continue;
        after[i] = nonbasic_status(after[i], lower[i], upper[i]);
    }
    return after;
}

void sort_unique(std::vector<int>& list, int limit) {
    std::sort(list.begin(), list.end());
    list.erase(std::unique(list.begin(), list.end()), list.end());
    // What was appended since is handed over as a whole.
    list.erase(std::lower_bound(list.begin(), list.end(), limit), list.end());
}

}  // namespace

void Handover::sync(Highs& highs, const Model& model) {
    Edits& edits = model.edits;
    const bool deleted = !edits.row_map.empty() || !edits.col_map.empty();
    const bool whole = !loaded_ || edits.rebuild || deleted || edits.known_rows != rows_ ||
                       edits.known_cols != cols_ || edits.coefs.size() > kMaxCoefficientEdits;
    const bool was_loaded = loaded_;
    loaded_ = false;  // until all has gone well
    if (whole) {
        // A model that was cleared or copied since knows no sizes: the basis is of no use to it.
        const bool same = was_loaded && edits.known_rows == rows_ && edits.known_cols == cols_;
        if (!same) highs.clearSolver();
        load(highs, model);
    } else {
        change(highs, model);
        if (model.cols() > cols_ || model.rows() > rows_) append(highs, model);
    }
    loaded_ = true;
    rows_ = model.rows();
    cols_ = model.cols();
    edits = Edits();
    edits.rebuild = false;
    edits.known_rows = rows_;
    edits.known_cols = cols_;
}

void Handover::load(Highs& highs, const Model& model) {
    HighsBasis basis = highs.getBasis();
    check(highs.passModel(build_lp(model)), "data");
    if (!basis.valid) return;
    const HighsLp& lp = highs.getLp();
    basis.col_status = map_statuses(basis.col_status, model.edits.col_map,
                                    HighsBasisStatus::kNonbasic, lp.col_lower_, lp.col_upper_);
    basis.row_status = map_statuses(basis.row_status, model.edits.row_map, HighsBasisStatus::kBasic,
                                    lp.row_lower_, lp.row_upper_);
    // Deletions leave too many or too few basic variables; HiGHS completes an alien basis.
    basis.alien = true;
    if (highs.setBasis(basis) == HighsStatus::kError) highs.setBasis();
}

void Handover::change(Highs& highs, const Model& model) {
    Edits& edits = model.edits;
    if (edits.sense) {
        check(
            highs.changeObjectiveSense(model.sense < 0 ? ObjSense::kMaximize : ObjSense::kMinimize),
            "objective sense");
    }
    if (edits.objective_offset) {
        check(highs.changeObjectiveOffset(model.constant), "objective constant");
    }
    std::vector<double> lower;
    std::vector<double> upper;
    const auto gather = [&](const std::vector<int>& list, auto bounds_of) {
        lower.clear();
        upper.clear();
        for (const int i : list) {
            const Bounds bounds = highs_bounds(bounds_of(model, i));
            lower.push_back(bounds.lower);
            upper.push_back(bounds.upper);
        }
    };
    if (!edits.bounds.empty()) {
        sort_unique(edits.bounds, cols_);
        gather(edits.bounds, relaxed_column);
        check(highs.changeColsBounds(static_cast<HighsInt>(edits.bounds.size()),
                                     edits.bounds.data(), lower.data(), upper.data()),
              "bounds");
    }
    if (!edits.sides.empty()) {
        sort_unique(edits.sides, rows_);
        gather(edits.sides, relaxed_row);
        check(highs.changeRowsBounds(static_cast<HighsInt>(edits.sides.size()), edits.sides.data(),
                                     lower.data(), upper.data()),
              "right-hand sides");
    }
    if (!edits.costs.empty()) {
        sort_unique(edits.costs, cols_);
        std::vector<double> costs;
        costs.reserve(edits.costs.size());
        for (const int j : edits.costs) {
            costs.push_back(number(model.obj[j], "an objective coefficient"));
        }
        check(highs.changeColsCost(static_cast<HighsInt>(edits.costs.size()), edits.costs.data(),
                                   costs.data()),
              "objective");
    }
    for (const auto& [row, col] : edits.coefs) {
        if (row >= rows_ || col >= cols_) continue;
        const double value = number(model.matrix.get(row, col), "a coefficient");
        check(highs.changeCoeff(row, col, value), "coefficients");
    }
}

void Handover::append(Highs& highs, const Model& model) {
    const std::vector<int64_t>& start = model.matrix.start();
    const std::vector<int>& index = model.matrix.index();
    const std::vector<double>& value = model.matrix.value();
    const int cols = model.cols();
    const int rows = model.rows();
    std::vector<double> lower;
    std::vector<double> upper;
    if (cols > cols_) {
        const int count = cols - cols_;
        // Entries of the new columns in the rows that HiGHS has, brought into column order.
        std::vector<HighsInt> starts(static_cast<size_t>(count) + 1, 0);
        const int64_t end = start[rows_];
        for (int64_t k = 0; k < end; ++k) {
            if (index[k] >= cols_) ++starts[index[k] - cols_ + 1];
        }
        for (int j = 0; j < count; ++j) starts[j + 1] += starts[j];
        std::vector<HighsInt> rows_of(starts[count]);
        std::vector<double> values(starts[count]);
        std::vector<HighsInt> next(starts.begin(), starts.end() - 1);
        if (starts[count] > 0) {
            for (int i = 0; i < rows_; ++i) {
                for (int64_t k = start[i]; k < start[i + 1]; ++k) {
                    if (index[k] < cols_) continue;
                    const HighsInt position = next[index[k] - cols_]++;
                    rows_of[position] = i;
                    values[position] = number(value[k], "a coefficient");
                }
            }
        }
        for (int j = cols_; j < cols; ++j) {
            const Bounds bounds = highs_bounds(relaxed_column(model, j));
            lower.push_back(bounds.lower);
            upper.push_back(bounds.upper);
            number(model.obj[j], "an objective coefficient");
        }
        check(highs.addCols(count, model.obj.data() + cols_, lower.data(), upper.data(),
                            starts[count], starts.data(), rows_of.data(), values.data()),
              "new columns");
        // HiGHS appends continuous columns.
        std::vector<HighsInt> integral;
        for (int j = cols_; j < cols; ++j) {
            if (is_integral(model.coltype[j])) integral.push_back(j);
        }
        if (!integral.empty()) {
            const std::vector<HighsVarType> types(integral.size(), HighsVarType::kInteger);
            check(highs.changeColsIntegrality(static_cast<HighsInt>(integral.size()),
                                              integral.data(), types.data()),
                  "new columns");
        }
    }
    if (rows > rows_) {
        lower.clear();
        upper.clear();
        std::vector<HighsInt> starts;
        const int64_t first = start[rows_];
        const HighsInt count = to_highs_count(start[rows] - first);
        for (int i = rows_; i < rows; ++i) {
            const Bounds bounds = highs_bounds(relaxed_row(model, i));
            lower.push_back(bounds.lower);
            upper.push_back(bounds.upper);
            starts.push_back(static_cast<HighsInt>(start[i] - first));
        }
        for (int64_t k = first; k < start[rows]; ++k) number(value[k], "a coefficient");
        check(highs.addRows(rows - rows_, lower.data(), upper.data(), count, starts.data(),
                            index.data() + first, value.data() + first),
              "new rows");
    }
}

}  // namespace nlra
