#include <algorithm>

#include "files/mps_reader.hpp"
#include "files/number.hpp"
#include "files/text.hpp"

namespace nlra {

// ---- quadratic terms ---------------------------------------------------------------------------

void MpsReader::start_quadratic() {
    const std::string_view name = lines_.rest();
    quad_row_ = kObjective;
    if (section_ == Section::kQcmatrix || (section_ == Section::kQsection && !name.empty())) {
        quad_row_ = find_row(name);
    }
    if (section_ == Section::kQcmatrix && quad_row_ == kObjective) {
        source_.fail_at(lines_.begin(), "QCMATRIX is for rows that are not the objective");
    }
    char& given = quad_given_[quad_row_ + 1];
    if (given != 0) {
        source_.fail_at(lines_.begin(), "quadratic terms of this row were given before");
    }
    given = 1;
    quad_entries_.clear();
}

void MpsReader::quadratic_line() {
    if (lines_.count() != 3) fail_fields("two columns and a number");
    quad_entries_.push_back(
        {find_col(lines_[0]), find_col(lines_[1]), number(lines_[2]), lines_.begin()});
}

void MpsReader::end_quadratic() {
    // Entries of the same pair become neighbours, the upper half first.
    const auto key = [](const QuadEntry& entry) {
        return std::pair(std::minmax(entry.col1, entry.col2), entry.col1 > entry.col2);
    };
    std::stable_sort(quad_entries_.begin(), quad_entries_.end(),
                     [&](const QuadEntry& a, const QuadEntry& b) { return key(a) < key(b); });
    // Terms are kept as they stand in the polynomial: with 0.5 x'Qx an entry off the diagonal,
    // which stands for both halves, counts whole there and a diagonal one half.
    const bool both_halves = section_ == Section::kQmatrix || section_ == Section::kQcmatrix;
    const double half = section_ == Section::kQcmatrix ? 1.0 : 0.5;
    const auto same_pair = [](const QuadEntry& a, const QuadEntry& b) {
        return std::minmax(a.col1, a.col2) == std::minmax(b.col1, b.col2);
    };
    std::vector<QuadTerm> terms;
    const size_t count = quad_entries_.size();
    for (size_t i = 0; i < count;) {
        const QuadEntry& entry = quad_entries_[i++];
        const bool diagonal = entry.col1 == entry.col2;
        if (both_halves && !diagonal) {
            if (i == count || !same_pair(entry, quad_entries_[i]) ||
                quad_entries_[i].col1 == entry.col1 || quad_entries_[i].value != entry.value) {
                source_.fail_at(entry.where, "the entry for %s and %s has no equal counterpart",
                                quote(draft_.cols.name(entry.col1)).c_str(),
                                quote(draft_.cols.name(entry.col2)).c_str());
            }
            ++i;
        }
        if (i < count && same_pair(entry, quad_entries_[i])) {
            source_.fail_at(quad_entries_[i].where, "a second entry for these columns");
        }
        const auto [low, high] = std::minmax(entry.col1, entry.col2);
        terms.push_back({low, high, (diagonal ? half : 2.0 * half) * entry.value});
    }
    if (quad_row_ == kObjective) {
        draft_.qobj = std::move(terms);
    } else {
        draft_.qrows.push_back({quad_row_, std::move(terms)});
    }
}

// ---- sets and indicators -----------------------------------------------------------------------

void MpsReader::sos_line() {
    if (is_set_header()) return set_header(lines_[0][1]);
    const int count = lines_.count();
    if (count != 2 && count != 3) fail_fields("a column and its weight");
    if (draft_.sets.empty()) fail_fields("S1 or S2 and the name of a set");
    draft_.sets.back().elements.push_back(
        {find_col(lines_[count - 2]), number(lines_[count - 1]), lines_.begin()});
}

// "S1" may also be a column's name: then the line is an element when it is set in as elements are
// and ends with a number.
bool MpsReader::is_set_header() const {
    if (!equal_nocase(lines_[0], "s1") && !equal_nocase(lines_[0], "s2")) return false;
    const int count = lines_.count();
    const bool element = count == 2 && lines_.indent() > 3 && draft_.cols.find(lines_[0]) >= 0 &&
                         is_number(lines_[1]);
    return !element;
}

// [vector name] set name [priority] behind the type.
void MpsReader::set_header(char type) {
    const int count = lines_.count();
    if (count < 2 || count > 4) fail_fields("the name of a set");
    const bool priority = count == 4 || (count == 3 && is_number(lines_[2]));
    if (count == 4) number(lines_[3]);
    const std::string_view name = lines_[priority ? count - 2 : count - 1];
    if (!sets_.add(name)) {
        source_.fail_at(lines_.begin(), "set %s occurs twice", quote(name).c_str());
    }
    draft_.sets.push_back({type, name, {}});
}

void MpsReader::indicators_line() {
    if (lines_.count() != 4 || !equal_nocase(lines_[0], "if")) {
        fail_fields("IF, a row, a column and 0 or 1");
    }
    const int row = find_row(lines_[1]);
    const int col = find_col(lines_[2]);
    const double value = number(lines_[3]);
    if (value != 0.0 && value != 1.0) fail_fields("0 or 1 for the indicator");
    if (row == kObjective || indicator_given_[row] != 0) {
        source_.fail_at(lines_.begin(), "row %s cannot have %s indicator", quote(lines_[1]).c_str(),
                        row == kObjective ? "an" : "a second");
    }
    indicator_given_[row] = 1;
    draft_.indicators.push_back({row, col, value == 1.0 ? 1 : -1, lines_.begin()});
}

}  // namespace nlra
