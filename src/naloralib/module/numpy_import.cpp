// The one file that holds NumPy's table of functions for the whole module.
#define NALORA_IMPORTS_NUMPY
#include "module/parts.hpp"
#include "support/boundary.hpp"
#include "support/numpy.hpp"

namespace nalora {

void import_numpy() { check_python(_import_array()); }

}  // namespace nalora
