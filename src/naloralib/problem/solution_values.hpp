// The values of a point by index. Those of a problem's last solution are read as they are asked
// for: one at a time as long as they are few, whatever the model's size, and all at once when they
// turn out to be many.
#pragma once

#include <cstdint>
#include <memory>

#include "problem/problem.hpp"

namespace nalora {

enum class SolutionKind { primal, slack, dual, reduced_cost };

class PointValues {
  public:
    // Of the last solution: primal values and reduced costs by column, the others by row. Raises
    // what tells why there is none.
    PointValues(ProblemObject* p, SolutionKind kind);
    // Given values, which must outlive this.
    PointValues(const double* values, int64_t count) noexcept : all_(values), count_(count) {}
    PointValues(const PointValues&) = delete;
    PointValues& operator=(const PointValues&) = delete;

    int64_t count() const noexcept { return count_; }
    // For an index from 0 to count() - 1.
    double operator[](int64_t index) { return all_ != nullptr ? all_[index] : fetch(index); }
    // All of them. They stay as they are from here on: to be called before foreign code runs, which
    // may change the problem.
    const double* all() {
        if (all_ == nullptr) copy_all();
        return all_;
    }

  private:
    enum class Source { linear, mixed_integer, nonlinear };

    double fetch(int64_t index);
    double read_one(int64_t index);
    void copy_all();
    void check(int status) const;

    const double* all_ = nullptr;
    int64_t count_ = 0;
    ProblemObject* problem_ = nullptr;
    SolutionKind kind_ = SolutionKind::primal;
    Source source_ = Source::linear;
    int64_t budget_ = 0;  // values to be read one at a time before all are copied
    std::unique_ptr<double[]> copy_;
};

}  // namespace nalora
