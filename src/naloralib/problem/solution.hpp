// Reading values of a solution by object, name or index. For problem/ only.
#pragma once

#include <span>

#include "problem/problem.hpp"

namespace nalora {

// `names` as the interpreter passes keyword names: null or a tuple; their values follow the
// positional arguments.
Ref get_solution(ProblemObject* p, std::span<PyObject* const> args, PyObject* names);
Ref get_dual(ProblemObject* p, std::span<PyObject* const> args);
Ref get_slack(ProblemObject* p, std::span<PyObject* const> args);
Ref get_reduced_cost(ProblemObject* p, std::span<PyObject* const> args);

}  // namespace nalora
