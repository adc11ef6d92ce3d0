// The operators on modeling objects and numbers as functions. Operands are never changed. Every one
// raises ModelError for operands that it has no rule for; a NumPy array as the right operand is
// handed to NumPy, element by element.
#pragma once

#include "support/ref.hpp"

namespace nalora {

Ref add(PyObject* a, PyObject* b);
Ref subtract(PyObject* a, PyObject* b);
Ref multiply(PyObject* a, PyObject* b);
// The same value, but a product that is nonlinear takes b as a further factor instead of nesting.
Ref multiply_in_place(PyObject* a, PyObject* b);
Ref divide(PyObject* a, PyObject* b);
Ref power(PyObject* a, PyObject* b);
Ref negate(PyObject* a);
Ref absolute(PyObject* a);
Ref logical_and(PyObject* a, PyObject* b);
Ref logical_or(PyObject* a, PyObject* b);

// The constraint a <= b, a == b or a >= b (op is a code of the interpreter's rich comparisons).
Ref compare(PyObject* a, PyObject* b, int op);

// The slots of all modeling types: every type has the same ones.
extern PyNumberMethods operator_slots;
PyObject* compare_slot(PyObject* a, PyObject* b, int op) noexcept;

}  // namespace nalora
