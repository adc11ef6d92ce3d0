// Changes of what is loaded, and deletions. A call goes through all its arguments before it changes
// the first thing; one that changes nothing leaves the results of the last solve alone.
#include <algorithm>
#include <cmath>

#include "api/boundary.hpp"
#include "api/checks.hpp"

namespace nlra {
namespace {

// A binary column keeps to 0 and 1: with wider bounds it becomes a general integer one.
void widen_binary(Model& model, int col) {
    if (model.coltype[col] == 'B' && (model.lower[col] < 0.0 || model.upper[col] > 1.0)) {
        model.set_type(col, 'I');
    }
}

bool is_binary(const Model& model, int col) {
    const char type = model.coltype[col];
    return (type == 'B' || type == 'I') && model.lower[col] >= 0.0 && model.upper[col] <= 1.0;
}

void check_limit(int position, int col, char type, double limit) {
    if (type != 'S' && type != 'R' && type != 'P') {
        fail(NLRA_ERROR_ARGUMENT, "colind[%d]: column %d is of type %c, which has no limit",
             position, col, type);
    }
    if (!(std::fabs(limit) < kInfinity) || (type != 'P' && limit < 0.0)) {
        fail(NLRA_ERROR_ARGUMENT, "limit[%d] = %g cannot be the limit of a column of type %c",
             position, limit, type);
    }
}

// Starting solutions follow their columns; what they say about deleted ones is dropped.
void renumber_starts(std::vector<MipStart>& starts, const std::vector<int>& deleted) {
    for (MipStart& start : starts) {
        size_t kept = 0;
        for (size_t i = 0; i < start.cols.size(); ++i) {
            const auto next = std::lower_bound(deleted.begin(), deleted.end(), start.cols[i]);
            if (next != deleted.end() && *next == start.cols[i]) continue;
            start.cols[kept] = start.cols[i] - static_cast<int>(next - deleted.begin());
            start.values[kept++] = start.values[i];
        }
        start.cols.resize(kept);
        start.values.resize(kept);
    }
}

// Whether deleting n objects may be put off: there must not be too many of which that is the case.
// If not, the model is settled. `left`, `present`: without and with those that were put off.
bool put_off(nlra_problem& problem, int left, int present, int n) {
    if (present - left + n <= common::Gaps::kMost) return true;
    problem.settle();
    return n <= common::Gaps::kMost;
}

int change_quadratic_objective(NLRAprob prob, const char* function, int64_t n, const int* col1,
                               const int* col2, const double* value) {
    return call(prob, function, Access::kChange, [&](nlra_problem& problem) {
        std::vector<QuadTerm> terms = check_terms(n, col1, col2, value, problem.model.cols());
        // The factor 0.5 halves the diagonal; the others stand for two entries each.
        for (QuadTerm& term : terms) {
            if (term.col1 == term.col2) term.value *= 0.5;
        }
        if (problem.model.set_qobj(std::move(terms))) problem.drop_solutions();
    });
}

}  // namespace
}  // namespace nlra

using namespace nlra;

int NLRAchgobj(NLRAprob prob, int n, const int* colind, const double* value) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        Model& model = problem.model;
        check_count("n", n);
        check_array("colind", colind, n);
        check_array("value", value, n);
        for (int i = 0; i < n; ++i) {
            if (colind[i] != -1) {
                check_index("colind", colind[i], model.cols(), Kind::kColumn);
            }
        }
        check_finite("value", value, n);
        bool changed = false;
        for (int i = 0; i < n; ++i) {
            changed |= colind[i] == -1 ? model.set_constant(-value[i])
                                       : model.set_cost(colind[i], value[i]);
        }
        if (changed) problem.drop_solutions();
    });
}

int NLRAchgmqobj64(NLRAprob prob, int64_t n, const int* col1, const int* col2,
                   const double* value) {
    return change_quadratic_objective(prob, __func__, n, col1, col2, value);
}

int NLRAchgmqobj(NLRAprob prob, int n, const int* col1, const int* col2, const double* value) {
    return change_quadratic_objective(prob, __func__, n, col1, col2, value);
}

int NLRAchgobjsense(NLRAprob prob, int sense) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        if (sense != 1 && sense != -1) {
            fail(NLRA_ERROR_ARGUMENT, "sense = %d is neither 1 (minimize) nor -1 (maximize)",
                 sense);
        }
        if (problem.model.set_sense(sense)) problem.drop_solutions();
    });
}

int NLRAchgcoltype(NLRAprob prob, int n, const int* colind, const char* coltype) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        Model& model = problem.model;
        check_count("n", n);
        check_indices("colind", colind, n, model.cols(), Kind::kColumn);
        check_array("coltype", coltype, n);
        for (int i = 0; i < n; ++i) check_coltype(i, coltype[i]);
        bool changed = false;
        for (int i = 0; i < n; ++i) {
            const int col = colind[i];
            changed |= model.set_type(col, coltype[i]);
            if (coltype[i] != 'B') continue;
            changed |= model.set_bounds(col, std::max(model.lower[col], 0.0),
                                        std::min(model.upper[col], 1.0));
        }
        if (changed) problem.drop_solutions();
    });
}

int NLRAchgglblimit(NLRAprob prob, int n, const int* colind, const double* limit) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        Model& model = problem.model;
        check_count("n", n);
        check_indices("colind", colind, n, model.cols(), Kind::kColumn);
        check_array("limit", limit, n);
        for (int i = 0; i < n; ++i) check_limit(i, colind[i], model.coltype[colind[i]], limit[i]);
        bool changed = false;
        for (int i = 0; i < n; ++i) changed |= model.set_limit(colind[i], limit[i]);
        if (changed) problem.drop_solutions();
    });
}

int NLRAchgbounds(NLRAprob prob, int n, const int* colind, const char* bndtype,
                  const double* bound) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        Model& model = problem.model;
        check_count("n", n);
        check_indices("colind", colind, n, model.cols(), Kind::kColumn);
        check_array("bndtype", bndtype, n);
        check_array("bound", bound, n);
        for (int i = 0; i < n; ++i) {
            const char type = bndtype[i];
            if (type != 'L' && type != 'U' && type != 'B') {
                fail(NLRA_ERROR_ARGUMENT, "bndtype[%d] (code %d) is not one of L U B", i,
                     static_cast<unsigned char>(type));
            }
            if (type != 'U') check_lower("bound", i, bound[i]);
            if (type != 'L') check_upper("bound", i, bound[i]);
        }
        bool changed = false;
        for (int i = 0; i < n; ++i) {
            const int col = colind[i];
            changed |= model.set_bounds(col, bndtype[i] == 'U' ? model.lower[col] : bound[i],
                                        bndtype[i] == 'L' ? model.upper[col] : bound[i]);
            widen_binary(model, col);
        }
        if (changed) problem.drop_solutions();
    });
}

int NLRAchgrhs(NLRAprob prob, int n, const int* rowind, const double* rhs) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        Model& model = problem.model;
        check_count("n", n);
        check_indices("rowind", rowind, n, model.rows(), Kind::kRow);
        check_array("rhs", rhs, n);
        for (int i = 0; i < n; ++i) check_rhs("rhs", i, model.rowtype[rowind[i]], rhs[i]);
        bool changed = false;
        for (int i = 0; i < n; ++i) changed |= model.set_rhs(rowind[i], rhs[i]);
        if (changed) problem.drop_solutions();
    });
}

int NLRAchgcoef(NLRAprob prob, int row, int col, double value) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        check_index("row", row, problem.model.rows(), Kind::kRow);
        check_index("col", col, problem.model.cols(), Kind::kColumn);
        if (!(std::fabs(value) < kInfinity)) {
            fail(NLRA_ERROR_ARGUMENT, "value = %g is not a finite number", value);
        }
        if (problem.model.set_coef(row, col, value)) problem.drop_solutions();
    });
}

int NLRAdelrows(NLRAprob prob, int n, const int* rowind) {
    return call_unsettled(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        Model& model = problem.model;
        const auto deleted = sorted_indices("rowind", rowind, n, model.rows_left(), Kind::kRow);
        if (deleted.empty()) return;
        if (put_off(problem, model.rows_left(), model.rows(), n)) {
            model.delete_rows_later(deleted);
            problem.unsettled = true;
        } else {
            model.delete_rows(deleted);
        }
        problem.drop_solutions();
    });
}

int NLRAdelcols(NLRAprob prob, int n, const int* colind) {
    return call_unsettled(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        Model& model = problem.model;
        const auto deleted = sorted_indices("colind", colind, n, model.cols_left(), Kind::kColumn);
        if (deleted.empty()) return;
        if (!model.indicators.empty()) problem.settle();
        for (const auto& [row, indicator] : model.indicators) {
            if (!std::binary_search(deleted.begin(), deleted.end(), indicator.col)) continue;
            fail(NLRA_ERROR_STATE, "column %d decides whether row %d holds: delete that row first",
                 indicator.col, row);
        }
        if (put_off(problem, model.cols_left(), model.cols(), n)) {
            model.delete_cols_later(deleted);
            problem.unsettled = true;
        } else {
            model.delete_cols(deleted);
        }
        renumber_starts(problem.mip_starts, deleted);
        problem.drop_solutions();
    });
}

int NLRAdelsets(NLRAprob prob, int n, const int* setind) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        Model& model = problem.model;
        const auto deleted =
            sorted_indices("setind", setind, n, kind_size(model, Kind::kSet), Kind::kSet);
        if (deleted.empty()) return;
        model.delete_sets(deleted);
        problem.drop_solutions();
    });
}

int NLRAsetindicators(NLRAprob prob, int n, const int* rowind, const int* colind,
                      const int* complement) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        Model& model = problem.model;
        check_count("n", n);
        check_indices("rowind", rowind, n, model.rows(), Kind::kRow);
        check_array("complement", complement, n);
        for (int i = 0; i < n; ++i) {
            if (complement[i] == 0) continue;
            if (complement[i] != 1 && complement[i] != -1) {
                fail(NLRA_ERROR_ARGUMENT, "complement[%d] = %d is not one of -1, 0, 1", i,
                     complement[i]);
            }
            check_array("colind", colind, n);
            check_index("colind", colind[i], model.cols(), Kind::kColumn);
            if (!is_binary(model, colind[i])) {
                fail(NLRA_ERROR_ARGUMENT, "colind[%d]: column %d is not binary", i, colind[i]);
            }
        }
        bool changed = false;
        for (int i = 0; i < n; ++i) {
            const int col = complement[i] == 0 ? 0 : colind[i];
            changed |= model.set_indicator(rowind[i], col, complement[i]);
        }
        if (changed) problem.drop_solutions();
    });
}
