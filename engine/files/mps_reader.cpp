#include "files/mps_reader.hpp"

#include <cmath>

#include "files/mps.hpp"
#include "files/number.hpp"
#include "files/text.hpp"
#include "files/transpose.hpp"
#include "nlra.h"
#include "store/error.hpp"

namespace nlra {

void read_mps(Model& model, const Source& source, bool fixed) {
    const char* first_failure = nullptr;
    std::string first_text;
    if (!fixed) {
        try {
            return MpsReader(source, false).read(model);
        } catch (const Error& error) {
            if (error.code != NLRA_ERROR_FILE) throw;
            first_failure = source.failure();
            first_text = error.text;
        }
    }
    try {
        MpsReader(source, true).read(model);
    } catch (const Error& error) {
        // The reading that got further is the one that understood the file better.
        if (!fixed && error.code == NLRA_ERROR_FILE && source.failure() <= first_failure) {
            fail(NLRA_ERROR_FILE, "%s", first_text.c_str());
        }
        throw;
    }
}

void MpsReader::read(Model& model) {
    while (section_ != Section::kEnd) {
        if (!lines_.next()) {
            source_.fail_at(lines_.begin(), "the file ends before ENDATA");
        }
        if (lines_.is_header()) {
            header();
        } else {
            data();
        }
    }
    if (!rows_done_) source_.fail_at(lines_.begin(), "there is no ROWS section");
    if (!columns_done_) source_.fail_at(lines_.begin(), "there is no COLUMNS section");
    draft_.constant = 0.0 - objective_rhs_;
    apply_ranges();
    settle_bounds();
    Compressed rows = transpose(col_start_, row_index_, value_, draft_.rowtype.size());
    draft_.start = std::move(rows.start);
    draft_.index = std::move(rows.index);
    draft_.value = std::move(rows.value);
    draft_.finish(model, source_);
}

// ---- sections --------------------------------------------------------------------------------

void MpsReader::header() {
    static constexpr SectionName kSections[] = {
        {"name", Section::kName},         {"objsense", Section::kObjsense},
        {"objname", Section::kObjname},   {"rows", Section::kRows},
        {"columns", Section::kColumns},   {"rhs", Section::kRhs},
        {"ranges", Section::kRanges},     {"bounds", Section::kBounds},
        {"quadobj", Section::kQuadobj},   {"qmatrix", Section::kQmatrix},
        {"qsection", Section::kQsection}, {"qcmatrix", Section::kQcmatrix},
        {"sos", Section::kSos},           {"indicators", Section::kIndicators},
        {"endata", Section::kEnd}};
    const std::string_view word = lines_[0];
    for (const SectionName& entry : kSections) {
        if (equal_nocase(word, entry.name)) return start_section(entry.section);
    }
    // Some programs put the sense into the first column.
    if (section_ == Section::kObjsense && lines_.count() == 1) return objsense(word);
    source_.fail_at(lines_.begin(), "unknown section %s", quote(word).c_str());
}

void MpsReader::start_section(Section section) {
    end_section();
    section_ = section;
    const size_t number = static_cast<size_t>(section);
    if (seen_.size() <= number) seen_.resize(number + 1);
    // These come once for each row.
    const bool repeats = section == Section::kQsection || section == Section::kQcmatrix;
    if (seen_[number] != 0 && !repeats) {
        source_.fail_at(lines_.begin(), "a second %s section", std::string(lines_[0]).c_str());
    }
    seen_[number] = 1;
    switch (section) {
        case Section::kName:
            draft_.name = lines_.rest();
            break;
        case Section::kObjsense:
            if (lines_.count() > 1) objsense(lines_[1]);
            break;
        case Section::kObjname:
            if (rows_done_) source_.fail_at(lines_.begin(), "OBJNAME must come before ROWS");
            objective_name_ = lines_.rest();
            break;
        case Section::kRows:
        case Section::kEnd:
            break;
        case Section::kColumns:
            if (!rows_done_) source_.fail_at(lines_.begin(), "COLUMNS must come after ROWS");
            break;
        default:
            if (!columns_done_) {
                source_.fail_at(lines_.begin(), "%s must come after COLUMNS",
                                std::string(lines_[0]).c_str());
            }
            if (section == Section::kQuadobj || section == Section::kQmatrix ||
                section == Section::kQsection || section == Section::kQcmatrix) {
                start_quadratic();
            }
    }
}

void MpsReader::end_section() {
    switch (section_) {
        case Section::kRows:
            end_rows();
            break;
        case Section::kColumns:
            col_start_.push_back(static_cast<int64_t>(row_index_.size()));
            columns_done_ = true;
            break;
        case Section::kQuadobj:
        case Section::kQmatrix:
        case Section::kQsection:
        case Section::kQcmatrix:
            end_quadratic();
            break;
        default:
            break;
    }
}

void MpsReader::data() {
    switch (section_) {
        case Section::kObjsense:
            if (lines_.count() != 1) fail_fields("MAX or MIN");
            return objsense(lines_[0]);
        case Section::kObjname:
            objective_name_ = trim({lines_[0].data(), lines_[0].size() + lines_.rest().size()});
            return;
        case Section::kRows:
            return rows_line();
        case Section::kColumns:
            return columns_line();
        case Section::kRhs:
            return rhs_line();
        case Section::kRanges:
            return ranges_line();
        case Section::kBounds:
            return bounds_line();
        case Section::kQuadobj:
        case Section::kQmatrix:
        case Section::kQsection:
        case Section::kQcmatrix:
            return quadratic_line();
        case Section::kSos:
            return sos_line();
        case Section::kIndicators:
            return indicators_line();
        case Section::kNone:
        case Section::kName:
        case Section::kEnd:
            break;
    }
    source_.fail_at(lines_.begin(), "data outside of any section");
}

void MpsReader::objsense(std::string_view word) {
    if (equal_nocase(word, "max") || equal_nocase(word, "maximize") ||
        equal_nocase(word, "maximise")) {
        draft_.sense = -1.0;
    } else if (equal_nocase(word, "min") || equal_nocase(word, "minimize") ||
               equal_nocase(word, "minimise")) {
        draft_.sense = 1.0;
    } else {
        source_.fail_at(lines_.begin(), "unknown objective sense %s", quote(word).c_str());
    }
}

// ---- rows and columns --------------------------------------------------------------------------

void MpsReader::rows_line() {
    if (lines_.count() != 2) fail_fields("a type and a name (blanks in names need fixed format)");
    const char type = lines_[0].size() == 1 ? lower_case(lines_[0][0]) : '\0';
    if (type != 'n' && type != 'l' && type != 'g' && type != 'e') {
        source_.fail_at(lines_.begin(), "unknown row type %s", quote(lines_[0]).c_str());
    }
    if (!rows_.add(lines_[1])) {
        source_.fail_at(lines_.begin(), "row %s occurs twice", quote(lines_[1]).c_str());
    }
    if (objective_ < 0 && type == 'n' &&
        (objective_name_.empty() || lines_[1] == objective_name_)) {
        objective_ = rows_.size() - 1;
    }
    types_.push_back(static_cast<char>(type - 'a' + 'A'));
}

void MpsReader::end_rows() {
    if (objective_ < 0 && !objective_name_.empty()) {
        source_.fail_at(lines_.begin(), "there is no row %s of type N for the objective",
                        quote(objective_name_).c_str());
    }
    for (int i = 0; i < rows_.size(); ++i) {
        if (i == objective_) continue;
        draft_.rownames.push_back(rows_.name(i));
        draft_.rowtype.push_back(types_[i]);
    }
    const size_t count = draft_.rowtype.size();
    draft_.rhs.assign(count, 0.0);
    draft_.range.assign(count, 0.0);
    ranges_.assign(count, 0.0);
    range_where_.assign(count, nullptr);
    rhs_given_.assign(count, 0);
    quad_given_.assign(count + 1, 0);
    indicator_given_.assign(count, 0);
    last_col_.assign(count + 1, -1);
    rows_done_ = true;
}

void MpsReader::columns_line() {
    const int count = lines_.count();
    if (count >= 3 && lines_[1] == "'MARKER'") return marker_line();
    if (count != 3 && count != 5) {
        fail_fields("a column and one or two pairs of row and number");
    }
    // Lines of one column stand together: comparing with the last name saves most look-ups.
    const int cols = draft_.cols.size();
    if (cols == 0 || draft_.cols.name(cols - 1) != lines_[0]) start_column(lines_[0]);
    coefficient(lines_[1], lines_[2]);
    if (count == 5) coefficient(lines_[3], lines_[4]);
}

void MpsReader::marker_line() {
    const std::string_view kind = lines_[2];
    if (lines_.count() != 3) fail_fields("a name, 'MARKER' and 'INTORG' or 'INTEND'");
    if (kind == "'INTORG'") {
        in_marker_ = true;
    } else if (kind == "'INTEND'") {
        in_marker_ = false;
    } else {
        source_.fail_at(lines_.begin(), "unknown marker %s", quote(kind).c_str());
    }
}

void MpsReader::start_column(std::string_view name) {
    if (!draft_.add_col(name)) {
        source_.fail_at(lines_.begin(), "column %s occurs again; its lines must be together",
                        quote(name).c_str());
    }
    col_start_.push_back(static_cast<int64_t>(row_index_.size()));
    if (in_marker_) {
        draft_.marks.back() |= Draft::kMarkedInteger;
        draft_.coltype.back() = 'I';
    }
}

void MpsReader::coefficient(std::string_view rowname, std::string_view field) {
    const int row = find_row(rowname);
    const double value = number(field);
    const int col = draft_.cols.size() - 1;
    if (last_col_[row + 1] == col) {
        source_.fail_at(lines_.begin(), "column %s has a second entry in row %s",
                        quote(draft_.cols.name(col)).c_str(), quote(rowname).c_str());
    }
    last_col_[row + 1] = col;
    if (row == kObjective) {
        draft_.obj[col] = value;
    } else if (value != 0.0) {
        row_index_.push_back(row);
        value_.push_back(value);
    }
}

// ---- right-hand sides and ranges ---------------------------------------------------------------

void MpsReader::rhs_line() {
    const int count = lines_.count();
    if (count < 2 || count > 5) fail_fields("one or two pairs of row and number");
    if (count % 2 == 1) check_vector(rhs_name_, lines_[0]);
    for (int i = count % 2; i < count; i += 2) {
        const int row = find_row(lines_[i]);
        if (row == kObjective ? objective_rhs_given_ : rhs_given_[row] != 0) {
            source_.fail_at(lines_.begin(), "row %s has a second right-hand side",
                            quote(lines_[i]).c_str());
        }
        if (row == kObjective) {
            objective_rhs_ = number(lines_[i + 1]);
            objective_rhs_given_ = true;
        } else {
            draft_.rhs[row] = number(lines_[i + 1], true);
            rhs_given_[row] = 1;
        }
    }
}

void MpsReader::ranges_line() {
    const int count = lines_.count();
    if (count < 2 || count > 5) fail_fields("one or two pairs of row and number");
    if (count % 2 == 1) check_vector(range_name_, lines_[0]);
    for (int i = count % 2; i < count; i += 2) {
        const int row = find_row(lines_[i]);
        if (row == kObjective || draft_.rowtype[row] == 'N') {
            source_.fail_at(lines_.begin(), "row %s of type N cannot have a range",
                            quote(lines_[i]).c_str());
        }
        if (range_where_[row] != nullptr) {
            source_.fail_at(lines_.begin(), "row %s has a second range", quote(lines_[i]).c_str());
        }
        ranges_[row] = number(lines_[i + 1], true);
        range_where_[row] = lines_.begin();
    }
}

void MpsReader::apply_ranges() {
    // L rows reach down from the right-hand side, G rows up; for E rows the sign decides.
    for (size_t row = 0; row < ranges_.size(); ++row) {
        if (range_where_[row] == nullptr) continue;
        char& type = draft_.rowtype[row];
        double& rhs = draft_.rhs[row];
        const double range = std::fabs(ranges_[row]);
        if (std::fabs(rhs) >= kInfinity && type != 'L') {
            source_.fail_at(range_where_[row], "a range on a row with infinite right-hand side");
        }
        draft_.range[row] = range;
        const bool below = type == 'L' || (type == 'E' && ranges_[row] < 0.0);
        if (type == 'E' && range == 0.0) continue;
        type = 'R';
        if (below) continue;
        // rhs is the lower end; keep it exact where rounding allows.
        const double low = rhs;
        rhs = low + range;
        if (rhs - range != low && rhs - (rhs - low) == low) draft_.range[row] = rhs - low;
    }
}

void MpsReader::settle_bounds() {
    // Most programs read integer columns without bounds as binary, and a negative upper bound
    // alone as a column without lower bound; so do we.
    for (int col = 0; col < draft_.cols.size(); ++col) {
        const unsigned char marks = draft_.marks[col];
        if ((marks & Draft::kAnyBound) == 0) {
            if (draft_.coltype[col] == 'I') draft_.coltype[col] = 'B';
        } else if ((marks & Draft::kLowerGiven) == 0 && (marks & Draft::kUpperGiven) != 0 &&
                   draft_.lower[col] == 0.0 && draft_.upper[col] < 0.0) {
            draft_.lower[col] = -kInfinity;
        }
    }
}

// ---- helpers -----------------------------------------------------------------------------------

void MpsReader::check_vector(std::string_view& known, std::string_view name) {
    if (known.data() == nullptr) known = name;
    if (known != name) {
        source_.fail_at(lines_.begin(), "a second set %s beside %s; only one can be read",
                        quote(name).c_str(), quote(known).c_str());
    }
}

int MpsReader::find_row(std::string_view name) const {
    // The objective takes a place among the names, but is no row of the model.
    const int at = rows_.find(name);
    if (at < 0) source_.fail_at(lines_.begin(), "unknown row %s", quote(name).c_str());
    if (at == objective_) return kObjective;
    return at - (objective_ >= 0 && at > objective_ ? 1 : 0);
}

int MpsReader::find_col(std::string_view name) const {
    const int col = draft_.cols.find(name);
    if (col < 0) source_.fail_at(lines_.begin(), "unknown column %s", quote(name).c_str());
    return col;
}

double MpsReader::number(std::string_view field, bool infinite) const {
    double value = 0.0;
    switch (parse_number(field, value)) {
        case NumberStatus::kOk:
            break;
        case NumberStatus::kMalformed:
            source_.fail_at(lines_.begin(), "%s is not a number", quote(field).c_str());
        case NumberStatus::kNan:
            source_.fail_at(lines_.begin(), "NaN is not allowed");
        case NumberStatus::kOutOfRange:
            source_.fail_at(lines_.begin(), "%s is out of range", quote(field).c_str());
    }
    if (std::fabs(value) >= kInfinity) {
        if (!infinite) {
            source_.fail_at(lines_.begin(), "%s is infinite", quote(field).c_str());
        }
        return value > 0.0 ? kInfinity : -kInfinity;
    }
    return value;
}

void MpsReader::fail_fields(const char* expected) const {
    source_.fail_at(lines_.begin(), "expected %s", expected);
}

}  // namespace nlra
