// A convex quadratic program as the solvers of this folder take it: minimize, bounds instead of
// row types, no fixed columns, no free rows. Plain data; optimality of a point is judged here.
#pragma once

#include <cstdint>
#include <vector>

#include "store/model.hpp"

namespace nlra {

// minimize constant + cost x + objective_terms(x) subject to row_lower <= row(x) <= row_upper and
// lower <= x <= upper. Row i is linear (start, index, value) plus the quadratic terms of the form
// that names it. Infinite is +-kInfinity.
struct QuadraticProgram {
    // Quadratic terms of one row: form_terms[begin] to form_terms[end - 1].
    struct Form {
        int row;
        int64_t begin;
        int64_t end;
    };

    int columns = 0;
    int rows = 0;
    double constant = 0.0;
    std::vector<double> cost, lower, upper;
    std::vector<QuadTerm> objective_terms;
    std::vector<int64_t> start{0};
    std::vector<int> index;
    std::vector<double> value;
    std::vector<double> row_lower, row_upper;
    std::vector<Form> forms;  // by ascending row
    std::vector<QuadTerm> form_terms;

    // Appending keeps all arrays in step; coefficients and terms follow their row.
    int add_column(double cost_value, double lower_bound, double upper_bound);
    int add_row(double low, double high);
    void add_coefficient(int col, double coefficient);           // of the last row
    void add_form(const QuadTerm* first, const QuadTerm* last);  // of the last row

    double objective(const double* x) const;
    void gradient(const double* x, std::vector<double>& out) const;
    void activity(const double* x, std::vector<double>& out) const;
    // out[j] += factor * sum of y[i] * d row i / d x[j].
    void add_transposed_jacobian(const double* x, const double* y, double factor,
                                 std::vector<double>& out) const;
    // Largest linear coefficient of a row in magnitude, its quadratic terms included.
    std::vector<double> row_norms() const;
    int equations() const;
};

// A point with the duals of its rows: y[i] is the derivative of the objective by row i's side, so
// y[i] > 0 pushes against row_lower and y[i] < 0 against row_upper.
struct PrimalDual {
    std::vector<double> x;
    std::vector<double> y;
};

// How far a point is from optimal, each relative to the magnitudes that it is computed from.
struct Residuals {
    double primal = 0.0;           // bounds and rows
    double dual = 0.0;             // stationarity and signs of reduced costs
    double complementarity = 0.0;  // their sum bounds the distance to the optimal value

    double worst() const;
};

// Move x into its bounds and drop the duals that push against an infinite side.
void project(const QuadraticProgram& program, PrimalDual& point);

// Residuals of a projected point. Stationarity holds by definition of the reduced costs, so that
// their signs are what is left to check. With `shifted_sides` the products of a row's dual and its
// violation do not count: the point is then optimal for sides that are off by the violation.
Residuals measure(const QuadraticProgram& program, const PrimalDual& point,
                  bool shifted_sides = false);

// The largest relative violation of rows alone (the first part of Residuals::primal).
double row_violation(const QuadraticProgram& program, const std::vector<double>& x);

}  // namespace nlra
