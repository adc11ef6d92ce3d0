// What the tests look at when they look for leaks.
#include "module/parts.hpp"
#include "support/boundary.hpp"
#include "support/slab.hpp"

namespace nalora {

namespace {

PyObject* live_cells(PyObject*, PyObject*) noexcept {
    return PyLong_FromUnsignedLongLong(SlabPool::live_cells());
}

const PyMethodDef kFunctions[] = {
    {"_live_cells", live_cells, METH_NOARGS,
     "_live_cells()\n--\n\n"
     "Number of small pieces of memory that objects of the module hold outside the interpreter's\n"
     "own allocator."},
};

}  // namespace

std::span<const PyMethodDef> memory_functions() { return kFunctions; }

}  // namespace nalora
