// A tree as the sum of what a matrix can hold and of what only a formula can. For the formula files
// and those that load them.
#pragma once

#include <vector>

#include "model/objects.hpp"

namespace nalora {

struct FormulaTerm {
    double factor;
    PyObject* object;  // borrowed from the tree
};

struct TreeParts {
    Ref polynomial;                   // an expression: constant, linear and quadratic terms
    std::vector<FormulaTerm> others;  // in the order of the tree
};

// Sums, differences, and products and quotients with numbers are taken apart. The polynomial is
// empty where a coefficient would be beyond what a matrix holds. ModelError as append_formula().
TreeParts split_tree(PyObject* object);

}  // namespace nalora
