#include <cmath>

#include "files/nonlinear.hpp"
#include "files/nonlinear_formula.hpp"
#include "files/nonlinear_lines.hpp"
#include "files/text.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

namespace {

// What columns are called where they are referred to: by the name where it is the only one.
std::vector<std::string> column_labels(const Names& names, int count) {
    std::vector<std::string> labels(static_cast<size_t>(count));
    std::vector<char> is_alone(static_cast<size_t>(count), 1);
    NameTable table;
    for (int col = 0; col < count; ++col) {
        labels[col] = names.has_name(col) ? names.get(col) : "";
        is_alone[col] = !labels[col].empty() && table.add(labels[col]) ? 1 : 0;
        if (is_alone[col] != 0) continue;
        if (!labels[col].empty()) is_alone[table.find(labels[col])] = 0;
        table.add_unnamed();
    }
    for (int col = 0; col < count; ++col) {
        labels[col] = is_alone[col] != 0 ? name_text(labels[col]) : '@' + std::to_string(col + 1);
    }
    return labels;
}

std::string declared_name(const Names& names, int index) {
    return names.has_name(index) ? name_text(names.get(index)) : "-";
}

bool is_default(double value) { return value == 0.0 && !std::signbit(value); }

class NonlinearWriter {
  public:
    NonlinearWriter(const Model& model, Output& output)
        : model_(model), out_(output), labels_(column_labels(model.colnames, model.cols())) {}

    void write() {
        check_functions();
        out_.begin("nalora model 1");
        out_.end();
        if (!model_.name.empty()) {
            out_.begin("name");
            out_.field(name_text(model_.name));
            out_.end();
        }
        for (int col = 0; col < model_.cols(); ++col) column(col);
        objective();
        for (int row = 0; row < model_.rows(); ++row) write_row(row);
        for (size_t i = 0; i < model_.sets.size(); ++i) set(static_cast<int>(i));
        out_.begin("end");
        out_.end();
        out_.output().flush();
    }

  private:
    // ---- what files cannot hold

    void check_functions() const {
        check_functions(model_.formulas.objective, "the objective");
        for (const auto& [row, formula] : model_.formulas.rows) {
            check_functions(formula, "row " + quote(model_.rownames.get(row)));
        }
    }

    static void check_functions(const Formula& formula, const std::string& place) {
        for (const Coefficient& coefficient : formula) {
            for (const int type : coefficient.types) {
                if (type != NSLP_TOKEN_USERFUNCTION) continue;
                fail(NLRA_ERROR_UNSUPPORTED, "%s has a user function, which no file can hold",
                     place.c_str());
            }
        }
    }

    // Coefficients and the like; bounds and right-hand sides may be infinite.
    void finite(double value) {
        out_.blank();
        bare_finite(value);
    }
    void bare_finite(double value) {
        if (!(std::fabs(value) < kInfinity)) fail_number(value);
        out_.number(value);
    }
    void field(double value) {
        if (std::isnan(value)) fail_number(value);
        out_.field(value);
    }
    [[noreturn]] void fail_number(double value) {
        fail(NLRA_ERROR_FILE, "%s: the number %g cannot be written",
             out_.output().filename().c_str(), value);
    }

    // ---- statements

    void column(int col) {
        out_.begin("column");
        out_.field(declared_name(model_.colnames, col));
        out_.field(std::string_view(&model_.coltype[col], 1));
        field(model_.lower[col]);
        field(model_.upper[col]);
        if (!is_default(model_.limit[col])) {
            out_.field("limit");
            finite(model_.limit[col]);
        }
        const auto start = model_.formulas.start.find(col);
        if (start != model_.formulas.start.end()) {
            out_.field("start");
            finite(start->second);
        }
        out_.end();
    }

    void objective() {
        out_.begin(model_.sense < 0.0 ? "maximize" : "minimize");
        out_.end();
        if (!is_default(model_.constant)) {
            out_.begin("  constant");
            finite(model_.constant);
            out_.end();
        }
        Pairs pairs(*this);
        for (int col = 0; col < model_.cols(); ++col) {
            if (!is_default(model_.obj[col])) pairs.add(model_.obj[col], col);
        }
        pairs.end();
        quadratic(model_.qobj);
        formula(model_.formulas.objective);
    }

    void write_row(int row) {
        out_.begin("row");
        out_.field(declared_name(model_.rownames, row));
        out_.field(std::string_view(&model_.rowtype[row], 1));
        field(model_.rhs[row]);
        if (model_.rowtype[row] == 'R') field(model_.range[row]);
        out_.end();
        const auto indicator = model_.indicators.find(row);
        if (indicator != model_.indicators.end()) {
            out_.begin("  indicator");
            out_.field(labels_[indicator->second.col]);
            out_.field(indicator->second.complement > 0 ? "1" : "0");
            out_.end();
        }
        const RowMatrix& matrix = model_.matrix;
        Pairs pairs(*this);
        for (int64_t k = matrix.start()[row]; k < matrix.start()[row + 1]; ++k) {
            pairs.add(matrix.value()[k], matrix.index()[k]);
        }
        pairs.end();
        const auto terms = model_.qrows.find(row);
        if (terms != model_.qrows.end()) quadratic(terms->second);
        const auto found = model_.formulas.rows.find(row);
        if (found != model_.formulas.rows.end()) formula(found->second);
    }

    // A statement "linear", if there is anything to write.
    class Pairs {
      public:
        explicit Pairs(NonlinearWriter& writer) : writer_(writer) {}
        void add(double value, int col) {
            if (!begun_) writer_.out_.begin("  linear");
            begun_ = true;
            writer_.finite(value);
            writer_.out_.field(writer_.labels_[col]);
        }
        void end() {
            if (begun_) writer_.out_.end();
        }

      private:
        NonlinearWriter& writer_;
        bool begun_ = false;
    };

    void quadratic(const std::vector<QuadTerm>& terms) {
        if (terms.empty()) return;
        out_.begin("  quadratic");
        for (const QuadTerm& term : terms) {
            finite(term.value);
            out_.field(labels_[term.col1]);
            out_.field(labels_[term.col2]);
        }
        out_.end();
    }

    void formula(const Formula& formula) {
        for (const Coefficient& coefficient : formula) {
            out_.begin("  formula");
            out_.blank();
            if (coefficient.column >= 0 || coefficient.factor != 1.0) {
                out_.piece("{");
                bare_finite(coefficient.factor);
                if (coefficient.column >= 0) out_.field(labels_[coefficient.column]);
                out_.piece("}");
                out_.blank();
            }
            write_formula(out_, coefficient, labels_);
            out_.end();
        }
    }

    void set(int index) {
        const Set& set = model_.sets[index];
        out_.begin("set");
        out_.field(declared_name(model_.setnames, index));
        out_.field(set.type == '1' ? "S1" : "S2");
        for (size_t k = 0; k < set.cols.size(); ++k) {
            finite(set.weights[k]);
            out_.field(labels_[set.cols[k]]);
        }
        out_.end();
    }

    const Model& model_;
    LineOutput out_;
    const std::vector<std::string> labels_;
};

}  // namespace

void write_nonlinear(const Model& model, Output& output) { NonlinearWriter(model, output).write(); }

}  // namespace nlra
