// What kind of problem this is, as far as choosing a solver and a source of values goes.
#include "problem/problem.hpp"

namespace nalora {

int32_t int_attribute(ProblemObject* p, int id) {
    int value = 0;
    check_library(NLRAgetintattrib(p->prob, id, &value), as_object(p));
    return value;
}

namespace {

int32_t nonlinear_attribute(ProblemObject* p, int id) {
    int value = 0;
    check_library(NSLPgetintattrib(p->nonlinear, id, &value), as_object(p));
    return value;
}

bool has_nonlinear_solver(ProblemObject* p) {
    return p->nonlinear != nullptr && nonlinear_available();
}

bool has_formulas(ProblemObject* p) {
    return nonlinear_attribute(p, NSLP_NONLINEARROWS) > 0 ||
           nonlinear_attribute(p, NSLP_NONLINEAROBJ) > 0;
}

}  // namespace

bool is_nonlinear(ProblemObject* p) { return has_nonlinear_solver(p) && has_formulas(p); }

bool is_mixed_integer(ProblemObject* p) {
    for (const int id : {NLRA_MIPENTS, NLRA_SETS, NLRA_ORIGINALGENCONS, NLRA_ORIGINALPWLCONS}) {
        if (int_attribute(p, id) != 0) return true;
    }
    return false;
}

bool has_nonlinear_solution(ProblemObject* p) {
    if (!has_nonlinear_solver(p)) return false;
    if (has_formulas(p)) return true;
    const int32_t status = nonlinear_attribute(p, NSLP_STATUS);
    return status >= 1 && status <= 6;
}

}  // namespace nalora
