// What the entry point loops over: the types to ready, the functions, the constants. Each part of
// the module owns its rows; the entry point knows none of them by name.
#pragma once

#include <span>

#include "support/python.hpp"

namespace nalora {

// Types, defined by their parts.
extern PyTypeObject VarType, SosType, ExpressionType, ConstraintType, ControlType, AttributeType,
    ProblemType, BranchobjType, PoolcutType, NlraobjectType, GenericType, LintermType, QuadtermType,
    NonlinearType;

// Module functions of each part (no sentinel row), in the order in which the module lists them.
std::span<const PyMethodDef> aggregate_functions();     // Sum, Prod
std::span<const PyMethodDef> dot_functions();           // Dot
std::span<const PyMethodDef> unary_functions();         // sin, ..., erfc
std::span<const PyMethodDef> nary_functions();          // max, min, user
std::span<const PyMethodDef> library_functions();       // getlasterror, ..., setcheckedmode
std::span<const PyMethodDef> control_functions();       // setdefaultcontrol, setdefaults
std::span<const PyMethodDef> handler_functions();       // addcbmsghandler, removecbmsghandler
std::span<const PyMethodDef> environment_functions();   // getbanner, init, free
std::span<const PyMethodDef> variable_functions();      // vars
std::span<const PyMethodDef> architecture_functions();  // setarchconsistency
std::span<const PyMethodDef> evaluation_functions();    // evaluate
std::span<const PyMethodDef> pwl_functions();           // pwl
std::span<const PyMethodDef> logic_functions();         // And, Or
std::span<const PyMethodDef> output_functions();        // getOutputEnabled, setOutputEnabled
std::span<const PyMethodDef> memory_functions();        // _live_cells, for tests
std::span<const PyMethodDef> formula_functions();       // _formula, for tests

// Problem methods of each part (no sentinel row); problem/type.cpp joins them.
std::span<const PyMethodDef> problem_lookup_methods();   // getVariable, ..., reset, copy, name
std::span<const PyMethodDef> problem_build_methods();    // addVariable, ..., read, write
std::span<const PyMethodDef> problem_solve_methods();    // solve, getSolution, ...
std::span<const PyMethodDef> problem_control_methods();  // setControl, getControl, getAttrib
std::span<const PyMethodDef> problem_mirror_methods();   // getlpsol, chgbounds, ...
// Joins them; before the types are readied.
void prepare_problem_type();

// Functions with keywords, as method tables store them.
inline PyCFunction keyword_function(PyCFunctionWithKeywords function) noexcept {
    return reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(function));
}

// Import NumPy's C interface for the whole module and register the element types and their loops.
void set_up_numpy();

}  // namespace nalora
