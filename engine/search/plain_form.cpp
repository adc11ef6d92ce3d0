#include "search/plain_form.hpp"

#include <cstdint>
#include <set>

#include "linear/relaxation.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {
namespace {

std::set<int> curved_rows(const Model& model) {
    std::set<int> rows;
    for (const auto& [row, terms] : model.qrows) rows.insert(row);
    for (const auto& [row, formula] : model.formulas.rows) rows.insert(row);
    return rows;
}

}  // namespace

PlainForm::PlainForm(const Model& model) {
    if (is_plain(model)) {
        plain_ = model;
    } else {
        reformulate(model);
    }
}

void PlainForm::reformulate(const Model& model) {
    const std::set<int> curved = curved_rows(model);
    for (const int row : curved) {
        if (model.indicators.count(row) == 0) continue;
        fail(NLRA_ERROR_UNSUPPORTED,
             "row %s depends on an indicator and is not linear: the optimizer has no search for "
             "such problems",
             model.rownames.get(row).c_str());
    }
    linear_ = model;
    linear_.qobj.clear();
    linear_.qrows.clear();
    linear_.formulas = Formulas();
    for (const int row : curved) linear_.rowtype[row] = 'N';
    reformulation_.emplace(linear_);
    plain_ = reformulation_->plain();
    plain_.set_qobj(model.qobj);
    plain_.formulas.objective = model.formulas.objective;
    plain_.formulas.start = model.formulas.start;
    plain_.formulas.functions = model.formulas.functions;
    const std::vector<int64_t>& start = model.matrix.start();
    for (const int row : curved) {
        const int64_t begin = start[row], none = 0;
        plain_.add_rows(1, start[row + 1] - begin, &model.rowtype[row], &model.rhs[row],
                        &model.range[row], &none, model.matrix.index().data() + begin,
                        model.matrix.value().data() + begin);
        const int added = plain_.rows() - 1;
        const auto quadratic = model.qrows.find(row);
        if (quadratic != model.qrows.end()) plain_.set_qrow(added, quadratic->second);
        const auto formula = model.formulas.rows.find(row);
        if (formula != model.formulas.rows.end()) plain_.formulas.rows[added] = formula->second;
    }
    plain_.matrix.merge();
}

std::vector<double> PlainForm::extend(const std::vector<double>& x) const {
    return reformulation_ ? reformulation_->extend(x) : x;
}

double PlainForm::violation(const std::vector<double>& x) const {
    return reformulation_ ? reformulation_->violation(x) : 0.0;
}

}  // namespace nlra
