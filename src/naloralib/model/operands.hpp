// What all operators share: classifying an operand, taking the small kinds apart, and making the
// small results. For model/ and nonlinear/ only.
#pragma once

#include "model/objects.hpp"
#include "module/state.hpp"
#include "support/boundary.hpp"
#include "support/free_list.hpp"

namespace nalora {

using LintermObjects = FreeList<LintermObject, LintermType>;
using QuadtermObjects = FreeList<QuadtermObject, QuadtermType>;
using ExpressionObjects = FreeList<ExpressionObject, ExpressionType>;

inline LintermObject* as_linterm(PyObject* o) noexcept {
    return reinterpret_cast<LintermObject*>(o);
}
inline QuadtermObject* as_quadterm(PyObject* o) noexcept {
    return reinterpret_cast<QuadtermObject*>(o);
}

// kind_of() with the frequent exact types first.
inline Kind operand_kind(PyObject* o) noexcept {
    const PyTypeObject* type = Py_TYPE(o);
    if (type == &ExpressionType) return Kind::expression;
    if (type == &VarType && var_serial(as_var(o)) != 0) return Kind::var;
    if (type == &LintermType && as_linterm(o)->var != nullptr) return Kind::linterm;
    if (type == &PyFloat_Type || type == &PyLong_Type) return Kind::number;
    return kind_of(o);
}

// number_value() with floats first.
inline double operand_value(PyObject* number) {
    return PyFloat_CheckExact(number) ? PyFloat_AS_DOUBLE(number) : number_value(number);
}

bool is_array(PyObject* o) noexcept;  // a NumPy array or an instance of a subclass

// A field's own reference to an object.
template <class T>
inline T* own(T* object) noexcept {
    static_cast<void>(Ref::borrow(object).release());
    return object;
}

inline Ref make_float(double value) { return take(PyFloat_FromDouble(value)); }

inline LinearEntry linear_entry(VarObject* x, double coef) noexcept {
    return {var_serial(x), x, coef};
}
inline QuadraticEntry quadratic_entry(VarObject* x, VarObject* y, double coef) noexcept {
    if (var_serial(x) > var_serial(y)) std::swap(x, y);
    return {var_serial(x), var_serial(y), x, y, coef};
}

// A variable or linear term as coefficient and variable.
struct LinearPair {
    double coef;
    VarObject* var;
};
template <Kind K>
inline LinearPair linear_pair(PyObject* o) noexcept {
    static_assert(K == Kind::var || K == Kind::linterm);
    if constexpr (K == Kind::var) {
        return {1.0, as_var(o)};
    } else {
        return {as_linterm(o)->coef, as_linterm(o)->var};
    }
}

// An expression with the terms and the constant of another one.
Ref share_expression(const ExpressionObject* e);
// A new expression with everything multiplied by the factor.
Ref scaled_expression(const ExpressionObject* e, double factor);

// Whether an expression counts as a number: it never had a term, not even one that cancelled.
inline bool is_constant(const ExpressionObject* e) noexcept {
    return !e->linear.exists() && !e->quadratic.exists();
}

// Add s times an operand of a kind other than nonlinear to an expression that nobody else holds.
template <Kind K>
inline void accumulate(ExpressionObject* e, PyObject* o, double s) {
    if constexpr (K == Kind::number) {
        e->constant += s * operand_value(o);
    } else if constexpr (K == Kind::var || K == Kind::linterm) {
        const auto [coef, x] = linear_pair<K>(o);
        e->linear.add(linear_entry(x, s * coef));
    } else if constexpr (K == Kind::quadterm) {
        const QuadtermObject* t = as_quadterm(o);
        e->quadratic.add(quadratic_entry(t->var1, t->var2, s * t->coef));
    } else {
        static_assert(K == Kind::expression);
        const ExpressionObject* other = as_expression(o);
        e->constant += s * other->constant;
        e->linear.add_scaled(other->linear, s);
        e->quadratic.add_scaled(other->quadratic, s);
    }
}

}  // namespace nalora
