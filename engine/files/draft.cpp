#include "files/draft.hpp"

#include <algorithm>

#include "files/text.hpp"

namespace nlra {

void combine_terms(std::vector<QuadTerm>& terms) {
    std::stable_sort(terms.begin(), terms.end(), term_before);
    size_t kept = 0;
    for (size_t i = 0; i < terms.size();) {
        QuadTerm sum = terms[i++];
        while (i < terms.size() && terms[i].col1 == sum.col1 && terms[i].col2 == sum.col2) {
            sum.value += terms[i++].value;
        }
        if (sum.value != 0.0) terms[kept++] = sum;
    }
    terms.resize(kept);
}

bool Draft::add_col(std::string_view colname) {
    if (!cols.add(colname)) return false;
    add_col_data();
    return true;
}

void Draft::add_unnamed_col() {
    cols.add_unnamed();
    add_col_data();
}

void Draft::add_col_data() {
    obj.push_back(0.0);
    lower.push_back(0.0);
    upper.push_back(kInfinity);
    limit.push_back(0.0);
    coltype.push_back('C');
    marks.push_back(0);
}

bool Draft::give(std::vector<double>& side, Mark given, int col, double bound,
                 unsigned char leaves) {
    if ((marks[col] & given) != 0) return side[col] == bound;
    marks[col] |= leaves;
    side[col] = bound;
    return true;
}

bool Draft::set_lower(int col, double bound) {
    return give(lower, kLowerGiven, col, bound, kLowerGiven | kAnyBound);
}

bool Draft::set_upper(int col, double bound) {
    return give(upper, kUpperGiven, col, bound, kUpperGiven | kAnyBound);
}

bool Draft::clear_lower(int col, double bound) {
    return give(lower, kLowerGiven, col, bound, kAnyBound);
}

bool Draft::clear_upper(int col, double bound) {
    return give(upper, kUpperGiven, col, bound, kAnyBound);
}

bool Draft::set_threshold(int col, double value, const char* where) {
    if ((marks[col] & kLimitGiven) != 0) return false;
    marks[col] |= kLimitGiven;
    limit[col] = value;
    thresholds.push_back({col, where});
    return true;
}

bool Draft::contradicts_binary(int col) const {
    return coltype[col] == 'B' && (((marks[col] & kLowerGiven) != 0 && lower[col] < 0.0) ||
                                   ((marks[col] & kUpperGiven) != 0 && upper[col] > 1.0));
}

void Draft::finish(Model& model, const Source& source) {
    // Everything that can be wrong is found before the model is touched: a reader that tries the
    // file in another way afterwards needs it empty.
    settle_columns();
    check_thresholds(source);
    check_sets(source);
    check_indicators(source);
    model.name = name;
    fill_columns(model);
    fill_rows(model);
    combine_terms(qobj);
    if (!qobj.empty()) model.set_qobj(qobj);
    for (QuadRow& row : qrows) {
        if (!row.terms.empty()) model.set_qrow(row.row, std::move(row.terms));
    }
    fill_sets(model);
    for (const IndicatorEntry& entry : indicators) {
        model.set_indicator(entry.row, entry.col, entry.complement);
    }
    model.set_sense(sense);
    model.set_constant(constant);
}

void Draft::settle_columns() {
    for (int col = 0; col < cols.size(); ++col) {
        const char type = coltype[col];
        if (type == 'B') {
            if ((marks[col] & kLowerGiven) == 0) lower[col] = 0.0;
            if ((marks[col] & kUpperGiven) == 0) upper[col] = 1.0;
        } else if ((type == 'S' || type == 'R') && (marks[col] & kLimitGiven) == 0 &&
                   lower[col] > 0.0 && lower[col] < kInfinity) {
            // The formats have one number for the smallest non-zero value: the lower bound.
            limit[col] = lower[col];
            lower[col] = 0.0;
        }
    }
}

void Draft::check_thresholds(const Source& source) const {
    for (const Threshold& entry : thresholds) {
        if (coltype[entry.col] != 'S' && coltype[entry.col] != 'R') {
            source.fail_at(entry.where, "column %s with a threshold is not semi-continuous",
                           quote(cols.name(entry.col)).c_str());
        }
    }
}

void Draft::check_sets(const Source& source) const {
    std::vector<std::pair<double, const char*>> weights;
    std::vector<int> last_set(cols.size(), -1);
    for (int i = 0; i < static_cast<int>(sets.size()); ++i) {
        weights.clear();
        for (const SetElement& element : sets[i].elements) {
            if (last_set[element.col] == i) {
                source.fail_at(element.where, "column %s occurs twice in the set",
                               quote(cols.name(element.col)).c_str());
            }
            last_set[element.col] = i;
            weights.emplace_back(element.weight, element.where);
        }
        std::sort(weights.begin(), weights.end());
        for (size_t k = 1; k < weights.size(); ++k) {
            if (weights[k].first == weights[k - 1].first) {
                source.fail_at(weights[k].second, "weight %.17g occurs twice in the set",
                               weights[k].first);
            }
        }
    }
}

void Draft::check_indicators(const Source& source) const {
    for (const IndicatorEntry& entry : indicators) {
        const char type = coltype[entry.col];
        const bool binary =
            type == 'B' || (type == 'I' && lower[entry.col] >= 0.0 && upper[entry.col] <= 1.0);
        if (!binary) {
            source.fail_at(entry.where, "indicator column %s is not binary",
                           quote(cols.name(entry.col)).c_str());
        }
    }
}

void Draft::fill_columns(Model& model) const {
    const int count = cols.size();
    // All coefficients come with the rows: no column has to be merged into rows that are there.
    const std::vector<int64_t> starts(static_cast<size_t>(count) + 1, 0);
    model.add_cols(count, 0, obj.data(), starts.data(), nullptr, nullptr, lower.data(),
                   upper.data());
    for (int col = 0; col < count; ++col) {
        model.colnames.set(col, cols.name(col));
        if (coltype[col] == 'C') continue;
        model.set_type(col, coltype[col]);
        model.set_bounds(col, lower[col], upper[col]);  // a type may come with bounds of its own
        if (limit[col] != 0.0) model.set_limit(col, limit[col]);
    }
}

void Draft::fill_rows(Model& model) const {
    const int count = static_cast<int>(rowtype.size());
    model.add_rows(count, start.back(), rowtype.data(), rhs.data(), range.data(), start.data(),
                   index.data(), value.data());
    for (int row = 0; row < count; ++row) model.rownames.set(row, rownames[row]);
}

void Draft::fill_sets(Model& model) const {
    std::vector<Set> added;
    for (const SetEntry& entry : sets) {
        Set set;
        set.type = entry.type;
        for (const SetElement& element : entry.elements) {
            set.cols.push_back(element.col);
            set.weights.push_back(element.weight);
        }
        added.push_back(std::move(set));
    }
    model.add_sets(std::move(added));
    const int count = static_cast<int>(sets.size());
    for (int i = 0; i < count; ++i) model.setnames.set(i, sets[i].name);
}

}  // namespace nlra
