// Rows for solving and for solutions.
#include "mirror/solve_calls.hpp"

namespace nalora {

namespace {

constexpr Parameter kInterrupt[] = {integer("reason")};

constexpr Parameter kGetmipsol[] = {optional(output("x", Conv::real, kColumns)),
                                    optional(output("slack", Conv::real, kRows))};

constexpr Parameter kAddmipsol[] = {input("mipsolval", Conv::real),
                                    optional(input("mipsolcol", Conv::col, same(0))),
                                    optional(text("solname"))};

void expect_all_columns(Call& call) {
    if (!call.given(1)) {
        call.expect(0, int_attribute(call.problem(), NLRA_ORIGINALCOLS));
    }
}

constexpr Method kSolutionMethods[] = {
    {.name = "lpoptimize",
     .parameters = kFlags,
     .doc = "Solve the problem without its integrality conditions; other Python threads wait.\n\n"
            "Arguments: flags, a str as for solve. Raises SolverError when it cannot be solved.",
     .call = [](Call& c) { return optimize(c, c.prob(), NLRAlpoptimize); }},
    {.name = "mipoptimize",
     .parameters = kFlags,
     .doc = "Solve the problem as a mixed integer problem; other Python threads wait.\n\n"
            "Arguments: flags, a str as for solve. Raises SolverError when it cannot be solved.",
     .call = [](Call& c) { return optimize(c, c.prob(), NLRAmipoptimize); }},
    {.name = "interrupt",
     .parameters = kInterrupt,
     .doc = "Ask the running solve to stop, from another thread or a callback.\n\n"
            "Arguments: reason, nalora.stop_... (an int), which the attribute 'stopstatus' then\n"
            "tells. Without a running solve nothing happens.",
     .call = [](Call& c) { return NLRAinterrupt(c.prob(), c.integer(0)); }},
    {.name = "getlpsol",
     .parameters = kSolutionArrays,
     .doc = "Read the solution of the last linear solve, or of the relaxation.\n\n"
            "Arguments, lists that are filled or None: x, the values of the columns; slack, the\n"
            "slacks of the rows; dual, the dual values of the rows; dj, the reduced costs of the\n"
            "columns. Without any of them nothing happens. Raises SolverError when there is no\n"
            "solution.",
     .call = [](Call& c) { return read_solution(c, c.prob(), NLRAgetlpsol); }},
    {.name = "getmipsol",
     .parameters = kGetmipsol,
     .doc =
         "Read the best solution of the last mixed integer solve.\n\n"
         "Arguments, lists that are filled or None: x, the values of the columns; slack, the\n"
         "slacks of the rows. Without any of them nothing happens. Raises SolverError when there\n"
         "is no solution.",
     .call =
         [](Call& c) {
             if (!c.given(0) && !c.given(1)) return 0;
             return NLRAgetmipsol(c.prob(), c.array<double>(0), c.array<double>(1));
         }},
    {.name = "addmipsol",
     .parameters = kAddmipsol,
     .doc =
         "Give a solution that the next mixed integer solve may start from.\n\n"
         "Arguments: mipsolval, a sequence of values; mipsolcol, the variables, column names or\n"
         "indices that they belong to (None: all columns in order); solname, a name (a str). The\n"
         "solver completes columns without a value. The latest 100 solutions are kept until they\n"
         "are used.\n\n"
         "Raises ModelError for sequences of unsuitable lengths, SolverError for values that the\n"
         "library refuses.",
     .call =
         [](Call& c) {
             return NLRAaddmipsol(c.prob(), c.count(0), c.array<double>(0), c.array<int>(1),
                                  c.given(2) ? c.text(2) : nullptr);
         },
     .missing = "Must provide argument mipsolval",
     .prepare = expect_all_columns},
};

}  // namespace

void append_solution_methods(std::vector<PyMethodDef>& definitions) {
    append_methods<kSolutionMethods>(definitions);
}

}  // namespace nalora
