// Recession directions. For a convex program an improving ray d satisfies Q d = 0 for every
// quadratic form, a'd <= 0 for every row bounded above (and so on), the signs that the bounds
// demand, and cost'd < 0. With quadratic rows a program can be unbounded without one: x^2 <= y,
// minimize -x. But along d = (0, 1) nothing gets worse and the row gets ever looser, so it does
// not count; without it (1, 0) is a ray.
#include <algorithm>
#include <cmath>

#include "analysis/ldlt.hpp"
#include "nonlinear/qp_attempts.hpp"
#include "nonlinear/qp_certificates.hpp"

namespace nlra {

namespace {

constexpr double kPenalty = 1e6;    // of curvature along the direction
constexpr double kZero = 1e-5;      // below this a component of an approximate direction is zero
constexpr double kExact = 1e-9;     // what the projected direction may violate
constexpr double kProgress = 1e-6;  // least relative gain
// The fall of the objective before the curvature along the direction ends it must exceed by this
// factor what a program of such coefficients can fall by at all when it is bounded.
constexpr double kEndless = 1e6;

class RaySearch {
  public:
    RaySearch(const QuadraticProgram& program, QpRun& run);
    bool run();

  private:
    bool solve(bool improving, std::vector<double>& direction);
    void build(bool improving);
    bool project(std::vector<double>& direction, bool improving) const;
    bool is_recession(const std::vector<double>& direction) const;
    double curvature_along(const std::vector<double>& direction) const;
    double cost_along(const std::vector<double>& direction) const;
    bool drop_loose(const std::vector<double>& direction);
    void add_curvature(const QuadTerm* first, const QuadTerm* last, double sign);
    void curvature_equations(const std::vector<double>& direction,
                             std::vector<SymmetricEntry>* entries, int& equations,
                             double& worst) const;
    double row_along(int row, const std::vector<double>& direction) const;

    const QuadraticProgram& program_;
    QpRun& run_;
    const std::vector<double> norms_;
    double cost_norm_ = 0.0;
    std::vector<char> keeps_lower_, keeps_upper_;  // by column
    std::vector<char> keeps_row_;
    // The auxiliary program and its columns.
    QuadraticProgram aux_;
    std::vector<int> local_;
};

RaySearch::RaySearch(const QuadraticProgram& program, QpRun& run)
    : program_(program), run_(run), norms_(program.row_norms()), keeps_row_(program.rows, 1) {
    for (int j = 0; j < program.columns; ++j) {
        keeps_lower_.push_back(program.lower[j] > -kInfinity);
        keeps_upper_.push_back(program.upper[j] < kInfinity);
        cost_norm_ = std::max(cost_norm_, std::fabs(program.cost[j]));
    }
}

void RaySearch::add_curvature(const QuadTerm* first, const QuadTerm* last, double sign) {
    double largest = 0.0;
    for (const QuadTerm* term = first; term != last; ++term) {
        largest = std::max(largest, std::fabs(term->value));
    }
    for (const QuadTerm* term = first; term != last; ++term) {
        const int a = local_[term->col1];
        const int b = local_[term->col2];
        if (a < 0 || b < 0) continue;
        aux_.objective_terms.push_back({a, b, sign * kPenalty * term->value / largest});
    }
}

// Directions in the unit box. `improving`: the one that gains most; otherwise, among those that do
// not lose, the one that loosens as many rows and bounds as it can.
void RaySearch::build(bool improving) {
    aux_ = QuadraticProgram();
    local_.assign(program_.columns, -1);
    for (int j = 0; j < program_.columns; ++j) {
        if (keeps_lower_[j] && keeps_upper_[j]) continue;
        const double loosening = keeps_lower_[j] ? -1.0 : keeps_upper_[j] ? 1.0 : 0.0;
        local_[j] = aux_.add_column(improving ? program_.cost[j] / cost_norm_ : loosening,
                                    keeps_lower_[j] ? 0.0 : -1.0, keeps_upper_[j] ? 0.0 : 1.0);
    }
    const auto any = [&](int row) {
        for (int64_t k = program_.start[row]; k < program_.start[row + 1]; ++k) {
            if (local_[program_.index[k]] >= 0) return true;
        }
        return false;
    };
    for (int i = 0; i < program_.rows; ++i) {
        if (!keeps_row_[i] || !any(i)) continue;
        const bool low = program_.row_lower[i] > -kInfinity;
        const bool high = program_.row_upper[i] < kInfinity;
        aux_.add_row(low ? 0.0 : -kInfinity, high ? 0.0 : kInfinity);
        for (int64_t k = program_.start[i]; k < program_.start[i + 1]; ++k) {
            const int j = local_[program_.index[k]];
            if (j >= 0) aux_.add_coefficient(j, program_.value[k] / norms_[i]);
        }
        if (!improving && low != high) {
            aux_.add_coefficient(aux_.add_column(-1.0, 0.0, 1.0), high ? 1.0 : -1.0);
        }
    }
    if (!improving && cost_norm_ > 0.0) {
        aux_.add_row(-kInfinity, 0.0);
        for (int j = 0; j < program_.columns; ++j) {
            if (local_[j] >= 0 && program_.cost[j] != 0.0) {
                aux_.add_coefficient(local_[j], program_.cost[j] / cost_norm_);
            }
        }
        if (aux_.start[aux_.rows] == aux_.start[aux_.rows - 1]) {
            aux_.start.pop_back();
            aux_.row_lower.pop_back();
            aux_.row_upper.pop_back();
            --aux_.rows;
        }
    }
    const auto& terms = program_.objective_terms;
    add_curvature(terms.data(), terms.data() + terms.size(), 1.0);
    for (const QuadraticProgram::Form& form : program_.forms) {
        if (!keeps_row_[form.row]) continue;
        add_curvature(program_.form_terms.data() + form.begin,
                      program_.form_terms.data() + form.end,
                      program_.row_upper[form.row] < kInfinity ? 1.0 : -1.0);
    }
}

double RaySearch::row_along(int row, const std::vector<double>& direction) const {
    double sum = 0.0;
    for (int64_t k = program_.start[row]; k < program_.start[row + 1]; ++k) {
        sum += program_.value[k] * direction[program_.index[k]];
    }
    return sum / norms_[row];
}

// The equations Q d = 0 of the forms that count: numbered on from `equations` and added to
// `entries` (unknowns: columns of the program, then equations), or measured.
void RaySearch::curvature_equations(const std::vector<double>& direction,
                                    std::vector<SymmetricEntry>* entries, int& equations,
                                    double& worst) const {
    std::vector<int> equation(program_.columns, -1);
    std::vector<double> product(program_.columns, 0.0);
    const auto visit = [&](const QuadTerm* first, const QuadTerm* last) {
        double largest = 0.0;
        for (const QuadTerm* term = first; term != last; ++term) {
            largest = std::max(largest, std::fabs(term->value));
        }
        for (const QuadTerm* term = first; term != last; ++term) {
            const double value = term->value / largest;
            for (const auto& [row, col] :
                 {std::pair(term->col1, term->col2), std::pair(term->col2, term->col1)}) {
                product[row] += value * direction[col];
                if (entries == nullptr) continue;
                if (equation[row] < 0) equation[row] = equations++;
                if (local_[col] >= 0) entries->push_back({equation[row], col, value});
            }
        }
        for (const QuadTerm* term = first; term != last; ++term) {
            for (const int row : {term->col1, term->col2}) {
                worst = std::max(worst, std::fabs(product[row]));
                product[row] = 0.0;
                equation[row] = -1;
            }
        }
    };
    const auto& terms = program_.objective_terms;
    visit(terms.data(), terms.data() + terms.size());
    for (const QuadraticProgram::Form& form : program_.forms) {
        if (!keeps_row_[form.row]) continue;
        visit(program_.form_terms.data() + form.begin, program_.form_terms.data() + form.end);
    }
}

// The nearest direction that satisfies exactly what the given one satisfies nearly, scaled to a
// largest component of one; one that is not improving costs nothing.
bool RaySearch::project(std::vector<double>& direction, bool improving) const {
    const int n = program_.columns;
    std::vector<SymmetricEntry> entries;
    entries.reserve(2 * static_cast<size_t>(n));
    for (int j = 0; j < n; ++j) entries.push_back({j, j, 1.0});
    std::vector<char> zero(n, 0);
    for (int j = 0; j < n; ++j) {
        const bool bounded = keeps_lower_[j] || keeps_upper_[j];
        zero[j] = local_[j] < 0 || (bounded && std::fabs(direction[j]) < kZero);
        if (zero[j]) direction[j] = 0.0;
    }
    int unknowns = n;
    double ignored = 0.0;
    curvature_equations(direction, &entries, unknowns, ignored);
    for (int i = 0; i < program_.rows; ++i) {
        if (!keeps_row_[i] || std::fabs(row_along(i, direction)) >= kZero) continue;
        for (int64_t k = program_.start[i]; k < program_.start[i + 1]; ++k) {
            entries.push_back({unknowns, program_.index[k], program_.value[k] / norms_[i]});
        }
        ++unknowns;
    }
    if (!improving) {
        for (int j = 0; j < n; ++j) {
            if (program_.cost[j] == 0.0) continue;
            entries.push_back({unknowns, j, program_.cost[j] / cost_norm_});
        }
        ++unknowns;
    }
    std::erase_if(entries,
                  [&](const SymmetricEntry& entry) { return entry.row >= n && zero[entry.col]; });
    std::vector<signed char> signs(unknowns, 1);
    for (int k = n; k < unknowns; ++k) {
        entries.push_back({k, k, -1e-9});
        signs[k] = -1;
    }
    SparseLdlt factorization([this] { return run_.monitor.should_stop(); });
    factorization.analyze(unknowns, entries);
    factorization.factor(entries, signs, 1e-10);
    // Repeated projection takes out what the regularization left.
    std::vector<double> solution(unknowns);
    for (int pass = 0; pass < 4; ++pass) {
        std::fill(solution.begin(), solution.end(), 0.0);
        std::copy(direction.begin(), direction.end(), solution.begin());
        factorization.solve(solution);
        std::copy_n(solution.begin(), n, direction.begin());
    }
    double largest = 0.0;
    for (const double value : direction) largest = std::max(largest, std::fabs(value));
    if (!(largest > kZero)) return false;
    for (double& value : direction) value /= largest;
    return true;
}

bool RaySearch::is_recession(const std::vector<double>& direction) const {
    for (int j = 0; j < program_.columns; ++j) {
        if (keeps_lower_[j] && !(direction[j] >= -kExact)) return false;
        if (keeps_upper_[j] && !(direction[j] <= kExact)) return false;
    }
    for (int i = 0; i < program_.rows; ++i) {
        if (!keeps_row_[i]) continue;
        const double change = row_along(i, direction);
        if (program_.row_lower[i] > -kInfinity && !(change >= -kExact)) return false;
        if (program_.row_upper[i] < kInfinity && !(change <= kExact)) return false;
    }
    int equations = 0;
    double worst = 0.0;
    curvature_equations(direction, nullptr, equations, worst);
    return worst <= kExact;
}

// Relative to the largest cost: the gain must stand out from what the direction may violate.
double RaySearch::cost_along(const std::vector<double>& direction) const {
    double sum = 0.0;
    for (int j = 0; j < program_.columns; ++j) sum += program_.cost[j] * direction[j];
    return sum / cost_norm_;
}

// Of the form that bends most, each relative to its largest coefficient.
double RaySearch::curvature_along(const std::vector<double>& direction) const {
    double worst = 0.0;
    const auto visit = [&](const QuadTerm* first, const QuadTerm* last) {
        long double sum = 0.0;
        double largest = 0.0;
        for (const QuadTerm* term = first; term != last; ++term) {
            sum += 1.0L * term->value * direction[term->col1] * direction[term->col2];
            largest = std::max(largest, std::fabs(term->value));
        }
        if (largest > 0.0) worst = std::max(worst, std::fabs(static_cast<double>(sum)) / largest);
    };
    const auto& terms = program_.objective_terms;
    visit(terms.data(), terms.data() + terms.size());
    for (const QuadraticProgram::Form& form : program_.forms) {
        if (!keeps_row_[form.row]) continue;
        visit(program_.form_terms.data() + form.begin, program_.form_terms.data() + form.end);
    }
    return worst;
}

bool RaySearch::solve(bool improving, std::vector<double>& direction) {
    build(improving);
    if (aux_.columns == 0) return false;
    PrimalDual point;
    if (!find_optimum(aux_, Attempts::kFirst, nullptr, run_, 2, point)) {
        if (run_.over()) return false;
        if (!find_optimum(aux_, Attempts::kOthers, nullptr, run_, 2, point)) return false;
    }
    direction.assign(program_.columns, 0.0);
    for (int j = 0; j < program_.columns; ++j) {
        if (local_[j] >= 0) direction[j] = point.x[local_[j]];
    }
    return project(direction, improving) && is_recession(direction);
}

// Leave out what the direction satisfies ever better.
bool RaySearch::drop_loose(const std::vector<double>& direction) {
    bool dropped = false;
    for (int i = 0; i < program_.rows; ++i) {
        if (!keeps_row_[i] || std::fabs(row_along(i, direction)) < kZero) continue;
        keeps_row_[i] = 0;
        dropped = true;
    }
    for (int j = 0; j < program_.columns; ++j) {
        if (std::fabs(direction[j]) < kZero || !(keeps_lower_[j] || keeps_upper_[j])) continue;
        keeps_lower_[j] = keeps_upper_[j] = 0;
        dropped = true;
    }
    return dropped;
}

bool RaySearch::run() {
    if (cost_norm_ == 0.0) return false;
    std::vector<double> direction;
    for (int round = 0; round < 10 && !run_.over(); ++round) {
        if (solve(true, direction)) {
            const double fall = -cost_along(direction);
            if (fall > kProgress && fall * fall > kEndless * curvature_along(direction))
                return true;
        }
        if (program_.forms.empty() || run_.over()) return false;
        const bool loosens = solve(false, direction) && cost_along(direction) <= kExact;
        if (!loosens || !drop_loose(direction)) return false;
    }
    return false;
}

}  // namespace

bool has_improving_ray(const QuadraticProgram& program, QpRun& run) {
    try {
        return RaySearch(program, run).run();
    } catch (const FactorizationStopped&) {
        return false;
    }
}

}  // namespace nlra
