#include "files_support.hpp"

#include <bit>
#include <cmath>
#include <cstdint>

#include "nonlinear/formula.hpp"

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
        // Anything goes here, the names of others and what reads like something else included.
        static const char* const kAny[] = {"a b", "\"",   "\\x0a", "\n\r", "-",   "@2", "sin",
                                           "1",   "\xff", "#",     "x0",   "end", "C2"};
        if (nonlinear_ && chance(50)) name = kAny[below(sizeof(kAny) / sizeof(kAny[0]))];
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
    if (nonlinear_) formulas(model);
    return model;
}

void RandomModel::formulas(Model& model) {
    const int cols = model.cols();
    for (int col = 0; col < cols; ++col) {
        if (chance(30)) model.formulas.start[col] = number();
    }
    if (chance(50)) model.formulas.objective = formula(cols);
    for (int row = 0; row < model.rows(); ++row) {
        if (chance(50)) model.formulas.rows[row] = formula(cols);
    }
}

Formula RandomModel::formula(int cols) {
    Formula result(1 + below(2));
    for (Coefficient& coefficient : result) {
        expression(coefficient, cols, below(7));
        if (chance(30)) coefficient.factor = number();
        if (cols > 0 && chance(20)) coefficient.column = below(cols);
    }
    return result;
}

void RandomModel::expression(Coefficient& formula, int cols, int depth) {
    const auto add = [&](int type, double value) {
        formula.types.push_back(type);
        formula.values.push_back(value);
    };
    const int kind = depth > 0 ? below(10) : 0;
    if (kind == 0) {
        const bool column = cols > 0 && chance(60);
        const double special[] = {-0.0, 5e-324, -1e300, number()};
        return add(column ? NSLP_TOKEN_COLUMN : NSLP_TOKEN_CONSTANT,
                   column ? below(cols) : special[below(4)]);
    }
    if (kind < 8) {
        const int op = 1 + below(6);
        expression(formula, cols, depth - 1);
        if (op != NSLP_OPERATOR_NEGATE) expression(formula, cols, depth - 1);
        return add(NSLP_TOKEN_OPERATOR, op);
    }
    static constexpr int kFunctions[] = {
        kFunctionLog10, kFunctionLog,  kFunctionExp, kFunctionAbs,  kFunctionSqrt,
        kFunctionSin,   kFunctionCos,  kFunctionTan, kFunctionAsin, kFunctionAcos,
        kFunctionAtan,  kFunctionSign, kFunctionErf, kFunctionErfc};
    static constexpr int kOfMany[] = {kFunctionMin, kFunctionMax, kFunctionPiecewise};
    const int function = kind == 8 ? kFunctions[below(14)] : kOfMany[below(3)];
    const bool points = function == kFunctionPiecewise;
    const int arguments = kind == 8 ? 1 : points ? 5 + 2 * below(2) : 1 + below(4);
    add(NSLP_TOKEN_ARGUMENTS, 0.0);
    for (int i = 0; i < arguments; ++i) {
        if (i > 0) add(NSLP_TOKEN_COMMA, 0.0);
        expression(formula, points && i > 0 ? 0 : cols, depth - 1);
    }
    add(NSLP_TOKEN_FUNCTION, function);
}

bool same_formula(const Formula& a, const Formula& b) {
    const auto bits = [](double x, double y) {
        return std::bit_cast<uint64_t>(x) == std::bit_cast<uint64_t>(y);
    };
    return std::equal(
        a.begin(), a.end(), b.begin(), b.end(), [&](const Coefficient& x, const Coefficient& y) {
            return bits(x.factor, y.factor) && x.column == y.column && x.types == y.types &&
                   std::equal(x.values.begin(), x.values.end(), y.values.begin(), y.values.end(),
                              bits);
        });
}

}  // namespace files_test
