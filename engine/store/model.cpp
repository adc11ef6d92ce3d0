#include "store/model.hpp"

#include <algorithm>
#include <cmath>
#include <new>

#include "store/make_room.hpp"

namespace nlra {
namespace {

double clamp_infinite(double value) {
    return value > kInfinity ? kInfinity : value < -kInfinity ? -kInfinity : value;
}

// Append `count` values, clamped; `fill` where there is no array. Room has been made.
void append(std::vector<double>& vector, int count, const double* values, double fill) {
    if (count == 1) {
        vector.push_back(values != nullptr ? clamp_infinite(*values) : fill);
        return;
    }
    const size_t first = vector.size();
    vector.resize(first + static_cast<size_t>(count), fill);
    if (values == nullptr) return;
    double* const to = vector.data() + first;
    for (int i = 0; i < count; ++i) to[i] = clamp_infinite(values[i]);
}

// Note a change at `place` among `possible` places. A list that nobody consumes must not grow for
// ever: repeats are dropped whenever it is longer than all places together could make it.
template <class Place>
void record_in(std::vector<Place>& list, Place place, int64_t possible) {
    if (static_cast<int64_t>(list.size()) >= 2 * possible + 256) {
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
    }
    if (list.empty() || list.back() != place) list.push_back(place);
}

// As above, for a model's edits. Without memory for the note, the solver starts afresh instead: a
// batch of changes must not end half-way.
template <class Place>
void record(Model& model, std::vector<Place>& list, Place place, int64_t possible) {
    if (model.edits.rebuild) return;
    try {
        record_in(list, place, possible);
    } catch (const std::bad_alloc&) {
        model.touch_structure();
    }
}

// Sort, and make one of the terms of each pair: the last one, or their sum. Zeros stay.
enum class Repeats { kLast, kSum };
void normalize(std::vector<QuadTerm>& terms, Repeats repeats) {
    for (QuadTerm& term : terms) {
        if (term.col1 > term.col2) std::swap(term.col1, term.col2);
    }
    if (!std::is_sorted(terms.begin(), terms.end(), term_before)) {
        std::stable_sort(terms.begin(), terms.end(), term_before);
    }
    size_t kept = 0;
    for (const QuadTerm& term : terms) {
        if (kept > 0 && !term_before(terms[kept - 1], term)) {
            const double before = repeats == Repeats::kSum ? terms[kept - 1].value : 0.0;
            terms[kept - 1].value = before + term.value;
        } else {
            terms[kept++] = term;
        }
    }
    terms.resize(kept);
}

}  // namespace

double Model::row_lower(int row) const {
    switch (rowtype[row]) {
        case 'G':
        case 'E':
            return rhs[row];
        case 'R':
            return range[row] >= kInfinity ? -kInfinity : rhs[row] - range[row];
        default:
            return -kInfinity;
    }
}

double Model::row_upper(int row) const {
    switch (rowtype[row]) {
        case 'L':
        case 'E':
        case 'R':
            return rhs[row];
        default:
            return kInfinity;
    }
}

void Model::add_rows(int count, int64_t ncoefs, const char* type, const double* new_rhs,
                     const double* new_range, const int64_t* start, const int* colind,
                     const double* value) {
    matrix.reserve(count, ncoefs);
    make_room(rowtype, count);
    make_room(rhs, count);
    make_room(range, count);
    rownames.reserve(rows_left() + count);

    matrix.append_rows(count, ncoefs, start, colind, value);
    append(rhs, count, new_rhs, 0.0);
    for (int i = 0; i < count; ++i) {
        const bool ranged = type[i] == 'R' && new_range != nullptr;
        rowtype.push_back(type[i]);
        range.push_back(ranged ? std::abs(clamp_infinite(new_range[i])) : 0.0);
    }
    rownames.resize(rows_left());
}

void Model::add_cols(int count, int64_t ncoefs, const double* new_obj, const int64_t* start,
                     const int* rowind, const double* value, const double* new_lower,
                     const double* new_upper) {
    make_room(obj, count);
    make_room(lower, count);
    make_room(upper, count);
    make_room(limit, count);
    make_room(coltype, count);
    colnames.reserve(cols_left() + count);

    matrix.append_cols(cols(), count, ncoefs, start, rowind, value);
    if (ncoefs > 0 && edits.known_rows > 0) touch_structure();
    append(obj, count, new_obj, 0.0);
    append(lower, count, new_lower, 0.0);
    append(upper, count, new_upper, kInfinity);
    append(limit, count, nullptr, 0.0);
    coltype.insert(coltype.end(), static_cast<size_t>(count), 'C');
    colnames.resize(cols_left());
}

void Model::add_sets(std::vector<Set> added) {
    if (added.empty()) return;
    make_room(sets, static_cast<int>(added.size()));
    setnames.reserve(static_cast<int>(sets.size() + added.size()));
    for (Set& set : added) sets.push_back(std::move(set));
    setnames.resize(static_cast<int>(sets.size()));
    touch_structure();
}

bool Model::set_bounds(int col, double new_lower, double new_upper) {
    new_lower = clamp_infinite(new_lower);
    new_upper = clamp_infinite(new_upper);
    if (lower[col] == new_lower && upper[col] == new_upper) return false;
    if (col < edits.known_cols) record(*this, edits.bounds, col, cols());
    lower[col] = new_lower;
    upper[col] = new_upper;
    return true;
}

bool Model::set_type(int col, char type) {
    if (coltype[col] == type) return false;
    touch_structure();
    entities_ += (type != 'C') - (coltype[col] != 'C');
    coltype[col] = type;
    limit[col] = 0.0;
    return true;
}

bool Model::set_limit(int col, double value) {
    if (limit[col] == value) return false;
    touch_structure();
    limit[col] = value;
    return true;
}

bool Model::set_cost(int col, double value) {
    if (obj[col] == value) return false;
    if (col < edits.known_cols) record(*this, edits.costs, col, cols());
    obj[col] = value;
    return true;
}

bool Model::set_constant(double value) {
    if (constant == value) return false;
    edits.objective_offset = true;
    constant = value;
    return true;
}

bool Model::set_sense(double value) {
    if (sense == value) return false;
    edits.sense = true;
    sense = value;
    return true;
}

bool Model::set_rhs(int row, double value) {
    value = clamp_infinite(value);
    if (rhs[row] == value) return false;
    if (row < edits.known_rows) record(*this, edits.sides, row, rows());
    rhs[row] = value;
    return true;
}

bool Model::set_coef(int row, int col, double value) {
    if (!matrix.set(row, col, value)) return false;
    if (row < edits.known_rows) record(*this, edits.coefs, {row, col}, matrix.nonzeros());
    return true;
}

bool Model::set_qobj(std::vector<QuadTerm> changes) {
    normalize(changes, Repeats::kLast);
    std::vector<QuadTerm> merged;
    merged.reserve(qobj.size() + changes.size());
    auto old = qobj.begin();
    for (const QuadTerm& change : changes) {
        while (old != qobj.end() && term_before(*old, change)) merged.push_back(*old++);
        if (old != qobj.end() && !term_before(change, *old)) ++old;
        if (change.value != 0.0) merged.push_back(change);
    }
    merged.insert(merged.end(), old, qobj.end());
    if (merged == qobj) return false;
    touch_structure();
    qobj.swap(merged);
    return true;
}

bool Model::set_qrow(int row, std::vector<QuadTerm> terms) {
    normalize(terms, Repeats::kSum);
    std::erase_if(terms, [](const QuadTerm& term) { return term.value == 0.0; });
    const auto present = qrows.find(row);
    if (present == qrows.end() ? terms.empty() : terms == present->second) return false;
    if (terms.empty()) {
        qrows.erase(present);
    } else {
        qrows[row].swap(terms);
    }
    touch_structure();
    return true;
}

bool Model::set_indicator(int row, int col, int complement) {
    if (complement == 0) {
        if (indicators.erase(row) == 0) return false;
    } else {
        const Indicator wanted{col, complement};
        const auto [present, inserted] = indicators.try_emplace(row, wanted);
        if (!inserted && present->second == wanted) return false;
        present->second = wanted;
    }
    touch_structure();
    return true;
}

void Model::touch_structure() {
    edits.rebuild = true;
    edits.bounds.clear();
    edits.costs.clear();
    edits.sides.clear();
    edits.coefs.clear();
}

}  // namespace nlra
