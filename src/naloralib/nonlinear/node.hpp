// Nodes of nonlinear expression trees: an operator and its arguments. Nodes never change; whoever
// needs a formula's structure reads it through the functions here.
#pragma once

#include <cstdint>
#include <span>

#include "model/objects.hpp"
#include "model/shared_log.hpp"

namespace nalora {

// Operators in the codes that formulas, printing and evaluation share.
enum class Op : int16_t {
    sum = 0,
    minus = 1,
    negation = 2,
    product = 3,
    quotient = 4,
    power = 5,
    exp = 6,
    log = 7,
    log10 = 8,
    sin = 9,
    cos = 10,
    tan = 11,
    asin = 12,
    acos = 13,
    atan = 14,
    max = 15,
    min = 16,
    abs = 17,
    sign = 18,
    erf = 19,
    erfc = 20,
    sqrt = 21,
    logical_and = 22,
    logical_or = 23,
    pwl = 24,
    user = 25,
    user_with_derivatives = 26,
};

struct OperatorRow {
    const char* symbol;
    int arity;   // 1, 2, or 0 for any number
    bool infix;  // otherwise function notation
};
const OperatorRow& operator_row(Op op) noexcept;

struct NodeArgument {
    PyObject* object;
    template <class Owner>
    void retain() const noexcept {
        Owner::retain(object);
    }
    template <class Owner>
    void release() const noexcept {
        Owner::release(object);
    }
};
struct ArgumentOwner : PythonOwner {
    static void release(void* argument) noexcept;  // of chains of any length
};
using ArgumentLog = SharedLog<NodeArgument, ArgumentOwner>;

// Up to two arguments are kept in the node. More are a view of a log that growing sums and products
// share, so that adding the next term to a sum costs constant time. The number in a sum is kept
// beside the log (a sum has at most one, and it is its last argument). A zero-filled node, as the
// bare allocator makes it, is a sum of nothing.
struct NonlinearObject {
    PyObject_HEAD Op op;
    bool logged;    // which member of the union is in use
    uint8_t count;  // of `few`
    union {
        PyObject* few[2];  // owned
        struct {
            ArgumentLog log;
            PyObject* number;  // owned; null for none
        } many;
    };
};

inline NonlinearObject* as_nonlinear(PyObject* o) noexcept {
    return reinterpret_cast<NonlinearObject*>(o);
}

// ---- reading --------------------------------------------------------------------------------

uint32_t argument_count(const NonlinearObject* node) noexcept;
// Borrowed; lives as long as the node.
PyObject* argument(const NonlinearObject* node, uint32_t index) noexcept;
// The number among a sum's arguments, null for none. Borrowed.
PyObject* trailing_number(const NonlinearObject* node) noexcept;

// ---- making ---------------------------------------------------------------------------------
// All raise ModelError for arguments that are neither modeling objects nor numbers; the first
// argument of a user function may be any callable.

Ref make_unary(Op op, PyObject* argument);
Ref make_binary(Op op, PyObject* left, PyObject* right);
Ref make_nary(Op op, std::span<PyObject* const> arguments);

// A node with the same operator and arguments.
Ref copy_node(const NonlinearObject* node);
// A sum node without its number; its only argument when one is left and that is nonlinear.
Ref without_number(const NonlinearObject* sum);

// ---- operators with a nonlinear operand, or whose result leaves the quadratic world ----------

Ref nonlinear_sum(PyObject* a, PyObject* b);
Ref nonlinear_difference(PyObject* a, PyObject* b);
Ref nonlinear_product(PyObject* a, PyObject* b);
// p *= b for a product p: like the product, but p's factors are extended instead of nested.
Ref extended_product(PyObject* a, PyObject* b);
// op(a, b) for maxima, minima and logical operators: a's arguments and b where a is such a node.
Ref extended_nary(Op op, PyObject* a, PyObject* b);
Ref nonlinear_negation(PyObject* a);
Ref nonlinear_quotient(PyObject* a, PyObject* b);
Ref nonlinear_power(PyObject* a, PyObject* b);

Ref node_text(PyObject* object);

}  // namespace nalora
