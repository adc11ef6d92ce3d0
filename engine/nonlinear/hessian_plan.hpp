// Edge pushing (Gower and Mello 2012), planned: which second derivatives arise and move where does
// not depend on the point, so that an evaluation is a few passes over flat lists.
//
// Pairs of slots have weights. A nonlinear operation creates weight on pairs of its arguments; then
// from the last operation to the first, the weight of each pair (operation, other) is pushed on to
// the pairs (argument, other), times the partial derivative. What stays on pairs of columns is the
// Hessian.
#pragma once

#include <cstddef>
#include <vector>

#include "nonlinear/tape_plan.hpp"

namespace nlra {

class HessianPlan {
  public:
    HessianPlan(const TapePlan& plan, size_t max_steps);

    bool complete() const { return complete_; }
    const std::vector<int>& row() const { return row_; }
    const std::vector<int>& col() const { return col_; }

    // first: derivatives by edge; second: by number.
    bool evaluate(const TapePlan& plan, const std::vector<double>& first,
                  const std::vector<double>& second, const double* weights, double* out);

  private:
    friend class HessianPlanner;
    struct Push {  // weight[to] += coefficient[by] * weight[from]
        int to, from, by;
    };
    struct Creation {  // weight[to] += adjoint[slot] * second[by]
        int to, slot, by;
    };
    struct Constant {  // weight[to] += weights[root] * value
        int to, root;
        double value;
    };
    struct Product {  // coefficient[number of edges + i] = first[a] * first[b]
        int a, b;
    };
    struct Edge {  // adjoint[to] += first[by] * adjoint[from]
        int to, from, by;
    };

    bool complete_ = false;
    std::vector<int> row_, col_;
    std::vector<Edge> edges_;
    std::vector<Constant> constants_;
    std::vector<Creation> creations_;
    std::vector<Product> products_;
    std::vector<Push> pushes_;
    std::vector<double> weight_, adjoint_, coefficient_;
};

}  // namespace nlra
