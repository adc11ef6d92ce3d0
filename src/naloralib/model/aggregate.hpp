// Walking over what Sum, Prod and Dot fold.
#pragma once

#include "support/function_ref.hpp"
#include "support/ref.hpp"

namespace nalora {

// Hands the elements of a function's positional arguments to `visit`, in order: the items of the
// only argument if there is one (a tuple, list, NumPy array in memory order, other sequence,
// iterator or dictionary, of which the values count; or a single object), otherwise the arguments
// themselves. Elements are borrowed for the call and live as long as it, whatever user code does to
// their container. None is left out; `last` tells an element without a successor. The first
// exception ends the walk.
//
// ModelError for a single object that is neither a modeling object nor a number, and for arrays of
// an element type that is neither an object nor double, C int or bool.
void for_each_element(PyObject* args, FunctionRef<void(PyObject* element, bool last)> visit);

}  // namespace nalora
