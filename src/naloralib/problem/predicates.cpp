// What kind of problem this is, as far as choosing a solver and a source of values goes.
#include "problem/problem.hpp"

namespace nalora {

int32_t int_attribute(ProblemObject* p, int id) {
    int value = 0;
    check_library(NLRAgetintattrib(p->prob, id, &value), as_object(p));
    return value;
}

bool is_nonlinear(ProblemObject* p) {
    return (p->nonlinear_batches > 0 || p->nonlinear_objective != 0) && nonlinear_available();
}

bool is_mixed_integer(ProblemObject* p) {
    for (const int id : {NLRA_MIPENTS, NLRA_SETS, NLRA_ORIGINALGENCONS, NLRA_ORIGINALPWLCONS}) {
        if (int_attribute(p, id) != 0) return true;
    }
    return false;
}

bool has_nonlinear_solution(ProblemObject* p) {
    if (!nonlinear_available()) return false;
    if (p->nonlinear_batches > 0 || p->nonlinear_objective != 0) return true;
    if (p->nonlinear == nullptr) return false;
    int status = 0;
    check_library(NSLPgetintattrib(p->nonlinear, NSLP_STATUS, &status), as_object(p));
    return status >= 1 && status <= 6;
}

}  // namespace nalora
