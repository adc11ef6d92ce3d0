// Values of nonlinear trees. For nonlinear/ only.
#pragma once

#include "nonlinear/evaluate.hpp"
#include "nonlinear/node.hpp"

namespace nalora {

// Raise RuntimeError when no level is left.
void require_depth(int depth);

// `depth` is the node's own budget; its arguments get one level less. The caller holds the node. In
// time that grows with the tree as it is stored, however often it shares its subtrees; user
// functions of subtrees that occur very often are not called for each of them.
double tree_value(const NonlinearObject* node, const EvaluationContext& context, int depth);

}  // namespace nalora
