// The controls themselves. Each one listed here is honoured by the engine; to add one, add a row,
// an identifier in params.hpp, and the place that reads it.
#include "nslp.h"
#include "params/params.hpp"

namespace nlra {
namespace {

constexpr double kIntMax = 2147483647.0;
constexpr double kInt64Max = 9223372036854775808.0;
constexpr double kInfinite = NLRA_PLUSINFINITY;

Param integer(int id, const char* name, double dflt, double low, double high,
              const char* description) {
    return {id, name, NLRA_TYPE_INT, dflt, low, high, nullptr, false, description};
}

Param integer64(int id, const char* name, double dflt, double low, double high,
                const char* description) {
    return {id, name, NLRA_TYPE_INT64, dflt, low, high, nullptr, false, description};
}

Param real(int id, const char* name, double dflt, double low, double high,
           const char* description) {
    return {id, name, NLRA_TYPE_DOUBLE, dflt, low, high, nullptr, false, description};
}

}  // namespace

const std::vector<Param>& control_table() {
    // Never destroyed: a problem may outlive the statics of this library.
    static const std::vector<Param>& table = *new std::vector<Param>{
        real(kTimeLimit, "timelimit", kInfinite, 0.0, kInfinite,
             "Seconds of elapsed time after which a solve stops; 1e+20 stands for no limit."),
        integer64(kNodeLimit, "nodelimit", kInt64Max, 0.0, kInt64Max,
                  "Nodes of the search tree after which a mixed integer solve stops."),
        integer(kIterLimit, "iterlimit", kIntMax, 0.0, kIntMax,
                "Iterations of the simplex or the interior point method after which a continuous "
                "solve stops."),
        integer(kSolLimit, "sollimit", kIntMax, 1.0, kIntMax,
                "Improving solutions after which a mixed integer solve stops."),
        real(kRelGap, "relgap", 1e-4, 0.0, kInfinite,
             "A mixed integer solve ends as optimal when the gap between solution and bound, "
             "relative to the solution, is at most this."),
        real(kAbsGap, "absgap", 1e-6, 0.0, kInfinite,
             "A mixed integer solve ends as optimal when the gap between solution and bound is at "
             "most this."),
        real(kCutoff, "cutoff", kInfinite, -kInfinite, kInfinite,
             "A mixed integer solve looks only for solutions with a better objective value; "
             "1e+20 in magnitude stands for no cutoff."),
        real(kHeurEffort, "heureffort", 0.05, 0.0, 1.0,
             "Share of a mixed integer solve's effort that goes into primal heuristics."),
        real(kFeasTol, "feastol", 1e-7, 1e-10, 1e-2,
             "Amount by which rows and bounds may be violated."),
        real(kOptTol, "opttol", 1e-7, 1e-10, 1e-2,
             "Amount by which reduced costs may have the wrong sign in an optimal solution."),
        real(kMipTol, "miptol", 5e-6, 1e-10, 1e-1,
             "Distance from the nearest integer at which a value counts as integral."),
        integer(kThreads, "threads", 0.0, 0.0, 1024.0,
                "Threads that a solve may use; 0 leaves the number to the optimizer."),
        integer(kPresolve, "presolve", 1.0, 0.0, 1.0,
                "Reduce the problem before solving it: 0 no, 1 where that can pay."),
        integer(kSeed, "seed", 0.0, 0.0, kIntMax,
                "Seed of the random choices; another one gives another path to the solution."),
        integer(kLpMethod, "lpmethod", 0.0, 0.0, 3.0,
                "Method for linear problems: 0 automatic, 1 dual simplex, 2 primal simplex, "
                "3 interior point."),
        integer(kCrossover, "crossover", 1.0, 0.0, 1.0,
                "Turn an interior point solution into a basic one: 0 no, 1 yes."),
        integer(kLogLevel, "loglevel", 1.0, 0.0, 2.0,
                "Amount of log lines: 0 none, 1 normal, 2 detailed."),
    };
    return table;
}

const std::vector<Param>& nonlinear_control_table() {
    static const std::vector<Param>& table = *new std::vector<Param>{
        integer(kNslpPostsolve, "nslp_postsolve", 0.0, 0.0, 1.0,
                "Put the problem back into its original, unpresolved form after a nonlinear "
                "solve: 0 no, 1 yes. At present it never leaves that form."),
        integer(NSLP_THREADS, "nslp_threads", 0.0, 0.0, 1024.0,
                "The most threads that may evaluate nonlinear functions; 0 leaves the number to "
                "the solver, which uses one at present."),
    };
    return table;
}

const std::vector<Param>& interior_control_table() {
    static const std::vector<Param>& table = *new std::vector<Param>{
        real(kInteriorTolerance, "interior_tolerance", 0.0, 0.0, 1e-2,
             "Error of the scaled optimality conditions at which the interior point method ends; "
             "0 stands for a tenth of the control opttol, at most 1e-8. The result is checked "
             "against opttol and feastol whatever this is."),
        integer(kInteriorMaxIter, "interior_maxiterations", 3000.0, 0.0, kIntMax,
                "Iterations after which an attempt of the interior point method ends and another "
                "one, with other settings, begins; the control iterlimit ends the solve."),
        integer(kInteriorAdaptive, "interior_adaptivebarrier", 0.0, 0.0, 1.0,
                "How the first attempt of the interior point method lowers the barrier parameter: "
                "0 step by step, 1 newly chosen in every iteration. The second attempt changes "
                "it."),
        real(kInteriorBarrier, "interior_barrier", 0.0, 0.0, 1e10,
             "Barrier parameter at the start of the interior point method; 0 leaves it to the "
             "method. Small values suit starting points near a solution."),
        integer(kInteriorApproximate, "interior_approximatehessian", 0.0, 0.0, 1.0,
                "Second derivatives in the interior point method: 0 exact, 1 approximated from "
                "changes of the gradients, which takes more but cheaper iterations."),
        integer(kInteriorScaling, "interior_scaling", 1.0, 0.0, 1.0,
                "Scale objective and rows by their gradients at the start: 0 no, 1 yes, save in "
                "the last attempt."),
        real(kInteriorRelaxation, "interior_boundrelaxation", 1e-10, 0.0, 1e-2,
             "Relative amount by which the interior point method widens bounds and sides of rows "
             "in its iterations; bounds of columns hold in the result all the same."),
        real(kInteriorPush, "interior_boundpush", 1e-2, 1e-12, 1.0,
             "Relative distance from its bounds to which the starting point is moved by the "
             "interior point method."),
        integer(kInteriorPivotOrder, "interior_pivotorder", 0.0, 0.0, 3.0,
                "Order of the pivots in the interior point method's linear systems: 0 by their "
                "size, 1 approximate minimum degree, 2 approximate minimum fill, 3 minimum degree "
                "with quasi-dense rows."),
    };
    return table;
}

}  // namespace nlra
