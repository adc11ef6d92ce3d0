// Convex quadratic forms as sums of squares, each of which is approximated by tangents on its own:
// n tangents of n squares stand for n^n of their sum.
#pragma once

#include <functional>
#include <vector>

#include "nonlinear/formula_roots.hpp"
#include "store/model.hpp"

namespace nlra {

// weight * (sum of the terms)^2, the weight not negative.
struct Square {
    double weight;
    std::vector<LinearTerm> form;
};

struct SquareSum {
    std::vector<Square> squares;
    std::vector<QuadTerm> rest;  // what is too large for a dense factorization
};

// The form must be convex up to rounding (is_convex_form). Columns for which `wants_own` holds get
// as much as possible of the form as squares of their own.
SquareSum sum_of_squares(const std::vector<QuadTerm>& terms,
                         const std::function<bool(int)>& wants_own);

}  // namespace nlra
