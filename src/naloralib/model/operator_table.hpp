// Kind-by-kind tables of builders, and the messages for operands that have none. For the operator
// files of model/ only.
#pragma once

#include "model/objects.hpp"

namespace nalora {

inline constexpr int kKinds = 6;

template <class Builder>
struct OperatorTable {
    Builder rows[kKinds][kKinds];  // left kind, right kind

    Builder find(Kind left, Kind right) const noexcept {
        return rows[static_cast<int>(left)][static_cast<int>(right)];
    }
};

// What an operator says to an operand it cannot use, by the kind of the other one: a variable (or
// a number), a linear term, a quadratic term. Expressions and nonlinear operands name the object.
struct MessageRow {
    const char* var;
    const char* linterm;
    const char* quadterm;
};
[[noreturn]] void refuse_operands(PyObject* a, PyObject* b, const MessageRow& messages);

}  // namespace nalora
