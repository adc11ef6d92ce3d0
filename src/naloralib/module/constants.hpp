// The module's integer and float constants, and the serial counters that start with them.
#pragma once

#include "support/python.hpp"

namespace nalora {

// Add the constants to the module and start the serial counters.
void add_constants(PyObject* module);

}  // namespace nalora
