// Building blocks of nodes, without checks of the arguments. For nonlinear/ only.
#pragma once

#include "nonlinear/node.hpp"
#include "support/free_list.hpp"

namespace nalora {

using NodeObjects = FreeList<NonlinearObject, NonlinearType>;

// `second` is null for a node of one argument.
Ref few_node(Op op, PyObject* first, PyObject* second);
Ref logged_node(Op op, ArgumentLog log, Ref number);

// The arguments but for the number, for a node that is to have one more of them, or those of a
// further node.
ArgumentLog log_to_extend(const NonlinearObject* node, PyObject* added);
// The same for a node that gets no more arguments.
ArgumentLog argument_log(const NonlinearObject* node);

}  // namespace nalora
