// The life of a problem: made, started over, copied, emptied, taken down. For the files of problem/
// only.
#pragma once

#include "problem/problem.hpp"

namespace nalora {

// Slots of the type.
PyObject* problem_new(PyTypeObject* type, PyObject* args, PyObject* kwargs) noexcept;
int problem_init(PyObject* self, PyObject* args, PyObject* kwargs) noexcept;
int problem_traverse(PyObject* self, visitproc visit, void* arg) noexcept;
int problem_clear(PyObject* self) noexcept;
void problem_dealloc(PyObject* self) noexcept;

// A problem with library handles and nothing else: no model, no accessors, no defaults.
Ref bare_problem();
// Empty the problem. Its lists, registries and handles are replaced; the module-wide defaults are
// applied to the old handles, so the new ones start with the library's own.
void reset_problem(ProblemObject* p);
// A problem over a copy of the library problem; the modeling objects are shared.
Ref copy_problem(ProblemObject* p);

// The declaration form: add the positional arguments of `problem(...)` (declaration.cpp).
void declare(ProblemObject* p, PyObject* elements, int sense);

}  // namespace nalora
