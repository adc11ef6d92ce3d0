// Formulas of a problem, and Python callables as functions in them.
#pragma once

#include <map>
#include <tuple>
#include <vector>

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

// Let go of the callables that no formula of the problem calls any more; to be called when one may
// have gone.
void release_unused_functions(ProblemObject* p) noexcept;

// The callables in formulas on their way into a problem. What the problem does not call when this
// ends is let go.
class FunctionCollector {
  public:
    explicit FunctionCollector(ProblemObject* p) noexcept : problem_(p) {}
    ~FunctionCollector() { release_unused_functions(problem_); }
    FunctionCollector(const FunctionCollector&) = delete;
    FunctionCollector& operator=(const FunctionCollector&) = delete;

    // Append the formula of a row or of the objective and return the rest of it; see
    // append_nonlinear_part(). It names callables by their positions in here.
    Ref collect(FormulaTokens& tokens, PyObject* object);
    // The callables become known to the nonlinear solver, the problem keeps them alive, and the
    // tokens, those of all formulas that were collected, name them by the solver's indices.
    void load(FormulaTokens& tokens) const;

  private:
    struct Function {
        Ref callable;
        bool derivatives;
        std::size_t arguments;
    };

    int32_t position_of(PyObject* callable, bool derivatives, std::size_t arguments);
    int add_to_library(const Function& function) const;

    ProblemObject* problem_;
    std::vector<Function> functions_;
    std::map<std::tuple<PyObject*, bool, std::size_t>, int32_t> positions_;
};

}  // namespace nalora
