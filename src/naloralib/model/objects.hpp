// The modeling objects' records and what other parts may do with them. Operators and slots stay in
// model/ and nonlinear/.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "model/terms.hpp"
#include "module/parts.hpp"
#include "support/large_pages.hpp"
#include "support/ref.hpp"
#include "support/slab.hpp"

namespace nalora {

inline constexpr double kInfinity = 1.0e20;

// Kinds of operands, in the codes that all arithmetic uses.
enum class Kind : int {
    invalid = -1,
    number = 0,
    var = 1,
    linterm = 2,
    quadterm = 3,
    expression = 4,
    nonlinear = 5
};

struct PythonOwner {
    static void retain(void* var) noexcept { Py_INCREF(static_cast<PyObject*>(var)); }
    static void release(void* var) noexcept { Py_DECREF(static_cast<PyObject*>(var)); }
    // Blocks for a few linear terms come with every row, by the million.
    static void* allocate(std::size_t bytes) noexcept {
#ifndef NALORA_NO_FREELIST
        if (bytes == kSlabBytes) return slab_pool<kSlabBytes>().allocate();
#endif
        return with_large_pages(PyMem_Malloc(bytes), bytes);
    }
    static void* reallocate(void* memory, [[maybe_unused]] std::size_t old_bytes,
                            std::size_t bytes) noexcept {
#ifndef NALORA_NO_FREELIST
        if (old_bytes == kSlabBytes || bytes == kSlabBytes) {
            void* moved = allocate(bytes);
            if (moved == nullptr) return nullptr;
            std::memcpy(moved, memory, std::min(old_bytes, bytes));
            deallocate(memory, old_bytes);
            return moved;
        }
#endif
        return with_large_pages(PyMem_Realloc(memory, bytes), bytes);
    }
    static void deallocate(void* memory, [[maybe_unused]] std::size_t bytes) noexcept {
#ifndef NALORA_NO_FREELIST
        if (bytes == kSlabBytes) return slab_pool<kSlabBytes>().deallocate(memory);
#endif
        PyMem_Free(memory);
    }

  private:
    static constexpr std::size_t kSlabBytes = 128;  // four linear entries
};
using LinearTerms = Terms<LinearEntry, PythonOwner>;
using QuadraticTerms = Terms<QuadraticEntry, PythonOwner>;

// One descriptor word: bits 0-51 serial, 52-54 lower bound code and table flag, 55-57 upper bound,
// 58 threshold table flag, 59 name table flag, 60-62 type. See model/var.cpp.
struct VarObject {
    PyObject_HEAD uint64_t word;
};

struct LintermObject {
    PyObject_HEAD double coef;
    VarObject* var;  // owned; null in an object made by the bare allocator
};

struct QuadtermObject {  // serial of var1 <= serial of var2
    PyObject_HEAD double coef;
    VarObject* var1;
    VarObject* var2;
};

struct ExpressionObject {
    PyObject_HEAD double constant;
    LinearTerms linear;  // zero-filled memory is a valid empty container
    QuadraticTerms quadratic;
};

struct ConstraintObject {
    PyObject_HEAD uint64_t word;  // bits 0-56 serial, 57-59 lower bound, 60-62 upper bound, 63 name
    PyObject* body;               // owned; null before initialisation and for rows read from a file
};

struct SosObject {
    PyObject_HEAD uint64_t serial;
    PyObject* name;  // owned, as are the two lists
    int type;        // 1 or 2
    PyObject* indices;
    PyObject* weights;
};

// ---- kinds ----------------------------------------------------------------------------------

// A Python float or int (or subclass), or a NumPy float32, float64, intc, long, longlong scalar.
bool is_number(PyObject* object) noexcept;
double number_value(PyObject* number);  // for what is_number accepted; OverflowError for huge ints
// Kind of an operand; Kind::invalid without an error for anything else, also for terms and
// variables that the bare allocator made (no variable, no serial number).
Kind kind_of(PyObject* object) noexcept;
// The same, but anything else raises ModelError "Invalid object in operation: <...>".
Kind require_kind(PyObject* object);

inline bool is_constraint(PyObject* o) noexcept {
    return Py_TYPE(o) == &ConstraintType || PyType_IsSubtype(Py_TYPE(o), &ConstraintType);
}
inline bool is_sos(PyObject* o) noexcept {
    return Py_TYPE(o) == &SosType || PyType_IsSubtype(Py_TYPE(o), &SosType);
}

// ---- variables ------------------------------------------------------------------------------

inline constexpr uint64_t kVarSerialMask = (uint64_t{1} << 52) - 1;
inline uint64_t var_serial(const VarObject* v) noexcept { return v->word & kVarSerialMask; }
inline VarObject* as_var(PyObject* o) noexcept { return reinterpret_cast<VarObject*>(o); }
// A variable that was initialised: a subclass may have forgotten to, and then it has no serial.
inline bool is_var(PyObject* o) noexcept {
    return (Py_TYPE(o) == &VarType || PyType_IsSubtype(Py_TYPE(o), &VarType)) &&
           var_serial(as_var(o)) != 0;
}
inline int var_type(const VarObject* v) noexcept { return static_cast<int>(v->word >> 60 & 7); }
double var_lower(const VarObject* v) noexcept;
double var_upper(const VarObject* v) noexcept;
double var_threshold(const VarObject* v) noexcept;
Ref var_name(const VarObject* v);  // the stored object, or a new str "C%d"
inline bool var_has_name(const VarObject* v) noexcept { return (v->word >> 59 & 1) != 0; }
// Append the name as UTF-8 and a NUL to a packed buffer, at most max_bytes of it (never half a
// character), without making an object where none is stored. Runs no Python code. ModelError
// "Invalid variable name (must be a string)" for a name that is neither str nor bytes, another text
// for one that holds a NUL.
void var_append_name(const VarObject* v, std::string& buffer, std::size_t max_bytes);
void var_set_lower(VarObject* v, double bound);
void var_set_upper(VarObject* v, double bound);
void var_set_threshold(VarObject* v, double threshold);
void var_set_type(VarObject* v, int type) noexcept;
void var_set_name(VarObject* v, PyObject* name);
Ref fresh_var_name();  // C and a number that is the default name of no variable, now or later
Ref new_var();         // fresh serial, all defaults

// ---- constraints and sets -------------------------------------------------------------------

inline constexpr uint64_t kConstraintSerialMask = (uint64_t{1} << 57) - 1;
inline uint64_t constraint_serial(const ConstraintObject* c) noexcept {
    return c->word & kConstraintSerialMask;
}
double constraint_lower(const ConstraintObject* c) noexcept;
double constraint_upper(const ConstraintObject* c) noexcept;
Ref constraint_name(const ConstraintObject* c);  // the stored object, or a new str "R%d"
inline bool constraint_has_name(const ConstraintObject* c) noexcept { return c->word >> 63 != 0; }
void constraint_append_name(const ConstraintObject* c, std::string& buffer, std::size_t max_bytes);
void constraint_set_lower(ConstraintObject* c, double bound);
void constraint_set_upper(ConstraintObject* c, double bound);
void constraint_set_name(ConstraintObject* c, PyObject* name);
Ref fresh_constraint_name();  // as fresh_var_name
Ref new_constraint();         // fresh serial, free, no body
inline ConstraintObject* as_constraint(PyObject* o) noexcept {
    return reinterpret_cast<ConstraintObject*>(o);
}

Ref new_sos(PyObject* name, int type, PyObject* indices, PyObject* weights);  // null name: default
void sos_set_default_name(SosObject* set);  // with a fresh number, as fresh_var_name
bool sos_has_default_name(const SosObject* set);
inline SosObject* as_sos(PyObject* o) noexcept { return reinterpret_cast<SosObject*>(o); }

// ---- terms and expressions ------------------------------------------------------------------

Ref make_linterm(double coef, VarObject* var);  // 0.0 for a zero coefficient
Ref make_quadterm(double coef, VarObject* x, VarObject* y);
Ref new_expression();  // empty
// For an expression under construction only: once others can see an expression it never changes.
void expression_add_linear(ExpressionObject* e, VarObject* x, double coef);
void expression_add_quadratic(ExpressionObject* e, VarObject* x, VarObject* y, double coef);
Ref scaled_copy(PyObject* object, double factor);  // any modeling object or number; deep for values
inline ExpressionObject* as_expression(PyObject* o) noexcept {
    return reinterpret_cast<ExpressionObject*>(o);
}

// ---- side tables ----------------------------------------------------------------------------

void make_side_tables();              // seven empty tables, at initialisation
void destroy_side_tables() noexcept;  // at module release; objects may outlive them

}  // namespace nalora
