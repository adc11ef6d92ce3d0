// The problem record and the steps that its parts share.
#pragma once

#include <cstdint>

#include "library/library.hpp"
#include "model/objects.hpp"
#include "problem/index_map.hpp"

namespace nalora {

inline constexpr int kCallbackSlots = 40;

struct ProblemObject {
    PyObject_HEAD NLRAprob prob;  // owned, as everything below unless said otherwise
    NSLPprob nonlinear;           // null without the nonlinear solver
    PyObject* variables;          // list; position i is column i (the user's columns)
    PyObject* constraints;        // list; position i is row i
    PyObject* sets;               // list
    PyObject* controls;           // nalora.control
    PyObject* attributes;         // nalora.attribute
    IndexMap* variable_index;
    IndexMap* constraint_index;
    IndexMap* set_index;
    PyObject* callbacks[kCallbackSlots];  // null or list of registrations
    PyObject* user_functions;             // null or dict: index to the callable, kept alive
    PyObject* module;                     // keeps the module alive
};

inline ProblemObject* as_problem(PyObject* o) noexcept {
    return reinterpret_cast<ProblemObject*>(o);
}
inline PyObject* as_object(ProblemObject* p) noexcept { return reinterpret_cast<PyObject*>(p); }
inline bool is_problem(PyObject* o) noexcept { return PyObject_TypeCheck(o, &ProblemType); }

// Raise InterfaceError when the problem has no library handle (its initialisation failed or never
// ran); every method begins with it.
void require_initialised(ProblemObject* p);

// Predicates (problem/predicates.cpp). Integer attribute of the library problem.
int32_t int_attribute(ProblemObject* p, int id);
// Nonlinear: it has nonlinear rows or a nonlinear objective, and the nonlinear solver is there.
bool is_nonlinear(ProblemObject* p);
// Mixed integer: attributes 1032, 1004, 1327, 1325 in this order, any non-zero.
bool is_mixed_integer(ProblemObject* p);
// Nonlinear solution present: see solution sources. The same predicate sizes and fills vectors.
bool has_nonlinear_solution(ProblemObject* p);

// building (problem/build_*.cpp)
// Drop list items that the library does not have: a failed addition may leave its objects behind
// the last column, row or set. Afterwards position i is column, row or set i up to the end.
void sync_lists(ProblemObject* p);
void add_variables(ProblemObject* p, PyObject* objects);  // object or nested collection
void add_constraints(ProblemObject* p, PyObject* objects);
void add_sets(ProblemObject* p, PyObject* objects);
void set_objective(ProblemObject* p, PyObject* objective, const int* sense);  // null: keep sense

// controls (problem/controls.cpp)
Ref new_control_accessor(ProblemObject* p);  // null: the module-wide defaults accessor
Ref new_attribute_accessor(ProblemObject* p);
void detach_accessors(ProblemObject* p) noexcept;  // the problem dies: accessors raise from now on
void apply_default_controls(ProblemObject* p);

}  // namespace nalora
