// A model with sets, indicators, semi-continuous or partial integer columns as a plain mixed
// integer model (columns C, B and I only), by binaries and big-M rows. Exact: every constant comes
// from bounds that the columns have or the rows imply; where there is none the model is refused.
//
// What the types mean:
// - S, R: zero, or from the limit (the lower bound, if that is greater or the limit is zero) up to
//   the upper bound; R integral as well. Negative ranges are as good as positive ones.
// - P: integral up to the limit, any value from the limit to the upper bound.
// - sets: at most one column (type 1), or two that are neighbours by weight (type 2), not zero.
// - indicators: the row holds where the binary column has its value, otherwise it says nothing.
#pragma once

#include <vector>

#include "store/model.hpp"

namespace nlra {

class Reformulation {
  public:
    // Throws Error NLRA_ERROR_UNSUPPORTED naming the row or column whose bounds are not enough.
    explicit Reformulation(const Model& model);

    // Its first columns are those of the original model, its rows are others.
    Model& plain() { return plain_; }

    // Values for all columns of the plain model from values for the original ones, NaN where
    // unknown.
    std::vector<double> extend(const std::vector<double>& x) const;

    // The most by which x (original columns) misses what the plain model's binaries stand for: a
    // binary that is zero up to a tolerance lets a column with a wide range be not quite zero.
    double violation(const std::vector<double>& x) const;

  private:
    // How an added column follows from the original ones.
    enum class Role { kNonzero, kIntegerPart, kAboveLimit, kSegment };
    struct Added {
        Role role;
        int source;    // original column; for segments the set
        int position;  // for segments: the pair of neighbours (position, position + 1)
    };
    struct Builder;

    double extend_one(const Added& added, const std::vector<double>& x) const;

    const Model& original_;
    Model plain_;
    std::vector<Added> added_;
    std::vector<std::vector<int>> ordered_;  // columns of each set by weight, for type 2
};

}  // namespace nlra
