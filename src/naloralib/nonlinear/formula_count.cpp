#include "nonlinear/formula_count.hpp"

#include <algorithm>
#include <unordered_map>

namespace nalora {

namespace {

uint64_t count_expression(const ExpressionObject* e) {
    const uint64_t count = (e->constant != 0.0 ? 2 : 0) + 4 * e->linear.canonical().size() +
                           6 * e->quadratic.canonical().size();
    return std::max<uint64_t>(count, 2) - 1;
}

// Trees that share subtrees may stand for formulas that no memory holds, so after many visits the
// counts of larger subtrees are remembered.
class TokenCounter {
  public:
    explicit TokenCounter(uint64_t limit) noexcept : limit_(limit) {}

    uint64_t count(PyObject* object, int depth) {
        switch (argument_kind(object)) {
            case Kind::linterm:
                return 3;
            case Kind::quadterm:
                return 5;
            case Kind::expression:
                return count_expression(as_expression(object));
            case Kind::nonlinear:
                return count_known_node(as_nonlinear(object), depth);
            default:
                return 1;
        }
    }

    void check(uint64_t count) const {
        if (count <= limit_) return;
        raise(model_error(),
              "The formula is too long: written out, it takes more than %llu tokens; give what "
              "occurs in it again and again a variable and a constraint of its own",
              static_cast<unsigned long long>(limit_));
    }

  private:
    static constexpr uint64_t kForgotten = uint64_t{1} << 20;  // visits that leave no trace
    static constexpr uint64_t kLarge = 64;                     // tokens worth remembering

    uint64_t count_known_node(const NonlinearObject* node, int depth) {
        if (visited_ < kForgotten) [[likely]]
            return count_node(node, depth);
        const auto known = counts_.find(node);
        if (known != counts_.end()) return known->second;
        const uint64_t result = count_node(node, depth);
        if (result >= kLarge) counts_.emplace(node, result);
        return result;
    }

    uint64_t count_node(const NonlinearObject* node, int depth) {
        require_levels(depth);
        const uint64_t arguments = argument_count(node);
        visited_ += arguments;
        uint64_t result = is_series(node->op)     ? std::max<uint64_t>(arguments, 1)
                          : is_operator(node->op) ? 2
                                                  : 2 * arguments;
        for (uint32_t i = 0; i < arguments; ++i) {
            result += count(argument(node, i), depth - 1);
            check(result);
        }
        return result;
    }

    uint64_t limit_;
    uint64_t visited_ = 0;  // arguments
    std::unordered_map<const NonlinearObject*, uint64_t> counts_;
};

}  // namespace

void require_levels(int depth) {
    if (depth >= 1) return;
    raise(model_error(),
          "The expression tree depth reached the maximum limit, please reformulate or simplify the "
          "expression");
}

uint64_t count_tokens(PyObject* object, uint64_t limit) {
    TokenCounter counter(limit);
    const uint64_t result = counter.count(object, kFormulaDepth);
    counter.check(result);
    return result;
}

}  // namespace nalora
