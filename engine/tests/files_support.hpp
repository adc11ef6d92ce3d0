// What the tests of model files share: reading from and writing to memory, comparing models,
// random models with every feature.
#pragma once

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "check.hpp"
#include "files/files.hpp"
#include "files/lp.hpp"
#include "files/mps.hpp"
#include "files/nonlinear.hpp"
#include "files/output.hpp"
#include "files/source.hpp"
#include "nlra.h"
#include "store/error.hpp"
#include "store/model.hpp"

namespace files_test {

using namespace nlra;

enum class Format { kMps, kFixedMps, kLp, kNonlinear };

class MemoryOutput : public Output {
  public:
    MemoryOutput() : Output("memory") {}
    std::string text;

  protected:
    void write(const char* data, size_t size) override { text.append(data, size); }
};

inline std::string to_text(const Model& model, Format format) {
    MemoryOutput out;
    if (format == Format::kLp) {
        write_lp(model, out);
    } else if (format == Format::kNonlinear) {
        write_nonlinear(model, out);
    } else {
        write_mps(model, out, format == Format::kFixedMps);
    }
    return out.text;
}

inline Model from_text(const std::string& text, Format format) {
    Model model;
    const Source source = Source::from_text("m", text);
    if (format == Format::kLp) {
        read_lp(model, source);
    } else if (format == Format::kNonlinear) {
        read_nonlinear(model, source);
    } else {
        read_mps(model, source, format == Format::kFixedMps);
    }
    return model;
}

inline Model mps(const std::string& text) { return from_text(text, Format::kMps); }
inline Model lp(const std::string& text) { return from_text(text, Format::kLp); }

// The error text that reading gives, empty when it succeeds.
inline std::string error_of(const std::string& text, Format format) {
    try {
        from_text(text, format);
    } catch (const Error& error) {
        return error.text;
    }
    return "";
}

inline bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// Check that reading fails with a text that begins "m:<line>: " and holds `part`.
inline void expect_error(const std::string& text, Format format, int line,
                         const std::string& part) {
    const std::string error = error_of(text, format);
    const bool ok = error.rfind("m:" + std::to_string(line) + ": ", 0) == 0 && has(error, part);
    if (!CHECK(ok)) {
        std::fprintf(stderr, "expected line %d and '%s', got '%s' for\n%s\n", line, part.c_str(),
                     error.c_str(), text.c_str());
    }
}

inline std::vector<std::pair<int, double>> sorted_row(const Model& model, int row) {
    std::vector<std::pair<int, double>> entries;
    for (int64_t k = model.matrix.start()[row]; k < model.matrix.start()[row + 1]; ++k) {
        entries.emplace_back(model.matrix.index()[k], model.matrix.value()[k]);
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

// To the last bit.
bool same_formula(const Formula& a, const Formula& b);

// What differs between two models; empty when nothing does. Numbers are compared exactly.
inline std::string difference(const Model& a, const Model& b) {
    if (a.name != b.name) return "name";
    if (a.sense != b.sense || a.constant != b.constant) return "sense or constant";
    if (a.obj != b.obj) return "objective";
    if (a.lower != b.lower || a.upper != b.upper) return "bounds";
    if (a.coltype != b.coltype) return "column types";
    if (a.limit != b.limit) return "limits";
    if (a.rowtype != b.rowtype) return "row types";
    if (a.rhs != b.rhs || a.range != b.range) return "row sides";
    if (a.qobj != b.qobj) return "quadratic objective";
    if (a.qrows != b.qrows) return "quadratic rows";
    if (a.indicators != b.indicators) return "indicators";
    if (a.sets.size() != b.sets.size()) return "sets";
    if (a.mip_entities() != b.mip_entities()) return "number of entities";
    for (size_t i = 0; i < a.sets.size(); ++i) {
        if (a.sets[i].type != b.sets[i].type || a.sets[i].cols != b.sets[i].cols ||
            a.sets[i].weights != b.sets[i].weights ||
            a.setnames.get(static_cast<int>(i)) != b.setnames.get(static_cast<int>(i))) {
            return "set " + std::to_string(i);
        }
    }
    for (int row = 0; row < a.rows(); ++row) {
        if (sorted_row(a, row) != sorted_row(b, row)) return "row " + std::to_string(row);
        if (a.rownames.get(row) != b.rownames.get(row)) return "row names";
    }
    if (!same_formula(a.formulas.objective, b.formulas.objective)) return "objective formula";
    if (a.formulas.rows.size() != b.formulas.rows.size()) return "rows with formulas";
    for (const auto& [row, formula] : a.formulas.rows) {
        const auto other = b.formulas.rows.find(row);
        if (other == b.formulas.rows.end() || !same_formula(formula, other->second)) {
            return "formula of row " + std::to_string(row);
        }
    }
    if (a.formulas.start != b.formulas.start) return "starting values";
    for (int col = 0; col < a.cols(); ++col) {
        if (a.colnames.get(col) != b.colnames.get(col)) return "column names";
    }
    return "";
}

// A random model that uses everything that files of the format can hold. For fixed MPS files all
// numbers fit into 12 characters and all names into 8.
class RandomModel {
  public:
    RandomModel(unsigned seed, Format format)
        : engine_(seed),
          short_(format == Format::kFixedMps),
          nonlinear_(format == Format::kNonlinear) {}

    Model make();

  private:
    int below(int n) { return static_cast<int>(engine_() % static_cast<unsigned>(n)); }
    bool chance(int percent) { return below(100) < percent; }
    double number();
    double bound();
    void columns(Model& model);
    void rows(Model& model);
    void names(Names& names, int count, const char* prefix);
    std::vector<QuadTerm> quadratic(int cols);
    void formulas(Model& model);
    Formula formula(int cols);
    void expression(Coefficient& formula, int cols, int depth);

    std::mt19937 engine_;
    bool short_;
    bool nonlinear_;
};

}  // namespace files_test
