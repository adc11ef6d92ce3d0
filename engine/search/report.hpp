// The engine's own log lines: what is solved, and what came out.
#pragma once

struct nlra_problem;

namespace nlra {

class Monitor;

void log_header(nlra_problem& problem, Monitor& monitor);
void log_lp_result(const nlra_problem& problem, Monitor& monitor);
void log_mip_result(const nlra_problem& problem, Monitor& monitor);

}  // namespace nlra
