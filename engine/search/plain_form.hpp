// A model with quadratic terms or formulas as one whose columns are of types C, B and I, without
// sets and indicators: the linear part by Reformulation, the rest as it is.
#pragma once

#include <optional>
#include <vector>

#include "search/reformulate.hpp"
#include "store/model.hpp"

namespace nlra {

class PlainForm {
  public:
    // Throws Error NLRA_ERROR_UNSUPPORTED where Reformulation does, and for rows with an indicator
    // that are not linear. The model must outlive this.
    explicit PlainForm(const Model& model);
    PlainForm(const PlainForm&) = delete;
    PlainForm& operator=(const PlainForm&) = delete;

    // Its first columns are those of the original model.
    const Model& model() const { return plain_; }
    // Values for all of its columns from values for the original ones, NaN where unknown.
    std::vector<double> extend(const std::vector<double>& x) const;
    // As Reformulation::violation, of values for all columns or the original ones.
    double violation(const std::vector<double>& x) const;

  private:
    void reformulate(const Model& model);

    Model linear_;  // what the reformulation is of
    std::optional<Reformulation> reformulation_;
    Model plain_;
};

}  // namespace nlra
