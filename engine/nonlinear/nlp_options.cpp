#include "nonlinear/nlp_options.hpp"

#include <algorithm>

namespace nlra {

NlpOptions nlp_options(const Params& interior, const Params& controls) {
    NlpOptions options;
    options.tolerance = interior.get_double(kInteriorTolerance);
    if (options.tolerance == 0.0) {
        options.tolerance = std::min(1e-8, 0.1 * controls.get_double(kOptTol));
    }
    options.max_iterations = static_cast<int>(interior.get_int(kInteriorMaxIter));
    options.adaptive_barrier = interior.get_int(kInteriorAdaptive) != 0;
    options.initial_barrier = interior.get_double(kInteriorBarrier);
    options.exact_hessian = interior.get_int(kInteriorApproximate) == 0;
    options.scaling = interior.get_int(kInteriorScaling) != 0;
    options.bound_relaxation = interior.get_double(kInteriorRelaxation);
    options.bound_push = interior.get_double(kInteriorPush);
    options.pivot_order = static_cast<PivotOrder>(interior.get_int(kInteriorPivotOrder));
    return options;
}

}  // namespace nlra
