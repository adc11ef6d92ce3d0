#include "analysis/convexity.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

namespace {

// A form counts as convex when its Hessian, scaled to a unit diagonal, becomes positive definite
// by adding this to the diagonal: semidefinite matrices pass in spite of rounding in their data.
constexpr double kTolerance = 1e-9;
// Entries below this, relative to the largest one, are remains of cancellation where the diagonal
// says that there should be none.
constexpr double kNoise = 1e-13;

bool is_diagonal(const std::vector<QuadTerm>& terms) {
    return std::all_of(terms.begin(), terms.end(),
                       [](const QuadTerm& term) { return term.col1 == term.col2; });
}

}  // namespace

bool is_convex_form(const std::vector<QuadTerm>& terms, double sign, const StopPoll& poll) {
    double largest = 0.0;
    double lowest_diagonal = 0.0;
    for (const QuadTerm& term : terms) {
        // The store lets NaN in when its checks are switched off.
        if (!std::isfinite(term.value)) {
            fail(NLRA_ERROR_ARGUMENT,
                 "the model cannot be solved: a quadratic coefficient is not a number");
        }
        largest = std::max(largest, std::fabs(term.value));
        if (term.col1 == term.col2) lowest_diagonal = std::min(lowest_diagonal, sign * term.value);
    }
    const double noise = kNoise * largest;
    if (lowest_diagonal < -noise) return false;
    if (is_diagonal(terms)) return true;

    std::vector<int> columns;
    columns.reserve(2 * terms.size());
    for (const QuadTerm& term : terms) {
        columns.push_back(term.col1);
        if (term.col2 != term.col1) columns.push_back(term.col2);
    }
    std::sort(columns.begin(), columns.end());
    columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
    const int n = static_cast<int>(columns.size());
    const auto local = [&](int column) {
        return static_cast<int>(std::lower_bound(columns.begin(), columns.end(), column) -
                                columns.begin());
    };

    // Hessian entries; `scale` becomes one over the root of the diagonal.
    std::vector<SymmetricEntry> entries;
    entries.reserve(terms.size() + n);
    std::vector<double> scale(n, 0.0);
    for (const QuadTerm& term : terms) {
        const int i = local(term.col1);
        if (term.col1 == term.col2) {
            scale[i] += 2.0 * sign * term.value;
        } else {
            entries.push_back({i, local(term.col2), sign * term.value});
        }
    }
    for (double& value : scale) value = value > 0.0 ? 1.0 / std::sqrt(value) : 0.0;

    size_t kept = 0;
    for (SymmetricEntry entry : entries) {
        if (scale[entry.row] == 0.0 || scale[entry.col] == 0.0) {
            // Without a square, any product takes both signs.
            if (std::fabs(entry.value) > noise) return false;
            continue;
        }
        entry.value *= scale[entry.row] * scale[entry.col];
        if (!(std::fabs(entry.value) <= 1.0 + kTolerance)) return false;
        entries[kept++] = entry;
    }
    if (kept == 0) return true;
    entries.resize(kept);
    for (int i = 0; i < n; ++i) entries.push_back({i, i, 1.0 + kTolerance});

    SparseLdlt factorization(poll);
    factorization.analyze(n, entries);
    return factorization.is_positive_definite(entries);
}

bool ProvenForms::contains(int row, double sign, const std::vector<QuadTerm>& terms) const {
    const auto found = forms_.find(row);
    return found != forms_.end() && found->second.first == sign && found->second.second == terms;
}

void ProvenForms::add(int row, double sign, const std::vector<QuadTerm>& terms) {
    forms_[row] = {sign, terms};
}

namespace {

std::string find_nonconvex_part(const Model& model, const StopPoll& poll, ProvenForms* proven) {
    // Rows come and go.
    if (proven != nullptr && proven->size() > 2 * model.qrows.size() + 1) proven->clear();
    // A product with a fixed column is linear.
    std::vector<QuadTerm> scratch;
    const auto fixed = [&](int col) { return model.lower[col] == model.upper[col]; };
    const auto free_terms =
        [&](const std::vector<QuadTerm>& terms) -> const std::vector<QuadTerm>& {
        const auto is_free = [&](const QuadTerm& term) {
            return !fixed(term.col1) && !fixed(term.col2);
        };
        if (std::all_of(terms.begin(), terms.end(), is_free)) return terms;
        scratch.clear();
        std::copy_if(terms.begin(), terms.end(), std::back_inserter(scratch), is_free);
        return scratch;
    };
    // A form stays convex when columns of it are fixed.
    const auto is_convex = [&](int row, const std::vector<QuadTerm>& all_terms, double sign) {
        if (proven != nullptr && proven->contains(row, sign, all_terms)) return true;
        const std::vector<QuadTerm>& terms = free_terms(all_terms);
        if (proven != nullptr && proven->contains(row, sign, terms)) return true;
        if (!is_convex_form(terms, sign, poll)) return false;
        if (proven != nullptr) proven->add(row, sign, terms);
        return true;
    };

    if (!is_convex(ProvenForms::kObjective, model.qobj, model.sense)) {
        return model.sense < 0.0 ? "objective (its quadratic part is not concave)"
                                 : "objective (its quadratic part is not convex)";
    }
    for (const auto& [row, all_terms] : model.qrows) {
        const bool has_upper = model.row_upper(row) < kInfinity;
        const bool has_lower = model.row_lower(row) > -kInfinity;
        if (!has_upper && !has_lower) continue;
        const std::vector<QuadTerm>& terms = free_terms(all_terms);
        const bool vanishes = std::all_of(terms.begin(), terms.end(),
                                          [](const QuadTerm& term) { return term.value == 0.0; });
        if (vanishes) continue;
        const char* reason = nullptr;
        if (has_upper && has_lower) {
            reason = "an equation or range with quadratic terms";
        } else if (has_upper && !is_convex(row, all_terms, 1.0)) {
            reason = "its quadratic part, bounded above, is not convex";
        } else if (has_lower && !is_convex(row, all_terms, -1.0)) {
            reason = "its quadratic part, bounded below, is not concave";
        }
        if (reason != nullptr) return "row " + model.rownames.get(row) + " (" + reason + ")";
    }
    return {};
}

}  // namespace

std::string find_nonconvexity(const Model& model, const StopPoll& poll, ProvenForms* proven) {
    try {
        return find_nonconvex_part(model, poll, proven);
    } catch (const FactorizationStopped&) {
        return {};
    }
}

}  // namespace nlra
