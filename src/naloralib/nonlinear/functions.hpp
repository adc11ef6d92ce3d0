// The functions of one argument.
#pragma once

#include "nonlinear/node.hpp"

namespace nalora {

// One of the module's functions of one argument: a float for a number, otherwise a node. ModelError
// for what is neither a number nor a modeling object, ValueError and OverflowError for numbers
// without a value.
Ref apply_unary(Op op, PyObject* x);

}  // namespace nalora
