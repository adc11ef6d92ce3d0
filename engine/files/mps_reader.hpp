// One pass over an MPS file into a draft of the model. Used by read_mps only; the sections are
// spread over mps_reader.cpp, mps_bounds.cpp and mps_extras.cpp.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "files/draft.hpp"
#include "files/mps_lines.hpp"
#include "files/name_table.hpp"
#include "files/source.hpp"

namespace nlra {

class MpsReader {
  public:
    MpsReader(const Source& source, bool fixed) : source_(source), lines_(source, fixed) {}
    void read(Model& model);

  private:
    enum class Section {
        kNone,
        kName,
        kObjsense,
        kObjname,
        kRows,
        kColumns,
        kRhs,
        kRanges,
        kBounds,
        kQuadobj,
        kQmatrix,
        kQsection,
        kQcmatrix,
        kSos,
        kIndicators,
        kEnd
    };
    struct SectionName {
        std::string_view name;
        Section section;
    };
    // An entry (col1, col2) of a quadratic form as the file gives it.
    struct QuadEntry {
        int col1;
        int col2;
        double value;
        const char* where;
    };
    static constexpr int kObjective = -1;

    // mps_reader.cpp. Functions named after a section take one data line of it.
    void header();
    void start_section(Section section);
    // What can be done only when all lines of a section are known.
    void end_section();
    void data();
    void rows_line();
    void end_rows();
    void columns_line();
    void marker_line();
    void start_column(std::string_view name);
    void coefficient(std::string_view row, std::string_view value);
    void rhs_line();
    void ranges_line();
    void objsense(std::string_view word);
    // A range tells both ends of a row only together with its right-hand side, which may come
    // later in the file; likewise the format's default bounds with what all lines say.
    void apply_ranges();
    void settle_bounds();
    // Takes the name of a right-hand side, range or bound set; all lines must name the same.
    void check_vector(std::string_view& known, std::string_view name);
    int find_row(std::string_view name) const;  // kObjective or a row; fails when unknown
    int find_col(std::string_view name) const;
    // A finite number; or, where `infinite`, +-kInfinity at most.
    double number(std::string_view field, bool infinite = false) const;
    [[noreturn]] void fail_fields(const char* expected) const;

    // mps_bounds.cpp
    void bounds_line();
    void apply_bound(std::string_view kind, int col, double value);
    // Only marked integer columns may get a second type, and then a more special one.
    void set_type(int col, char type);

    // mps_extras.cpp
    void start_quadratic();
    void quadratic_line();
    void end_quadratic();
    void sos_line();
    bool is_set_header() const;
    void set_header(char type);
    void indicators_line();

    const Source& source_;
    MpsLines lines_;
    Draft draft_;
    Section section_ = Section::kNone;
    std::vector<char> seen_;  // by section
    bool rows_done_ = false;
    bool columns_done_ = false;

    std::string_view objective_name_;  // from OBJNAME, empty for the first N row
    int objective_ = -1;               // its position among all rows of the file
    NameTable rows_;                   // all rows of the file, the objective included
    std::vector<char> types_;          // their types

    std::vector<int64_t> col_start_;  // the matrix by columns
    std::vector<int> row_index_;
    std::vector<double> value_;
    std::vector<int> last_col_;  // by row of the file: the last column with an entry in it
    bool in_marker_ = false;

    std::vector<double> ranges_;
    std::vector<const char*> range_where_;  // null where there is no range
    std::vector<char> rhs_given_;
    double objective_rhs_ = 0.0;
    bool objective_rhs_given_ = false;
    std::string_view rhs_name_, range_name_, bound_name_;

    int quad_row_ = kObjective;
    std::vector<char> quad_given_;  // by row + 1, the objective first
    std::vector<QuadEntry> quad_entries_;
    NameTable sets_;
    std::vector<char> indicator_given_;
};

}  // namespace nlra
