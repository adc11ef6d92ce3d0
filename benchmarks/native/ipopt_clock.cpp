// A clock between the engine and Ipopt: loaded before both (LD_PRELOAD), it takes the place of the
// calls that the engine makes, passes them on, and counts the time in Ipopt and in the functions
// that Ipopt calls. For one solving thread.
#include <dlfcn.h>
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "IpStdCInterface.h"

namespace {

double now() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

struct Stopwatch {
    double& total;
    double start = now();
    ~Stopwatch() { total += now() - start; }
};

double in_ipopt = 0;      // the evaluations included
double in_functions = 0;  // values of objective and rows
double in_derivatives = 0;

struct {
    Eval_F_CB objective;
    Eval_G_CB rows;
    Eval_Grad_F_CB gradient;
    Eval_Jac_G_CB jacobian;
    Eval_H_CB hessian;
} engine;

Bool objective(ipindex n, ipnumber* x, Bool new_x, ipnumber* value, UserDataPtr data) {
    const Stopwatch stopwatch{in_functions};
    return engine.objective(n, x, new_x, value, data);
}

Bool rows(ipindex n, ipnumber* x, Bool new_x, ipindex m, ipnumber* values, UserDataPtr data) {
    const Stopwatch stopwatch{in_functions};
    return engine.rows(n, x, new_x, m, values, data);
}

Bool gradient(ipindex n, ipnumber* x, Bool new_x, ipnumber* values, UserDataPtr data) {
    const Stopwatch stopwatch{in_derivatives};
    return engine.gradient(n, x, new_x, values, data);
}

Bool jacobian(ipindex n, ipnumber* x, Bool new_x, ipindex m, ipindex entries, ipindex* row,
              ipindex* col, ipnumber* values, UserDataPtr data) {
    const Stopwatch stopwatch{in_derivatives};
    return engine.jacobian(n, x, new_x, m, entries, row, col, values, data);
}

Bool hessian(ipindex n, ipnumber* x, Bool new_x, ipnumber factor, ipindex m, ipnumber* weights,
             Bool new_weights, ipindex entries, ipindex* row, ipindex* col, ipnumber* values,
             UserDataPtr data) {
    const Stopwatch stopwatch{in_derivatives};
    return engine.hessian(n, x, new_x, factor, m, weights, new_weights, entries, row, col, values,
                          data);
}

// The function of the copy that the engine has loaded.
template <class Function>
Function* real(const char* name) {
    void* library = dlopen("libnlra_ipopt.so", RTLD_NOW | RTLD_NOLOAD);
    void* found = library == nullptr ? nullptr : dlsym(library, name);
    if (found == nullptr) {
        std::fprintf(stderr, "%s is not where the engine had it\n", name);
        std::abort();
    }
    Function* function = nullptr;
    std::memcpy(&function, &found, sizeof found);
    return function;
}

}  // namespace

extern "C" {

IpoptProblem CreateIpoptProblem(ipindex n, ipnumber* x_lower, ipnumber* x_upper, ipindex m,
                                ipnumber* row_lower, ipnumber* row_upper, ipindex jacobian_entries,
                                ipindex hessian_entries, ipindex index_style, Eval_F_CB eval_f,
                                Eval_G_CB eval_g, Eval_Grad_F_CB eval_grad_f,
                                Eval_Jac_G_CB eval_jac_g, Eval_H_CB eval_h) {
    static auto* const create = real<decltype(CreateIpoptProblem)>("CreateIpoptProblem");
    const Stopwatch stopwatch{in_ipopt};
    engine = {eval_f, eval_g, eval_grad_f, eval_jac_g, eval_h};
    return create(n, x_lower, x_upper, m, row_lower, row_upper, jacobian_entries, hessian_entries,
                  index_style, objective, rows, gradient, jacobian, hessian);
}

enum ApplicationReturnStatus IpoptSolve(IpoptProblem problem, ipnumber* x, ipnumber* row_values,
                                        ipnumber* value, ipnumber* row_duals, ipnumber* lower_duals,
                                        ipnumber* upper_duals, UserDataPtr data) {
    static auto* const solve = real<decltype(IpoptSolve)>("IpoptSolve");
    const Stopwatch stopwatch{in_ipopt};
    return solve(problem, x, row_values, value, row_duals, lower_duals, upper_duals, data);
}

void FreeIpoptProblem(IpoptProblem problem) {
    static auto* const destroy = real<decltype(FreeIpoptProblem)>("FreeIpoptProblem");
    const Stopwatch stopwatch{in_ipopt};
    destroy(problem);
}

// CPU seconds since the last call: in Ipopt with all that it calls, in values, in derivatives.
void ipopt_clock_read(double seconds[3]) {
    seconds[0] = in_ipopt;
    seconds[1] = in_functions;
    seconds[2] = in_derivatives;
    in_ipopt = in_functions = in_derivatives = 0;
}
}
