#include "search/solution.hpp"

#include "store/model.hpp"

namespace nlra {

void evaluate(const Model& model, Solution& solution) {
    const std::vector<double>& x = solution.x;
    // Sums of squares multiplied out cancel nearly all that they consist of.
    long double objective = model.constant;
    for (int j = 0; j < model.cols(); ++j) objective += 1.0L * model.obj[j] * x[j];
    for (const QuadTerm& term : model.qobj) {
        objective += 1.0L * term.value * x[term.col1] * x[term.col2];
    }

    const std::vector<int64_t>& start = model.matrix.start();
    const std::vector<int>& index = model.matrix.index();
    const std::vector<double>& value = model.matrix.value();
    std::vector<double>& slack = solution.slack;
    slack.resize(static_cast<size_t>(model.rows()));
    for (int i = 0; i < model.rows(); ++i) {
        double sum = 0.0;
        for (int64_t k = start[i]; k < start[i + 1]; ++k) sum += value[k] * x[index[k]];
        slack[i] = model.rhs[i] - sum;
    }
    for (const auto& [row, terms] : model.qrows) {
        for (const QuadTerm& term : terms) slack[row] -= term.value * x[term.col1] * x[term.col2];
    }
    // Adding zero makes a negative zero a positive one.
    for (double& entry : slack) entry += 0.0;
    solution.objective = static_cast<double>(objective) + 0.0;
    solution.present = true;
}

}  // namespace nlra
