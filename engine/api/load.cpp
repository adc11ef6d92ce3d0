// Loading: whole models and blocks of rows, columns, sets and quadratic rows. Everything is
// checked before the first change.
#include <algorithm>

#include "api/boundary.hpp"
#include "api/checks.hpp"

namespace nlra {
namespace {

// Columns as the loading functions take them, made contiguous: start has ncols entries.
struct Columns {
    std::vector<int64_t> start;
    std::vector<int> rowind;
    std::vector<double> value;
};

// Entries of column j go from start[j] to start[j] + count[j], or to start[j + 1].
template <class Start>
int64_t entries(const Start* start, const int* count, int col) {
    if (count != nullptr) return count[col];
    return start[col + 1] < start[col] ? -1 : int64_t{start[col + 1]} - int64_t{start[col]};
}

template <class Start>
Columns gather_columns(int ncols, const Start* start, const int* count, const int* rowind,
                       const double* value) {
    Columns columns;
    if (ncols == 0) return columns;
    check_array("start", start, ncols);
    columns.start.reserve(static_cast<size_t>(ncols));
    int64_t total = 0;
    for (int col = 0; col < ncols; ++col) {
        if (start[col] < 0) {
            fail(NLRA_ERROR_ARGUMENT, "start[%d] = %lld is negative", col,
                 static_cast<long long>(start[col]));
        }
        const int64_t length = entries(start, count, col);
        if (length < 0) {
            fail(NLRA_ERROR_ARGUMENT, "%s gives column %d a negative number of entries",
                 count != nullptr ? "count" : "start", col);
        }
        columns.start.push_back(total);
        total += length;
    }
    check_array("rowind", rowind, total);
    check_array("value", value, total);
    columns.rowind.resize(static_cast<size_t>(total));
    columns.value.resize(static_cast<size_t>(total));
    for (int col = 0; col < ncols; ++col) {
        const int64_t length = entries(start, count, col);
        if (length == 0) continue;
        std::copy_n(rowind + start[col], length, columns.rowind.begin() + columns.start[col]);
        std::copy_n(value + start[col], length, columns.value.begin() + columns.start[col]);
    }
    return columns;
}

void check_columns(int ncols, const double* obj, const double* lower, const double* upper) {
    if (obj != nullptr) check_finite("obj", obj, ncols);
    for (int col = 0; lower != nullptr && col < ncols; ++col) check_lower("lower", col, lower[col]);
    for (int col = 0; upper != nullptr && col < ncols; ++col) check_upper("upper", col, upper[col]);
}

template <class Start>
void load_model(nlra_problem& problem, const char* name, int ncols, int nrows, const char* rowtype,
                const double* rhs, const double* range, const double* obj, const Start* start,
                const int* count, const int* rowind, const double* value, const double* lower,
                const double* upper) {
    check_count("ncols", ncols);
    check_count("nrows", nrows);
    check_rowtypes(nrows, rowtype, rhs, range);
    check_array("obj", obj, ncols);
    check_columns(ncols, obj, lower, upper);
    const Columns columns = gather_columns(ncols, start, count, rowind, value);
    const int64_t ncoefs = static_cast<int64_t>(columns.value.size());
    check_block(problem.duplicates, ncols, ncoefs, columns.start.data(), "rowind",
                columns.rowind.data(), "value", columns.value.data(), nrows, Kind::kRow);

    Model model;
    if (name != nullptr) model.name = name;
    model.add_rows(nrows, 0, rowtype, rhs, range, nullptr, nullptr, nullptr);
    model.add_cols(ncols, ncoefs, obj, columns.start.data(), columns.rowind.data(),
                   columns.value.data(), lower, upper);
    problem.model = std::move(model);
    problem.mip_starts.clear();
    problem.drop_solutions();
}

// Content: the weights order the columns, so no two may be equal.
void check_weights(int set, const std::vector<double>& weights) {
    std::vector<double> sorted = weights;
    std::sort(sorted.begin(), sorted.end());
    const auto equal = std::adjacent_find(sorted.begin(), sorted.end());
    if (equal != sorted.end()) {
        fail(NLRA_ERROR_ARGUMENT, "weight: set %d has the weight %g twice", set, *equal);
    }
}

}  // namespace
}  // namespace nlra

using namespace nlra;

int NLRAloadlp(NLRAprob prob, const char* name, int ncols, int nrows, const char* rowtype,
               const double* rhs, const double* range, const double* obj, const int* start,
               const int* count, const int* rowind, const double* value, const double* lower,
               const double* upper) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        load_model(problem, name, ncols, nrows, rowtype, rhs, range, obj, start, count, rowind,
                   value, lower, upper);
    });
}

int NLRAloadlp64(NLRAprob prob, const char* name, int ncols, int nrows, const char* rowtype,
                 const double* rhs, const double* range, const double* obj, const int64_t* start,
                 const int* count, const int* rowind, const double* value, const double* lower,
                 const double* upper) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        load_model(problem, name, ncols, nrows, rowtype, rhs, range, obj, start, count, rowind,
                   value, lower, upper);
    });
}

int NLRAaddrows64(NLRAprob prob, int nrows, int64_t ncoefs, const char* rowtype, const double* rhs,
                  const double* range, const int64_t* start, const int* colind,
                  const double* value) {
    return call_unsettled(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        if (problem.model.cols_left() != problem.model.cols()) problem.settle();
        check_growth("nrows", problem.model.rows(), nrows);
        check_rowtypes(nrows, rowtype, rhs, range);
        check_block(problem.duplicates, nrows, ncoefs, start, "colind", colind, "value", value,
                    problem.model.cols(), Kind::kColumn);
        if (nrows == 0) return;
        problem.model.add_rows(nrows, ncoefs, rowtype, rhs, range, start, colind, value);
        problem.drop_solutions();
    });
}

int NLRAaddcols64(NLRAprob prob, int ncols, int64_t ncoefs, const double* obj, const int64_t* start,
                  const int* rowind, const double* value, const double* lower,
                  const double* upper) {
    return call_unsettled(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        if (ncoefs != 0) problem.settle();
        check_growth("ncols", problem.model.cols(), ncols);
        check_columns(ncols, obj, lower, upper);
        check_block(problem.duplicates, ncols, ncoefs, start, "rowind", rowind, "value", value,
                    problem.model.rows(), Kind::kRow);
        if (ncols == 0) return;
        problem.model.add_cols(ncols, ncoefs, obj, start, rowind, value, lower, upper);
        problem.drop_solutions();
    });
}

int NLRAaddsets64(NLRAprob prob, int nsets, int64_t nelems, const char* settype,
                  const int64_t* start, const int* colind, const double* weight) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        check_growth("nsets", kind_size(problem.model, Kind::kSet), nsets);
        check_array("settype", settype, nsets);
        for (int i = 0; i < nsets; ++i) {
            if (settype[i] != '1' && settype[i] != '2') {
                fail(NLRA_ERROR_ARGUMENT, "settype[%d] (code %d) is not one of 1 2", i,
                     static_cast<unsigned char>(settype[i]));
            }
        }
        check_block(problem.duplicates, nsets, nelems, start, "colind", colind, "weight", weight,
                    problem.model.cols(), Kind::kColumn);
        std::vector<Set> sets(static_cast<size_t>(nsets));
        for (int i = 0; nelems > 0 && i < nsets; ++i) {
            const int64_t end = i + 1 < nsets ? start[i + 1] : nelems;
            sets[i].cols.assign(colind + start[i], colind + end);
            sets[i].weights.assign(weight + start[i], weight + end);
            if (checked_mode()) check_weights(i, sets[i].weights);
        }
        for (int i = 0; i < nsets; ++i) sets[i].type = settype[i];
        if (nsets == 0) return;
        problem.model.add_sets(std::move(sets));
        problem.drop_solutions();
    });
}

int NLRAaddqmatrix64(NLRAprob prob, int row, int64_t ncoefs, const int* col1, const int* col2,
                     const double* value) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        check_index("row", row, problem.model.rows(), Kind::kRow);
        std::vector<QuadTerm> terms = check_terms(ncoefs, col1, col2, value, problem.model.cols());
        // An off-diagonal entry stands for both halves of the matrix.
        for (QuadTerm& term : terms) {
            if (term.col1 != term.col2) term.value *= 2.0;
        }
        if (problem.model.set_qrow(row, std::move(terms))) problem.drop_solutions();
    });
}
