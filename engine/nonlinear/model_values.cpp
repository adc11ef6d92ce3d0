#include "nonlinear/model_values.hpp"

#include <cmath>
#include <limits>
#include <vector>

#include "nonlinear/formula_roots.hpp"
#include "nonlinear/tape.hpp"
#include "nonlinear/user_function.hpp"
#include "store/error.hpp"

namespace nlra {

namespace {

// NaN where a formula is not defined.
std::vector<double> formula_values(const Model& model, const std::vector<const Formula*>& formulas,
                                   const double* x) {
    const CalledFunctions called(model.formulas);
    FormulaRoots roots;
    for (OpaqueFunction* function : called.functions()) roots.add_function(function);
    roots.set_columns(model.cols());
    for (const Formula* formula : formulas) {
        std::vector<FormulaPiece> pieces;
        for (const Coefficient& coefficient : *formula) pieces.push_back(piece_of(coefficient));
        roots.add(pieces);
    }
    std::vector<const RootParts*> parts;
    for (size_t i = 0; i < formulas.size(); ++i) {
        parts.push_back(&roots.parts(static_cast<int>(i)));
    }
    Tape tape(roots.graph(), parts, roots.functions());
    std::vector<double> values(formulas.size(), std::numeric_limits<double>::quiet_NaN());
    try {
        tape.values(x, values.data());
    } catch (const UserFunctionFailed&) {
        fail(NLRA_ERROR_STATE, "a user function failed");
    }
    return values;
}

bool is_free_row(const Model& model, int row) {
    return model.row_lower(row) <= -kInfinity && model.row_upper(row) >= kInfinity;
}

}  // namespace

double formula_value(const Model& model, const Formula& formula, const double* x) {
    const double value = formula_values(model, {&formula}, x)[0];
    if (!std::isfinite(value)) {
        fail(NLRA_ERROR_STATE, "the formula is not defined at this point");
    }
    return value;
}

void evaluate_with_formulas(const Model& model, Solution& solution) {
    evaluate(model, solution);
    if (model.formulas.empty()) return;
    solution.present = false;
    std::vector<const Formula*> formulas{&model.formulas.objective};
    for (const auto& [row, formula] : model.formulas.rows) formulas.push_back(&formula);
    const std::vector<double> values = formula_values(model, formulas, solution.x.data());
    if (!std::isfinite(values[0])) {
        fail(NLRA_ERROR_STATE, "the objective is not defined at this point");
    }
    solution.objective += values[0];
    size_t at = 1;
    for (const auto& [row, formula] : model.formulas.rows) {
        const double value = values[at++];
        if (!std::isfinite(value) && !is_free_row(model, row)) {
            fail(NLRA_ERROR_STATE, "row %s is not defined at this point",
                 model.rownames.get(row).c_str());
        }
        solution.slack[row] -= value;
    }
    solution.present = true;
}

void count_formulas_of_free_rows(const Model& model, Solution& solution) {
    std::vector<int> rows;
    std::vector<const Formula*> formulas;
    for (const auto& [row, formula] : model.formulas.rows) {
        if (!is_free_row(model, row)) continue;
        rows.push_back(row);
        formulas.push_back(&formula);
    }
    if (rows.empty()) return;
    const std::vector<double> values = formula_values(model, formulas, solution.x.data());
    for (size_t i = 0; i < rows.size(); ++i) solution.slack[rows[i]] -= values[i];
}

}  // namespace nlra
