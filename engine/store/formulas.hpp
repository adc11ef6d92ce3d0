// The nonlinear part of a model: formulas of rows and of the objective as tokens, starting values
// and user functions. Plain data; nonlinear/ gives the tokens their meaning.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "nslp.h"
#include "store/user_functions.hpp"

namespace nlra {

// factor * x[column] * (the postfix formula of these tokens, without its end token).
struct Coefficient {
    double factor = 1.0;
    int column = -1;  // -1: the constant 1 in its place
    std::vector<int> types;
    std::vector<double> values;
};

// The sum of its coefficients, which is added to what else a row or the objective has.
using Formula = std::vector<Coefficient>;

// Where the last solve ended. Rows and columns that came later are missing at the ends.
struct LastPoint {
    std::vector<double> x, dj;  // by column
    std::vector<double> dual;   // by row

    bool empty() const { return x.empty(); }
};

struct Formulas {
    std::map<int, Formula> rows;  // none empty
    Formula objective;
    std::map<int, double> start;  // starting values by column
    LastPoint last;               // goes before the starting values, unless empty
    UserFunctions functions;

    bool empty() const { return rows.empty() && objective.empty(); }
    // `formula` becomes part of these (change 1) or stops being so (-1), which is to be told of all
    // but copies that only solves see.
    void count_calls(const Formula& formula, int change) noexcept {
        for (const Coefficient& c : formula) functions.count_calls(c.types, c.values, change);
    }
    // The rows' formulas are about to go.
    void release_row(int row) noexcept {
        const auto found = rows.find(row);
        if (found != rows.end()) count_calls(found->second, -1);
    }
    // A deleted column counts as zero where a formula uses it. `map`: old index to new, -1 deleted.
    void renumber_columns(const std::vector<int>& map);
};

}  // namespace nlra
