#include "nonlinear/nlp_options.hpp"

#include <algorithm>

#include "api/problem.hpp"

namespace nlra {

NlpOptions nlp_options(const nslp_problem& problem) {
    const Params& controls = problem.interior;
    NlpOptions options;
    options.tolerance = controls.get_double(kInteriorTolerance);
    if (options.tolerance == 0.0) {
        options.tolerance = std::min(1e-8, 0.1 * problem.base->controls.get_double(kOptTol));
    }
    options.max_iterations = static_cast<int>(controls.get_int(kInteriorMaxIter));
    options.adaptive_barrier = controls.get_int(kInteriorAdaptive) != 0;
    options.initial_barrier = controls.get_double(kInteriorBarrier);
    options.exact_hessian = controls.get_int(kInteriorApproximate) == 0;
    options.scaling = controls.get_int(kInteriorScaling) != 0;
    options.bound_relaxation = controls.get_double(kInteriorRelaxation);
    options.bound_push = controls.get_double(kInteriorPush);
    options.pivot_order = static_cast<PivotOrder>(controls.get_int(kInteriorPivotOrder));
    return options;
}

}  // namespace nlra
