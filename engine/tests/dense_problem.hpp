// A problem as plain dense data: read back through the C functions, or kept up to date naively by a
// test that compares the two.
#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "check.hpp"
#include "nlra.h"

struct DenseProblem {
    using Terms = std::map<std::pair<int, int>, double>;

    struct SetData {
        char type;
        std::vector<std::pair<int, double>> elements;
        std::string name;
        bool operator==(const SetData&) const = default;
    };
    struct Row {
        char type = 'N';
        double rhs = 0.0, range = 0.0;
        std::map<int, double> coefs;
        Terms quadratic;
        std::pair<int, int> indicator{-1, 0};  // column, complement
        std::string name;                      // empty: none
        bool operator==(const Row&) const = default;
    };
    struct Column {
        double cost = 0.0, lower = 0.0, upper = 0.0, limit = 0.0;
        char type = 'C';
        std::string name;
        bool operator==(const Column&) const = default;
    };

    std::vector<Row> rows;
    std::vector<Column> cols;
    std::vector<SetData> sets;
    Terms quadratic;  // as NLRAchgmqobj takes them, col1 <= col2
    double constant = 0.0;
    int sense = 1;
    bool operator==(const DenseProblem&) const = default;

    int nrows() const { return static_cast<int>(rows.size()); }
    int ncols() const { return static_cast<int>(cols.size()); }

    // What a deletion means, element by element and from the last one on.
    void delete_row(int row) { rows.erase(rows.begin() + row); }
    void delete_col(int col);
    // Give objects without a name the names that they read as.
    void fill_names();
};

inline void renumber_terms(DenseProblem::Terms& terms, int deleted) {
    DenseProblem::Terms kept;
    for (const auto& [pair, value] : terms) {
        const auto [i, j] = pair;
        if (i == deleted || j == deleted) continue;
        kept[{i - (i > deleted), j - (j > deleted)}] = value;
    }
    terms = kept;
}

inline void DenseProblem::delete_col(int col) {
    cols.erase(cols.begin() + col);
    for (Row& row : rows) {
        std::map<int, double> kept;
        for (const auto& [j, value] : row.coefs) {
            if (j != col) kept[j - (j > col)] = value;
        }
        row.coefs = kept;
        renumber_terms(row.quadratic, col);
        row.indicator.first -= row.indicator.first > col;
    }
    renumber_terms(quadratic, col);
    for (SetData& set : sets) {
        std::erase_if(set.elements, [&](const auto& element) { return element.first == col; });
        for (auto& element : set.elements) element.first -= element.first > col;
    }
}

inline void DenseProblem::fill_names() {
    const auto fill = [](auto& objects, char letter) {
        for (size_t i = 0; i < objects.size(); ++i) {
            if (objects[i].name.empty()) objects[i].name = letter + std::to_string(i + 1);
        }
    };
    fill(rows, 'R');
    fill(cols, 'C');
    fill(sets, 'S');
}

inline int int_attribute(NLRAprob prob, int id) {
    int value = -1;
    REQUIRE(NLRAgetintattrib(prob, id, &value) == 0);
    return value;
}

inline int named_attribute(NLRAprob prob, const char* name) {
    int id = 0;
    REQUIRE(NLRAgetattribinfo(prob, name, &id, nullptr) == 0);
    return id;
}

inline std::string error_text(NLRAprob prob) {
    char text[512] = "?";
    REQUIRE(NLRAgetlasterror(prob, nullptr, text, sizeof text, nullptr) == 0);
    return text;
}

// Everything that can be read back, with the names that objects read as.
DenseProblem read_problem(NLRAprob prob);
