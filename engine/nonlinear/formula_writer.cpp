#include "nonlinear/formula_writer.hpp"

#include <algorithm>

#include "nonlinear/formula.hpp"

namespace nlra {

namespace {

int function_of(Op op) {
    switch (op) {
        case Op::kMin:
            return kFunctionMin;
        case Op::kMax:
            return kFunctionMax;
        case Op::kPiecewise:
            return kFunctionPiecewise;
        case Op::kSqrt:
            return kFunctionSqrt;
        case Op::kExp:
            return kFunctionExp;
        case Op::kLog:
            return kFunctionLog;
        case Op::kLog10:
            return kFunctionLog10;
        case Op::kSin:
            return kFunctionSin;
        case Op::kCos:
            return kFunctionCos;
        case Op::kTan:
            return kFunctionTan;
        case Op::kAsin:
            return kFunctionAsin;
        case Op::kAcos:
            return kFunctionAcos;
        case Op::kAtan:
            return kFunctionAtan;
        case Op::kAbs:
            return kFunctionAbs;
        case Op::kSign:
            return kFunctionSign;
        case Op::kErf:
            return kFunctionErf;
        default:
            return kFunctionErfc;
    }
}

// Formulas can be deeper than the call stack: what is still to be written waits on one of our own,
// last things first.
class Writer {
  public:
    Writer(const Graph& graph, const std::vector<int>& columns)
        : graph_(graph), columns_(columns) {}

    Coefficient write(const RootParts& parts) {
        add_constant(parts.constant);
        for (const LinearTerm& term : parts.linear) {
            emit(NSLP_TOKEN_COLUMN, term.col);
            add_scaled(term.value);
        }
        for (const QuadTerm& term : parts.quadratic) {
            emit(NSLP_TOKEN_COLUMN, term.col1);
            emit(NSLP_TOKEN_COLUMN, term.col2);
            emit(NSLP_TOKEN_OPERATOR, NSLP_OPERATOR_MULTIPLY);
            add_scaled(term.value);
        }
        for (const Entry& term : parts.rest) {
            write_node(term.node);
            add_scaled(term.value);
        }
        if (!has_term_) emit(NSLP_TOKEN_CONSTANT, 0.0);
        return std::move(out_);
    }

  private:
    struct Item {
        int node;  // -1: the token
        int type;
        double value;
    };

    void emit(int type, double value) {
        out_.types.push_back(type);
        out_.values.push_back(value);
    }
    void add_constant(double value) {
        if (value == 0.0) return;
        emit(NSLP_TOKEN_CONSTANT, value);
        has_term_ = true;
    }
    // Scales what has just been written and adds it to what came before.
    void add_scaled(double factor) {
        if (factor == -1.0 && !has_term_) {
            emit(NSLP_TOKEN_OPERATOR, NSLP_OPERATOR_NEGATE);
        } else if (factor != 1.0 && factor != -1.0) {
            emit(NSLP_TOKEN_CONSTANT, factor);
            emit(NSLP_TOKEN_OPERATOR, NSLP_OPERATOR_MULTIPLY);
        }
        if (has_term_) {
            emit(NSLP_TOKEN_OPERATOR, factor == -1.0 ? NSLP_OPERATOR_MINUS : NSLP_OPERATOR_PLUS);
        }
        has_term_ = true;
    }

    void write_node(int root) {
        pending_.push_back({root, 0, 0.0});
        while (!pending_.empty()) {
            const Item item = pending_.back();
            pending_.pop_back();
            if (item.node < 0) {
                emit(item.type, item.value);
                continue;
            }
            const size_t begin = pending_.size();
            expand(item.node);
            std::reverse(pending_.begin() + static_cast<std::ptrdiff_t>(begin), pending_.end());
        }
    }

    void then(int type, double value) { pending_.push_back({-1, type, value}); }
    void then_node(int node) { pending_.push_back({node, 0, 0.0}); }
    void then_apply(int op) { then(NSLP_TOKEN_OPERATOR, op); }

    // What a node consists of, in the order of writing.
    void expand(int index) {
        const Node& node = graph_.node(index);
        if (static_cast<size_t>(index) < columns_.size() && columns_[index] >= 0) {
            return then(NSLP_TOKEN_COLUMN, columns_[index]);
        }
        switch (node.op) {
            case Op::kConstant:
                return then(NSLP_TOKEN_CONSTANT, node.param);
            case Op::kColumn:
                return then(NSLP_TOKEN_COLUMN, node.first);
            case Op::kSum:
                return expand_sum(node);
            case Op::kProduct:
                return expand_binary(node, NSLP_OPERATOR_MULTIPLY);
            case Op::kDivide:
                return expand_binary(node, NSLP_OPERATOR_DIVIDE);
            case Op::kGeneralPower:
                return expand_binary(node, NSLP_OPERATOR_POWER);
            case Op::kPower:
                return expand_power(node, node.param);
            case Op::kSquare:
                return expand_power(node, 2.0);
            case Op::kCube:
                return expand_power(node, 3.0);
            case Op::kReciprocal:
                then(NSLP_TOKEN_CONSTANT, 1.0);
                then_node(node.first);
                return then_apply(NSLP_OPERATOR_DIVIDE);
            case Op::kCall:
                expand_arguments(node);
                return then(NSLP_TOKEN_USERFUNCTION, node.param);
            case Op::kMin:
            case Op::kMax:
            case Op::kPiecewise:
                expand_arguments(node);
                return then(NSLP_TOKEN_FUNCTION, function_of(node.op));
            default:
                then(NSLP_TOKEN_ARGUMENTS, 0.0);
                then_node(node.first);
                then(NSLP_TOKEN_FUNCTION, function_of(node.op));
        }
    }

    void expand_sum(const Node& node) {
        then(NSLP_TOKEN_CONSTANT, node.param);
        for (int k = 0; k < node.second; ++k) {
            const Entry& term = graph_.entries(node)[k];
            then_node(term.node);
            if (term.value != 1.0) {
                then(NSLP_TOKEN_CONSTANT, term.value);
                then_apply(NSLP_OPERATOR_MULTIPLY);
            }
            then_apply(NSLP_OPERATOR_PLUS);
        }
    }

    void expand_binary(const Node& node, int op) {
        then_node(node.first);
        then_node(node.second);
        then_apply(op);
    }

    void expand_power(const Node& node, double exponent) {
        then_node(node.first);
        then(NSLP_TOKEN_CONSTANT, exponent);
        then_apply(NSLP_OPERATOR_POWER);
    }

    void expand_arguments(const Node& node) {
        then(NSLP_TOKEN_ARGUMENTS, 0.0);
        for (int k = 0; k < node.second; ++k) {
            const Entry& entry = graph_.entries(node)[k];
            if (k > 0) then(NSLP_TOKEN_COMMA, 0.0);
            if (entry.node < 0) {
                then(NSLP_TOKEN_CONSTANT, entry.value);
            } else {
                then_node(entry.node);
            }
        }
    }

    const Graph& graph_;
    const std::vector<int>& columns_;
    std::vector<Item> pending_;
    Coefficient out_;
    bool has_term_ = false;
};

}  // namespace

Coefficient write_formula(const Graph& graph, const RootParts& parts,
                          const std::vector<int>& columns) {
    return Writer(graph, columns).write(parts);
}

}  // namespace nlra
