#include <cmath>
#include <string>

#include "files/lp.hpp"
#include "files/lp_tokens.hpp"
#include "files/number.hpp"
#include "files/text.hpp"
#include "files/writing.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

namespace {

class LpWriter {
  public:
    LpWriter(const Model& model, Output& out)
        : model_(model),
          out_(out),
          cols_(model.colnames, model.cols(), "column", out, LpTokens::valid_name),
          rows_(model.rownames, model.rows(), "row", out, LpTokens::valid_name),
          sets_(model.setnames, static_cast<int>(model.sets.size()), "set", out,
                LpTokens::valid_name) {}

    void write() {
        check_writable(model_, cols_, out_);
        if (!model_.name.empty()) {
            out_.put("\\Problem name: ");
            out_.put(model_.name);
            out_.put('\n');
        }
        objective();
        out_.put("Subject To\n");
        for (int row = 0; row < model_.rows(); ++row) write_row(row);
        bounds();
        names_of_type("Generals", 'I');
        names_of_type("Binaries", 'B');
        names_of_type("Semi-Continuous", 'S');
        names_of_type("Semi-Integers", 'R');
        limits();
        sets();
        out_.put("End\n");
        out_.flush();
    }

  private:
    // ---- pieces of text, with lines broken between them --------------------------------------

    void start_line() {
        out_.put(' ');
        length_ = 1;
        first_ = true;
    }
    void word(std::string_view text) {
        if (length_ > 90) {
            out_.put("\n ");
            length_ = 1;
        }
        out_.put(text);
        out_.put(' ');
        length_ += text.size() + 1;
    }
    void end_line() { out_.put('\n'); }

    std::string_view text_of(double value) {
        if (std::isnan(value)) {
            fail(NLRA_ERROR_FILE, "%s: NaN cannot be written", out_.filename().c_str());
        }
        return {number_, static_cast<size_t>(format_number(number_, value) - number_)};
    }
    // text_of() ends when it is called again.
    void number(double value) { word(text_of(value)); }

    // The sign and size of a coefficient; a size of 1 needs no number.
    void coefficient(double value) {
        if (!(std::fabs(value) < kInfinity)) {
            fail(NLRA_ERROR_FILE, "%s: an infinite or undefined coefficient cannot be written",
                 out_.filename().c_str());
        }
        if (value < 0.0) {
            word("-");
        } else if (!first_) {
            word("+");
        }
        first_ = false;
        const double size = std::fabs(value);
        if (size != 1.0) number(size);
    }
    void term(int col, double value) {
        coefficient(value);
        word(cols_[col]);
    }
    void constant(double value) {
        if (value < 0.0 || !first_) word(value < 0.0 ? "-" : "+");
        first_ = false;
        number(std::fabs(value));
    }
    void quadratic(const std::vector<QuadTerm>& terms, double factor) {
        if (!first_) word("+");
        word("[");
        first_ = true;
        for (const QuadTerm& entry : terms) {
            term(entry.col1, factor * entry.value);
            if (entry.col1 == entry.col2) {
                word("^ 2");
            } else {
                word("*");
                word(cols_[entry.col2]);
            }
        }
        word("]");
        first_ = false;
    }

    // ---- objective and rows ------------------------------------------------------------------

    // Whether columns come in the order of their indices when only what is not zero is written.
    bool columns_in_order() const {
        int next = 0;
        bool in_order = true;
        const auto meet = [&](int col) {
            if (col == next) ++next;
            in_order = in_order && col < next;
        };
        const auto meet_terms = [&](const std::vector<QuadTerm>& terms) {
            for (const QuadTerm& entry : terms) {
                meet(entry.col1);
                meet(entry.col2);
            }
        };
        for (int col = 0; col < model_.cols() && in_order; ++col) {
            if (model_.obj[col] != 0.0) meet(col);
        }
        meet_terms(model_.qobj);
        const std::vector<int64_t>& start = model_.matrix.start();
        const std::vector<int>& index = model_.matrix.index();
        auto quadratic_row = model_.qrows.begin();
        for (int row = 0; row < model_.rows() && in_order; ++row) {
            const auto indicator = model_.indicators.find(row);
            if (indicator != model_.indicators.end()) meet(indicator->second.col);
            for (int64_t k = start[row]; k < start[row + 1]; ++k) meet(index[k]);
            if (quadratic_row != model_.qrows.end() && quadratic_row->first == row) {
                meet_terms((quadratic_row++)->second);
            } else if (start[row] == start[row + 1] && model_.cols() > 0) {
                meet(0);
            }
        }
        return in_order && next == model_.cols();
    }

    void objective() {
        out_.put(model_.sense < 0.0 ? "Maximize\n" : "Minimize\n");
        start_line();
        word(rows_.free_name("obj") + ':');
        const bool all = !columns_in_order();
        for (int col = 0; col < model_.cols(); ++col) {
            if (all || model_.obj[col] != 0.0) term(col, model_.obj[col]);
        }
        if (!model_.qobj.empty()) {
            quadratic(model_.qobj, 2.0);
            word("/ 2");
        }
        if (model_.constant != 0.0) constant(model_.constant);
        end_line();
    }

    void write_row(int row) {
        start_line();
        word(std::string(rows_[row]) + ':');
        const auto indicator = model_.indicators.find(row);
        if (indicator != model_.indicators.end()) {
            word(cols_[indicator->second.col]);
            word(indicator->second.complement > 0 ? "= 1 ->" : "= 0 ->");
        }
        const double rhs = model_.rhs[row];
        switch (model_.rowtype[row]) {
            case 'N':
                row_terms(row);
                if (rhs != 0.0) constant(-rhs);
                word(">= -inf");
                break;
            case 'R':
                write_range(row, rhs, model_.range[row]);
                break;
            default:
                row_terms(row);
                word(model_.rowtype[row] == 'L' ? "<=" : model_.rowtype[row] == 'G' ? ">=" : "=");
                number(rhs);
        }
        end_line();
    }

    void write_range(int row, double rhs, double range) {
        // Reading takes the range as the difference of the two ends. Where rounding makes that
        // another number, the right-hand side goes to the terms.
        const double low = rhs - range;
        const bool exact = rhs - low == range && std::fabs(rhs) < kInfinity && range < kInfinity;
        number(exact ? low : -range);
        word("<=");
        row_terms(row);
        if (!exact && rhs != 0.0) constant(-rhs);
        word("<=");
        number(exact ? rhs : 0.0);
    }

    // Rows without terms get one with coefficient 0: most programs insist on a column in a row.
    void row_terms(int row) {
        const std::vector<int64_t>& start = model_.matrix.start();
        const auto quadratic_row = model_.qrows.find(row);
        for (int64_t k = start[row]; k < start[row + 1]; ++k) {
            term(model_.matrix.index()[k], model_.matrix.value()[k]);
        }
        if (quadratic_row != model_.qrows.end()) {
            quadratic(quadratic_row->second, 1.0);
        } else if (start[row] == start[row + 1]) {
            if (model_.cols() > 0) {
                term(0, 0.0);
            } else {
                constant(0.0);
            }
        }
    }

    // ---- columns -----------------------------------------------------------------------------

    bool is_semi(int col) const { return model_.coltype[col] == 'S' || model_.coltype[col] == 'R'; }
    // Whether the lower bound in the file can stand for the smallest non-zero value.
    bool limit_as_bound(int col) const {
        return is_semi(col) && model_.lower[col] == 0.0 && model_.limit[col] >= 0.0;
    }

    void bounds() {
        bool any = false;
        for (int col = 0; col < model_.cols(); ++col) {
            const double lower = limit_as_bound(col) ? model_.limit[col] : model_.lower[col];
            const double upper = model_.upper[col];
            if (lower == 0.0 && upper == (written_type(model_, col) == 'B' ? 1.0 : kInfinity))
                continue;
            if (!any) out_.put("Bounds\n");
            any = true;
            start_line();
            bound(cols_[col], lower, upper);
            end_line();
        }
    }

    // Both ends where one alone would leave doubt: zero is the default lower bound, but some
    // programs take it away when the upper bound is negative.
    void bound(std::string_view name, double lower, double upper) {
        const bool unbounded = upper >= kInfinity;
        if (lower == upper) {
            word(name);
            word("=");
            number(lower);
        } else if (lower <= -kInfinity && unbounded) {
            word(name);
            word("free");
        } else if (unbounded) {
            word(name);
            word(">=");
            number(lower);
        } else {
            if (lower <= -kInfinity) {
                word("-inf <=");
            } else if (lower != 0.0 || upper < 0.0) {
                number(lower);
                word("<=");
            }
            word(name);
            word("<=");
            number(upper);
        }
    }

    void names_of_type(std::string_view header, char type) {
        bool any = false;
        for (int col = 0; col < model_.cols(); ++col) {
            if (written_type(model_, col) != type) continue;
            if (!any) {
                out_.put(header);
                out_.put('\n');
                start_line();
            }
            any = true;
            word(cols_[col]);
        }
        if (any) end_line();
    }

    void numbered(std::string_view name, double value) {
        word(std::string(name) + ':' + std::string(text_of(value)));
    }

    // The sections that are our own.
    void limits() {
        for (const bool partial : {true, false}) {
            bool any = false;
            for (int col = 0; col < model_.cols(); ++col) {
                const bool wanted =
                    partial ? model_.coltype[col] == 'P' : is_semi(col) && !limit_as_bound(col);
                if (!wanted) continue;
                if (!any) {
                    out_.put(partial ? "Partial-Integers\n" : "Thresholds\n");
                    start_line();
                }
                any = true;
                numbered(cols_[col], model_.limit[col]);
            }
            if (any) end_line();
        }
    }

    void sets() {
        if (!model_.sets.empty()) out_.put("SOS\n");
        for (size_t i = 0; i < model_.sets.size(); ++i) {
            const Set& set = model_.sets[i];
            start_line();
            word(std::string(sets_[static_cast<int>(i)]) + ':');
            word(set.type == '1' ? "S1::" : "S2::");
            for (size_t k = 0; k < set.cols.size(); ++k) {
                numbered(cols_[set.cols[k]], set.weights[k]);
            }
            end_line();
        }
    }

    const Model& model_;
    Output& out_;
    WrittenNames cols_, rows_, sets_;
    size_t length_ = 0;  // of the present line
    bool first_ = true;  // no term of the present sum has been written
    char number_[32];
};

}  // namespace

void write_lp(const Model& model, Output& output) { LpWriter(model, output).write(); }

}  // namespace nlra
