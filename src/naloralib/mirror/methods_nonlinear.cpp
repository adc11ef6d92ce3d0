// Rows for nonlinear solves.
#include "mirror/method.hpp"
#include "module/state.hpp"
#include "problem/solving.hpp"
#include "problem/user_functions.hpp"

namespace nalora {

namespace {

constexpr Parameter kFlags[] = {optional(text("flags"))};

constexpr Parameter kGetslpsol[] = {
    optional(output("x", Conv::real, kColumns)), optional(output("slack", Conv::real, kRows)),
    optional(output("dual", Conv::real, kRows)), optional(output("dj", Conv::real, kColumns))};

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
constexpr std::size_t kColumn = 0, kInitialValue = 6;

// What concerns successive linear programming has no meaning for the interior point method.
void require_nonlinear(Call& call) { require_nonlinear_solver(call.problem()); }

void refuse_unknown_settings(Call& call) {
    require_nonlinear_solver(call.problem());
    if (!call.given(kColumn)) raise(interface_error(), "Must provide argument colindex");
    for (std::size_t i = 1; i < std::size(kChgvar); ++i) {
        if (i == kInitialValue || !call.given(i)) continue;
        raise(interface_error(),
              "chgvar() can set the initial value of a variable only, not its '%s'",
              kChgvar[i].name);
    }
}

constexpr Method kNonlinearMethods[] = {
    {.name = "nlpoptimize",
     .parameters = kFlags,
     .doc = "Solve the problem by the nonlinear solver, whether it has nonlinear formulas or not;\n"
            "other Python threads wait. Finds a local optimum, which is a global one where the\n"
            "problem is proven to be convex.\n\n"
            "Arguments: flags, a str; no letter has a meaning but 'g', which is accepted. Raises\n"
            "SolverError when the problem cannot be solved, as for integer variables, and what a\n"
            "user function raised.",
     .call =
         [](Call& c) {
             const SignalWatch watch(c.problem());
             check_library(NSLPnlpoptimize(c.problem()->nonlinear, c.text(0)),
                           as_object(c.problem()));
             return 0;
         },
     .prepare = require_nonlinear},
    {.name = "getslpsol",
     .parameters = kGetslpsol,
     .doc = "Read the solution of the last nonlinear solve.\n\n"
            "Arguments, lists that are filled or None: x, the values of the columns; slack, the\n"
            "slacks of the rows; dual, the dual values of the rows; dj, the reduced costs of the\n"
            "columns. Without any of them nothing happens. Raises SolverError when there is no\n"
            "solution.",
     .call =
         [](Call& c) {
             if (!c.given(0) && !c.given(1) && !c.given(2) && !c.given(3)) return 0;
             return NSLPgetslpsol(c.problem()->nonlinear, c.array<double>(0), c.array<double>(1),
                                  c.array<double>(2), c.array<double>(3));
         },
     .prepare = require_nonlinear},
    {.name = "chgvar",
     .parameters = kChgvar,
     .doc = "Set the initial value of a variable, where the next nonlinear solve begins.\n\n"
            "Arguments: colindex, a variable, its name or its index; initvalue, a float. Without\n"
            "one a solve begins at zero, or the bound next to it. Raises InterfaceError for the\n"
            "other arguments, which settings of other nonlinear methods have.",
     .call =
         [](Call& c) {
             if (!c.given(kInitialValue)) return 0;
             const int column = c.integer(kColumn);
             const double value = c.real(kInitialValue);
             return NSLPsetinitialvalues(c.problem()->nonlinear, 1, &column, &value);
         },
     .prepare = refuse_unknown_settings},
};

}  // namespace

void append_nonlinear_methods(std::vector<PyMethodDef>& definitions) {
    append_methods<kNonlinearMethods>(definitions);
}

}  // namespace nalora
