// A model while it is read: what the formats have in common, and the rules that apply once the
// whole file is known. Names are views into the file's text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "files/name_table.hpp"
#include "files/source.hpp"
#include "store/model.hpp"

namespace nlra {

struct Draft {
    // What a file has said about a column so far.
    enum Mark : unsigned char {
        kLowerGiven = 1,
        kUpperGiven = 2,
        kAnyBound = 4,    // any statement about bounds, those that restore a default included
        kLimitGiven = 8,  // the smallest non-zero value, apart from the lower bound
        kMarkedInteger = 16
    };

    // Things that can only be judged at the end keep the place in the text where they were said.
    struct SetElement {
        int col;
        double weight;
        const char* where;
    };
    struct SetEntry {
        char type;
        std::string_view name;  // empty for none
        std::vector<SetElement> elements;
    };
    struct IndicatorEntry {
        int row;
        int col;
        int complement;
        const char* where;
    };
    struct Threshold {
        int col;
        const char* where;
    };
    struct QuadRow {
        int row;
        std::vector<QuadTerm> terms;
    };

    std::string name;
    double sense = 1.0;
    double constant = 0.0;

    NameTable cols;
    std::vector<double> obj, lower, upper, limit;
    std::vector<char> coltype;
    std::vector<unsigned char> marks;

    std::vector<std::string_view> rownames;  // empty for none
    std::vector<char> rowtype;
    std::vector<double> rhs, range;
    std::vector<int64_t> start{0};  // the matrix by rows
    std::vector<int> index;
    std::vector<double> value;

    std::vector<QuadTerm> qobj;
    std::vector<QuadRow> qrows;
    std::vector<SetEntry> sets;
    std::vector<IndicatorEntry> indicators;
    std::vector<Threshold> thresholds;  // their values are in `limit`

    // Append a continuous column with bounds 0 and infinity; false when the name is there already.
    bool add_col(std::string_view colname);
    // The same without a name.
    void add_unnamed_col();
    // Give a bound. False when the file gave another value for the same bound before.
    bool set_lower(int col, double bound);
    bool set_upper(int col, double bound);
    // Take back defaults (free columns and the like); false when it contradicts a bound given.
    bool clear_lower(int col, double bound);
    bool clear_upper(int col, double bound);

    // What a limit may be; as a threshold: the smallest non-zero value of types S and R.
    static bool valid_limit(double value, bool threshold) {
        return value > -kInfinity && value < kInfinity && (!threshold || value >= 0.0);
    }
    // Give the smallest non-zero value. False when it was given before.
    bool set_threshold(int col, double value, const char* where);
    // Whether a binary column was given bounds that let it be anything else.
    bool contradicts_binary(int col) const;

    // Apply the rules for whole columns, check sets and indicators, and fill the empty `model`.
    void finish(Model& model, const Source& source);

  private:
    void add_col_data();
    bool give(std::vector<double>& side, Mark given, int col, double bound, unsigned char leaves);
    // What the types of columns mean for bounds that the file did not give.
    void settle_columns();
    void check_thresholds(const Source& source) const;
    void check_sets(const Source& source) const;
    void check_indicators(const Source& source) const;
    void fill_columns(Model& model) const;
    void fill_rows(Model& model) const;
    void fill_sets(Model& model) const;
};

// Sort terms by columns, add up those of one pair and drop zeros.
void combine_terms(std::vector<QuadTerm>& terms);

}  // namespace nlra
