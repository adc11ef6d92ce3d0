// Checks of arguments. All throw Error NLRA_ERROR_ARGUMENT with a text that names the argument.
// Those marked "content" do nothing in unchecked mode; the others are what memory safety and
// meaning need.
#pragma once

#include <cstdint>

#include "api/problem.hpp"

namespace nlra {

enum class Kind { kRow, kColumn, kSet };

// Number of objects of this kind.
int kind_size(const Model& model, Kind kind);

// Counts are not negative.
void check_count(const char* name, int64_t count);
// An array is there when it has something to hold.
void check_array(const char* name, const void* array, int64_t count);
// `more` objects on top of `present` stay within what an index can address.
void check_growth(const char* name, int present, int more);
// One index.
void check_index(const char* name, int index, int size, Kind kind);
// Indices of an array that is there, too.
void check_indices(const char* name, const int* index, int64_t count, int size, Kind kind);
// Objects first to last; the result is their number. Empty (last = first - 1) is allowed.
int check_range(int first, int last, int size, Kind kind);
// Starts of `count` rows, columns or sets, the last of which ends at `ncoefs`.
void check_starts(const int64_t* start, int count, int64_t ncoefs);
// A whole block of coefficients in rows (or columns): count, starts, indices into `size` objects
// of `kind`, values. Content: finite values, no index twice in a row.
void check_block(DuplicateFinder& duplicates, int count, int64_t ncoefs, const int64_t* start,
                 const char* index_name, const int* index, const char* value_name,
                 const double* value, int size, Kind kind);
// The flags of a solve, of whatever class: each ignores the letters that it has no use for, so that
// a problem that changes its class is still solved by the same call. Empty for null.
const char* check_solve_flags(const char* flags);
// Content: neither NaN nor infinite.
void check_finite(const char* name, const double* value, int64_t count);

// Bounds that can be loaded: no NaN, a lower one below and an upper one above infinity.
void check_lower(const char* name, int position, double value);
void check_upper(const char* name, int position, double value);
// A right-hand side that a row of this type can have.
void check_rhs(const char* name, int position, char rowtype, double value);
void check_rowtypes(int count, const char* rowtype, const double* rhs, const double* range);
void check_coltype(int position, char type);

// The given indices of rows, columns or sets, ascending; repeats are an error.
std::vector<int> sorted_indices(const char* name, const int* index, int count, int size, Kind kind);

// Pairs of columns: indices in range, content: finite values, no pair twice.
std::vector<QuadTerm> check_terms(int64_t count, const int* col1, const int* col2,
                                  const double* value, int cols);

}  // namespace nlra
