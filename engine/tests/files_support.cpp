#include "files_support.hpp"

#include <bit>
#include <cmath>
#include <cstdint>

namespace files_test {

double RandomModel::number() {
    switch (below(short_ ? 2 : 5)) {
        case 0:
            return below(20) - 10;
        case 1:
            return (below(2000) - 1000) / 8.0;
        case 2:
            return (below(2001) - 1000) / 7.0 * std::pow(10.0, below(12) - 6);
        case 3:
            return 1.0 + below(1000) * std::ldexp(1.0, -52);
        default:
            while (true) {
                const uint64_t high = engine_();
                const double value = std::bit_cast<double>(high << 32 | engine_());
                if (std::fabs(value) < 1e18 && std::fabs(value) > 1e-300) return value;
            }
    }
}

double RandomModel::bound() {
    switch (below(6)) {
        case 0:
            return -kInfinity;
        case 1:
            return kInfinity;
        case 2:
            return below(3) - 1;
        default:
            return number();
    }
}

void RandomModel::names(Names& names, int count, const char* prefix) {
    const int style = below(3);
    for (int i = 0; i < count; ++i) {
        if (style == 0 || (style == 1 && chance(50))) continue;
        std::string name = prefix + std::to_string(i);
        if (!short_) name += chance(50) ? "(a,1)" : "[2][\xc3\xa4]";
        names.set(i, name);
    }
}

void RandomModel::columns(Model& model) {
    const int count = below(10);
    std::vector<double> obj, lower, upper;
    for (int col = 0; col < count; ++col) {
        obj.push_back(chance(50) ? number() : 0.0);
        lower.push_back(chance(50) ? 0.0 : bound());
        upper.push_back(chance(50) ? kInfinity : bound());
    }
    const std::vector<int64_t> start(static_cast<size_t>(count) + 1, 0);
    model.add_cols(count, 0, obj.data(), start.data(), nullptr, nullptr, lower.data(),
                   upper.data());
    for (int col = 0; col < count; ++col) {
        const char type = "CCBISRP"[below(7)];
        model.set_type(col, type);
        if (type == 'B') {
            model.set_bounds(col, chance(20) ? 1.0 : 0.0, chance(20) ? 0.0 : 1.0);
        } else if (type != 'C' && type != 'I' && chance(50)) {
            model.set_limit(col, type == 'P' ? number() : std::fabs(number()));
        }
    }
    names(model.colnames, count, "x");
}

std::vector<QuadTerm> RandomModel::quadratic(int cols) {
    std::vector<QuadTerm> terms;
    for (int i = below(4); i >= 0; --i) {
        const int a = below(cols);
        const int b = below(cols);
        terms.push_back({std::min(a, b), std::max(a, b), number()});
    }
    return terms;
}

void RandomModel::rows(Model& model) {
    const int count = below(8);
    const int cols = model.cols();
    for (int row = 0; row < count; ++row) {
        const char type = "LGERN"[below(5)];
        const double rhs = chance(90) ? number() : bound();
        const double range = std::fabs(number());
        std::vector<int> index;
        std::vector<double> value;
        for (int col = 0; col < cols; ++col) {
            if (!chance(40)) continue;
            index.push_back(col);
            value.push_back(number());
        }
        const int64_t start = 0;
        model.add_rows(1, static_cast<int64_t>(index.size()), &type, &rhs, &range, &start,
                       index.data(), value.data());
        if (cols > 0 && chance(20)) model.set_qrow(row, quadratic(cols));
        const int binary = cols > 0 ? below(cols) : 0;
        if (cols > 0 && model.coltype[binary] == 'B' && chance(40)) {
            model.set_indicator(row, binary, chance(50) ? 1 : -1);
        }
    }
    names(model.rownames, count, "c");
}

Model RandomModel::make() {
    Model model;
    if (chance(80)) model.name = short_ ? "random" : "a random model";
    if (chance(50)) model.set_sense(-1.0);
    if (chance(50)) model.set_constant(number());
    columns(model);
    rows(model);
    const int cols = model.cols();
    if (cols > 0 && chance(40)) model.set_qobj(quadratic(cols));
    std::vector<Set> sets(cols > 0 ? below(3) : 0);
    for (Set& set : sets) {
        set.type = chance(50) ? '1' : '2';
        for (int col = cols - 1; col >= 0; --col) {
            if (!chance(50)) continue;
            set.cols.push_back(col);
            set.weights.push_back(col + (short_ ? 0.5 : 1.0 / 3.0));
        }
    }
    const int count = static_cast<int>(sets.size());
    model.add_sets(std::move(sets));
    names(model.setnames, count, "s");
    return model;
}

}  // namespace files_test
