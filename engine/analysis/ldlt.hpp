// LDL^T factorization of sparse symmetric matrices without pivoting: multifrontal, on dense fronts.
// For matrices that need no pivoting: positive definite ones, and quasidefinite ones, whose pivots
// have known signs in every order.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace nlra {

// An entry (row, col) of a symmetric matrix; either triangle, repeats are added up.
struct SymmetricEntry {
    int row;
    int col;
    double value;
};

// Polled during long factorizations; true stops them.
using StopPoll = std::function<bool()>;

// Thrown by a factorization whose poll said so.
struct FactorizationStopped {};

class SparseLdlt {
  public:
    // Without a poll nothing stops a factorization.
    explicit SparseLdlt(StopPoll poll = {}) : poll_(std::move(poll)) {}

    // Order and plan the factorization of matrices with the pattern of these entries (values do
    // not matter). Every diagonal entry counts as present.
    void analyze(int n, const std::vector<SymmetricEntry>& entries);

    int size() const { return n_; }
    double flops() const { return flops_; }  // multiplications and additions of one factorization

    // Factor without keeping the factor; false at the first pivot that is not positive. `entries`
    // has the pattern and order that analyze() saw.
    bool is_positive_definite(const std::vector<SymmetricEntry>& entries);

    // Factor for solve(). Pivot i is expected to have the sign of signs[i]; one that does not
    // reach `floor` in that direction is replaced by +-floor.
    void factor(const std::vector<SymmetricEntry>& entries, const std::vector<signed char>& signs,
                double floor);
    void solve(std::vector<double>& b) const;

  private:
    // Columns first to first + width - 1 in elimination order share one front: these columns and
    // below them the rows rows_[rows_begin] to rows_[rows_begin + below - 1].
    struct Supernode {
        int first;
        int width;
        int below;
        int parent;
        int64_t rows_begin;
        int64_t factor_begin;  // (width + below) x width, by columns
    };

    void build_supernodes(const std::vector<int>& parent, const std::vector<int>& count);
    void plan_assembly(const std::vector<SymmetricEntry>& entries);
    bool run(const std::vector<SymmetricEntry>& entries, const std::vector<signed char>* signs,
             double floor);

    StopPoll poll_;
    int n_ = 0;
    double flops_ = 0.0;
    std::vector<int> order_, position_;  // elimination step to column and back
    std::vector<Supernode> supernodes_;
    std::vector<int> rows_;
    std::vector<int64_t> assembly_begin_;  // by supernode: entries to add to its front
    std::vector<int64_t> assembly_entry_;
    int64_t factor_size_ = 0;
    std::vector<double> factor_;  // unit lower triangular panels
    std::vector<double> pivots_;
};

}  // namespace nlra
