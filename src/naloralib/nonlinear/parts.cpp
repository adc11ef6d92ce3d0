#include "nonlinear/parts.hpp"

#include <algorithm>
#include <cmath>

#include "nonlinear/formula_count.hpp"

namespace nalora {

namespace {

bool is_coefficient(double value) noexcept { return std::fabs(value) < kInfinity; }

bool fits_matrix(const ExpressionObject* e) {
    const auto fits = [](const auto& entry) { return is_coefficient(entry.coef); };
    const auto linear = e->linear.canonical();
    const auto quadratic = e->quadratic.canonical();
    return is_coefficient(e->constant) && std::all_of(linear.begin(), linear.end(), fits) &&
           std::all_of(quadratic.begin(), quadratic.end(), fits);
}

class TreeSplitter {
  public:
    explicit TreeSplitter(TreeParts& parts) noexcept
        : parts_(parts), polynomial_(as_expression(parts.polynomial.get())) {}

    void split(PyObject* object, double factor, int depth) {
        switch (argument_kind(object)) {
            case Kind::number:
                return accumulate<Kind::number>(polynomial_, object, factor);
            case Kind::var:
                return accumulate<Kind::var>(polynomial_, object, factor);
            case Kind::linterm:
                return accumulate<Kind::linterm>(polynomial_, object, factor);
            case Kind::quadterm:
                return accumulate<Kind::quadterm>(polynomial_, object, factor);
            case Kind::expression:
                return accumulate<Kind::expression>(polynomial_, object, factor);
            case Kind::nonlinear:
                if (!split_node(as_nonlinear(object), factor, depth)) {
                    parts_.others.push_back({factor, object});
                }
                return;
            case Kind::invalid:
                raise(model_error(), "Unrecognized member of a nonlinear expression");
        }
    }

  private:
    // False where a node is no sum.
    bool split_node(const NonlinearObject* node, double factor, int depth) {
        require_levels(depth);
        const uint32_t count = argument_count(node);
        switch (node->op) {
            case Op::sum:
                for (uint32_t i = 0; i < count; ++i) split(argument(node, i), factor, depth - 1);
                return true;
            case Op::minus:
                if (count != 2) return false;
                split(argument(node, 0), factor, depth - 1);
                split(argument(node, 1), -factor, depth - 1);
                return true;
            case Op::negation:
                if (count != 1) return false;
                split(argument(node, 0), -factor, depth - 1);
                return true;
            case Op::product:
                return split_product(node, count, factor, depth);
            case Op::quotient:
                if (count != 2 || argument_kind(argument(node, 1)) != Kind::number) return false;
                return split_scaled(argument(node, 0), factor / operand_value(argument(node, 1)),
                                    depth);
            default:
                return false;
        }
    }

    // Numbers times one other factor.
    bool split_product(const NonlinearObject* node, uint32_t count, double factor, int depth) {
        PyObject* other = nullptr;
        for (uint32_t i = 0; i < count; ++i) {
            PyObject* const object = argument(node, i);
            if (argument_kind(object) == Kind::number) {
                factor *= operand_value(object);
            } else if (other != nullptr) {
                return false;
            } else {
                other = object;
            }
        }
        return other != nullptr && split_scaled(other, factor, depth);
    }

    // Where a factor of zero or none at all would hide what is undefined, it stays in the formula.
    bool split_scaled(PyObject* object, double factor, int depth) {
        if (factor == 0.0 || !std::isfinite(factor)) return false;
        split(object, factor, depth - 1);
        return true;
    }

    TreeParts& parts_;
    ExpressionObject* polynomial_;
};

}  // namespace

TreeParts split_tree(PyObject* object) {
    TreeParts parts{new_expression(), {}};
    TreeSplitter(parts).split(object, 1.0, kFormulaDepth);
    if (!fits_matrix(as_expression(parts.polynomial.get()))) {
        parts = {new_expression(), {{1.0, object}}};
    }
    return parts;
}

}  // namespace nalora
