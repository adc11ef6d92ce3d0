#include "search/statuses.hpp"

#include "nlra.h"
#include "nslp.h"

namespace nlra {

namespace {

struct Row {
    int nonlinear, lp, mip;
};
constexpr Row kProven[] = {{NSLP_GLOBALLY_OPTIMAL, NLRA_LP_OPTIMAL, NLRA_MIP_OPTIMAL},
                           {NSLP_INFEASIBLE, NLRA_LP_INFEAS, NLRA_MIP_INFEAS},
                           {NSLP_UNBOUNDED, NLRA_LP_UNBOUNDED, NLRA_MIP_UNBOUNDED}};

int translate(int status, int Row::*from, int Row::*to, int open) {
    for (const Row& row : kProven) {
        if (row.*from == status) return row.*to;
    }
    return open;
}

}  // namespace

int nonlinear_status_of_lp(int status) {
    return translate(status, &Row::lp, &Row::nonlinear, NSLP_UNFINISHED);
}

int nonlinear_status_of_mip(int status) {
    return translate(status, &Row::mip, &Row::nonlinear, NSLP_UNFINISHED);
}

int lp_status_of_nonlinear(int status) {
    return translate(status, &Row::nonlinear, &Row::lp, NLRA_LP_UNFINISHED);
}

int mip_status_of_nonlinear(int status, bool has_solution) {
    return translate(status, &Row::nonlinear, &Row::mip,
                     has_solution ? NLRA_MIP_SOLUTION : NLRA_MIP_NO_SOL_FOUND);
}

}  // namespace nlra
