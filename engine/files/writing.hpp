// What the writers of both formats share: names and types as they are written, and what no format
// can hold. Everything that is written must be readable again, so doubts are errors here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "files/name_table.hpp"
#include "files/output.hpp"
#include "files/text.hpp"
#include "nlra.h"
#include "store/error.hpp"
#include "store/model.hpp"
#include "store/names.hpp"

namespace nlra {

class WrittenNames {
  public:
    // Throws Error NLRA_ERROR_FILE, which names the object, for a name that is not `valid` or
    // occurs twice: the file could not be read again. `kind` is "row", "column" or "set".
    WrittenNames(const Names& names, int count, const char* kind, const Output& output,
                 bool (*valid)(std::string_view)) {
        // Names that are numbers are made in an arena first: views into it need its final place.
        std::string defaults;
        std::vector<size_t> ends;
        for (int i = 0; i < count; ++i) {
            if (!names.has_text(i)) {
                defaults += names.get(i);
                ends.push_back(defaults.size());
            }
        }
        defaults_.assign(defaults.begin(), defaults.end());
        size_t begin = 0;
        size_t next = 0;
        for (int i = 0; i < count; ++i) {
            std::string_view name;
            if (names.has_text(i)) {
                name = names.view(i);
            } else {
                name = {defaults_.data() + begin, ends[next] - begin};
                begin = ends[next++];
            }
            const char* trouble = nullptr;
            if (!valid(name)) trouble = "this format has no such names";
            if (trouble == nullptr && !table_.add(name)) trouble = "another one has the same name";
            if (trouble != nullptr) {
                fail(NLRA_ERROR_FILE, "%s: %s %d cannot be written under its name %s: %s",
                     output.filename().c_str(), kind, i + 1, quote(name).c_str(), trouble);
            }
        }
    }

    std::string_view operator[](int i) const { return table_.name(i); }
    // `wanted`, or with a number behind it, such that none of the names is the same.
    std::string free_name(const std::string& wanted) const {
        std::string name = wanted;
        for (int i = 1; table_.find(name) >= 0; ++i) name = wanted + std::to_string(i);
        return name;
    }

  private:
    std::vector<char> defaults_;
    NameTable table_;
};

// The type under which a column is written. A binary column whose bounds were widened since is an
// integer column: as such it is solved, and readers hold binary columns to 0 and 1.
inline char written_type(const Model& model, int col) {
    const char type = model.coltype[col];
    const bool widened = type == 'B' && (model.lower[col] < 0.0 || model.upper[col] > 1.0);
    return widened ? 'I' : type;
}

// Throws for a problem name that does not fit into a line, and for indicator columns that are no
// longer binary.
inline void check_writable(const Model& model, const WrittenNames& cols, const Output& output) {
    for (char c : model.name) {
        if (is_blank(c) && c != ' ') {
            fail(NLRA_ERROR_FILE, "%s: the problem name %s cannot be written",
                 output.filename().c_str(), quote(model.name).c_str());
        }
    }
    for (const auto& [row, indicator] : model.indicators) {
        const int col = indicator.col;
        const char type = written_type(model, col);
        const bool binary =
            type == 'B' || (type == 'I' && model.lower[col] >= 0.0 && model.upper[col] <= 1.0);
        if (!binary) {
            fail(NLRA_ERROR_FILE, "%s: the indicator column %s of row %d is not binary",
                 output.filename().c_str(), quote(cols[col]).c_str(), row + 1);
        }
    }
}

}  // namespace nlra
