#include "nonlinear/qp_settle.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "analysis/ldlt.hpp"
#include "nonlinear/dense_newton.hpp"

namespace nlra {

namespace {

using Real = DenseNewton::Real;

constexpr double kEpsilon = 2.3e-16;
constexpr double kNoise = 8.0;             // rounding errors that a residual may consist of
constexpr double kLeastCurvature = 1e-17;  // relative, for the judgement without a factorization
constexpr int kMaxDense = 900;
constexpr double kDenseFlops = 3e9;  // of all steps together, some seconds
constexpr int kMaxSteps = 400;
constexpr double kSparseRegularization = 1e-12;
constexpr double kSparseFlops = 2e10;

enum class Hold : signed char { kFree, kLower, kUpper, kBoth };

// Products of bounds or sides and multipliers below this share of the tolerated gain, all together,
// need no further look.
constexpr double kProductShare = 1e-2;

class Settlement {
  public:
    Settlement(const QuadraticProgram& program, QpRun& run, PrimalDual& point);
    Settled judge();

  private:
    void measure_slopes();
    bool is_obvious() const;
    bool can_lose(int j) const;
    void choose_working_set();
    bool take_step(DenseNewton& newton);
    double longest_step(const std::vector<Real>& direction, double limit, int& column, int& row,
                        bool& at_upper) const;
    void move(const std::vector<Real>& direction, double length);
    bool release();
    std::vector<int> free_columns() const;
    std::vector<int> held_rows() const;
    DenseNewton newton_system(const std::vector<int>& columns, const std::vector<int>& rows) const;
    Settled judge_dense();
    Settled judge_sparse();

    const QuadraticProgram& program_;
    QpRun& run_;
    PrimalDual& point_;
    std::vector<Real> reduced_, activity_;
    std::vector<double> rounding_, curvature_;
    double tolerated_ = 0.0;  // gain at the point
    std::vector<Hold> columns_, rows_;
};

Settlement::Settlement(const QuadraticProgram& program, QpRun& run, PrimalDual& point)
    : program_(program), run_(run), point_(point), curvature_(program.columns, 0.0) {
    for (const QuadTerm& term : program.objective_terms) {
        if (term.col1 == term.col2) curvature_[term.col1] += 2.0 * term.value;
    }
    for (const QuadraticProgram::Form& form : program.forms) {
        for (int64_t k = form.begin; k < form.end; ++k) {
            const QuadTerm& term = program.form_terms[k];
            if (term.col1 != term.col2) continue;
            curvature_[term.col1] -= 2.0 * point.y[form.row] * term.value;
        }
    }
}

// Reduced costs and activities at the point, and what rounding of the data can change about the
// former.
void Settlement::measure_slopes() {
    const double* x = point_.x.data();
    reduced_.assign(program_.cost.begin(), program_.cost.end());
    rounding_.resize(program_.columns);
    for (int j = 0; j < program_.columns; ++j) rounding_[j] = std::fabs(program_.cost[j]);
    const auto add = [&](int j, Real value) {
        reduced_[j] += value;
        rounding_[j] += std::fabs(static_cast<double>(value));
    };
    for (const QuadTerm& term : program_.objective_terms) {
        add(term.col1, static_cast<Real>(term.value) * x[term.col2]);
        add(term.col2, static_cast<Real>(term.value) * x[term.col1]);
    }
    activity_.assign(program_.rows, 0.0);
    for (int i = 0; i < program_.rows; ++i) {
        const Real y = point_.y[i];
        Real sum = 0.0;
        for (int64_t k = program_.start[i]; k < program_.start[i + 1]; ++k) {
            const int j = program_.index[k];
            sum += static_cast<Real>(program_.value[k]) * x[j];
            if (y != 0.0) add(j, -y * program_.value[k]);
        }
        activity_[i] = sum;
    }
    for (const QuadraticProgram::Form& form : program_.forms) {
        const Real y = point_.y[form.row];
        for (int64_t k = form.begin; k < form.end; ++k) {
            const QuadTerm& term = program_.form_terms[k];
            const Real left = static_cast<Real>(term.value) * x[term.col2];
            const Real right = static_cast<Real>(term.value) * x[term.col1];
            activity_[form.row] += left * x[term.col1];
            add(term.col1, -y * left);
            add(term.col2, -y * right);
        }
    }
    for (double& value : rounding_) value *= kEpsilon;
    tolerated_ = run_.optimality_tolerance * std::max(1.0, std::fabs(program_.objective(x)));
}

// Whether leaving column j's multiplier aside could cost more than its share: the multiplier times
// the way to the bound that it pushes against bounds what the column can gain.
bool Settlement::can_lose(int j) const {
    const double slope = static_cast<double>(reduced_[j]);
    const double side = slope > 0.0 ? program_.lower[j] : program_.upper[j];
    if (slope == 0.0 && rounding_[j] == 0.0) return false;
    if (std::fabs(side) >= kInfinity) return true;
    return std::fabs(slope * (point_.x[j] - side)) > kProductShare * tolerated_ / program_.columns;
}

// Settles nearly every program without a factorization: where reduced costs are rounding errors,
// and even a curvature at the limit of what the data can express would make nothing of them.
bool Settlement::is_obvious() const {
    double gain = 0.0;
    for (int j = 0; j < program_.columns; ++j) {
        if (curvature_[j] <= 0.0 || !can_lose(j)) continue;
        const double slope = std::fabs(static_cast<double>(reduced_[j]));
        if (slope > kNoise * rounding_[j]) return false;
        gain += 0.5 * rounding_[j] * rounding_[j] / (kLeastCurvature * curvature_[j]);
    }
    return gain <= tolerated_;
}

void Settlement::choose_working_set() {
    columns_.assign(program_.columns, Hold::kFree);
    rows_.assign(program_.rows, Hold::kFree);
    for (int j = 0; j < program_.columns; ++j) {
        double& x = point_.x[j];
        const auto near = [&](double bound) {
            return std::fabs(x - bound) <= 1e-9 * (1.0 + std::fabs(bound));
        };
        if (reduced_[j] > 0.0 && near(program_.lower[j])) {
            columns_[j] = Hold::kLower;
            x = program_.lower[j];
        } else if (reduced_[j] < 0.0 && near(program_.upper[j])) {
            columns_[j] = Hold::kUpper;
            x = program_.upper[j];
        }
    }
    for (int i = 0; i < program_.rows; ++i) {
        const double low = program_.row_lower[i];
        const double high = program_.row_upper[i];
        double& y = point_.y[i];
        const auto near = [&](double bound) {
            return std::fabs(static_cast<double>(activity_[i]) - bound) <=
                   1e-7 * (1.0 + std::fabs(bound));
        };
        if (low == high) {
            rows_[i] = Hold::kBoth;
        } else if (y > 0.0 && near(low)) {
            rows_[i] = Hold::kLower;
        } else if (y < 0.0 && near(high)) {
            rows_[i] = Hold::kUpper;
        } else {
            y = 0.0;
        }
    }
}

std::vector<int> Settlement::free_columns() const {
    std::vector<int> list;
    for (int j = 0; j < program_.columns; ++j) {
        if (columns_[j] == Hold::kFree) list.push_back(j);
    }
    return list;
}

std::vector<int> Settlement::held_rows() const {
    std::vector<int> list;
    for (int i = 0; i < program_.rows; ++i) {
        if (rows_[i] != Hold::kFree) list.push_back(i);
    }
    return list;
}

DenseNewton Settlement::newton_system(const std::vector<int>& columns,
                                      const std::vector<int>& rows) const {
    DenseNewton newton(static_cast<int>(columns.size()), static_cast<int>(rows.size()));
    std::vector<int> local(program_.columns, -1), local_row(program_.rows, -1);
    for (size_t k = 0; k < columns.size(); ++k) local[columns[k]] = static_cast<int>(k);
    for (size_t k = 0; k < rows.size(); ++k) local_row[rows[k]] = static_cast<int>(k);
    const auto add_term = [&](const QuadTerm& term, Real weight) {
        const int a = local[term.col1], b = local[term.col2];
        if (a < 0 || b < 0) return;
        newton.hessian(a, b) += weight * term.value;
        newton.hessian(b, a) += weight * term.value;
    };
    const auto add_slope = [&](int row, int col, Real value) {
        if (local[col] >= 0) newton.jacobian(row, local[col]) += value;
    };
    for (const QuadTerm& term : program_.objective_terms) add_term(term, 1.0);
    for (size_t r = 0; r < rows.size(); ++r) {
        const int i = rows[r];
        for (int64_t k = program_.start[i]; k < program_.start[i + 1]; ++k) {
            add_slope(static_cast<int>(r), program_.index[k], program_.value[k]);
        }
        const double side =
            rows_[i] == Hold::kUpper ? program_.row_upper[i] : program_.row_lower[i];
        newton.side[r] = static_cast<Real>(side) - activity_[i];
    }
    for (const QuadraticProgram::Form& form : program_.forms) {
        const int row = local_row[form.row];
        if (row < 0) continue;
        for (int64_t k = form.begin; k < form.end; ++k) {
            const QuadTerm& term = program_.form_terms[k];
            add_term(term, -static_cast<Real>(point_.y[form.row]));
            add_slope(row, term.col1, static_cast<Real>(term.value) * point_.x[term.col2]);
            add_slope(row, term.col2, static_cast<Real>(term.value) * point_.x[term.col1]);
        }
    }
    for (size_t k = 0; k < columns.size(); ++k) {
        newton.gradient[k] = reduced_[columns[k]];
        newton.noise[k] = rounding_[columns[k]];
    }
    return newton;
}

// How far along the direction the free columns and rows allow to go, and what ends it (-1: nothing
// before the limit).
double Settlement::longest_step(const std::vector<Real>& direction, double limit, int& column,
                                int& row, bool& at_upper) const {
    Real longest = limit;
    column = row = -1;
    const auto meet = [&](Real value, Real slope, double low, double high, int& met, int& other,
                          int index) {
        if (slope == 0.0) return;
        const double side = slope < 0.0 ? low : high;
        if (std::fabs(side) >= kInfinity) return;
        const Real length = std::max<Real>(0.0, (side - value) / slope);
        if (length >= longest) return;
        longest = length;
        met = index;
        other = -1;
        at_upper = slope > 0.0;
    };
    for (int j = 0; j < program_.columns; ++j) {
        meet(point_.x[j], direction[j], program_.lower[j], program_.upper[j], column, row, j);
    }
    for (int i = 0; i < program_.rows; ++i) {
        if (rows_[i] != Hold::kFree) continue;
        Real slope = 0.0;
        Real size = 0.0;
        for (int64_t k = program_.start[i]; k < program_.start[i + 1]; ++k) {
            const Real product = program_.value[k] * direction[program_.index[k]];
            slope += product;
            size += std::fabs(product);
        }
        // A row that depends on the held ones stays where it is.
        if (std::fabs(slope) <= 1e-14L * size) continue;
        meet(activity_[i], slope, program_.row_lower[i], program_.row_upper[i], row, column, i);
    }
    return static_cast<double>(longest);
}

void Settlement::move(const std::vector<Real>& direction, double length) {
    for (int j = 0; j < program_.columns; ++j) {
        if (direction[j] == 0.0) continue;
        const Real x = point_.x[j] + length * direction[j];
        point_.x[j] = std::clamp(static_cast<double>(x), program_.lower[j], program_.upper[j]);
    }
}

// One step of the method; false when the working set's optimum is reached.
bool Settlement::take_step(DenseNewton& newton) {
    const std::vector<int> columns = free_columns(), rows = held_rows();
    newton = newton_system(columns, rows);
    newton.solve();
    std::vector<Real> direction(program_.columns, 0.0);
    int column = -1, row = -1;
    bool at_upper = false;
    const auto meet = [&](const std::vector<Real>& step, double limit) {
        for (size_t k = 0; k < columns.size(); ++k) direction[columns[k]] = step[k];
        return longest_step(direction, limit, column, row, at_upper);
    };
    // A ray that nothing ends leads nowhere; the verdict deals with it.
    double length = newton.ray.empty() ? 0.0 : meet(newton.ray, kInfinity);
    const bool along_ray = column >= 0 || row >= 0;
    if (!along_ray) length = meet(newton.step, 1.0);
    move(direction, length);
    if (!along_ray) {
        for (size_t r = 0; r < rows.size(); ++r) {
            point_.y[rows[r]] = static_cast<double>(point_.y[rows[r]] + length * newton.duals[r]);
        }
    }
    const Hold hold = at_upper ? Hold::kUpper : Hold::kLower;
    if (column >= 0) {
        columns_[column] = hold;
        point_.x[column] = at_upper ? program_.upper[column] : program_.lower[column];
    }
    if (row >= 0) rows_[row] = hold;
    measure_slopes();
    return column >= 0 || row >= 0 || newton.gain > 1e-4 * tolerated_;
}

// Let go of the bound or row whose multiplier has the wrong sign by most.
bool Settlement::release() {
    double worst = kNoise;
    Hold* chosen = nullptr;
    const auto consider = [&](Hold& hold, double multiplier, double noise) {
        const double wrong = hold == Hold::kLower   ? -multiplier
                             : hold == Hold::kUpper ? multiplier
                                                    : 0.0;
        if (wrong <= worst * noise) return;
        worst = wrong / noise;
        chosen = &hold;
    };
    for (int j = 0; j < program_.columns; ++j) {
        if (program_.lower[j] == program_.upper[j]) continue;
        consider(columns_[j], static_cast<double>(reduced_[j]), rounding_[j] + 1e-300);
    }
    for (int i = 0; i < program_.rows; ++i) {
        if (rows_[i] == Hold::kFree || rows_[i] == Hold::kBoth) continue;
        // In units of the reduced costs that the dual is made from.
        double noise = 1e-300, size = 1e-300;
        for (int64_t k = program_.start[i]; k < program_.start[i + 1]; ++k) {
            noise = std::max(noise, rounding_[program_.index[k]]);
            size = std::max(size, std::fabs(program_.value[k]));
        }
        consider(rows_[i], point_.y[i], noise / size);
    }
    if (chosen == nullptr) return false;
    *chosen = Hold::kFree;
    for (int i = 0; i < program_.rows; ++i) {
        if (rows_[i] == Hold::kFree) point_.y[i] = 0.0;
    }
    measure_slopes();
    return true;
}

Settled Settlement::judge_dense() {
    const bool linear = program_.forms.empty();
    choose_working_set();
    measure_slopes();
    DenseNewton newton(0, 0);
    int repeats = 0;
    double flops = 0.0;
    for (int step = 0; step < kMaxSteps; ++step) {
        if (run_.monitor.should_stop()) {
            run_.stopped = true;
            return Settled::kImprovable;
        }
        const double size = static_cast<double>(free_columns().size());
        flops += size * size * size;
        if (size > kMaxDense || flops > kDenseFlops) return judge_sparse();
        const bool moved = take_step(newton);
        if (!linear && ++repeats > 6) break;
        if (moved) continue;
        if (!release()) break;
    }
    if (!newton.ray.empty() && !newton.ray_is_linear) return Settled::kUndetermined;
    if (newton.gain > tolerated_) return Settled::kImprovable;
    if (newton.noise_gain + newton.flat_gain > tolerated_) return Settled::kUndetermined;
    return Settled::kOptimal;
}

// Larger programs: the gain on the present active set, where curvature below the regularization
// counts as that.
Settled Settlement::judge_sparse() {
    choose_working_set();
    const std::vector<int> columns = free_columns(), rows = held_rows();
    std::vector<int> unknown(program_.columns, -1), row_unknown(program_.rows, -1);
    const int n = static_cast<int>(columns.size()), size = n + static_cast<int>(rows.size());
    for (int k = 0; k < n; ++k) unknown[columns[k]] = k;
    for (size_t k = 0; k < rows.size(); ++k) row_unknown[rows[k]] = n + static_cast<int>(k);
    std::vector<double> scale(size, 1.0);
    for (int k = 0; k < n; ++k) {
        const double value = curvature_[columns[k]];
        if (value > 0.0) scale[k] = 1.0 / std::sqrt(value);
    }
    std::vector<SymmetricEntry> entries;
    const auto add = [&](int a, int b, double value) {
        if (a >= 0 && b >= 0) entries.push_back({a, b, value * scale[a] * scale[b]});
    };
    const auto add_term = [&](const QuadTerm& term, double weight) {
        const double factor = term.col1 == term.col2 ? 2.0 : 1.0;
        add(unknown[term.col1], unknown[term.col2], factor * weight * term.value);
    };
    for (const QuadTerm& term : program_.objective_terms) add_term(term, 1.0);
    for (const int i : rows) {
        for (int64_t k = program_.start[i]; k < program_.start[i + 1]; ++k) {
            add(row_unknown[i], unknown[program_.index[k]], program_.value[k]);
        }
    }
    for (const QuadraticProgram::Form& form : program_.forms) {
        const int row = row_unknown[form.row];
        if (row < 0) continue;
        for (int64_t k = form.begin; k < form.end; ++k) {
            const QuadTerm& term = program_.form_terms[k];
            add_term(term, -point_.y[form.row]);
            add(row, unknown[term.col1], term.value * point_.x[term.col2]);
            add(row, unknown[term.col2], term.value * point_.x[term.col1]);
        }
    }
    std::vector<signed char> signs(size, -1);
    std::fill_n(signs.begin(), n, static_cast<signed char>(1));
    for (int k = 0; k < size; ++k) entries.push_back({k, k, signs[k] * kSparseRegularization});
    SparseLdlt factorization([this] { return run_.monitor.should_stop(); });
    factorization.analyze(size, entries);
    if (factorization.flops() > kSparseFlops) return Settled::kImprovable;
    factorization.factor(entries, signs, kSparseRegularization);
    const auto decrement = [&](auto&& slope) {
        std::vector<double> b(size, 0.0), solution;
        for (int k = 0; k < n; ++k) {
            if (curvature_[columns[k]] > 0.0) b[k] = scale[k] * slope(columns[k]);
        }
        solution = b;
        factorization.solve(solution);
        double sum = 0.0;
        for (int k = 0; k < n; ++k) sum += b[k] * solution[k];
        return 0.5 * std::fabs(sum);
    };
    const double gain = decrement([&](int j) { return static_cast<double>(reduced_[j]); });
    if (!(gain <= tolerated_)) return Settled::kImprovable;
    unsigned state = 12345;
    const double noise = decrement([&](int j) {
        state = state * 1664525u + 1013904223u;
        return (state >> 31) != 0 ? rounding_[j] : -rounding_[j];
    });
    return noise <= tolerated_ ? Settled::kOptimal : Settled::kUndetermined;
}

Settled Settlement::judge() {
    measure_slopes();
    if (is_obvious()) return Settled::kOptimal;
    return judge_dense();
}

}  // namespace

Settled settle(const QuadraticProgram& program, QpRun& run, PrimalDual& point) {
    PrimalDual improved = point;
    try {
        const Settled verdict = Settlement(program, run, improved).judge();
        project(program, improved);
        if (run.accepts(measure(program, improved))) {
            point = std::move(improved);
            return verdict;
        }
    } catch (const FactorizationStopped&) {
        run.stopped = true;
    }
    return Settled::kImprovable;
}

}  // namespace nlra
