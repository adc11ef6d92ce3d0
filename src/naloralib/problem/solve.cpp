// solve, and the statuses that it leaves.
#include <cstring>
#include <string>

#include "module/state.hpp"
#include "problem/solution.hpp"
#include "problem/solving.hpp"
#include "support/gil.hpp"

namespace nalora {

namespace {

// Handlers of the interpreter run between its instructions, of which a solve executes none, so
// they are given the chance here. Often enough for a person, too rarely to cost anything.
constexpr std::chrono::milliseconds kSignalInterval{50};

}  // namespace

ProblemHold::ProblemHold(ProblemObject* p) : prob_(p->prob) {
    check_library(NLRAhold(prob_), as_object(p));
}

ProblemHold::~ProblemHold() { NLRArelease(prob_); }

SignalWatch::SignalWatch(ProblemObject* p) : hold_(p), next_check_(Clock::now() + kSignalInterval) {
    check_library(NLRAaddcbchecktime(hold_.prob(), check, this, 0), as_object(p));
}

// Neither this nor the end of the hold can fail: both go without a library that is stopped, and
// nobody else has the problem.
SignalWatch::~SignalWatch() { NLRAremovecbchecktime(hold_.prob(), check, this); }

int SignalWatch::check(NLRAprob prob, void* data) noexcept {
    auto* watch = static_cast<SignalWatch*>(data);
    const Clock::time_point now = Clock::now();
    if (now < watch->next_check_) return 0;
    watch->next_check_ = now + kSignalInterval;
    if (interpreter_is_finalizing()) return 0;
    const GilHeld gil;
    if (PyErr_Occurred() != nullptr) return 1;  // of another callback: it waits for the solve's end
    if (PyErr_CheckSignals() == 0) return 0;
    NLRAinterrupt(prob, pending_stop_reason());
    return 1;
}

namespace {

Ref solve(PyObject* self, PyObject* args, PyObject* keywords) {
    ProblemObject* p = as_problem(self);
    static const char* names[] = {"flags", nullptr};
    PyObject* flags = nullptr;
    if (!PyArg_ParseTupleAndKeywords(args, keywords, "|O", const_cast<char**>(names), &flags)) {
        throw PythonError();
    }
    const bool mixed_integer = is_mixed_integer(p);
    const char* text = "";
    Py_ssize_t length = 0;
    if (flags != nullptr) {
        if (PyUnicode_Check(flags)) {
            text = PyUnicode_AsUTF8AndSize(flags, &length);
            if (text == nullptr) throw PythonError();
        } else if (PyBytes_Check(flags)) {
            text = PyBytes_AS_STRING(flags);
            length = PyBytes_GET_SIZE(flags);
        } else {
            raise(interface_error(), "The optional 'flags' parameter should be a string");
        }
        if (std::strlen(text) != static_cast<std::size_t>(length)) {
            raise(PyExc_ValueError, "embedded null character");
        }
    }
    const bool nonlinear = is_nonlinear(p);
    std::string nonlinear_flags(text);
    if (nonlinear && mixed_integer && nonlinear_flags.find('g') == std::string::npos) {
        constexpr std::size_t kMostFlags = 511;
        if (nonlinear_flags.size() >= kMostFlags) {
            raise(solver_error(),
                  "Problem is mixed integer but the flag string is full; cannot add 'g' to the "
                  "flags");
        }
        nonlinear_flags += 'g';
    }
    const SignalWatch watch(p);
    int status;
    {
        const GilReleased released;
        status = nonlinear       ? NSLPnlpoptimize(p->nonlinear, nonlinear_flags.c_str())
                 : mixed_integer ? NLRAmipoptimize(p->prob, text)
                                 : NLRAlpoptimize(p->prob, text);
    }
    // Errors are read before the watch ends, which is a library call too.
    if (status == NLRA_ERROR_NONCONVEX && PyErr_Occurred() == nullptr) {
        raise(solver_error(),
              "The problem was determined to be nonconvex, and the optimizer cannot solve it. Call "
              "nlpoptimize() to find a solution using SLP");
    }
    check_library(status, self);
    return none();
}

int32_t status_of(ProblemObject* p) {
    if (is_nonlinear(p)) {
        int status = 0;
        check_library(NSLPgetintattrib(p->nonlinear, NSLP_STATUS, &status), as_object(p));
        return status;
    }
    return int_attribute(p, is_mixed_integer(p) ? NLRA_MIPSTATUS : NLRA_LPSTATUS);
}

struct StatusNames {
    const char* names[9];
    const char* unknown;
};
constexpr StatusNames kLpStatus = {
    {"lp_unstarted", "lp_optimal", "lp_infeas", "lp_cutoff", "lp_unfinished", "lp_unbounded",
     "lp_cutoff_in_dual", "lp_unsolved", "lp_nonconvex"},
    "lp_unknown"};
constexpr StatusNames kMipStatus = {
    {"mip_not_loaded", "mip_lp_not_optimal", "mip_lp_optimal", "mip_no_sol_found", "mip_solution",
     "mip_infeas", "mip_optimal", "mip_unbounded", "mip_unknown"},
    "mip_unknown"};
constexpr StatusNames kNlpStatus = {
    {"nlp_unstarted", "nlp_solution", "nlp_globally_optimal", "nlp_locally_infeasible",
     "nlp_infeasible", "nlp_unbounded", "nlp_unfinished", "nlp_unknown", "nlp_unknown"},
    "nlp_unknown"};

Ref get_status(PyObject* self) { return take(PyLong_FromLong(status_of(as_problem(self)))); }

Ref get_status_string(PyObject* self) {
    ProblemObject* p = as_problem(self);
    const int32_t status = status_of(p);
    const StatusNames& table =
        is_nonlinear(p) ? kNlpStatus : (is_mixed_integer(p) ? kMipStatus : kLpStatus);
    return take(
        PyUnicode_FromString(status >= 0 && status <= 8 ? table.names[status] : table.unknown));
}

Ref get_objective_value(PyObject* self) {
    ProblemObject* p = as_problem(self);
    double value = 0.0;
    if (is_nonlinear(p)) {
        check_library(NSLPgetdblattrib(p->nonlinear, NSLP_OBJVAL, &value), as_object(p));
    } else {
        const int id = is_mixed_integer(p) ? NLRA_MIPOBJVAL : NLRA_LPOBJVAL;
        check_library(NLRAgetdblattrib(p->prob, id, &value), as_object(p));
    }
    return take(PyFloat_FromDouble(value));
}

template <Ref (*Body)(PyObject*)>
PyObject* plain(PyObject* self, PyObject*) noexcept {
    return guarded([&] {
        require_initialised(as_problem(self));
        return Body(self);
    });
}

PyObject* solve_method(PyObject* self, PyObject* args, PyObject* keywords) noexcept {
    return guarded([&] {
        require_initialised(as_problem(self));
        return solve(self, args, keywords);
    });
}

template <Ref (*Body)(ProblemObject*, std::span<PyObject* const>)>
PyObject* positional(PyObject* self, PyObject* const* args, Py_ssize_t count) noexcept {
    return guarded([&] {
        require_initialised(as_problem(self));
        return Body(as_problem(self), {args, static_cast<std::size_t>(count)});
    });
}

PyObject* get_solution_method(PyObject* self, PyObject* const* args, Py_ssize_t count,
                              PyObject* names) noexcept {
    return guarded([&] {
        require_initialised(as_problem(self));
        return get_solution(as_problem(self), {args, static_cast<std::size_t>(count)}, names);
    });
}

template <class Function>
PyCFunction method(Function* function) noexcept {
    return reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(function));
}

const PyMethodDef kMethods[] = {
    {"solve", method(solve_method), METH_VARARGS | METH_KEYWORDS,
     "solve($self, /, flags='')\n--\n\n"
     "Solve the problem: by the nonlinear solver when it has nonlinear formulas, otherwise as a\n"
     "mixed integer problem when it has such entities, otherwise as a continuous one. Other "
     "Python\n"
     "threads run meanwhile.\n\n"
     "Arguments: flags, a str of letters: 'd' dual simplex, 'p' primal simplex, 'b' interior\n"
     "point; 'l' solve only the relaxation of a mixed integer problem (getlpsol reads it). A\n"
     "letter that this kind of problem has no use for is ignored.\n\n"
     "Whatever the outcome (optimal, infeasible, stopped by a limit) the method returns; see\n"
     "getProbStatus. Raises InterfaceError for flags that are no string, SolverError when the\n"
     "problem cannot be solved at all (nonconvex, no suitable solver), and whatever a callback or\n"
     "Ctrl-C raised meanwhile; the best solution found until then can be read."},
    {"getProbStatus", plain<get_status>, METH_NOARGS,
     "getProbStatus($self, /)\n--\n\n"
     "Status of the last solve as an int: nalora.lp_... for a continuous problem, nalora.mip_...\n"
     "for a mixed integer one, nalora.nlp_... for one with nonlinear formulas."},
    {"getProbStatusString", plain<get_status_string>, METH_NOARGS,
     "getProbStatusString($self, /)\n--\n\n"
     "Status of the last solve as a str, for instance 'lp_optimal'."},
    {"getObjVal", plain<get_objective_value>, METH_NOARGS,
     "getObjVal($self, /)\n--\n\n"
     "Objective value of the last solve (a float), the objective's constant included; NaN where\n"
     "there is no solution."},
    {"getSolution", method(get_solution_method), METH_FASTCALL | METH_KEYWORDS,
     "getSolution($self, /, *args, flatten=False)\n--\n\n"
     "Values in the solution.\n\n"
     "Without arguments a list with the value of every column. With one argument its value: of a\n"
     "variable, an expression, a column index (int) or a column name (str), or of a structure of\n"
     "them (tuple, list, dictionary, NumPy array), which comes back in the same shape with floats\n"
     "in place of the objects. Several arguments give a tuple of such results. With flatten=True "
     "a\n"
     "flat list of the values of the variables, indices and names in all arguments.\n\n"
     "Raises SolverError when there is no solution, ModelError for objects that do not belong to\n"
     "the problem, InterfaceError for indices out of range."},
    {"getDual", method(positional<get_dual>), METH_FASTCALL,
     "getDual($self, /, *args)\n--\n\n"
     "Dual values: by how much the objective changes per unit of a constraint's right-hand "
     "side.\n\n"
     "Without arguments a list of all; with one constraint, row index (int) or row name (str) a\n"
     "float; otherwise a flat list for the rows in the (nested) arguments.\n\n"
     "Raises SolverError for mixed integer problems and when there is no solution."},
    {"getSlack", method(positional<get_slack>), METH_FASTCALL,
     "getSlack($self, /, *args)\n--\n\n"
     "Slacks: right-hand side minus value of a constraint's body.\n\n"
     "Arguments and result as for getDual. Raises SolverError when there is no solution."},
    {"getRCost", method(positional<get_reduced_cost>), METH_FASTCALL,
     "getRCost($self, /, *args)\n--\n\n"
     "Reduced costs: by how much the objective changes per unit of a variable at its bound.\n\n"
     "Without arguments a list of all; with one variable, column index (int) or column name (str)\n"
     "a float; otherwise a flat list for the columns in the (nested) arguments.\n\n"
     "Raises SolverError for mixed integer problems and when there is no solution."},
};

}  // namespace

std::span<const PyMethodDef> problem_solve_methods() { return kMethods; }

}  // namespace nalora
