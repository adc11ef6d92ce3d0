// Formulas of a problem, and Python callables as functions in them.
#pragma once

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

// Append the formula of a row or of the objective and return the rest of it; see
// append_nonlinear_part(). The callables in it become known to the nonlinear solver, and the
// problem keeps them alive.
Ref collect_formula(ProblemObject* p, FormulaTokens& tokens, PyObject* object);

}  // namespace nalora
