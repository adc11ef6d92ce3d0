// Reading the model back.
#include <algorithm>

#include "api/boundary.hpp"
#include "api/checks.hpp"

namespace nlra {
namespace {

// Entries first to last of one of the model's arrays.
template <class T>
int copy_range(NLRAprob prob, const char* function, std::vector<T> Model::*member, Kind kind,
               T* out, int first, int last) {
    return call(prob, function, Access::kPeek, [&](nlra_problem& problem) {
        const int count = check_range(first, last, kind_size(problem.model, kind), kind);
        if (out != nullptr) {
            std::copy_n((problem.model.*member).begin() + first, count, out);
        }
    });
}

// Quadratic objective of the columns first to last, as coefficients of 0.5 x'Qx.
template <class Start>
void quadratic_objective(const Model& model, Start* start, int* colind, double* value, int64_t size,
                         Start* ncoefs, int first, int last) {
    const int count = check_range(first, last, model.cols(), Kind::kColumn);
    check_count("size", size);
    const auto column_before = [](const QuadTerm& term, int col) { return term.col1 < col; };
    const auto begin = std::lower_bound(model.qobj.begin(), model.qobj.end(), first, column_before);
    auto term = begin;
    for (int col = first; col <= first + count; ++col) {
        if (start != nullptr) start[col - first] = static_cast<Start>(term - begin);
        if (col == first + count) break;
        for (; term != model.qobj.end() && term->col1 == col; ++term) {
            const int64_t k = term - begin;
            if (k >= size) continue;
            if (colind != nullptr) colind[k] = term->col2;
            if (value != nullptr) value[k] = (term->col1 == term->col2 ? 2.0 : 1.0) * term->value;
        }
    }
    if (ncoefs != nullptr) *ncoefs = static_cast<Start>(term - begin);
}

}  // namespace
}  // namespace nlra

using namespace nlra;

int NLRAgetlb(NLRAprob prob, double* lower, int first, int last) {
    return copy_range(prob, __func__, &Model::lower, Kind::kColumn, lower, first, last);
}

int NLRAgetub(NLRAprob prob, double* upper, int first, int last) {
    return copy_range(prob, __func__, &Model::upper, Kind::kColumn, upper, first, last);
}

int NLRAgetobj(NLRAprob prob, double* obj, int first, int last) {
    return copy_range(prob, __func__, &Model::obj, Kind::kColumn, obj, first, last);
}

int NLRAgetcoltype(NLRAprob prob, char* coltype, int first, int last) {
    return copy_range(prob, __func__, &Model::coltype, Kind::kColumn, coltype, first, last);
}

int NLRAgetrowtype(NLRAprob prob, char* rowtype, int first, int last) {
    return copy_range(prob, __func__, &Model::rowtype, Kind::kRow, rowtype, first, last);
}

int NLRAgetrhs(NLRAprob prob, double* rhs, int first, int last) {
    return copy_range(prob, __func__, &Model::rhs, Kind::kRow, rhs, first, last);
}

int NLRAgetrhsrange(NLRAprob prob, double* range, int first, int last) {
    return copy_range(prob, __func__, &Model::range, Kind::kRow, range, first, last);
}

int NLRAgetrows64(NLRAprob prob, int64_t* start, int* colind, double* value, int64_t size,
                  int64_t* ncoefs, int first, int last) {
    return call(prob, __func__, Access::kShare, [&](nlra_problem& problem) {
        const Model& model = problem.model;
        const int count = check_range(first, last, model.rows(), Kind::kRow);
        check_count("size", size);
        const std::vector<int64_t>& starts = model.matrix.start();
        const int64_t begin = starts[first];
        const int64_t total = starts[first + count] - begin;
        const int64_t written = std::min(size, total);
        for (int i = 0; start != nullptr && i <= count; ++i) start[i] = starts[first + i] - begin;
        if (colind != nullptr) {
            std::copy_n(model.matrix.index().begin() + begin, written, colind);
        }
        if (value != nullptr) std::copy_n(model.matrix.value().begin() + begin, written, value);
        if (ncoefs != nullptr) *ncoefs = total;
    });
}

int NLRAgetmqobj64(NLRAprob prob, int64_t* start, int* colind, double* value, int64_t size,
                   int64_t* ncoefs, int first, int last) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        quadratic_objective(problem.model, start, colind, value, size, ncoefs, first, last);
    });
}

int NLRAgetmqobj(NLRAprob prob, int* start, int* colind, double* value, int size, int* ncoefs,
                 int first, int last) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        if (problem.model.qobj.size() > 2147483647u) {
            fail(NLRA_ERROR_STATE, "too many quadratic terms for 32 bits: use NLRAgetmqobj64");
        }
        quadratic_objective(problem.model, start, colind, value, size, ncoefs, first, last);
    });
}

int NLRAgetqrowqmatrixtriplets(NLRAprob prob, int row, int64_t* ncoefs, int* col1, int* col2,
                               double* value) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        check_index("row", row, problem.model.rows(), Kind::kRow);
        const auto found = problem.model.qrows.find(row);
        int64_t k = 0;
        if (found != problem.model.qrows.end()) {
            for (const QuadTerm& term : found->second) {
                if (col1 != nullptr) col1[k] = term.col1;
                if (col2 != nullptr) col2[k] = term.col2;
                if (value != nullptr) {
                    value[k] = (term.col1 == term.col2 ? 1.0 : 0.5) * term.value;
                }
                ++k;
            }
        }
        if (ncoefs != nullptr) *ncoefs = k;
    });
}

int NLRAgetglobal64(NLRAprob prob, int* nentities, int* nsets, char* coltype, int* colind,
                    double* limit, char* settype, int64_t* start, int* setcols, double* weight) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        const Model& model = problem.model;
        int entity = 0;
        for (int col = 0; col < model.cols(); ++col) {
            if (model.coltype[col] == 'C') continue;
            if (coltype != nullptr) coltype[entity] = model.coltype[col];
            if (colind != nullptr) colind[entity] = col;
            if (limit != nullptr) limit[entity] = model.limit[col];
            ++entity;
        }
        int64_t element = 0;
        for (size_t i = 0; i < model.sets.size(); ++i) {
            const Set& set = model.sets[i];
            if (settype != nullptr) settype[i] = set.type;
            if (start != nullptr) start[i] = element;
            if (setcols != nullptr) std::copy(set.cols.begin(), set.cols.end(), setcols + element);
            if (weight != nullptr) {
                std::copy(set.weights.begin(), set.weights.end(), weight + element);
            }
            element += static_cast<int64_t>(set.cols.size());
        }
        if (start != nullptr) start[model.sets.size()] = element;
        if (nentities != nullptr) *nentities = entity;
        if (nsets != nullptr) *nsets = static_cast<int>(model.sets.size());
    });
}

int NLRAgetindicators(NLRAprob prob, int* colind, int* complement, int first, int last) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        const Model& model = problem.model;
        const int count = check_range(first, last, model.rows(), Kind::kRow);
        if (colind != nullptr) std::fill_n(colind, count, -1);
        if (complement != nullptr) std::fill_n(complement, count, 0);
        auto indicator = model.indicators.lower_bound(first);
        for (; indicator != model.indicators.end() && indicator->first < first + count;
             ++indicator) {
            if (colind != nullptr) colind[indicator->first - first] = indicator->second.col;
            if (complement != nullptr) {
                complement[indicator->first - first] = indicator->second.complement;
            }
        }
    });
}
