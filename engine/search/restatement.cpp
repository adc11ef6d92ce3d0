#include "search/restatement.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "linear/relaxation.hpp"
#include "nonlinear/model_values.hpp"
#include "nonlinear/write_out.hpp"
#include "store/error.hpp"

namespace nlra {
namespace {

// Whether there are rows that any restatement would be of.
bool has_candidates(const Model& model) {
    const auto has_sides = [&](const auto& entry) {
        return model.row_lower(entry.first) > -kInfinity ||
               model.row_upper(entry.first) < kInfinity;
    };
    const auto is_equality = [&](const auto& entry) {
        return model.row_lower(entry.first) == model.row_upper(entry.first);
    };
    const std::map<int, Formula>& formulas = model.formulas.rows;
    return std::any_of(model.qrows.begin(), model.qrows.end(), has_sides) ||
           std::any_of(formulas.begin(), formulas.end(), is_equality);
}

ColumnBounds own_bounds(const Model& model) {
    ColumnBounds bounds{model.lower, model.upper};
    for (int j = 0; j < model.cols(); ++j) {
        const Bounds hull = relaxed_column(model, j);
        bounds.lower[j] = hull.lower;
        bounds.upper[j] = hull.upper;
    }
    return bounds;
}

}  // namespace

Restatement::Restatement(const Model& model, bool write_out)
    : original_(model),
      written_(model),
      is_written_(write_out && write_out_definitions(written_)),
      roots_(written_),
      model_(written_) {}

bool Restatement::restate(const ColumnBounds& bounds, bool strict, double radius,
                          const StopPoll& poll) {
    definitions_ = relax_definitions(model_, roots_, bounds, strict, poll);
    cones_ = replace_cones(model_, roots_, bounds, radius, poll);
    model_.matrix.merge();
    model_.touch_structure();
    return !definitions_.empty() || !cones_.empty();
}

std::unique_ptr<Restatement> Restatement::make(const Model& model, double radius, bool write_out,
                                               const StopPoll& poll) {
    if (!has_candidates(model)) return nullptr;
    if (write_out && !has_places_to_write_out(model.formulas)) return nullptr;
    std::unique_ptr<Restatement> out(new Restatement(model, write_out));
    if (write_out && !out->is_written_) return nullptr;
    const ColumnBounds bounds = bounds_by_rows(model, out->roots_);
    if (!out->restate(bounds, false, radius, poll)) return nullptr;
    return out;
}

// Bounds that rows imply may be why a definition or a cone is one, but do not stand in the model.
bool Restatement::is_equivalent(const StopPoll& poll) const {
    Restatement other(original_, is_written_);
    other.restate(own_bounds(original_), true, 0.0, poll);
    return other.model_.rowtype == model_.rowtype && other.cones_.size() == cones_.size();
}

bool Restatement::is_off_apex(const Solution& solution) const {
    constexpr double kFar = 1e-3;
    return !cones_.empty() && std::all_of(cones_.begin(), cones_.end(), [&](const Cone& cone) {
        return value_of_form(cone, solution.x) > kFar;
    });
}

bool Restatement::meets_rows(const Solution& solution, double tolerance) const {
    const RowMatrix& matrix = original_.matrix;
    const std::vector<double>& x = solution.x;
    for (int i = 0; i < original_.rows(); ++i) {
        const double value = original_.rhs[i] - solution.slack[i];
        const double miss =
            std::max(original_.row_lower(i) - value, value - original_.row_upper(i));
        if (miss <= 0.0 || original_.indicators.count(i) != 0) continue;
        double size = std::max(1.0, std::fabs(original_.rhs[i]));
        for (int64_t k = matrix.start()[i]; k < matrix.start()[i + 1]; ++k) {
            size = std::max(size, std::fabs(matrix.value()[k] * x[matrix.index()[k]]));
        }
        for (const QuadTerm& term : roots_.rows()[i].quadratic) {
            size = std::max(size, std::fabs(term.value * x[term.col1] * x[term.col2]));
        }
        if (!(miss <= tolerance * size)) return false;
    }
    return true;
}

bool Restatement::close(Solution& solution, double tolerance) const {
    const double claimed = solution.objective;
    if (!close_definitions(original_, roots_, definitions_, solution.x)) return false;
    for (const Definition& definition : definitions_) {
        double& value = solution.x[definition.col];
        const double low = original_.lower[definition.col], high = original_.upper[definition.col];
        const double inside = std::clamp(value, low, high);
        if (std::fabs(inside - value) > tolerance * std::max(1.0, std::fabs(inside))) return false;
        value = inside;
    }
    if (solution.has_duals) {
        for (const Cone& cone : cones_) {
            double& dual = solution.dual[cone.row];
            dual = dual_of_cone(cone, dual, solution.x);
        }
    }
    try {
        evaluate_with_formulas(original_, solution);
    } catch (const Error&) {
        return false;
    }
    const double worse = original_.sense * (solution.objective - claimed);
    return worse <= tolerance * std::max(1.0, std::fabs(claimed)) &&
           meets_rows(solution, tolerance);
}

bool is_convex_within_rows(const Model& model, ColumnBounds& bounds, const StopPoll& poll) {
    const ModelRoots roots(model);
    bounds = bounds_by_rows(model, roots);
    return is_proven_convex(model, roots, bounds, poll);
}

}  // namespace nlra
