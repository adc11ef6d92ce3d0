#include <cmath>
#include <string>

#include "files/mps.hpp"
#include "files/number.hpp"
#include "files/text.hpp"
#include "files/transpose.hpp"
#include "files/writing.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

namespace {

// A row called 'MARKER' would turn a column's lines into markers.
bool valid_free(std::string_view name) {
    for (char c : name) {
        if (is_blank(c)) return false;
    }
    return !name.empty() && name != "'MARKER'";
}

bool valid_fixed(std::string_view name) { return valid_free(name) && name.size() <= 8; }

class MpsWriter {
  public:
    MpsWriter(const Model& model, Output& out, bool fixed)
        : model_(model),
          out_(out),
          fixed_(fixed),
          cols_(model.colnames, model.cols(), "column", out, fixed ? valid_fixed : valid_free),
          rows_(model.rownames, model.rows(), "row", out, fixed ? valid_fixed : valid_free),
          sets_(model.setnames, static_cast<int>(model.sets.size()), "set", out,
                fixed ? valid_fixed : valid_free),
          objective_(rows_.free_name("OBJ")) {}

    void write() {
        check_writable(model_, cols_, out_);
        out_.put("NAME          ");
        out_.put(model_.name);
        out_.put(model_.sense < 0.0 ? "\nOBJSENSE\n    MAX\n" : "\n");
        rows();
        columns();
        right_hand_sides();
        ranges();
        out_.put("BOUNDS\n");
        for (int col = 0; col < model_.cols(); ++col) bounds(col);
        quadratic();
        sets();
        indicators();
        out_.put("ENDATA\n");
        out_.flush();
    }

  private:
    // One line of up to three names and a number. Fixed format has a place for each, in free
    // format empty ones are left out.
    void names(std::string_view type, std::string_view first, std::string_view second) {
        if (fixed_) {
            char line[24];
            std::fill(line, line + sizeof(line), ' ');
            type.copy(line + 1, 2);
            first.copy(line + 4, 8);
            second.copy(line + 14, 8);
            out_.put(std::string_view(line, sizeof(line)));
            return;
        }
        out_.put(type.empty() ? "    " : " ");
        for (std::string_view field : {type, first, second}) {
            if (field.empty()) continue;
            out_.put(field);
            out_.put(' ');
        }
    }

    void record(std::string_view type, std::string_view first, std::string_view second,
                double value) {
        if (std::isnan(value)) fail_value(first, second, "NaN");
        names(type, first, second);
        char text[32];
        const char* end =
            fixed_ ? format_number_within(text, value, 12) : format_number(text, value);
        out_.put(std::string_view(text, end - text));
        out_.put('\n');
    }

    void finite_record(std::string_view type, std::string_view first, std::string_view second,
                       double value) {
        if (std::fabs(value) >= kInfinity) fail_value(first, second, "an infinite number");
        record(type, first, second, value);
    }

    [[noreturn]] void fail_value(std::string_view first, std::string_view second,
                                 const char* what) const {
        fail(NLRA_ERROR_FILE, "%s: %s, %s: %s cannot be written", out_.filename().c_str(),
             quote(first).c_str(), quote(second).c_str(), what);
    }

    void rows() {
        out_.put("ROWS\n N  ");
        out_.put(objective_);
        for (int row = 0; row < model_.rows(); ++row) {
            const char type = model_.rowtype[row];
            out_.put("\n ");
            out_.put(type == 'R' ? 'L' : type);
            out_.put("  ");
            out_.put(rows_[row]);
        }
        out_.put('\n');
    }

    void columns() {
        out_.put("COLUMNS\n");
        const Compressed matrix = transpose(model_.matrix.start(), model_.matrix.index(),
                                            model_.matrix.value(), model_.cols());
        bool in_marker = false;
        for (int col = 0; col < model_.cols(); ++col) {
            const char type = written_type(model_, col);
            const bool integer = type == 'I' || type == 'B';
            if (integer != in_marker) marker(integer);
            in_marker = integer;
            const int64_t begin = matrix.start[col];
            const int64_t end = matrix.start[col + 1];
            // A column without coefficients needs a line to exist.
            if (model_.obj[col] != 0.0 || begin == end) {
                finite_record("", cols_[col], objective_, model_.obj[col]);
            }
            for (int64_t k = begin; k < end; ++k) {
                finite_record("", cols_[col], rows_[matrix.index[k]], matrix.value[k]);
            }
        }
        if (in_marker) marker(false);
    }

    void marker(bool begins) {
        out_.put(begins ? "    MARKER    'MARKER'                 'INTORG'\n"
                        : "    MARKER    'MARKER'                 'INTEND'\n");
    }

    void right_hand_sides() {
        out_.put("RHS\n");
        if (model_.constant != 0.0) finite_record("", "RHS", objective_, -model_.constant);
        for (int row = 0; row < model_.rows(); ++row) {
            if (model_.rhs[row] != 0.0) record("", "RHS", rows_[row], model_.rhs[row]);
        }
    }

    // R rows are L rows with a range: that keeps right-hand side and range as they are.
    void ranges() {
        bool any = false;
        for (int row = 0; row < model_.rows(); ++row) {
            if (model_.rowtype[row] != 'R') continue;
            if (!any) out_.put("RANGES\n");
            any = true;
            record("", "RNG", rows_[row], model_.range[row]);
        }
    }

    void bound(std::string_view kind, int col, double value) {
        record(kind, "BND", cols_[col], value);
    }

    void bound_line(std::string_view kind, int col) {
        names(kind, "BND", cols_[col]);
        out_.put('\n');
    }

    void bounds(int col) {
        const char type = written_type(model_, col);
        switch (type) {
            case 'B':
                bound_line("BV", col);
                if (model_.lower[col] != 0.0) bound("LO", col, model_.lower[col]);
                if (model_.upper[col] != 1.0) bound("UP", col, model_.upper[col]);
                break;
            case 'S':
            case 'R':
                semi_bounds(col, type == 'S' ? "SC" : "SI");
                break;
            default:
                plain_bounds(col, type == 'I');
                if (type == 'P') bound("PI", col, model_.limit[col]);
        }
    }

    void plain_bounds(int col, bool integer) {
        const double lower = model_.lower[col];
        const double upper = model_.upper[col];
        if (lower == upper) return bound("FX", col, lower);
        if (lower <= -kInfinity && upper >= kInfinity) return bound_line("FR", col);
        // An upper bound below zero would take the default lower bound away.
        const bool lower_line = lower != 0.0 || upper < 0.0;
        if (lower_line) bound(lower <= -kInfinity ? "MI" : "LO", col, lower);
        if (upper < kInfinity) {
            bound("UP", col, upper);
        } else if (integer && !lower_line) {
            bound("PL", col, upper);  // without any bound the column would be binary
        }
    }

    // The lower bound stands for the smallest non-zero value, as everywhere, unless the column has
    // both, or a negative upper bound, which would change the lower one.
    void semi_bounds(int col, std::string_view kind) {
        const double lower = model_.lower[col];
        const double upper = model_.upper[col];
        const double limit = model_.limit[col];
        if (lower == 0.0 && limit >= 0.0 && upper >= 0.0) {
            if (limit > 0.0) bound("LO", col, limit);
        } else {
            bound(lower <= -kInfinity ? "MI" : "LO", col, lower);
            bound("TH", col, limit);
        }
        bound(kind, col, upper);
    }

    void quadratic() {
        if (!model_.qobj.empty()) {
            out_.put("QUADOBJ\n");
            for (const QuadTerm& term : model_.qobj) {
                const double factor = term.col1 == term.col2 ? 2.0 : 1.0;
                finite_record("", cols_[term.col1], cols_[term.col2], factor * term.value);
            }
        }
        for (const auto& [row, terms] : model_.qrows) {
            out_.put("QCMATRIX      ");
            out_.put(rows_[row]);
            out_.put('\n');
            for (const QuadTerm& term : terms) {
                if (term.col1 == term.col2) {
                    finite_record("", cols_[term.col1], cols_[term.col2], term.value);
                } else {
                    finite_record("", cols_[term.col1], cols_[term.col2], 0.5 * term.value);
                    finite_record("", cols_[term.col2], cols_[term.col1], 0.5 * term.value);
                }
            }
        }
    }

    void sets() {
        if (!model_.sets.empty()) out_.put("SOS\n");
        for (size_t i = 0; i < model_.sets.size(); ++i) {
            const Set& set = model_.sets[i];
            names(set.type == '1' ? "S1" : "S2", sets_[static_cast<int>(i)], "");
            out_.put('\n');
            for (size_t k = 0; k < set.cols.size(); ++k) {
                finite_record("", cols_[set.cols[k]], "", set.weights[k]);
            }
        }
    }

    void indicators() {
        if (!model_.indicators.empty()) out_.put("INDICATORS\n");
        for (const auto& [row, indicator] : model_.indicators) {
            record("IF", rows_[row], cols_[indicator.col], indicator.complement > 0 ? 1.0 : 0.0);
        }
    }

    const Model& model_;
    Output& out_;
    const bool fixed_;
    WrittenNames cols_, rows_, sets_;
    const std::string objective_;
};

}  // namespace

void write_mps(const Model& model, Output& output, bool fixed) {
    MpsWriter(model, output, fixed).write();
}

}  // namespace nlra
