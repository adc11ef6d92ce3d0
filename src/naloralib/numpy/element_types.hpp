// The element types of arrays of modeling objects: npvar, npexpr and npconstraint. An element is
// one reference to an object of the module, null where nothing was ever stored (np.empty).
//
// An array of any of these types may hold any object, as NumPy's casts and assignments copy
// references without a look at them: whoever reads elements checks what it finds. Results of
// arithmetic, whatever their kind, are stored in npexpr arrays.
#pragma once

#include <cstring>

#include "support/numpy.hpp"
#include "support/ref.hpp"

namespace nalora {

enum class ElementType : int { var = 0, expression = 1, constraint = 2 };
inline constexpr int kElementTypes = 3;

// Make the three types known to NumPy; at initialisation, after the import of its interface.
void register_element_types();
// Add npvar, npexpr and npconstraint to the module.
void add_element_types(PyObject* module);

namespace element_types {
// NumPy's numbers of the three types. They are consecutive only by accident.
extern int numbers[kElementTypes];
}  // namespace element_types

inline int type_number(ElementType type) noexcept {
    return element_types::numbers[static_cast<int>(type)];
}

// Whether elements of the NumPy type are references to objects: the three types and NPY_OBJECT.
inline bool holds_objects(int number) noexcept {
    return number == NPY_OBJECT || number == type_number(ElementType::var) ||
           number == type_number(ElementType::expression) ||
           number == type_number(ElementType::constraint);
}

// The object in an element of such a type: borrowed, None for a null element. The element may lie
// unaligned (a field of a structured array).
inline PyObject* element_object(const char* element) noexcept {
    PyObject* object;
    std::memcpy(&object, element, sizeof(void*));
    return object != nullptr ? object : Py_None;
}

// Put an object into an element, which owns it from now on. What was there is released last.
inline void set_element(char* element, Ref object) noexcept {
    PyObject* old;
    std::memcpy(&old, element, sizeof(void*));
    PyObject* stored = object.release();
    std::memcpy(element, &stored, sizeof(void*));
    Py_XDECREF(old);
}

// A new array in C order, every element null. Empty (with the error set) when there is no memory.
Ref new_element_array(ElementType type, int dimensions, const npy_intp* sizes);

}  // namespace nalora
