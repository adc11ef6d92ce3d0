#include "nonlinear/nlp_scaling.hpp"

#include <algorithm>
#include <cmath>

namespace nlra {

NlpScaling scaling_at(ModelFunctions& functions, const std::vector<double>& x) {
    static constexpr double kMost = 1e30;
    const NlpStructure& structure = functions.structure();
    std::vector<double> unit(x.size()), gradient(x.size());
    std::vector<double> jacobian(structure.jacobian_row.size());
    std::vector<double> hessian(structure.hessian_row.size());
    const std::vector<double> none(static_cast<size_t>(structure.rows));
    for (size_t j = 0; j < x.size(); ++j) {
        unit[j] = x[j] != 0.0 ? std::clamp(std::fabs(x[j]), 1.0 / kMost, kMost) : 1.0;
    }
    if (!functions.gradient(x.data(), gradient.data()) ||
        !functions.jacobian(x.data(), jacobian.data()) ||
        (structure.has_hessian && !functions.hessian(x.data(), 1.0, none.data(), hessian.data()))) {
        return {};
    }
    double objective = 0.0;
    for (size_t j = 0; j < x.size(); ++j) {
        objective = std::max(objective, std::fabs(gradient[j]) * unit[j]);
    }
    for (size_t k = 0; k < hessian.size(); ++k) {
        const double size = unit[structure.hessian_row[k]] * unit[structure.hessian_col[k]];
        objective = std::max(objective, std::fabs(hessian[k]) * size);
    }
    std::vector<double> rows(none.size());
    for (size_t k = 0; k < jacobian.size(); ++k) {
        double& row = rows[structure.jacobian_row[k]];
        row = std::max(row, std::fabs(jacobian[k]) * unit[structure.jacobian_col[k]]);
    }
    const auto inverse = [](double size) {
        return size > 0.0 ? 1.0 / std::clamp(size, 1.0 / kMost, kMost) : 1.0;
    };
    NlpScaling out{inverse(objective), std::move(unit), std::move(rows)};
    std::transform(out.columns.begin(), out.columns.end(), out.columns.begin(), inverse);
    std::transform(out.rows.begin(), out.rows.end(), out.rows.begin(), inverse);
    return out;
}

}  // namespace nlra
