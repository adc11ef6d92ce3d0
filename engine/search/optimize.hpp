// The two optimize calls: choose the solver, run it under a Monitor, store results and figures.
#pragma once

struct nlra_problem;

namespace nlra {

class Monitor;

// Both fill info, lp_solution and mip_solution of the problem and throw Error only for what the
// statuses cannot tell. The caller holds the busy flag. `flags` is never null.
void optimize_lp(nlra_problem& problem, const char* flags);
void optimize_mip(nlra_problem& problem, const char* flags);

// The solves themselves, for problems that stand in for another one, whose monitor it is: of the
// relaxation (a quadratic one has been proven convex), and of a linear mixed integer problem.
void solve_continuous(nlra_problem& problem, Monitor& monitor, const char* flags);
void solve_linear_mip(nlra_problem& problem, Monitor& monitor);

// A child of fork() must not use the parent's solver threads: re-arms them there. Registered once.
void install_fork_handler();

}  // namespace nlra
