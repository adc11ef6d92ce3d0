// Statuses of one kind of solve told as another's.
#pragma once

namespace nlra {

// The NSLP_STATUS value for a NLRA_LP_... or NLRA_MIP_... one.
int nonlinear_status_of_lp(int status);
int nonlinear_status_of_mip(int status);

// What is left open without a proof is unfinished; a mixed integer problem tells apart whether
// there is a solution.
int lp_status_of_nonlinear(int status);
int mip_status_of_nonlinear(int status, bool has_solution);

}  // namespace nlra
