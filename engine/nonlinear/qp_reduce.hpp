// From the model as loaded to the program that is solved, and back.
#pragma once

#include <string>
#include <vector>

#include "nonlinear/quadratic_program.hpp"
#include "search/solution.hpp"
#include "store/model.hpp"

namespace nlra {

// A model as minimization, without fixed columns (products with them become linear), columns that
// only have a cost, free rows and rows left empty.
struct ReducedProgram {
    QuadraticProgram program;
    std::vector<int> columns;  // of the program, as model columns
    std::vector<int> rows;
    std::vector<double> x;   // by model column: values of those left out, 0 for the others
    std::string infeasible;  // when not empty: why no point can be feasible; nothing else is set
};

// `tolerance` is the violation that bounds and rows left empty may have.
ReducedProgram reduce(const Model& model, double tolerance);

// Solution of the model for a point of the program, all from the model's own data. Without
// `with_duals` the point's duals do not matter.
Solution expand(const Model& model, const ReducedProgram& reduced, const PrimalDual& point,
                bool with_duals);

}  // namespace nlra
