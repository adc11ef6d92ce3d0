// Deletions: everything that is addressed by row, column or set index moves down together.
#include <algorithm>

#include "store/model.hpp"

namespace nlra {
namespace {

// Old index to new one, -1 for deleted.
std::vector<int> deletion_map(int size, const std::vector<int>& sorted) {
    std::vector<int> map(static_cast<size_t>(size));
    auto next = sorted.begin();
    int kept = 0;
    for (int i = 0; i < size; ++i) {
        if (next != sorted.end() && *next == i) {
            map[i] = -1;
            ++next;
        } else {
            map[i] = kept++;
        }
    }
    return map;
}

// The map from the solver's last known indices, carried over one more deletion.
std::vector<int> compose(const std::vector<int>& known_map, int known,
                         const std::vector<int>& map) {
    if (known_map.empty()) return {map.begin(), map.begin() + known};
    std::vector<int> composed(known_map);
    for (int& index : composed) {
        if (index >= 0) index = map[index];
    }
    return composed;
}

// Whole runs between the deleted places move down.
template <class T>
void compact(std::vector<T>& vector, const std::vector<int>& sorted) {
    auto to = vector.begin() + sorted.front();
    for (size_t k = 0; k < sorted.size(); ++k) {
        const auto from = vector.begin() + sorted[k] + 1;
        const auto end = k + 1 < sorted.size() ? vector.begin() + sorted[k + 1] : vector.end();
        to = std::move(from, end, to);
    }
    vector.erase(to, vector.end());
}

// Rows renumbered without touching what they hold, hence without memory.
template <class T>
void compact(std::map<int, T>& by_row, const std::vector<int>& map) {
    std::map<int, T> kept;
    while (!by_row.empty()) {
        auto node = by_row.extract(by_row.begin());
        if (map[node.key()] < 0) continue;
        node.key() = map[node.key()];
        kept.insert(kept.end(), std::move(node));
    }
    by_row.swap(kept);
}

// Values that need not be there for all.
void compact_known(std::vector<double>& values, int size, const std::vector<int>& sorted) {
    if (values.empty()) return;
    values.resize(static_cast<size_t>(size));
    compact(values, sorted);
}

// The order of terms survives, as the map keeps the order of columns.
void compact_terms(std::vector<QuadTerm>& terms, const std::vector<int>& map) {
    std::erase_if(terms, [&](const QuadTerm& t) { return map[t.col1] < 0 || map[t.col2] < 0; });
    for (QuadTerm& term : terms) {
        term.col1 = map[term.col1];
        term.col2 = map[term.col2];
    }
}

void compact_set(Set& set, const std::vector<int>& map) {
    size_t kept = 0;
    for (size_t i = 0; i < set.cols.size(); ++i) {
        if (map[set.cols[i]] < 0) continue;
        set.cols[kept] = map[set.cols[i]];
        set.weights[kept++] = set.weights[i];
    }
    set.cols.resize(kept);
    set.weights.resize(kept);
}

}  // namespace

void Model::delete_rows(const std::vector<int>& sorted) {
    rownames.reserve_removal(sorted.size());
    remove_rows(sorted);
    rownames.remove(sorted);
}

void Model::delete_cols(const std::vector<int>& sorted) {
    colnames.reserve_removal(sorted.size());
    remove_cols(sorted);
    colnames.remove(sorted);
}

void Model::delete_rows_later(const std::vector<int>& sorted) {
    rownames.reserve_removal(sorted.size());
    row_gaps_.reserve(sorted.size());
    rownames.remove(sorted);
    row_gaps_.add(sorted);
}

void Model::delete_cols_later(const std::vector<int>& sorted) {
    colnames.reserve_removal(sorted.size());
    col_gaps_.reserve(sorted.size());
    colnames.remove(sorted);
    col_gaps_.add(sorted);
}

void Model::finish_deletions() {
    if (!row_gaps_.empty()) remove_rows(row_gaps_.positions());
    row_gaps_.clear();
    if (!col_gaps_.empty()) remove_cols(col_gaps_.positions());
    col_gaps_.clear();
}

void Model::remove_rows(const std::vector<int>& sorted) {
    const std::vector<int> map = deletion_map(rows(), sorted);
    // Rows that no solver has seen yet leave no trace.
    const bool seen = !edits.row_map.empty() || sorted.front() < edits.known_rows;
    std::vector<int> row_map;
    if (seen) row_map = compose(edits.row_map, edits.known_rows, map);
    matrix.merge();

    if (seen) {
        edits.row_map.swap(row_map);
        touch_structure();
    }
    matrix.compact_rows(map);
    compact(rowtype, sorted);
    compact(rhs, sorted);
    compact(range, sorted);
    compact(qrows, map);
    compact(indicators, map);
    for (const int row : sorted) formulas.release_row(row);
    compact(formulas.rows, map);
    compact_known(formulas.last.dual, static_cast<int>(map.size()), sorted);
}

void Model::remove_cols(const std::vector<int>& sorted) {
    const std::vector<int> map = deletion_map(cols(), sorted);
    const bool seen = !edits.col_map.empty() || sorted.front() < edits.known_cols;
    std::vector<int> col_map;
    if (seen) col_map = compose(edits.col_map, edits.known_cols, map);
    matrix.merge();

    if (seen) edits.col_map.swap(col_map);
    touch_structure();
    matrix.compact_cols(map);
    for (const int col : sorted) entities_ -= coltype[col] != 'C';
    compact(obj, sorted);
    compact(lower, sorted);
    compact(upper, sorted);
    compact(limit, sorted);
    compact(coltype, sorted);
    compact_terms(qobj, map);
    for (auto row = qrows.begin(); row != qrows.end();) {
        compact_terms(row->second, map);
        row = row->second.empty() ? qrows.erase(row) : std::next(row);
    }
    for (Set& set : sets) compact_set(set, map);
    formulas.renumber_columns(map);
    compact_known(formulas.last.x, static_cast<int>(map.size()), sorted);
    compact_known(formulas.last.dj, static_cast<int>(map.size()), sorted);
    for (auto& [row, indicator] : indicators) indicator.col = map[indicator.col];
}

void Model::delete_sets(const std::vector<int>& sorted) {
    setnames.reserve_removal(sorted.size());
    compact(sets, sorted);
    setnames.remove(sorted);
    touch_structure();
}

}  // namespace nlra
