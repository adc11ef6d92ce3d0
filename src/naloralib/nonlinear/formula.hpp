// Formulas: trees as the tokens that the nonlinear solver takes, in postfix order.
//
//   type  meaning            value
//      0  end of formula     0
//      1  constant           the number
//     10  column             its index
//     11  user function      the index under which it is registered
//     12  internal function  its number
//     21  argument list      0
//     22  comma              0
//     31  operator           its number
//
// Operators follow their operands. A function follows its argument list: one token of type 21 that
// marks where the list begins (read backwards, the order in which brackets close), then the
// arguments with a comma between each two of them. So max(x, y) is
// (21, 0) (10, x) (22, 0) (10, y) (12, 34) (0, 0), and a reader that meets a function pops its
// stack down to the mark to learn how many arguments there are. Sums and products of n operands are
// n - 1 operators in an order that adds up pairs of pairs, so that the depth of the formula grows
// with the logarithm of n.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "problem/index_map.hpp"
#include "support/function_ref.hpp"
#include "support/ref.hpp"

namespace nalora {

enum class Token : uint32_t {
    end = 0,
    constant = 1,
    column = 10,
    user_function = 11,
    function = 12,
    argument_list = 21,
    comma = 22,
    op = 31,
};

// Formulas one after the other, in arrays of equal length.
struct FormulaTokens {
    std::vector<uint32_t> types;
    std::vector<double> values;

    std::size_t size() const noexcept { return types.size(); }
    // At least 256 tokens, doubled until they suffice.
    void make_room(std::size_t extra);
    void add(Token type, double value) {
        types.push_back(static_cast<uint32_t>(type));
        values.push_back(value);
    }
    void cut(std::size_t size) noexcept;
};

// Gives the index of a user function: the callable, whether it returns derivatives, the number of
// its arguments.
using RegisterFunction =
    FunctionRef<int32_t(PyObject* callable, bool derivatives, std::size_t arguments)>;

// Append the formula of a modeling object or number, with its end token. What occurs several times
// in the tree is written as often. On an exception the tokens are as they were before.
//
// ModelError for a variable without a column, for trees of more than 64 levels, for formulas of
// more than 2^26 tokens or of more altogether than an index counts, and for anything that is no
// part of a formula.
void append_formula(FormulaTokens& tokens, PyObject* object, const IndexMap& columns,
                    RegisterFunction register_function);

// The same but for the constant, linear and quadratic terms of the object: these, summed up, are
// the expression returned. Nothing is appended where no more is left.
Ref append_nonlinear_part(FormulaTokens& tokens, PyObject* object, const IndexMap& columns,
                          RegisterFunction register_function);

// What a term is, apart from the formula that it is multiplied by.
struct NonlinearCoefficient {
    double coefficient = 1.0;
    int32_t column = -1;  // none
};

// Append the formula of a term without its coefficient: the numbers among a product's factors and
// the first variable go into the result, the other factors (1 for none) into the formula.
NonlinearCoefficient append_coefficient_form(FormulaTokens& tokens, PyObject* object,
                                             const IndexMap& columns,
                                             RegisterFunction register_function);

}  // namespace nalora
