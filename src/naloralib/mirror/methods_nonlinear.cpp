// Rows for nonlinear solves, and for what formulas give at a point.
#include <algorithm>

#include "mirror/solve_calls.hpp"
#include "module/state.hpp"
#include "problem/user_functions.hpp"

namespace nalora {

namespace {

constexpr Parameter kGetvar[] = {index("colindex", Conv::col)};

constexpr Parameter kChgvar[] = {optional(index("colindex", Conv::col)),
                                 optional(integer("detrow")),
                                 optional(real("initstepbound")),
                                 optional(real("stepbound")),
                                 optional(real("penalty")),
                                 optional(real("damp")),
                                 optional(real("initvalue")),
                                 optional(real("value")),
                                 optional(integer("tolset")),
                                 optional(integer("history")),
                                 optional(integer("converged")),
                                 optional(integer("vartype"))};
constexpr std::size_t kColumn = 0, kInitialValue = 6, kValue = 7;

constexpr Parameter kEvaluateformula[] = {integer("parsed"), input("type", Conv::integer),
                                          input("value", Conv::real, same(1))};
constexpr std::size_t kTokenTypes = 1, kTokenValues = 2;

constexpr Parameter kEvaluatecoef[] = {index("rowindex", Conv::row), index("colindex", Conv::col)};

constexpr Parameter kValidatevector[] = {input("vector", Conv::real, kColumns)};

NSLPprob nonlinear(const Call& call) { return call.problem()->nonlinear; }

void require_nonlinear(Call& call) { require_nonlinear_solver(call.problem()); }

void require_column(Call& call) {
    require_nonlinear_solver(call.problem());
    if (!call.given(kColumn)) raise(interface_error(), "Must provide argument colindex");
}

// The interior point method has no use for settings of successive linear programming: these keep
// the values that getvar() tells.
int change_variable(Call& call) {
    NSLPvarinfo now;
    const int column = call.integer(kColumn);
    const int status = NSLPgetvar(nonlinear(call), column, &now);
    if (status != 0) return status;
    const double fixed[] = {0.0,
                            static_cast<double>(now.detrow),
                            now.initstepbound,
                            now.stepbound,
                            now.penalty,
                            now.damp,
                            0.0,
                            0.0,
                            static_cast<double>(now.tolset),
                            static_cast<double>(now.history),
                            static_cast<double>(now.converged),
                            static_cast<double>(now.vartype)};
    static_assert(std::size(fixed) == std::size(kChgvar));
    for (std::size_t i = 1; i < std::size(kChgvar); ++i) {
        if (i == kInitialValue || i == kValue || !call.given(i)) continue;
        const double wanted = kChgvar[i].role == Role::integer ? call.integer(i) : call.real(i);
        if (wanted == fixed[i]) continue;
        raise(interface_error(),
              "chgvar() can set the initial value and the value of a variable only, not its '%s'",
              kChgvar[i].name);
    }
    const double initial = call.real(kInitialValue), value = call.real(kValue);
    return NSLPchgvar(nonlinear(call), column, call.given(kInitialValue) ? &initial : nullptr,
                      call.given(kValue) ? &value : nullptr);
}

Ref get_variable(Call& call) {
    require_nonlinear(call);
    call.convert();
    NSLPvarinfo v;
    check_library(NSLPgetvar(nonlinear(call), call.integer(0), &v), as_object(call.problem()));
    return take(Py_BuildValue("(iddddddiiiiiiid)", v.detrow, v.initstepbound, v.stepbound,
                              v.penalty, v.damp, v.initvalue, v.value, v.tolset, v.history,
                              v.converged, v.vartype, v.started, v.fixed, v.atbound, v.dj));
}

// The library is not told how long the arrays are.
int evaluate_formula(Call& call) {
    const int* const types = call.array<int>(kTokenTypes);
    const int64_t count = types != nullptr ? call.length(kTokenTypes) : 0;
    if (std::find(types, types + count, NSLP_TOKEN_END) == types + count) {
        raise(interface_error(), "The formula has no token of type %d, which ends it",
              NSLP_TOKEN_END);
    }
    return NSLPevaluateformula(nonlinear(call), call.integer(0), types,
                               call.array<double>(kTokenValues), &call.real_result);
}

int evaluate_coefficient(Call& call) {
    return NSLPevaluatecoef(nonlinear(call), call.integer(0), call.integer(1), &call.real_result);
}

Ref validate_vector(Call& call) {
    require_nonlinear(call);
    call.convert();
    // Converting the values may have run code that added columns.
    const int columns = int_attribute(call.problem(), NLRA_ORIGINALCOLS);
    if (call.given(0) && call.length(0) < columns) {
        raise(model_error(), "Mismatched lengths in arguments: expected %d, found %lld", columns,
              static_cast<long long>(call.length(0)));
    }
    double sum, largest, objective;
    check_library(
        NSLPvalidatevector(nonlinear(call), call.array<double>(0), &sum, &largest, &objective),
        as_object(call.problem()));
    return take(Py_BuildValue("(ddd)", sum, largest, objective));
}

constexpr Method kNonlinearMethods[] = {
    {.name = "nlpoptimize",
     .parameters = kFlags,
     .doc =
         "Solve the problem by the nonlinear solver, whether it has nonlinear formulas or not;\n"
         "other Python threads wait. Piecewise linear formulas are reformulated, convex problems\n"
         "with integer variables solved by outer approximation, both to a global optimum; of\n"
         "others a local optimum is found, by an interior point method, which is a global one\n"
         "where the problem is proven to be convex. It begins where the last solve ended, or at\n"
         "the initial values if any have been set since then (see chgvar()); where nothing has "
         "changed\n"
         "the solution is only checked. A problem without formulas has the status lp_optimal or\n"
         "mip_optimal after it where the optimum is proven, otherwise it counts as unfinished.\n\n"
         "Arguments: flags, a str; none of the letters that solve knows has a meaning here. "
         "Raises\n"
         "SolverError when the problem cannot be solved, as with integer variables where it is\n"
         "not convex, and what a user function raised.",
     .call = [](Call& c) { return optimize(c, nonlinear(c), NSLPnlpoptimize); },
     .prepare = require_nonlinear},
    {.name = "getslpsol",
     .parameters = kSolutionArrays,
     .doc = "Read the solution of the last nonlinear solve.\n\n"
            "Arguments, lists that are filled or None: x, the values of the columns; slack, the\n"
            "slacks of the rows; dual, the dual values of the rows; dj, the reduced costs of the\n"
            "columns. Without any of them nothing happens. Raises SolverError when there is no\n"
            "solution.",
     .call = [](Call& c) { return read_solution(c, nonlinear(c), NSLPgetslpsol); },
     .prepare = require_nonlinear},
    {.name = "getvar",
     .parameters = kGetvar,
     .doc = "Return what the nonlinear solver knows about a variable, a tuple of 15 numbers.\n\n"
            "In the order of chgvar()'s arguments: detrow, initstepbound, stepbound, penalty,\n"
            "damp (-1, 1e20, 1e20, 0, 1: the solver has no row that determines the variable and\n"
            "takes steps of any length), initvalue (0 if none was given), value (at the present\n"
            "point, see evaluateformula()), tolset, history (0: unused), converged (1 after a\n"
            "solve that ended with a solution) and vartype (0 for a continuous variable, else 1).\n"
            "Then: 1 if an initial value was given; 1 if the bounds are equal; -1, 0 or 1 for a\n"
            "value at the lower bound, between or at the upper bound; the reduced cost in the\n"
            "last nonlinear solution (0 without one).\n\n"
            "Arguments: colindex, a variable, its name or its index. Raises ModelError for a\n"
            "variable that is not in the problem, SolverError for an index out of range.",
     .call = nullptr,
     .adapter = get_variable},
    {.name = "chgvar",
     .parameters = kChgvar,
     .doc = "Set the initial value of a variable, where the next nonlinear solve begins, or its\n"
            "value at the present point (see evaluateformula()).\n\n"
            "Arguments: colindex, a variable, its name or its index; initvalue, a float: without\n"
            "one a solve begins at zero, or the bound next to it; value, a float. None stands for\n"
            "no change. The other arguments are settings of other nonlinear methods: they take\n"
            "the value that getvar() tells and raise InterfaceError for others. Raises\n"
            "SolverError for values that are not finite.",
     .call = change_variable,
     .prepare = require_column},
    {.name = "evaluateformula",
     .parameters = kEvaluateformula,
     .doc = "Return the value of a formula, a float, at the present point: the solution of the\n"
            "last nonlinear solve or, without one and after changes of the problem, the initial\n"
            "values (where there are none, zeros or the bounds next to them); values that\n"
            "chgvar() set go before both.\n\n"
            "Arguments: parsed, 1: the formula is in postfix order; type, a sequence of int, the\n"
            "types of its tokens, and value, a sequence of float, their values, both as the\n"
            "library wants them and of one length; the token of type 0 ends the formula. Raises\n"
            "InterfaceError without that token, ModelError for unequal lengths, SolverError for\n"
            "tokens that are no formula and for one that is not defined at the point.",
     .call = evaluate_formula,
     .result = real_result,
     .prepare = require_nonlinear},
    {.name = "evaluatecoef",
     .parameters = kEvaluatecoef,
     .doc = "Return the value, a float, of the formulas that stand before a variable in a\n"
            "constraint, at the present point (see evaluateformula()): the sum of each factor\n"
            "times its formula.\n\n"
            "Arguments: rowindex, a constraint, its name or its index, or -1 for the objective;\n"
            "colindex, a variable, its name or its index, or -1 for formulas that are added\n"
            "without one. Raises SolverError when there is no such formula, or when it is not\n"
            "defined at the point.",
     .call = evaluate_coefficient,
     .result = real_result,
     .prepare = require_nonlinear},
    {.name = "validate",
     .parameters = {},
     .doc = "Compute anew by how much the solution of the last nonlinear solve violates\n"
            "constraints, bounds, integrality and sets, and print it as the solver's messages\n"
            "are: the largest absolute violation and where it is, the largest one relative to the\n"
            "side that is missed, the sum. Raises SolverError when there is no solution.",
     .call = [](Call& c) { return NSLPvalidate(nonlinear(c)); },
     .prepare = require_nonlinear},
    {.name = "validatevector",
     .parameters = kValidatevector,
     .doc = "Return by how much a point violates the problem's constraints, bounds, integrality\n"
            "and sets, a tuple of three float: the sum of all absolute violations, the largest\n"
            "one, and the value of the objective.\n\n"
            "Arguments: vector, a sequence of float, one for each column. Raises ModelError for\n"
            "another length, SolverError for values that are not finite, or where a formula is\n"
            "not defined.",
     .call = nullptr,
     .adapter = validate_vector},
};

}  // namespace

void append_nonlinear_methods(std::vector<PyMethodDef>& definitions) {
    append_methods<kNonlinearMethods>(definitions);
}

}  // namespace nalora
