#include "api/checks.hpp"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <string>

#include "api/environment.hpp"

namespace nlra {
namespace {

const char* noun(Kind kind) {
    return kind == Kind::kRow ? "row" : kind == Kind::kColumn ? "column" : "set";
}

[[noreturn]] void fail_index(const char* name, int index, int size, Kind kind) {
    if (size == 0) {
        fail(NLRA_ERROR_ARGUMENT, "%s = %d is not a %s (the problem has none)", name, index,
             noun(kind));
    }
    fail(NLRA_ERROR_ARGUMENT, "%s = %d is not a %s (0 to %d)", name, index, noun(kind), size - 1);
}

std::string element(const char* name, int64_t position) {
    return std::string(name) + "[" + std::to_string(position) + "]";
}

bool in_range(int index, int size) {
    return static_cast<unsigned>(index) < static_cast<unsigned>(size);
}

// NaN is not below, either.
bool is_finite(double value) { return std::fabs(value) < kInfinity; }

}  // namespace

int kind_size(const Model& model, Kind kind) {
    switch (kind) {
        case Kind::kRow:
            return model.rows();
        case Kind::kColumn:
            return model.cols();
        default:
            return static_cast<int>(model.sets.size());
    }
}

void check_count(const char* name, int64_t count) {
    if (count < 0) {
        fail(NLRA_ERROR_ARGUMENT, "%s = %lld is negative", name, static_cast<long long>(count));
    }
}

void check_array(const char* name, const void* array, int64_t count) {
    if (array == nullptr && count > 0) fail(NLRA_ERROR_ARGUMENT, "%s is null", name);
}

void check_growth(const char* name, int present, int more) {
    check_count(name, more);
    if (more > INT_MAX - present) {
        fail(NLRA_ERROR_ARGUMENT, "%s = %d is too large: %d are there already", name, more,
             present);
    }
}

void check_index(const char* name, int index, int size, Kind kind) {
    if (!in_range(index, size)) fail_index(name, index, size, kind);
}

void check_indices(const char* name, const int* index, int64_t count, int size, Kind kind) {
    check_array(name, index, count);
    bool good = true;
    for (int64_t k = 0; k < count; ++k) good &= in_range(index[k], size);
    if (good) return;
    const int64_t bad =
        std::find_if(index, index + count, [&](int i) { return !in_range(i, size); }) - index;
    fail_index(element(name, bad).c_str(), index[bad], size, kind);
}

int check_range(int first, int last, int size, Kind kind) {
    // The first of no objects may be the one behind the last.
    if (first >= 0 && first <= size && int64_t{last} == int64_t{first} - 1) return 0;
    check_index("first", first, size, kind);
    check_index("last", last, size, kind);
    if (first > last) fail(NLRA_ERROR_ARGUMENT, "first = %d is above last = %d", first, last);
    return last - first + 1;
}

void check_starts(const int64_t* start, int count, int64_t ncoefs) {
    check_count("ncoefs", ncoefs);
    if (count == 0 && ncoefs > 0) {
        fail(NLRA_ERROR_ARGUMENT, "ncoefs = %lld, but there is nothing to hold them",
             static_cast<long long>(ncoefs));
    }
    if (ncoefs == 0 && start == nullptr) return;
    check_array("start", start, count);
    int64_t before = 0;
    for (int i = 0; i < count; ++i) {
        if (start[i] < before || start[i] > ncoefs) {
            fail(NLRA_ERROR_ARGUMENT, "start[%d] = %lld is not in %lld to %lld", i,
                 static_cast<long long>(start[i]), static_cast<long long>(before),
                 static_cast<long long>(ncoefs));
        }
        before = start[i];
    }
}

void check_block(DuplicateFinder& duplicates, int count, int64_t ncoefs, const int64_t* start,
                 const char* index_name, const int* index, const char* value_name,
                 const double* value, int size, Kind kind) {
    check_starts(start, count, ncoefs);
    check_indices(index_name, index, ncoefs, size, kind);
    check_array(value_name, value, ncoefs);
    if (!checked_mode() || ncoefs == 0) return;
    check_finite(value_name, value, ncoefs);
    for (int i = 0; i < count; ++i) {
        const int64_t end = i + 1 < count ? start[i + 1] : ncoefs;
        const int64_t repeat = duplicates.find(index, start[i], end, size);
        if (repeat >= 0) {
            fail(NLRA_ERROR_ARGUMENT, "%s = %d is there twice between start[%d] and the next one",
                 element(index_name, repeat).c_str(), index[repeat], i);
        }
    }
}

const char* check_solve_flags(const char* flags) {
    if (flags == nullptr) return "";
    const char* const unknown = flags + std::strspn(flags, "dpblg");
    if (*unknown == '\0') return flags;
    fail(NLRA_ERROR_ARGUMENT, "flags: '%c' (code %d) is not one of dpblg", *unknown,
         static_cast<unsigned char>(*unknown));
}

void check_finite(const char* name, const double* value, int64_t count) {
    check_array(name, value, count);
    if (!checked_mode()) return;
    bool good = true;
    for (int64_t k = 0; k < count; ++k) good &= is_finite(value[k]);
    if (good) return;
    const int64_t bad = std::find_if_not(value, value + count, is_finite) - value;
    fail(NLRA_ERROR_ARGUMENT, "%s = %g is not a finite number", element(name, bad).c_str(),
         value[bad]);
}

void check_lower(const char* name, int position, double value) {
    if (value < kInfinity) return;
    fail(NLRA_ERROR_ARGUMENT, "%s = %g cannot be a lower bound", element(name, position).c_str(),
         value);
}

void check_upper(const char* name, int position, double value) {
    if (value > -kInfinity) return;
    fail(NLRA_ERROR_ARGUMENT, "%s = %g cannot be an upper bound", element(name, position).c_str(),
         value);
}

void check_rhs(const char* name, int position, char rowtype, double value) {
    bool good = false;
    switch (rowtype) {
        case 'L':
            good = value > -kInfinity;
            break;
        case 'G':
            good = value < kInfinity;
            break;
        case 'N':
            good = !std::isnan(value);
            break;
        default:
            good = is_finite(value);
    }
    if (good) return;
    fail(NLRA_ERROR_ARGUMENT, "%s = %g cannot be the right-hand side of a row of type %c",
         element(name, position).c_str(), value, rowtype);
}

void check_rowtypes(int count, const char* rowtype, const double* rhs, const double* range) {
    check_array("rowtype", rowtype, count);
    check_array("rhs", rhs, count);
    for (int i = 0; i < count; ++i) {
        switch (rowtype[i]) {
            case 'R':
                if (range != nullptr && std::isnan(range[i])) {
                    fail(NLRA_ERROR_ARGUMENT, "range[%d] is not a number", i);
                }
                break;
            case 'L':
            case 'G':
            case 'E':
            case 'N':
                break;
            default:
                fail(NLRA_ERROR_ARGUMENT, "rowtype[%d] (code %d) is not one of L G E R N", i,
                     static_cast<unsigned char>(rowtype[i]));
        }
        check_rhs("rhs", i, rowtype[i], rhs[i]);
    }
}

void check_coltype(int position, char type) {
    if (type != '\0' && std::string_view("CBISRP").find(type) != std::string_view::npos) return;
    fail(NLRA_ERROR_ARGUMENT, "coltype[%d] (code %d) is not one of C B I S R P", position,
         static_cast<unsigned char>(type));
}

std::vector<int> sorted_indices(const char* name, const int* index, int count, int size,
                                Kind kind) {
    check_count("n", count);
    check_indices(name, index, count, size, kind);
    std::vector<int> sorted(index, index + count);
    if (!std::is_sorted(sorted.begin(), sorted.end())) std::sort(sorted.begin(), sorted.end());
    const auto repeat = std::adjacent_find(sorted.begin(), sorted.end());
    if (repeat != sorted.end()) {
        fail(NLRA_ERROR_ARGUMENT, "%s: %s %d is there twice", name, noun(kind), *repeat);
    }
    return sorted;
}

std::vector<QuadTerm> check_terms(int64_t count, const int* col1, const int* col2,
                                  const double* value, int cols) {
    check_count("n", count);
    check_indices("col1", col1, count, cols, Kind::kColumn);
    check_indices("col2", col2, count, cols, Kind::kColumn);
    check_array("value", value, count);
    check_finite("value", value, count);
    std::vector<QuadTerm> terms(static_cast<size_t>(count));
    for (int64_t k = 0; k < count; ++k) {
        terms[k] = {std::min(col1[k], col2[k]), std::max(col1[k], col2[k]), value[k]};
    }
    if (!checked_mode()) return terms;
    std::vector<QuadTerm> sorted;
    const std::vector<QuadTerm>* ordered = &terms;
    if (!std::is_sorted(terms.begin(), terms.end(), term_before)) {
        sorted = terms;
        std::sort(sorted.begin(), sorted.end(), term_before);
        ordered = &sorted;
    }
    const auto repeat =
        std::adjacent_find(ordered->begin(), ordered->end(),
                           [](const QuadTerm& a, const QuadTerm& b) { return !term_before(a, b); });
    if (repeat != ordered->end()) {
        fail(NLRA_ERROR_ARGUMENT, "col1, col2: the pair of columns %d and %d is there twice",
             repeat->col1, repeat->col2);
    }
    return terms;
}

}  // namespace nlra
