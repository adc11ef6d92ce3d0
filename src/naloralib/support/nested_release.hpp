// Dropping references in chains of any length. An object whose fields may begin a long chain of
// further objects of this module (a formula's arguments, an object used as a name) releases them
// with release_nested, which goes only so deep into the C stack and keeps the rest for later.
#pragma once

#include "support/python.hpp"

namespace nalora {

// Drop one reference, which may be null. The object may outlive the call when it is made from
// within other releases; it is gone at the latest when the outermost one returns.
void release_nested(PyObject* object) noexcept;

}  // namespace nalora
