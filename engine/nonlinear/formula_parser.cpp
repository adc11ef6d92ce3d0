#include "nonlinear/formula_parser.hpp"

#include <cmath>
#include <utility>

#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

namespace {

// A sum negated in place has at most so many terms: a longer one becomes a node first, so that
// nested differences cost linear time.
constexpr int kCopiedTerms = 8;

Op unary_op(int function) {
    switch (function) {
        case kFunctionLog10:
            return Op::kLog10;
        case kFunctionLog:
            return Op::kLog;
        case kFunctionExp:
            return Op::kExp;
        case kFunctionAbs:
            return Op::kAbs;
        case kFunctionSqrt:
            return Op::kSqrt;
        case kFunctionSin:
            return Op::kSin;
        case kFunctionCos:
            return Op::kCos;
        case kFunctionTan:
            return Op::kTan;
        case kFunctionAsin:
            return Op::kAsin;
        case kFunctionAcos:
            return Op::kAcos;
        case kFunctionAtan:
            return Op::kAtan;
        case kFunctionSign:
            return Op::kSign;
        case kFunctionErf:
            return Op::kErf;
        default:
            return Op::kErfc;
    }
}

// Sums and products stay open on the operand stack: their terms or factors lie side by side in one
// vector, so that joining two neighbours costs nothing, however deep they are nested. Closing one
// that is not on top leaves holes (node -1) behind.
class Parser {
  public:
    explicit Parser(Graph& graph) : graph_(graph) { push_constant(0.0); }

    void add_piece(const FormulaPiece& piece) {
        for (size_t i = 0; i < piece.tokens && piece.types[i] != NSLP_TOKEN_END; ++i) {
            token(piece.types[i], piece.values[i]);
        }
        if (piece.column >= 0) {
            push_node(graph_.column(piece.column));
            multiply();
        }
        if (piece.factor != 1.0) {
            push_constant(piece.factor);
            multiply();
        }
        add();
    }

    // Leaves nothing behind.
    Terms result() {
        to_sum(0);
        Terms sum;
        sum.constant = items_[0].constant;
        std::erase_if(entries_, [](const Entry& entry) { return entry.node < 0; });
        sum.terms = std::move(entries_);
        return sum;
    }

  private:
    // constant + the terms, or constant * the factors; a plain constant has none. The entries
    // reach to the next item's begin.
    struct Item {
        double constant;
        size_t begin;
        size_t size;  // without holes
        bool is_sum;
    };

    void push_constant(double value) { items_.push_back({value, entries_.size(), 0, false}); }
    void push_node(Scaled a) {
        push_constant(a.factor);
        if (a.is_constant()) return;
        entries_.push_back({1.0, a.node});
        items_.back().size = 1;
    }

    size_t end_of(size_t index) const {
        return index + 1 < items_.size() ? items_[index + 1].begin : entries_.size();
    }

    // The one entry of an item of size 1, from now on its first.
    Entry& only(size_t index) {
        size_t at = items_[index].begin;
        while (entries_[at].node < 0) ++at;
        std::swap(entries_[items_[index].begin], entries_[at]);
        return entries_[items_[index].begin];
    }

    Scaled close(size_t index) {
        const Item& item = items_[index];
        const Entry* first = entries_.data() + item.begin;
        if (item.size == 0) return {item.constant, -1};
        if (item.size == 1 && !item.is_sum) return {item.constant, only(index).node};
        scratch_.clear();
        for (const Entry* entry = first; entry != entries_.data() + end_of(index); ++entry) {
            if (entry->node >= 0) scratch_.push_back(*entry);
        }
        return item.is_sum ? graph_.sum(item.constant, scratch_)
                           : graph_.product(item.constant, scratch_);
    }

    // Put the closed value back in the item's place, as a product.
    void collapse(size_t index) {
        const Scaled value = close(index);
        const size_t end = end_of(index);
        Item& item = items_[index];
        item = {value.factor, item.begin, value.is_constant() ? 0u : 1u, false};
        if (index + 1 == items_.size()) {
            entries_.resize(item.begin + item.size);
        } else {
            for (size_t i = item.begin + item.size; i < end; ++i) entries_[i].node = -1;
        }
        if (item.size == 1) entries_[item.begin] = {1.0, value.node};
    }

    void to_sum(size_t index) {
        if (items_[index].is_sum) return;
        if (items_[index].size > 1) collapse(index);
        Item& item = items_[index];
        item.is_sum = true;
        if (item.size == 0) return;
        only(index).value = item.constant;
        item.constant = 0.0;
    }

    void to_product(size_t index) {
        Item& item = items_[index];
        if (!item.is_sum) return;
        if (item.size == 1 && item.constant == 0.0) {
            item.constant = only(index).value;
            item.is_sum = false;
        } else {
            collapse(index);
        }
    }

    void add() {
        const size_t right = items_.size() - 1;
        to_sum(right);
        to_sum(right - 1);
        Item& sum = items_[right - 1];
        sum.constant += items_[right].constant;
        sum.size += items_[right].size;
        items_.pop_back();
    }

    void negate() {
        Item& item = items_.back();
        if (item.is_sum && entries_.size() - item.begin > kCopiedTerms) {
            to_product(items_.size() - 1);
        }
        item.constant = -item.constant;
        if (!item.is_sum) return;
        for (size_t i = item.begin; i < entries_.size(); ++i) entries_[i].value *= -1.0;
    }

    void multiply() {
        const size_t right = items_.size() - 1;
        to_product(right);
        to_product(right - 1);
        const double other = items_[right].constant;
        Item& product = items_[right - 1];
        product.size += items_[right].size;
        items_.pop_back();
        if (std::isfinite(product.constant * other)) {
            product.constant *= other;
        } else {
            // Other factors may bring the product back into range.
            entries_.push_back({1.0, graph_.materialize({other, -1})});
            ++product.size;
        }
        if (product.constant != 0.0) return;
        product.size = 0;
        entries_.resize(product.begin);
    }

    Scaled pop() {
        const Scaled value = close(items_.size() - 1);
        entries_.resize(items_.back().begin);
        items_.pop_back();
        return value;
    }

    void pop_arguments() {
        const size_t begin = lists_.back();
        lists_.pop_back();
        args_.clear();
        for (size_t i = begin; i < items_.size(); ++i) args_.push_back(close(i));
        if (begin < items_.size()) entries_.resize(items_[begin].begin);
        items_.resize(begin);
    }

    void token(int type, double value) {
        switch (type) {
            case NSLP_TOKEN_CONSTANT:
                return push_constant(value);
            case NSLP_TOKEN_COLUMN:
                return push_node(graph_.column(static_cast<int>(value)));
            case NSLP_TOKEN_ARGUMENTS:
                return lists_.push_back(items_.size());
            case NSLP_TOKEN_COMMA:
                return;
            case NSLP_TOKEN_OPERATOR:
                return apply(static_cast<int>(value));
            case NSLP_TOKEN_USERFUNCTION:
                pop_arguments();
                return push_node(graph_.call(static_cast<int>(value), args_));
            default:
                pop_arguments();
                return push_node(function(static_cast<int>(value)));
        }
    }

    void apply(int op) {
        switch (op) {
            case NSLP_OPERATOR_NEGATE:
                return negate();
            case NSLP_OPERATOR_PLUS:
                return add();
            case NSLP_OPERATOR_MINUS:
                negate();
                return add();
            case NSLP_OPERATOR_MULTIPLY:
                return multiply();
            default:
                break;
        }
        const Scaled right = pop();
        const Scaled left = pop();
        push_node(op == NSLP_OPERATOR_DIVIDE ? graph_.divide(left, right)
                                             : graph_.power(left, right));
    }

    Scaled function(int number) {
        switch (number) {
            case kFunctionMin:
                return graph_.extreme(Op::kMin, args_);
            case kFunctionMax:
                return graph_.extreme(Op::kMax, args_);
            case kFunctionPiecewise: {
                const Scaled x = args_.front();
                args_.erase(args_.begin());
                check_points();
                return graph_.piecewise(x, args_);
            }
            default:
                return graph_.unary(unary_op(number), args_.front());
        }
    }

    void check_points() const {
        for (const Scaled& point : args_) {
            if (!point.is_constant() || !std::isfinite(point.factor)) {
                fail(NLRA_ERROR_ARGUMENT,
                     "formula: a point of a piecewise linear function is not a finite number");
            }
        }
        const auto x = [&](size_t i) { return args_[2 * i].factor; };
        for (size_t i = 1; i < args_.size() / 2; ++i) {
            if (!(x(i) >= x(i - 1))) {
                fail(NLRA_ERROR_ARGUMENT,
                     "formula: the points of a piecewise linear function are not in order "
                     "(%g comes before %g)",
                     x(i - 1), x(i));
            }
            if (i > 1 && x(i) == x(i - 2)) {
                fail(NLRA_ERROR_ARGUMENT,
                     "formula: a piecewise linear function has three points at %g", x(i));
            }
        }
    }

    Graph& graph_;
    std::vector<Item> items_;
    std::vector<Entry> entries_;
    std::vector<size_t> lists_;
    std::vector<Scaled> args_;
    std::vector<Entry> scratch_;
};

}  // namespace

Terms parse_formula(Graph& graph, const std::vector<FormulaPiece>& pieces,
                    const FormulaScope& scope) {
    check_pieces(pieces, scope);
    size_t tokens = 0;
    for (const FormulaPiece& piece : pieces) tokens += piece.tokens;
    graph.reserve(tokens / 2);
    Parser parser(graph);
    for (const FormulaPiece& piece : pieces) parser.add_piece(piece);
    return parser.result();
}

}  // namespace nlra
