#include "search/reformulate.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "linear/relaxation.hpp"
#include "nlra.h"
#include "search/activity.hpp"
#include "store/error.hpp"

namespace nlra {
namespace {

constexpr double kIntegral = 1e-9;

bool is_finite(double bound) { return std::abs(bound) < kInfinity; }

std::vector<int> by_weight(const Set& set) {
    std::vector<int> order(set.cols.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](int a, int b) { return set.weights[a] < set.weights[b]; });
    for (int& place : order) place = set.cols[place];
    return order;
}

}  // namespace

// Collects rows and columns and hands them to the plain model in one go each.
struct Reformulation::Builder {
    Builder(Reformulation& owner, const Model& from)
        : out(owner),
          model(from),
          bounds(implied_bounds(from)),
          lower(from.lower),
          upper(from.upper),
          type(from.coltype),
          nonzero(from.lower.size(), -1) {
        for (size_t j = 0; j < type.size(); ++j) {
            if (is_integral(type[j]))
                set_bounds(static_cast<int>(j), rounded_interval({lower[j], upper[j]}));
        }
    }

    int cols() const { return static_cast<int>(type.size()); }

    void set_bounds(int col, Bounds interval) {
        lower[col] = interval.lower;
        upper[col] = interval.upper;
    }

    int add_column(char kind, double low, double high, Added added) {
        lower.push_back(low);
        upper.push_back(high);
        type.push_back(kind);
        out.added_.push_back(added);
        return cols() - 1;
    }

    void begin_row(char kind, double side, double width = 0.0) {
        row_type.push_back(kind);
        rhs.push_back(side);
        range.push_back(width);
        start.push_back(static_cast<int64_t>(index.size()));
    }

    void entry(int col, double coefficient) {
        if (coefficient == 0.0) return;
        index.push_back(col);
        value.push_back(coefficient);
    }

    double finite_lower(int col, const char* why) const {
        if (is_finite(bounds.lower[col])) return bounds.lower[col];
        fail(NLRA_ERROR_UNSUPPORTED,
             "column %s %s and has no finite lower bound, neither of its own nor implied by rows; "
             "give it one",
             model.colnames.get(col).c_str(), why);
    }

    double finite_upper(int col, const char* why) const {
        if (is_finite(bounds.upper[col])) return bounds.upper[col];
        fail(NLRA_ERROR_UNSUPPORTED,
             "column %s %s and has no finite upper bound, neither of its own nor implied by rows; "
             "give it one",
             model.colnames.get(col).c_str(), why);
    }

    // low * b <= x <= high * b, where b is the sum of these columns. A side of zero is a bound of
    // the column already.
    void link(int col, double low, double high, std::initializer_list<int> switches) {
        if (high != 0.0) {
            begin_row('L', 0.0);
            entry(col, 1.0);
            for (const int b : switches) entry(b, -high);
        }
        if (low != 0.0) {
            begin_row('G', 0.0);
            entry(col, 1.0);
            for (const int b : switches) entry(b, -low);
        }
    }

    void semi(int col);
    void partial(int col);
    int nonzero_binary(int col);
    void set1(const Set& set);
    void set2(int number);
    void ordinary_row(int row);
    void indicator_row(int row, const Indicator& indicator);
    void conditional_side(int row, const Indicator& indicator, bool upper_side, double side);
    void finish();

    Reformulation& out;
    const Model& model;
    const ColumnBounds bounds;
    std::vector<double> lower, upper;
    std::vector<char> type;
    std::vector<int> nonzero;  // by original column: the binary that is 1 where it is not zero
    std::vector<char> row_type;
    std::vector<double> rhs, range;
    std::vector<int64_t> start;
    std::vector<int> index;
    std::vector<double> value;
};

void Reformulation::Builder::semi(int col) {
    Bounds domain = semi_interval(model, col);
    const bool integral = type[col] == 'R';
    type[col] = integral ? 'I' : 'C';
    if (integral) domain = rounded_interval(domain);
    if (domain.lower > domain.upper) return set_bounds(col, {0.0, 0.0});
    if (domain.lower <= 0.0 && domain.upper >= 0.0) return set_bounds(col, domain);
    set_bounds(col, {std::min(0.0, domain.lower), std::max(0.0, domain.upper)});
    // The end next to zero is the model's own; the other one may be tightened by rows.
    const char* const why = integral ? "is semi-integer" : "is semi-continuous";
    if (domain.lower > 0.0) {
        domain.upper = std::min(domain.upper, finite_upper(col, why));
    } else {
        domain.lower = std::max(domain.lower, finite_lower(col, why));
    }
    if (domain.lower > domain.upper) return set_bounds(col, {0.0, 0.0});
    nonzero[col] = add_column('B', 0.0, 1.0, {Role::kNonzero, col, 0});
    link(col, domain.lower, domain.upper, {nonzero[col]});
}

void Reformulation::Builder::partial(int col) {
    const char* const why = "is partial integer";
    const double limit = model.limit[col];
    const double last = std::floor(limit + kIntegral);
    type[col] = 'C';
    if (model.lower[col] >= limit) return;
    if (model.upper[col] <= limit) {
        type[col] = 'I';
        return set_bounds(col, rounded_interval({lower[col], upper[col]}));
    }
    const double first = std::ceil(finite_lower(col, why) - kIntegral);
    if (first > last) {  // no integer below the limit
        lower[col] = limit;
        return;
    }
    const double most = finite_upper(col, why);
    // Below: x = i. Above: i = last, and x from the limit up.
    const int whole = add_column('I', first, last, {Role::kIntegerPart, col, 0});
    const int above = add_column('B', 0.0, 1.0, {Role::kAboveLimit, col, 0});
    begin_row('L', 0.0);
    entry(col, 1.0);
    entry(whole, -1.0);
    entry(above, last - std::max(most, limit));
    begin_row('G', 0.0);
    entry(col, 1.0);
    entry(whole, -1.0);
    entry(above, last - limit);
    begin_row('G', first);
    entry(whole, 1.0);
    entry(above, first - last);
}

// A binary that must be 1 where the column is not zero; -1 where the column is always zero.
int Reformulation::Builder::nonzero_binary(int col) {
    if (nonzero[col] >= 0) return nonzero[col];
    const double low = finite_lower(col, "is in a special ordered set");
    const double high = finite_upper(col, "is in a special ordered set");
    if (low == 0.0 && high == 0.0) return -1;
    if (is_integral(type[col]) && low == 0.0 && high == 1.0) {
        nonzero[col] = col;
        return col;
    }
    nonzero[col] = add_column('B', 0.0, 1.0, {Role::kNonzero, col, 0});
    link(col, std::min(low, 0.0), std::max(high, 0.0), {nonzero[col]});
    // A range without zero: the column takes its place in the set whatever its value.
    if (low > 0.0 || high < 0.0) lower[nonzero[col]] = 1.0;
    return nonzero[col];
}

void Reformulation::Builder::set1(const Set& set) {
    std::vector<int> switches;
    for (const int col : set.cols) {
        const int binary = nonzero_binary(col);
        if (binary >= 0) switches.push_back(binary);
    }
    if (switches.size() < 2) return;
    begin_row('L', 1.0);
    for (const int binary : switches) entry(binary, 1.0);
}

// One binary for each pair of neighbours; the columns of one pair alone may be not zero.
void Reformulation::Builder::set2(int number) {
    const std::vector<int>& order = out.ordered_[number];
    const int count = static_cast<int>(order.size());
    if (count < 3) return;
    const int first = cols();
    for (int k = 0; k + 1 < count; ++k) {
        add_column('B', 0.0, 1.0, {Role::kSegment, number, k});
    }
    begin_row('E', 1.0);
    for (int k = 0; k + 1 < count; ++k) entry(first + k, 1.0);
    for (int k = 0; k < count; ++k) {
        const int col = order[k];
        const double low = std::min(0.0, finite_lower(col, "is in a special ordered set"));
        const double high = std::max(0.0, finite_upper(col, "is in a special ordered set"));
        if (low == 0.0 && high == 0.0) continue;
        if (k == 0) {
            link(col, low, high, {first});
        } else if (k + 1 == count) {
            link(col, low, high, {first + k - 1});
        } else {
            link(col, low, high, {first + k - 1, first + k});
        }
    }
}

void Reformulation::Builder::ordinary_row(int row) {
    if (model.rowtype[row] == 'N') return;
    begin_row(model.rowtype[row], model.rhs[row], model.range[row]);
    for (int64_t k = model.matrix.start()[row]; k < model.matrix.start()[row + 1]; ++k) {
        entry(model.matrix.index()[k], model.matrix.value()[k]);
    }
}

void Reformulation::Builder::indicator_row(int row, const Indicator& indicator) {
    const int col = indicator.col;
    const double low = lower[col];
    const double high = upper[col];
    if (!is_integral(model.coltype[col]) || low < 0.0 || high > 1.0) {
        fail(NLRA_ERROR_UNSUPPORTED, "column %s, on which row %s depends, is not binary",
             model.colnames.get(col).c_str(), model.rownames.get(row).c_str());
    }
    const double active = indicator.complement > 0 ? 1.0 : 0.0;
    if (low >= high) {  // fixed: the row always holds, or never
        if (low == active) ordinary_row(row);
        return;
    }
    const double row_low = model.row_lower(row);
    const double row_high = model.row_upper(row);
    if (row_high < kInfinity) conditional_side(row, indicator, true, row_high);
    if (row_low > -kInfinity) conditional_side(row, indicator, false, row_low);
}

// a'x <= side + M * (b is off), M being what the row can exceed its side by when b is off.
void Reformulation::Builder::conditional_side(int row, const Indicator& indicator, bool upper_side,
                                              double side) {
    const double off = indicator.complement > 0 ? 0.0 : 1.0;
    const Bounds range_off = activity_range(model, row, bounds, indicator.col, off);
    const double extreme = upper_side ? range_off.upper : range_off.lower;
    if (!is_finite(extreme)) {
        fail(NLRA_ERROR_UNSUPPORTED,
             "row %s depends on an indicator, but its columns have no bounds that limit it %s; "
             "give them bounds",
             model.rownames.get(row).c_str(), upper_side ? "above" : "below");
    }
    const double excess =
        upper_side ? std::max(0.0, extreme - side) : std::min(0.0, extreme - side);
    // The switch is excess * b where the row is off at 1, excess * (1 - b) where it is off at 0.
    begin_row(upper_side ? 'L' : 'G', off == 0.0 ? side + excess : side);
    double own = off == 0.0 ? excess : -excess;
    for (int64_t k = model.matrix.start()[row]; k < model.matrix.start()[row + 1]; ++k) {
        const int j = model.matrix.index()[k];
        if (j == indicator.col) {
            own += model.matrix.value()[k];
        } else {
            entry(j, model.matrix.value()[k]);
        }
    }
    entry(indicator.col, own);
}

void Reformulation::Builder::finish() {
    Model& plain = out.plain_;
    plain.sense = model.sense;
    plain.constant = model.constant;
    std::vector<double> cost(model.obj);
    cost.resize(cols(), 0.0);
    const std::vector<int64_t> no_entries(cols() + 1, 0);
    plain.add_cols(cols(), 0, cost.data(), no_entries.data(), nullptr, nullptr, lower.data(),
                   upper.data());
    for (int j = 0; j < cols(); ++j) {
        if (type[j] != 'C') plain.set_type(j, type[j]);
    }
    start.push_back(static_cast<int64_t>(index.size()));
    plain.add_rows(static_cast<int>(row_type.size()), static_cast<int64_t>(index.size()),
                   row_type.data(), rhs.data(), range.data(), start.data(), index.data(),
                   value.data());
}

Reformulation::Reformulation(const Model& model) : original_(model) {
    Builder builder(*this, model);
    for (int j = 0; j < model.cols(); ++j) {
        if (is_semi(model.coltype[j])) builder.semi(j);
        if (model.coltype[j] == 'P') builder.partial(j);
    }
    ordered_.resize(model.sets.size());
    for (size_t s = 0; s < model.sets.size(); ++s) {
        if (model.sets[s].type == '1') {
            builder.set1(model.sets[s]);
        } else {
            ordered_[s] = by_weight(model.sets[s]);
            builder.set2(static_cast<int>(s));
        }
    }
    auto indicator = model.indicators.begin();
    for (int i = 0; i < model.rows(); ++i) {
        if (indicator != model.indicators.end() && indicator->first == i) {
            builder.indicator_row(i, indicator->second);
            ++indicator;
        } else {
            builder.ordinary_row(i);
        }
    }
    builder.finish();
}

double Reformulation::extend_one(const Added& added, const std::vector<double>& x) const {
    constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
    if (added.role == Role::kSegment) {
        const std::vector<int>& order = ordered_[added.source];
        // The first column that is not zero names the pair, the last pair at most.
        int pair = 0;
        for (size_t k = order.size(); k-- > 0;) {
            if (std::isnan(x[order[k]])) return kUnknown;
            if (x[order[k]] != 0.0) pair = static_cast<int>(k);
        }
        pair = std::min(pair, static_cast<int>(order.size()) - 2);
        return added.position == pair ? 1.0 : 0.0;
    }
    const double source = x[added.source];
    if (std::isnan(source)) return kUnknown;
    const double limit = original_.limit[added.source];
    switch (added.role) {
        case Role::kNonzero:
            return source != 0.0 ? 1.0 : 0.0;
        case Role::kIntegerPart:
            return source < limit ? std::round(source) : std::floor(limit + kIntegral);
        default:
            return source < limit ? 0.0 : 1.0;
    }
}

std::vector<double> Reformulation::extend(const std::vector<double>& x) const {
    std::vector<double> all(x);
    all.reserve(x.size() + added_.size());
    for (const Added& added : added_) all.push_back(extend_one(added, x));
    return all;
}

double Reformulation::violation(const std::vector<double>& x) const {
    double worst = 0.0;
    for (int j = 0; j < original_.cols(); ++j) {
        if (is_semi(original_.coltype[j])) {
            const Bounds domain = semi_interval(original_, j);
            const double outside = std::max({0.0, domain.lower - x[j], x[j] - domain.upper});
            worst = std::max(worst, std::min(std::abs(x[j]), outside));
        } else if (original_.coltype[j] == 'P') {
            const double to_integer = std::abs(x[j] - std::round(x[j]));
            const double to_limit = std::max(0.0, original_.limit[j] - x[j]);
            worst = std::max(worst, std::min(to_integer, to_limit));
        }
    }
    for (size_t s = 0; s < original_.sets.size(); ++s) {
        // Keep the best column, or pair of neighbours; the largest of the others is what is wrong.
        const bool pairs = original_.sets[s].type != '1';
        const std::vector<int>& cols = pairs ? ordered_[s] : original_.sets[s].cols;
        const size_t count = cols.size();
        if (count < (pairs ? 3U : 2U)) continue;
        std::vector<double> before(count + 1, 0.0);
        for (size_t k = 0; k < count; ++k) {
            before[k + 1] = std::max(before[k], std::abs(x[cols[k]]));
        }
        double least = kInfinity;
        double after = 0.0;
        for (size_t k = count; k-- > 0;) {
            // Kept: column k, for pairs k and k - 1; after: the largest behind k.
            if (!pairs || k > 0)
                least = std::min(least, std::max(before[pairs ? k - 1 : k], after));
            after = std::max(after, std::abs(x[cols[k]]));
        }
        worst = std::max(worst, least);
    }
    for (const auto& [row, indicator] : original_.indicators) {
        if ((x[indicator.col] > 0.5) != (indicator.complement > 0)) continue;
        double sum = 0.0;
        double size = 1.0;
        for (int64_t k = original_.matrix.start()[row]; k < original_.matrix.start()[row + 1];
             ++k) {
            const double term = original_.matrix.value()[k] * x[original_.matrix.index()[k]];
            sum += term;
            size = std::max(size, std::abs(term));
        }
        const double outside =
            std::max({0.0, original_.row_lower(row) - sum, sum - original_.row_upper(row)});
        worst = std::max(worst, outside / size);
    }
    return worst;
}

}  // namespace nlra
