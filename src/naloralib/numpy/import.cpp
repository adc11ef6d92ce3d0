// The one file that holds NumPy's tables of functions for the whole module.
#define NALORA_IMPORTS_NUMPY
#include "module/parts.hpp"
#include "numpy/element_types.hpp"
#include "numpy/loops.hpp"
#include "support/boundary.hpp"
#include "support/numpy.hpp"

namespace nalora {

void set_up_numpy() {
    check_python(_import_array());
    check_python(_import_umath());
    // Older versions lose references in reduceat() and accumulate() of element types such as ours.
    constexpr unsigned kNumPy122 = 0xF;
    if (PyArray_GetNDArrayCFeatureVersion() < kNumPy122) {
        raise(PyExc_ImportError, "nalora needs NumPy 1.22 or later");
    }
    register_element_types();
    register_loops();
}

}  // namespace nalora
