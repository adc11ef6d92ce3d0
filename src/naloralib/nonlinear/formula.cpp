#include "nonlinear/formula.hpp"

#include <algorithm>
#include <limits>

#include "nonlinear/formula_count.hpp"
#include "nonlinear/parts.hpp"

namespace nalora {

namespace {

constexpr uint64_t kMaxTokens = std::numeric_limits<int32_t>::max();
// Of one formula. What shares its subtrees again and again would take all memory before that many
// could be written; no formula without sharing comes near.
constexpr uint64_t kMaxFormula = uint64_t{1} << 26;

// By operator code. Conjunctions are minima and disjunctions maxima of values that are 0 or 1; a
// user function's value is the index it is registered under.
constexpr int32_t kTokenValues[] = {
    5,  6,  1,  3,  4,  2,                   // + - negation * / **
    16, 15, 14, 27, 28, 29, 30, 31, 32,      // exp log log10 sin cos tan asin acos atan
    34, 33, 17, 46, 49, 50, 18, 33, 34, 35,  // max min abs sign erf erfc sqrt and or pwl
};

int32_t token_value(Op op) noexcept { return kTokenValues[static_cast<int>(op)]; }

// What the structure of the nodes leaves open. An empty node, as the bare allocator makes it, is a
// sum of nothing.
void require_arity(const NonlinearObject* node, uint32_t count) {
    const int arity = operator_row(node->op).arity;
    if (arity == 2 && count != 2) {
        raise(model_error(), "Binary operator should have tuple for arguments");
    }
    if (arity == 1 && count != 1) raise(model_error(), "Incorrect argument of nonlinear function");
    if (count == 0 && node->op != Op::sum) {
        raise(model_error(), "Incorrect argument of nonlinear function");
    }
}

class FormulaWriter {
  public:
    FormulaWriter(FormulaTokens& tokens, const IndexMap& columns,
                  RegisterFunction register_function) noexcept
        : tokens_(tokens), columns_(columns), register_function_(register_function) {}

    void write(PyObject* object, int depth) {
        switch (argument_kind(object)) {
            case Kind::number:
                return write_constant(operand_value(object));
            case Kind::var:
                return write_variable(object);
            case Kind::linterm: {
                const LintermObject* t = as_linterm(object);
                return write_linear(t->coef, var_serial(t->var));
            }
            case Kind::quadterm: {
                const QuadtermObject* t = as_quadterm(object);
                return write_quadratic(t->coef, var_serial(t->var1), var_serial(t->var2));
            }
            case Kind::expression:
                return write_expression(as_expression(object));
            case Kind::nonlinear:
                return write_node(as_nonlinear(object), depth);
            case Kind::invalid:
                raise(model_error(), "Unrecognized member of a nonlinear expression");
        }
    }

    void write_sum(std::span<const FormulaTerm> terms, int depth) {
        Series sum(tokens_, Op::sum, terms.size());
        for (const FormulaTerm& term : terms) {
            begin_term(term.factor);
            write(term.object, depth);
            end_term(term.factor);
            sum.next();
        }
    }

    // 1 for no factors.
    void write_product(std::span<PyObject* const> factors, int depth) {
        if (factors.empty()) return write_constant(1.0);
        Series product(tokens_, Op::product, factors.size());
        for (PyObject* factor : factors) {
            write(factor, depth);
            product.next();
        }
    }

  private:
    // The operators between the operands of a sum or product, each as soon as both of its sides are
    // complete: a pair after every second operand, a pair of pairs after every fourth, ...
    class Series {
      public:
        Series(FormulaTokens& tokens, Op op, uint64_t operands) noexcept
            : tokens_(tokens), op_(op), operands_(operands) {}

        // After each operand.
        void next() {
            ++done_;
            if (done_ == operands_) {
                while (written_ + 1 < operands_) write();
                return;
            }
            for (uint64_t k = done_; k % 2 == 0; k /= 2) write();
        }

      private:
        void write() {
            tokens_.add(Token::op, token_value(op_));
            ++written_;
        }

        FormulaTokens& tokens_;
        Op op_;
        uint64_t operands_;
        uint64_t done_ = 0;
        uint64_t written_ = 0;
    };

    void write_constant(double value) { tokens_.add(Token::constant, value); }
    void write_operator(Op op) { tokens_.add(Token::op, token_value(op)); }
    void write_column(int32_t column) { tokens_.add(Token::column, column); }

    void write_variable(PyObject* var) {
        const int32_t column = columns_.find(var_serial(as_var(var)));
        if (column < 0) {
            raise(model_error(),
                  "Variable in nonlinear part of constraint has not been added to problem yet");
        }
        write_column(column);
    }

    void write_term_variable(uint64_t serial) {
        const int32_t column = columns_.find(serial);
        if (column < 0) {
            raise(model_error(),
                  "Variable in nonlinear expression has not been added to problem yet");
        }
        write_column(column);
    }

    // Around what a coefficient multiplies: 1 and -1 are not written.
    void begin_term(double coef) {
        if (coef != 1.0 && coef != -1.0) write_constant(coef);
    }
    void end_term(double coef) {
        if (coef != 1.0) write_operator(coef == -1.0 ? Op::negation : Op::product);
    }

    void write_linear(double coef, uint64_t serial) {
        begin_term(coef);
        write_term_variable(serial);
        end_term(coef);
    }

    void write_quadratic(double coef, uint64_t serial1, uint64_t serial2) {
        begin_term(coef);
        write_term_variable(serial1);
        write_term_variable(serial2);
        write_operator(Op::product);
        end_term(coef);
    }

    void write_expression(const ExpressionObject* e) {
        const auto linear = e->linear.canonical();
        const auto quadratic = e->quadratic.canonical();
        const std::size_t terms = linear.size() + quadratic.size();
        const bool has_constant = e->constant != 0.0 || terms == 0;
        Series sum(tokens_, Op::sum, terms + (has_constant ? 1 : 0));
        if (has_constant) {
            write_constant(e->constant);
            sum.next();
        }
        for (const LinearEntry& term : linear) {
            write_linear(term.coef, term.serial);
            sum.next();
        }
        for (const QuadraticEntry& term : quadratic) {
            write_quadratic(term.coef, term.serial1, term.serial2);
            sum.next();
        }
    }

    void write_node(const NonlinearObject* node, int depth) {
        require_levels(depth);
        if ((++nodes_ & 0xFFFFF) == 0) check_python(PyErr_CheckSignals());
        const uint32_t count = argument_count(node);
        require_arity(node, count);
        if (is_series(node->op)) return write_series(node, count, depth);
        if (is_operator(node->op)) {
            for (uint32_t i = 0; i < count; ++i) write(argument(node, i), depth - 1);
            return write_operator(node->op);
        }
        if (node->op <= Op::pwl) {
            write_arguments(node, 0, count, depth);
            return tokens_.add(Token::function, token_value(node->op));
        }
        const int32_t index = registered(node, count);
        write_arguments(node, 1, count, depth);
        tokens_.add(Token::user_function, index);
    }

    void write_series(const NonlinearObject* node, uint32_t count, int depth) {
        if (count == 0) return write_constant(0.0);
        Series series(tokens_, node->op, count);
        for (uint32_t i = 0; i < count; ++i) {
            write(argument(node, i), depth - 1);
            series.next();
        }
    }

    void write_arguments(const NonlinearObject* node, uint32_t first, uint32_t count, int depth) {
        tokens_.add(Token::argument_list, 0.0);
        for (uint32_t i = first; i < count; ++i) {
            if (i > first) tokens_.add(Token::comma, 0.0);
            write(argument(node, i), depth - 1);
        }
    }

    int32_t registered(const NonlinearObject* node, uint32_t count) {
        PyObject* function = argument(node, 0);
        if (PyCallable_Check(function) == 0) {
            raise(model_error(), "First argument of a user() operator must be the function itself");
        }
        return register_function_(function, node->op == Op::user_with_derivatives, count - 1);
    }

    FormulaTokens& tokens_;
    const IndexMap& columns_;
    RegisterFunction register_function_;
    unsigned nodes_ = 0;
};

// Undoes what an exception leaves half-written.
class Appending {
  public:
    explicit Appending(FormulaTokens& tokens) noexcept : tokens_(tokens), size_(tokens.size()) {}
    Appending(const Appending&) = delete;
    Appending& operator=(const Appending&) = delete;
    ~Appending() {
        if (!complete_) tokens_.cut(size_);
    }
    void finish() {
        tokens_.add(Token::end, 0.0);
        complete_ = true;
    }

  private:
    FormulaTokens& tokens_;
    std::size_t size_;
    bool complete_ = false;
};

void require_formula(PyObject* object) {
    if (kind_of(object) == Kind::invalid) raise(model_error(), "Cannot convert expression");
}

void make_room(FormulaTokens& tokens, PyObject* object) {
    const uint64_t used = std::min<uint64_t>(tokens.size() + 1, kMaxTokens);
    tokens.make_room(count_tokens(object, std::min(kMaxTokens - used, kMaxFormula)) + 1);
}

int32_t factor_column(PyObject* var, const IndexMap& columns) {
    const int32_t column = columns.find(var_serial(as_var(var)));
    if (column < 0) {
        raise(model_error(), "Variable in nonlinear term not added to problem yet");
    }
    return column;
}

}  // namespace

// ---- the public functions -------------------------------------------------------------------

void FormulaTokens::make_room(std::size_t extra) {
    constexpr std::size_t kFirst = 256;
    std::size_t room = std::max(types.capacity(), kFirst);
    while (room < types.size() + extra) room *= 2;
    types.reserve(room);
    values.reserve(room);
}

void FormulaTokens::cut(std::size_t size) noexcept {
    types.resize(std::min(size, types.size()));
    values.resize(std::min(size, values.size()));
}

void append_formula(FormulaTokens& tokens, PyObject* object, const IndexMap& columns,
                    RegisterFunction register_function) {
    require_formula(object);
    make_room(tokens, object);
    Appending appending(tokens);
    FormulaWriter(tokens, columns, register_function).write(object, kFormulaDepth);
    appending.finish();
}

Ref append_nonlinear_part(FormulaTokens& tokens, PyObject* object, const IndexMap& columns,
                          RegisterFunction register_function) {
    require_formula(object);
    make_room(tokens, object);
    TreeParts parts = split_tree(object);
    if (parts.others.empty()) return std::move(parts.polynomial);
    Appending appending(tokens);
    FormulaWriter(tokens, columns, register_function).write_sum(parts.others, kFormulaDepth);
    appending.finish();
    return std::move(parts.polynomial);
}

NonlinearCoefficient append_coefficient_form(FormulaTokens& tokens, PyObject* object,
                                             const IndexMap& columns,
                                             RegisterFunction register_function) {
    require_formula(object);
    make_room(tokens, object);
    NonlinearCoefficient result;
    std::vector<PyObject*> others;
    const bool is_product =
        kind_of(object) == Kind::nonlinear && as_nonlinear(object)->op == Op::product;
    const uint32_t count = is_product ? argument_count(as_nonlinear(object)) : 0;
    for (uint32_t i = 0; i < count; ++i) {
        PyObject* factor = argument(as_nonlinear(object), i);
        const Kind kind = kind_of(factor);
        if (kind == Kind::number) {
            result.coefficient *= number_value(factor);
        } else if (kind == Kind::var && result.column < 0) {
            result.column = factor_column(factor, columns);
        } else {
            others.push_back(factor);
        }
    }
    if (!is_product) others.push_back(object);
    Appending appending(tokens);
    FormulaWriter(tokens, columns, register_function)
        .write_product(others, is_product ? kFormulaDepth - 1 : kFormulaDepth);
    appending.finish();
    return result;
}

}  // namespace nalora
