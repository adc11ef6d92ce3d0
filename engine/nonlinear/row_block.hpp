// Rows under construction, which a model takes over in one go.
#pragma once

#include <cstdint>
#include <vector>

#include "nonlinear/formula_roots.hpp"
#include "store/model.hpp"

namespace nlra {

class RowBlock {
  public:
    void begin(char type, double rhs, double range = 0.0) {
        type_.push_back(type);
        rhs_.push_back(rhs);
        range_.push_back(range);
        start_.push_back(static_cast<int64_t>(index_.size()));
    }
    // Terms of the same column are added up.
    void add(int col, double coefficient) {
        if (col >= static_cast<int>(place_.size()))
            place_.resize(2 * static_cast<size_t>(col) + 1, -1);
        int64_t& place = place_[col];
        if (place >= start_.back()) {
            value_[place] += coefficient;
            return;
        }
        place = static_cast<int64_t>(index_.size());
        index_.push_back(col);
        value_.push_back(coefficient);
    }
    // factor * (constant + terms); the constant goes to the row's side.
    void add(double factor, double constant, const LinearTerm* first, const LinearTerm* last) {
        rhs_.back() -= factor * constant;
        for (; first != last; ++first) add(first->col, factor * first->value);
    }

    int rows() const { return static_cast<int>(type_.size()); }
    void append_to(Model& model) const {
        model.add_rows(rows(), static_cast<int64_t>(index_.size()), type_.data(), rhs_.data(),
                       range_.data(), start_.data(), index_.data(), value_.data());
    }

  private:
    std::vector<char> type_;
    std::vector<double> rhs_, range_;
    std::vector<int64_t> start_;
    std::vector<int> index_;
    std::vector<double> value_;
    std::vector<int64_t> place_;  // by column: where it was put last
};

}  // namespace nlra
