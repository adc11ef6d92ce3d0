// Everything that can be wrong with tokens is found here, before the graph changes.
#include <cmath>
#include <cstdint>

#include "nlra.h"
#include "nonlinear/formula_parser.hpp"
#include "store/error.hpp"

namespace nlra {

namespace {

class Checker {
  public:
    explicit Checker(const FormulaScope& scope) : scope_(scope) {}

    void token(size_t position, int type, double value) {
        position_ = position;
        switch (type) {
            case NSLP_TOKEN_CONSTANT:
                if (!std::isfinite(value)) reject("the constant is not a finite number");
                push(true);
                break;
            case NSLP_TOKEN_COLUMN:
                if (integer(value) < 0 || integer(value) >= scope_.columns) {
                    fail(NLRA_ERROR_ARGUMENT,
                         "formula, token %zu: %g is not a column (the problem has %d)", position_,
                         value, scope_.columns);
                }
                push(false);
                break;
            case NSLP_TOKEN_ARGUMENTS:
                lists_.push_back({operands_.size(), operands_.size(), 0});
                break;
            case NSLP_TOKEN_COMMA:
                if (lists_.empty()) reject("a comma outside of a function's arguments");
                end_argument();
                break;
            case NSLP_TOKEN_OPERATOR:
                apply(value);
                break;
            case NSLP_TOKEN_FUNCTION:
            case NSLP_TOKEN_USERFUNCTION:
                close(type, value);
                break;
            default:
                fail(NLRA_ERROR_ARGUMENT, "formula, token %zu: unknown token type %d", position_,
                     type);
        }
    }

    void finish(size_t position) {
        position_ = position;
        if (!lists_.empty()) reject("a function's arguments are not closed by the function");
        if (operands_.empty()) reject("the formula has no value");
        if (operands_.size() > 1) reject("operands are left without an operator");
    }

  private:
    struct List {
        size_t begin;  // of its operands
        size_t argument;
        int arguments;
    };

    [[noreturn]] void reject(const char* reason) const {
        fail(NLRA_ERROR_ARGUMENT, "formula, token %zu: %s", position_, reason);
    }

    // -1 for what is no index.
    static int integer(double value) {
        return value >= 0.0 && value <= 2147483647.0 && value == std::floor(value)
                   ? static_cast<int>(value)
                   : -1;
    }

    void push(bool constant) { operands_.push_back(constant); }

    // Operands of an operator must not reach into an argument before.
    void apply(double value) {
        const int op = integer(value);
        if (op < NSLP_OPERATOR_NEGATE || op > NSLP_OPERATOR_MINUS) {
            fail(NLRA_ERROR_ARGUMENT, "formula, token %zu: unknown operator %g", position_, value);
        }
        const size_t count = op == NSLP_OPERATOR_NEGATE ? 1 : 2;
        const size_t floor = lists_.empty() ? 0 : lists_.back().argument;
        if (operands_.size() < floor + count) reject("an operand of the operator is missing");
        if (count == 2) {
            const uint8_t right = operands_.back();
            operands_.pop_back();
            operands_.back() = operands_.back() && right;
        }
    }

    void end_argument() {
        List& list = lists_.back();
        if (operands_.size() != list.argument + 1) reject("an argument is not one expression");
        list.argument = operands_.size();
        ++list.arguments;
    }

    void close(int type, double value) {
        if (lists_.empty()) reject("a function without the token that begins its arguments");
        if (operands_.size() != lists_.back().begin || lists_.back().arguments != 0) end_argument();
        const List list = lists_.back();
        lists_.pop_back();
        bool constant = true;
        for (size_t i = list.begin; i < operands_.size(); ++i) constant &= operands_[i] != 0;
        if (type == NSLP_TOKEN_USERFUNCTION) {
            check_user_function(value, list.arguments);
            constant = false;
        } else {
            check_function(value, list);
        }
        operands_.resize(list.begin);
        push(constant);
    }

    void check_user_function(double value, int arguments) const {
        const auto& functions = *scope_.functions;
        const int index = integer(value);
        if (index < 0 || static_cast<size_t>(index) >= functions.size() ||
            functions[index] == nullptr) {
            fail(NLRA_ERROR_ARGUMENT,
                 "formula, token %zu: %g is not a user function (the problem has %zu)", position_,
                 value, functions.size());
        }
        const int expected = functions[index]->arguments;
        if (expected >= 0 && expected != arguments) {
            fail(NLRA_ERROR_ARGUMENT,
                 "formula, token %zu: user function %g takes %d arguments, not %d", position_,
                 value, expected, arguments);
        }
    }

    void check_function(double value, const List& list) const {
        switch (integer(value)) {
            case kFunctionLog10:
            case kFunctionLog:
            case kFunctionExp:
            case kFunctionAbs:
            case kFunctionSqrt:
            case kFunctionSin:
            case kFunctionCos:
            case kFunctionTan:
            case kFunctionAsin:
            case kFunctionAcos:
            case kFunctionAtan:
            case kFunctionSign:
            case kFunctionErf:
            case kFunctionErfc:
                if (list.arguments != 1) reject("the function takes one argument");
                break;
            case kFunctionMin:
            case kFunctionMax:
                if (list.arguments == 0) reject("the function takes at least one argument");
                break;
            case kFunctionPiecewise:
                if (list.arguments < 5 || list.arguments % 2 == 0) {
                    reject("a piecewise linear function takes x, then at least two points x1, y1");
                }
                for (size_t i = list.begin + 1; i < operands_.size(); ++i) {
                    if (operands_[i] == 0) {
                        reject("the points of a piecewise linear function must be constants");
                    }
                }
                break;
            default:
                fail(NLRA_ERROR_ARGUMENT, "formula, token %zu: unknown function %g", position_,
                     value);
        }
    }

    const FormulaScope& scope_;
    size_t position_ = 0;
    std::vector<uint8_t> operands_;  // whether each is a constant
    std::vector<List> lists_;
};

}  // namespace

size_t check_formula(const int* types, const double* values, size_t available,
                     const FormulaScope& scope) {
    Checker checker(scope);
    size_t count = 0;
    while (count < available && types[count] != NSLP_TOKEN_END) {
        checker.token(count, types[count], values[count]);
        ++count;
    }
    if (count == available) fail(NLRA_ERROR_ARGUMENT, "formula: the end token is missing");
    checker.finish(count);
    return count;
}

void check_pieces(const std::vector<FormulaPiece>& pieces, const FormulaScope& scope) {
    for (const FormulaPiece& piece : pieces) {
        if (!std::isfinite(piece.factor)) {
            fail(NLRA_ERROR_ARGUMENT, "formula: the factor is not a finite number");
        }
        if (piece.column < -1 || piece.column >= scope.columns) {
            fail(NLRA_ERROR_ARGUMENT, "formula: its factor %d is not a column (the problem has %d)",
                 piece.column, scope.columns);
        }
        Checker checker(scope);
        size_t i = 0;
        for (; i < piece.tokens && piece.types[i] != NSLP_TOKEN_END; ++i) {
            checker.token(i, piece.types[i], piece.values[i]);
        }
        if (i + 1 < piece.tokens) {
            fail(NLRA_ERROR_ARGUMENT, "formula, token %zu: tokens behind the end", i + 1);
        }
        checker.finish(i);
    }
}

}  // namespace nlra
