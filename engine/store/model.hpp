// The model as loaded: plain data with the edits that keep it consistent. The C functions check
// arguments before they call an edit; solvers and file writers only read. No solver type here.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "common/gaps.hpp"
#include "store/formulas.hpp"
#include "store/matrix.hpp"
#include "store/names.hpp"

namespace nlra {

inline constexpr double kInfinity = 1.0e20;

// coefficient * x[col1] * x[col2] as it stands in the polynomial, col1 <= col2.
struct QuadTerm {
    int col1;
    int col2;
    double value;

    bool operator==(const QuadTerm&) const = default;
};

// By (col1, col2): the order in which a model keeps its terms.
inline bool term_before(const QuadTerm& a, const QuadTerm& b) {
    return a.col1 != b.col1 ? a.col1 < b.col1 : a.col2 < b.col2;
}

struct Set {
    char type = '1';        // '1' or '2'
    std::vector<int> cols;  // in the order given
    std::vector<double> weights;
};

// The column was binary when the indicator was set; whether it still is, who uses it checks.
struct Indicator {
    int col;
    int complement;  // 1: the row holds where the column is 1; -1: where it is 0

    bool operator==(const Indicator&) const = default;
};

// What changed since the solver last took over the model (LinearSolver consumes and resets it).
// Lists may repeat an index, and are not kept while `rebuild` is set. `rebuild` stands for
// everything that the lists cannot say: types, sets, indicators, quadratic terms, deletions, and
// new columns with coefficients in rows that the solver has.
//
// Without `rebuild`, take over in this order: append the columns from known_cols on (with their
// present bounds and costs), then the rows from known_rows on (with all their coefficients and
// sides), then go through the lists, which concern earlier rows and columns only (`coefs`: earlier
// rows, any column). All hold places; read the values from the model.
struct Edits {
    bool rebuild = true;
    bool objective_offset = false;
    bool sense = false;
    std::vector<int> bounds;                 // columns whose bounds changed
    std::vector<int> costs;                  // columns whose linear cost changed
    std::vector<int> sides;                  // rows whose type, rhs or range changed
    std::vector<std::pair<int, int>> coefs;  // (row, col) whose coefficient changed
    // Composed maps old index -> new index (-1 deleted) of deletions since then, empty for none;
    // indices count from the solver's last known sizes. They carry a basis over a rebuild. The
    // rows and columns behind the survivors were appended.
    std::vector<int> row_map;
    std::vector<int> col_map;
    int known_rows = 0;  // sizes that the solver has; rows and columns beyond were appended
    int known_cols = 0;
};

// The edits tell whether they changed anything; setting a value to what it is records nothing.
// Those that need memory get it before they change anything.
class Model {
  public:
    std::string name;
    double sense = 1.0;  // 1 minimize, -1 maximize
    double constant = 0.0;

    std::vector<double> obj, lower, upper;
    std::vector<double> limit;  // S R: smallest non-zero value; P: integral up to it; else 0
    std::vector<char> coltype;  // C B I S R P; changed by set_type only

    std::vector<char> rowtype;  // L G E R N
    std::vector<double> rhs;
    std::vector<double> range;  // R: at least 0; else 0
    RowMatrix matrix;

    std::vector<QuadTerm> qobj;                  // sorted by (col1, col2), no zeros
    std::map<int, std::vector<QuadTerm>> qrows;  // row to its terms, sorted likewise, none empty
    std::vector<Set> sets;
    std::map<int, Indicator> indicators;  // by row
    Formulas formulas;

    Names colnames{'C'}, rownames{'R'}, setnames{'S'};
    mutable Edits edits;

    int cols() const { return static_cast<int>(lower.size()); }
    int rows() const { return static_cast<int>(rowtype.size()); }
    // Activity bounds of a row from type, rhs and range; +-kInfinity where there is none.
    double row_lower(int row) const;
    double row_upper(int row) const;
    int mip_entities() const { return entities_; }  // columns that are not of type C
    bool is_mip() const { return mip_entities() > 0 || !sets.empty() || !indicators.empty(); }
    bool is_quadratic() const { return !qobj.empty() || !qrows.empty(); }

    // Bounds and right-hand sides beyond +-kInfinity become +-kInfinity. A null range is zero, a
    // null lower bound zero, a null upper bound infinite. See RowMatrix for the coefficients.
    void add_rows(int count, int64_t ncoefs, const char* type, const double* rhs,
                  const double* range, const int64_t* start, const int* colind,
                  const double* value);
    void add_cols(int count, int64_t ncoefs, const double* obj, const int64_t* start,
                  const int* rowind, const double* value, const double* lower, const double* upper);
    void add_sets(std::vector<Set> added);

    // Ascending, no repeats, not empty. A deleted column leaves its rows, quadratic terms and
    // sets; no indicator may depend on it. A deleted row takes its indicator with it.
    void delete_rows(const std::vector<int>& sorted);
    void delete_cols(const std::vector<int>& sorted);
    void delete_sets(const std::vector<int>& sorted);
    // The same, put off, as moving all the others down takes a pass over the model for a single
    // deletion. Names, and rows_left() and cols_left(), are right at once, columns without
    // coefficients can be added, and rows unless deletions of columns were put off;
    // finish_deletions() comes before any other use of the model. Changes nothing when it runs out
    // of memory.
    void delete_rows_later(const std::vector<int>& sorted);
    void delete_cols_later(const std::vector<int>& sorted);
    void finish_deletions();
    int rows_left() const { return rows() - row_gaps_.size(); }
    int cols_left() const { return cols() - col_gaps_.size(); }

    bool set_bounds(int col, double lower, double upper);
    // A column that was of another type gets limit 0.
    bool set_type(int col, char type);
    bool set_limit(int col, double limit);
    bool set_cost(int col, double value);
    bool set_constant(double value);
    bool set_sense(double value);
    bool set_rhs(int row, double value);
    bool set_coef(int row, int col, double value);
    // Zero values remove; of changes of the same pair the last one counts. Pairs in any order.
    bool set_qobj(std::vector<QuadTerm> changes);
    // Replaces the row's terms. Terms of the same pair are summed up.
    bool set_qrow(int row, std::vector<QuadTerm> terms);
    bool set_indicator(int row, int col, int complement);  // 0 removes
    void clear() { *this = Model(); }

    // What the matrix, bounds and costs cannot express changed: solvers must start afresh.
    void touch_structure();

  private:
    // Without the names.
    void remove_rows(const std::vector<int>& sorted);
    void remove_cols(const std::vector<int>& sorted);

    int entities_ = 0;
    common::Gaps row_gaps_, col_gaps_;
};

}  // namespace nlra
