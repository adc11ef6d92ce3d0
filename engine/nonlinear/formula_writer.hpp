// From nodes of the graph back to tokens.
#pragma once

#include <vector>

#include "nonlinear/formula_roots.hpp"
#include "store/formulas.hpp"

namespace nlra {

// Tokens (without an end token) of constant + linear + quadratic + rest, which parse to the same
// function, up to rounding. `columns` names columns that stand in the place of nodes: by node, -1
// for those that are written out; nodes beyond its end are.
Coefficient write_formula(const Graph& graph, const RootParts& parts,
                          const std::vector<int>& columns = {});

}  // namespace nlra
