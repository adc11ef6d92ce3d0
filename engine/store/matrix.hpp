// The constraint matrix by rows. Rows are appended in blocks; new coefficients of existing rows
// collect beside the main arrays and are merged in one pass when the matrix is next read.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace nlra {

class RowMatrix {
  public:
    int rows() const { return static_cast<int>(start_.size()) - 1; }
    int64_t nonzeros() const {
        return static_cast<int64_t>(index_.size()) - zeros_ + static_cast<int64_t>(pending_.size());
    }

    // Merged view: row i holds entries start()[i] to start()[i + 1], in no particular order of
    // columns. References stay valid until the next change.
    const std::vector<int64_t>& start() const { return merge(), start_; }
    const std::vector<int>& index() const { return merge(), index_; }
    const std::vector<double>& value() const { return merge(), value_; }

    // Room for appending, so that the append itself cannot run out of memory.
    void reserve(int more_rows, int64_t more_coefs);
    // Zero values are dropped. `start` has `count` entries, the last row ends at `ncoefs`. With
    // ncoefs zero the arrays may be null. Changes nothing when room was made and memory runs out.
    void append_rows(int count, int64_t ncoefs, const int64_t* start, const int* colind,
                     const double* value);
    // Coefficients of the new columns first_col, ...; arrays by column as above. No coefficient
    // of these columns may exist yet. Changes nothing when it runs out of memory.
    void append_cols(int first_col, int count, int64_t ncoefs, const int64_t* start,
                     const int* rowind, const double* value);
    double get(int row, int col) const;
    // Zero removes the entry. False when the coefficient has this value already.
    bool set(int row, int col, double value);
    // Old index to new one, -1 for deleted. Cannot fail once the matrix is merged.
    void compact_rows(const std::vector<int>& map);
    void compact_cols(const std::vector<int>& map);
    void clear() { *this = RowMatrix(); }

    void merge() const {
        if (zeros_ != 0 || !pending_.empty()) merge_now();
    }

  private:
    static uint64_t key(int row, int col) {
        return static_cast<uint64_t>(static_cast<uint32_t>(row)) << 32 | static_cast<uint32_t>(col);
    }
    int64_t find(int row, int col) const;
    void merge_now() const;
    void remove_zeros() const;
    void append_cols_pending(int first_col, int count, int64_t ncoefs, const int64_t* start,
                             const int* rowind, const double* value);
    void append_cols_rebuilding(int first_col, int count, int64_t ncoefs, const int64_t* start,
                                const int* rowind, const double* value);

    // Between merges index_ may hold entries of value zero (removed ones), and pending_ the
    // non-zero entries that index_ has no place for.
    mutable std::vector<int64_t> start_{0};
    mutable std::vector<int> index_;
    mutable std::vector<double> value_;
    mutable int64_t zeros_ = 0;
    mutable std::unordered_map<uint64_t, double> pending_;  // (row, col) to new entry
};

}  // namespace nlra
