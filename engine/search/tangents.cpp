#include "search/tangents.hpp"

#include <algorithm>
#include <cmath>

#include "nonlinear/merge_equal.hpp"

namespace nlra {
namespace {

// What tangents may miss a function by, relative to values beyond 0.01.
constexpr double kTolerance = 1e-8;
// Steeper tangents would be worth nothing within the linear solver's tolerances.
constexpr double kSteepest = 1e7;
constexpr double kFlattest = 1e-3;
// Coefficients that are so small next to the largest are replaced by their least contribution.
constexpr double kNegligible = 1e-9;
// A switch that is on by less counts as off.
constexpr double kOff = 1e-6;

double at(const std::vector<LinearTerm>& terms, const std::vector<double>& x) {
    double sum = 0.0;
    for (const LinearTerm& term : terms) sum += term.value * x[term.col];
    return sum;
}

}  // namespace

TangentModel::TangentModel(const Model& model, const ModelFunctions& functions)
    : analysis_(functions.formulas().graph(), model.lower.data(), model.upper.data()) {
    linear_.sense = model.sense;
    const std::vector<double> costs(model.lower.size(), 0.0);
    linear_.add_cols(model.cols(), 0, costs.data(), nullptr, nullptr, nullptr, model.lower.data(),
                     model.upper.data());
    for (int j = 0; j < model.cols(); ++j) {
        if (model.coltype[j] != 'C') linear_.set_type(j, model.coltype[j]);
    }
    find_switches(model);
    copy_linear_rows(model, functions);
    set_objective(functions.roots()[0].parts);
    const NlpBounds bounds = functions.bounds();
    for (size_t r = 1; r < functions.roots().size(); ++r) {
        const auto& [row, parts] = functions.roots()[r];
        if (bounds.row_upper[row] < kInfinity) add_side(parts, 1.0, bounds.row_upper[row]);
        if (bounds.row_lower[row] > -kInfinity) add_side(parts, -1.0, bounds.row_lower[row]);
    }
    std::vector<const RootParts*> roots;
    for (const Term& term : terms_) roots.push_back(&term.parts);
    tape_ = std::make_unique<Tape>(functions.formulas().graph(), roots,
                                   functions.formulas().functions());
    values_.resize(terms_.size());
    look_at_columns();
}

// Rows a x <= b u, or the same from below, of a column that is not negative and a binary u.
void TangentModel::find_switches(const Model& model) {
    switch_of_.assign(model.lower.size(), -1);
    const RowMatrix& matrix = model.matrix;
    for (int i = 0; i < model.rows(); ++i) {
        const int64_t begin = matrix.start()[i];
        if (matrix.start()[i + 1] != begin + 2 || model.rhs[i] != 0.0) continue;
        if (model.rowtype[i] != 'L' && model.rowtype[i] != 'G') continue;
        if (model.qrows.count(i) != 0 || model.formulas.rows.count(i) != 0) continue;
        const double sign = model.rowtype[i] == 'L' ? 1.0 : -1.0;
        for (const int first : {0, 1}) {
            const int x = matrix.index()[begin + first];
            const int u = matrix.index()[begin + 1 - first];
            if (model.coltype[u] != 'C' && model.lower[u] == 0.0 && model.upper[u] == 1.0 &&
                model.lower[x] >= 0.0 && sign * matrix.value()[begin + first] > 0.0 &&
                sign * matrix.value()[begin + 1 - first] < 0.0) {
                switch_of_[x] = u;
            }
        }
    }
}

void TangentModel::copy_linear_rows(const Model& model, const ModelFunctions& functions) {
    std::vector<char> curved(static_cast<size_t>(model.rows()), 0);
    const std::vector<int>& rows = functions.model_rows();
    for (size_t r = 1; r < functions.roots().size(); ++r) {
        curved[rows[functions.roots()[r].row]] = 1;
    }
    const RowMatrix& matrix = model.matrix;
    Terms terms;
    for (const int i : rows) {
        if (curved[i] != 0) continue;
        terms.clear();
        for (int64_t k = matrix.start()[i]; k < matrix.start()[i + 1]; ++k) {
            terms.push_back({matrix.index()[k], matrix.value()[k]});
        }
        add_row(terms, model.row_lower(i), model.row_upper(i));
    }
    for (const auto& [row, value] : functions.constant_rows()) {
        const double low = model.row_lower(row), high = model.row_upper(row);
        add_row({}, low > -kInfinity ? low - value : low, high < kInfinity ? high - value : high);
    }
}

void TangentModel::set_objective(const RootParts& parts) {
    double constant = 0.0;
    const Terms terms = take_apart(parts, 1.0, constant);
    for (const LinearTerm& term : terms) {
        linear_.set_cost(term.col, linear_.obj[term.col] + linear_.sense * term.value);
    }
    linear_.set_constant(linear_.sense * constant);
}

void TangentModel::add_side(const RootParts& parts, double sign, double side) {
    double constant = 0.0;
    const Terms terms = take_apart(parts, sign, constant);
    add_row(terms, -kInfinity, sign * side - constant);
}

TangentModel::Terms TangentModel::take_apart(const RootParts& parts, double sign,
                                             double& constant) {
    Terms linear;
    constant = sign * parts.constant;
    for (const LinearTerm& term : parts.linear) linear.push_back({term.col, sign * term.value});
    std::vector<QuadTerm> quadratic;
    for (const QuadTerm& term : parts.quadratic) {
        int fixed = term.col1, other = term.col2;
        if (linear_.lower[fixed] != linear_.upper[fixed]) std::swap(fixed, other);
        if (linear_.lower[fixed] == linear_.upper[fixed]) {
            linear.push_back({other, sign * term.value * linear_.lower[fixed]});
        } else if (term.value != 0.0) {
            quadratic.push_back({term.col1, term.col2, sign * term.value});
        }
    }
    const SquareSum sum =
        sum_of_squares(quadratic, [this](int column) { return switch_of_[column] >= 0; });
    for (const Square& square : sum.squares) {
        const int column = column_of(square);
        RootParts term;
        term.quadratic.push_back(
            {column, column, square.weight * square.form[0].value * square.form[0].value});
        if (square.form.size() > 1) term.quadratic[0].value = square.weight;
        linear.push_back({add_term(std::move(term), 0.0), 1.0});
    }
    if (!sum.rest.empty()) {
        RootParts term;
        term.quadratic = sum.rest;
        linear.push_back({add_term(std::move(term), 0.0), 1.0});
    }
    for (const Entry& entry : parts.rest) {
        RootParts term;
        term.rest.push_back({sign * entry.value, entry.node});
        const auto [low, high] = analysis_.range(entry.node);
        const double least = term.rest[0].value * (term.rest[0].value > 0.0 ? low : high);
        linear.push_back(
            {add_term(std::move(term), std::isfinite(least) ? least : -kInfinity), 1.0});
    }
    return linear;
}

int TangentModel::add_term(RootParts parts, double low) {
    Term term;
    term.parts = std::move(parts);
    // Room for what the tangents' tolerance lets it be below.
    term.t = add_column(low > -kInfinity ? low - kTolerance * std::max(1.0, std::fabs(low)) : low);
    terms_.push_back(std::move(term));
    return terms_.back().t;
}

// The column whose square it is, a new one unless the form is a column by itself.
int TangentModel::column_of(const Square& square) {
    if (square.form.size() == 1) return square.form[0].col;
    const int column = add_column(-kInfinity);
    Terms row = square.form;
    row.push_back({column, -1.0});
    add_row(row, 0.0, 0.0);
    forms_.push_back({column, square.form});
    return column;
}

int TangentModel::add_column(double low) {
    const double cost = 0.0, high = kInfinity;
    linear_.add_cols(1, 0, &cost, nullptr, nullptr, nullptr, &low, &high);
    switch_of_.push_back(-1);
    return linear_.cols() - 1;
}

void TangentModel::add_row(const Terms& terms, double low, double high) {
    std::vector<int> index;
    std::vector<double> value;
    Terms merged = terms;
    merge_equal(merged, column_before);
    for (const LinearTerm& term : merged) {
        index.push_back(term.col);
        value.push_back(term.value);
    }
    const bool below = high<kInfinity, above = low> - kInfinity;
    const char type = below && above ? (low == high ? 'E' : 'R') : below ? 'L' : 'G';
    const double side = below ? high : low;
    const double range = type == 'R' ? high - low : 0.0;
    const int64_t start = 0;
    linear_.add_rows(1, static_cast<int64_t>(index.size()), &type, &side, &range, &start,
                     index.data(), value.data());
}

// Which terms depend on one column alone, and what they are where a switch of it is off.
void TangentModel::look_at_columns() {
    const std::vector<double> zeros(linear_.lower.size(), 0.0);
    tape_->values(zeros.data(), values_.data());
    for (size_t k = 0; k < terms_.size(); ++k) {
        const int64_t first = tape_->jacobian_start()[k];
        if (tape_->jacobian_start()[k + 1] != first + 1) continue;
        const int column = tape_->jacobian_col()[first];
        terms_[k].column = column;
        if (std::isfinite(values_[k])) terms_[k].binary = switch_of_[column];
        terms_[k].at_zero = values_[k];
        terms_[k].integral = terms_[k].binary < 0 && linear_.coltype[column] != 'C' &&
                             linear_.lower[column] < linear_.upper[column];
    }
}

std::vector<double> TangentModel::extend(const std::vector<double>& x) {
    std::vector<double> all(x);
    all.resize(linear_.lower.size(), 0.0);
    for (const Form& form : forms_) all[form.column] = at(form.terms, all);
    tape_->values(all.data(), values_.data());
    for (size_t k = 0; k < terms_.size(); ++k) {
        all[terms_[k].t] = std::isfinite(values_[k]) ? values_[k] : 0.0;
    }
    return all;
}

// The point with columns as they would be with their switches on: a perspective u f(x / u) has its
// tangent there.
std::vector<double> TangentModel::unswitched(const std::vector<double>& point) const {
    std::vector<double> out(point);
    for (const Term& term : terms_) {
        if (term.binary < 0 || point[term.binary] < kOff) continue;
        out[term.column] =
            std::min(point[term.column] / point[term.binary], linear_.upper[term.column]);
    }
    return out;
}

int TangentModel::cut(const std::vector<double>& x, const std::vector<double>& inside) {
    if (terms_.empty()) return 0;
    const std::vector<double> there = extend(x), here = extend(inside);
    const int before = cuts_;
    std::vector<char> done(terms_.size(), 0);
    cut_by_chords(there, done);
    std::vector<double> point(there);
    constexpr int kTrials = 30;
    double share = 1.0;
    for (int trial = 0; trial < kTrials && std::count(done.begin(), done.end(), 0) > 0; ++trial) {
        for (size_t j = 0; j < point.size(); ++j) {
            point[j] = here[j] + share * (there[j] - here[j]);
        }
        cut_by_tangents(point, false, done);
        cut_by_tangents(unswitched(point), true, done);
        share *= 0.5;
    }
    return cuts_ - before;
}

void TangentModel::cut_by_tangents(const std::vector<double>& point, bool switched,
                                   std::vector<char>& done) {
    tape_->values(point.data(), values_.data());
    const std::vector<double> values = values_;
    for (size_t k = 0; k < terms_.size(); ++k) {
        if (done[k] != 0 || (terms_[k].binary >= 0) != switched) continue;
        Tangent made;
        if (!std::isfinite(values[k]) || !tangent_at(k, point, values[k], made)) continue;
        keep_if_missing(terms_[k], std::move(made), point);
        done[k] = 1;
    }
}

// Between two neighbouring integers no point of a chord is above the function at any integer.
void TangentModel::cut_by_chords(const std::vector<double>& point, std::vector<char>& done) {
    std::vector<double> below(point), above(point);
    for (const Term& term : terms_) {
        if (!term.integral) continue;
        const int j = term.column;
        below[j] = std::clamp(std::floor(point[j]), linear_.lower[j], linear_.upper[j] - 1.0);
        above[j] = below[j] + 1.0;
    }
    tape_->values(below.data(), values_.data());
    const std::vector<double> low = values_;
    tape_->values(above.data(), values_.data());
    for (size_t k = 0; k < terms_.size(); ++k) {
        if (!terms_[k].integral) continue;
        const int j = terms_[k].column;
        const double slope = values_[k] - low[k];
        if (!(std::fabs(slope) <= kSteepest)) continue;
        keep_if_missing(terms_[k], {{{j, slope}}, 0.0, low[k] - slope * below[j]}, point);
        done[k] = 1;
    }
}

// Switches count as on: the point is one of that kind.
void TangentModel::keep_if_missing(Term& term, Tangent made, const std::vector<double>& point) {
    const auto height = [&](const Tangent& tangent) {
        return at(tangent.gradient, point) + tangent.switched + tangent.constant;
    };
    const double value = height(made);
    double best = term.binary < 0 ? linear_.lower[term.t] : -kInfinity;
    for (const Tangent& tangent : term.tangents) best = std::max(best, height(tangent));
    if (value - best <= kTolerance * std::max(0.01, std::fabs(value))) return;
    append(term, made);
    term.tangents.push_back(std::move(made));
    ++cuts_;
}

// False when there is no usable tangent at the point.
bool TangentModel::tangent_at(size_t number, const std::vector<double>& point, double value,
                              Tangent& tangent) {
    const Term& term = terms_[number];
    const int64_t first = tape_->jacobian_start()[number];
    const int64_t entries = tape_->jacobian_start()[number + 1] - first;
    gradient_.resize(static_cast<size_t>(entries));
    if (!tape_->gradient(point.data(), static_cast<int>(number), gradient_.data())) return false;
    double largest = 1.0;
    for (const double g : gradient_) largest = std::max(largest, std::fabs(g));
    if (!(largest <= kSteepest)) return false;
    double constant = value;
    for (int64_t k = 0; k < entries; ++k) {
        const int j = tape_->jacobian_col()[first + k];
        constant -= gradient_[k] * point[j];
        if (std::fabs(gradient_[k]) < kNegligible * largest) {
            const double bound = gradient_[k] > 0.0 ? linear_.lower[j] : linear_.upper[j];
            if (std::fabs(bound) < kInfinity) {
                constant += gradient_[k] * bound;
                continue;
            }
        }
        tangent.gradient.push_back({j, gradient_[k]});
    }
    const bool switched = term.binary >= 0;
    tangent.switched = switched ? constant - term.at_zero : 0.0;
    tangent.constant = switched ? term.at_zero : constant;
    return std::isfinite(constant);
}

bool TangentModel::exclude(const std::vector<double>& x) {
    Terms row;
    double side = 1.0;
    for (int j = 0; j < static_cast<int>(x.size()); ++j) {
        if (linear_.coltype[j] == 'C' || linear_.lower[j] == linear_.upper[j]) continue;
        if (linear_.lower[j] != 0.0 || linear_.upper[j] != 1.0) return false;
        const bool on = x[j] > 0.5;
        row.push_back({j, on ? -1.0 : 1.0});
        side -= on ? 1.0 : 0.0;
    }
    add_row(row, side, kInfinity);
    return true;
}

// Flat tangents are scaled up: otherwise the linear solver's tolerance would be coarse next to the
// differences that they tell.
void TangentModel::append(const Term& term, const Tangent& tangent) {
    double largest = kFlattest;
    for (const LinearTerm& g : tangent.gradient) largest = std::max(largest, std::fabs(g.value));
    const double scale = 1.0 / std::min(1.0, largest);
    Terms row = tangent.gradient;
    row.push_back({term.t, -1.0});
    if (tangent.switched != 0.0) row.push_back({term.binary, tangent.switched});
    for (LinearTerm& entry : row) entry.value *= scale;
    add_row(row, -kInfinity, -scale * tangent.constant);
}

}  // namespace nlra
