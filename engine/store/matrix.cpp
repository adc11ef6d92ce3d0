#include "store/matrix.hpp"

#include <algorithm>
#include <cstring>

#include "store/make_room.hpp"

namespace nlra {

void RowMatrix::reserve(int more_rows, int64_t more_coefs) {
    make_room(start_, more_rows);
    make_room(index_, more_coefs);
    make_room(value_, more_coefs);
}

void RowMatrix::append_rows(int count, int64_t ncoefs, const int64_t* start, const int* colind,
                            const double* value) {
    if (ncoefs == 0) {
        start_.insert(start_.end(), static_cast<size_t>(count), start_.back());
        return;
    }
    for (int row = 0; row < count; ++row) {
        const int64_t begin = start[row];
        const int64_t end = row + 1 < count ? start[row + 1] : ncoefs;
        for (int64_t k = begin; k < end; ++k) {
            if (value[k] == 0.0) continue;
            index_.push_back(colind[k]);
            value_.push_back(value[k]);
        }
        start_.push_back(static_cast<int64_t>(index_.size()));
    }
}

void RowMatrix::append_cols(int first_col, int count, int64_t ncoefs, const int64_t* start,
                            const int* rowind, const double* value) {
    if (ncoefs == 0) return;
    // A rebuild costs a pass over the whole matrix: not for a column or two of a large one.
    if (ncoefs < nonzeros() / 16) {
        append_cols_pending(first_col, count, ncoefs, start, rowind, value);
    } else {
        append_cols_rebuilding(first_col, count, ncoefs, start, rowind, value);
    }
}

void RowMatrix::append_cols_pending(int first_col, int count, int64_t ncoefs, const int64_t* start,
                                    const int* rowind, const double* value) {
    try {
        for (int col = 0; col < count; ++col) {
            const int64_t end = col + 1 < count ? start[col + 1] : ncoefs;
            for (int64_t k = start[col]; k < end; ++k) {
                if (value[k] != 0.0) pending_[key(rowind[k], first_col + col)] = value[k];
            }
        }
    } catch (...) {
        for (auto entry = pending_.begin(); entry != pending_.end();) {
            const bool is_new = static_cast<int>(entry->first & 0xffffffffu) >= first_col;
            entry = is_new ? pending_.erase(entry) : std::next(entry);
        }
        throw;
    }
}

void RowMatrix::append_cols_rebuilding(int first_col, int count, int64_t ncoefs,
                                       const int64_t* start, const int* rowind,
                                       const double* value) {
    merge();
    // place[row]: where the row's next new entry goes, after its old ones.
    std::vector<int64_t> place(start_.size(), 0);
    for (int64_t k = start[0]; k < ncoefs; ++k) {
        if (value[k] != 0.0) ++place[rowind[k] + 1];
    }
    std::vector<int64_t> new_start(start_.size());
    for (size_t row = 1; row < start_.size(); ++row) {
        new_start[row] = new_start[row - 1] + (start_[row] - start_[row - 1]) + place[row];
    }
    std::vector<int> new_index(static_cast<size_t>(new_start.back()));
    std::vector<double> new_value(new_index.size());
    for (size_t row = 0; row + 1 < start_.size(); ++row) {
        std::copy(index_.begin() + start_[row], index_.begin() + start_[row + 1],
                  new_index.begin() + new_start[row]);
        std::copy(value_.begin() + start_[row], value_.begin() + start_[row + 1],
                  new_value.begin() + new_start[row]);
        place[row] = new_start[row] + (start_[row + 1] - start_[row]);
    }
    for (int col = 0; col < count; ++col) {
        const int64_t end = col + 1 < count ? start[col + 1] : ncoefs;
        for (int64_t k = start[col]; k < end; ++k) {
            if (value[k] == 0.0) continue;
            const int64_t to = place[rowind[k]]++;
            new_index[to] = first_col + col;
            new_value[to] = value[k];
        }
    }
    start_.swap(new_start);
    index_.swap(new_index);
    value_.swap(new_value);
}

int64_t RowMatrix::find(int row, int col) const {
    const int* const base = index_.data();
    const int* const end = base + start_[row + 1];
    const int* const found = std::find(base + start_[row], end, col);
    return found == end ? -1 : found - base;
}

double RowMatrix::get(int row, int col) const {
    const int64_t position = find(row, col);
    if (position >= 0) return value_[position];
    if (pending_.empty()) return 0.0;
    const auto entry = pending_.find(key(row, col));
    return entry == pending_.end() ? 0.0 : entry->second;
}

bool RowMatrix::set(int row, int col, double value) {
    const int64_t position = find(row, col);
    if (position >= 0) {
        double& present = value_[position];
        if (present == value) return false;
        if (value == 0.0) ++zeros_;
        if (present == 0.0) --zeros_;
        present = value;
        return true;
    }
    if (value == 0.0) return !pending_.empty() && pending_.erase(key(row, col)) > 0;
    const auto [entry, inserted] = pending_.try_emplace(key(row, col), value);
    if (!inserted && entry->second == value) return false;
    entry->second = value;
    return true;
}

void RowMatrix::remove_zeros() const {
    int64_t to = 0;
    int64_t begin = 0;
    for (size_t row = 1; row < start_.size(); ++row) {
        const int64_t end = start_[row];
        for (int64_t k = begin; k < end; ++k) {
            if (value_[k] == 0.0) continue;
            index_[to] = index_[k];
            value_[to++] = value_[k];
        }
        begin = end;
        start_[row] = to;
    }
    index_.resize(static_cast<size_t>(to));
    value_.resize(static_cast<size_t>(to));
    zeros_ = 0;
}

void RowMatrix::merge_now() const {
    // Everything that can run out of memory comes first.
    std::vector<std::pair<uint64_t, double>> added(pending_.begin(), pending_.end());
    make_room(index_, static_cast<int64_t>(added.size()));
    make_room(value_, static_cast<int64_t>(added.size()));

    if (zeros_ != 0) remove_zeros();
    if (added.empty()) return;
    std::sort(added.begin(), added.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });

    // Rows move up from the last one on, each followed by its new entries, until all new entries
    // have found their place.
    int64_t to = static_cast<int64_t>(index_.size() + added.size());
    int64_t left = static_cast<int64_t>(added.size());
    index_.resize(static_cast<size_t>(to));
    value_.resize(static_cast<size_t>(to));
    for (int row = rows() - 1; left > 0; --row) {
        const int64_t begin = start_[row];
        const int64_t length = start_[row + 1] - begin;
        start_[row + 1] = to;
        while (left > 0 && static_cast<int>(added[left - 1].first >> 32) == row) {
            --left;
            --to;
            index_[to] = static_cast<int>(added[left].first & 0xffffffffu);
            value_[to] = added[left].second;
        }
        to -= length;
        std::memmove(index_.data() + to, index_.data() + begin, length * sizeof(int));
        std::memmove(value_.data() + to, value_.data() + begin, length * sizeof(double));
    }
    pending_.clear();
}

void RowMatrix::compact_rows(const std::vector<int>& map) {
    merge();
    int kept = 0;
    int64_t to = 0;
    int64_t begin = 0;
    for (size_t row = 0; row < map.size(); ++row) {
        const int64_t end = start_[row + 1];
        if (map[row] >= 0) {
            std::copy(index_.begin() + begin, index_.begin() + end, index_.begin() + to);
            std::copy(value_.begin() + begin, value_.begin() + end, value_.begin() + to);
            to += end - begin;
            start_[++kept] = to;
        }
        begin = end;
    }
    start_.resize(static_cast<size_t>(kept) + 1);
    index_.resize(static_cast<size_t>(to));
    value_.resize(static_cast<size_t>(to));
}

void RowMatrix::compact_cols(const std::vector<int>& map) {
    merge();
    int64_t to = 0;
    int64_t begin = 0;
    for (size_t row = 1; row < start_.size(); ++row) {
        const int64_t end = start_[row];
        for (int64_t k = begin; k < end; ++k) {
            const int col = map[index_[k]];
            if (col < 0) continue;
            index_[to] = col;
            value_[to++] = value_[k];
        }
        begin = end;
        start_[row] = to;
    }
    index_.resize(static_cast<size_t>(to));
    value_.resize(static_cast<size_t>(to));
}

}  // namespace nlra
