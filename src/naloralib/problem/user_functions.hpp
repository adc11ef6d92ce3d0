// Python callables as functions of nonlinear formulas.
#pragma once

#include <cstddef>

#include "nonlinear/formula.hpp"
#include "problem/problem.hpp"

namespace nalora {

// Raise SolverError when the problem has no nonlinear solver.
void require_nonlinear_solver(ProblemObject* p);

// The types of tokens as the library takes them.
inline const int* types_of(const FormulaTokens& tokens) noexcept {
    static_assert(sizeof(int) == sizeof(uint32_t));
    return reinterpret_cast<const int*>(tokens.types.data());
}

// Make a callable known to the nonlinear solver for formulas with so many arguments. The problem
// keeps it alive. Returns the index by which formulas name it.
int32_t register_user_function(ProblemObject* p, PyObject* callable, bool derivatives,
                               std::size_t arguments);

}  // namespace nalora
