#include "files/mps_reader.hpp"
#include "files/number.hpp"
#include "files/text.hpp"

namespace nlra {

namespace {

enum class BoundValue { kNone, kOptional, kRequired };

struct BoundKind {
    std::string_view name;
    BoundValue value;
};

constexpr BoundKind kKinds[] = {
    {"lo", BoundValue::kRequired}, {"up", BoundValue::kRequired}, {"fx", BoundValue::kRequired},
    {"fr", BoundValue::kNone},     {"mi", BoundValue::kNone},     {"pl", BoundValue::kNone},
    {"bv", BoundValue::kNone},     {"li", BoundValue::kRequired}, {"ui", BoundValue::kRequired},
    {"sc", BoundValue::kOptional}, {"si", BoundValue::kOptional}, {"pi", BoundValue::kRequired},
    {"th", BoundValue::kRequired}};

}  // namespace

// The set's name and the number may both be missing: what a field is follows from how many there
// are, and, where that leaves a doubt, from whether it names a column.
void MpsReader::bounds_line() {
    const BoundKind* kind = nullptr;
    for (const BoundKind& entry : kKinds) {
        if (equal_nocase(lines_[0], entry.name)) kind = &entry;
    }
    if (kind == nullptr) {
        source_.fail_at(lines_.begin(), "unknown bound type %s", quote(lines_[0]).c_str());
    }
    const int count = lines_.count();
    if (count < 2 || count > 4) fail_fields("a bound type, a set name, a column and a number");
    bool named = count == 4;
    bool valued = count == 4;
    if (count == 3) {
        named = kind->value != BoundValue::kRequired;
        if (named && draft_.cols.find(lines_[2]) < 0 && draft_.cols.find(lines_[1]) >= 0 &&
            is_number(lines_[2])) {
            named = false;
        }
        valued = !named;
    }
    if (kind->value == BoundValue::kRequired && !valued) fail_fields("a number for the bound");
    if (named) check_vector(bound_name_, lines_[1]);
    const int col = find_col(lines_[named ? 2 : 1]);
    // A number behind FR, MI, PL and BV has no meaning, but must be one.
    const double value = valued ? number(lines_[count - 1], true) : kInfinity;
    apply_bound(kind->name, col, value);
}

void MpsReader::apply_bound(std::string_view kind, int col, double value) {
    if ((kind == "pi" || kind == "th") && !Draft::valid_limit(value, kind == "th")) {
        fail_fields("a finite limit, at least 0 for TH");
    }
    bool consistent = true;
    draft_.marks[col] |= Draft::kAnyBound;
    if (kind == "lo" || kind == "li") {
        consistent = draft_.set_lower(col, value);
        if (kind == "li") set_type(col, 'I');
    } else if (kind == "up" || kind == "ui") {
        consistent = draft_.set_upper(col, value);
        if (kind == "ui") set_type(col, 'I');
    } else if (kind == "fx") {
        consistent = draft_.set_lower(col, value) && draft_.set_upper(col, value);
    } else if (kind == "fr") {
        consistent = draft_.clear_lower(col, -kInfinity) && draft_.clear_upper(col, kInfinity);
    } else if (kind == "mi") {
        consistent = draft_.clear_lower(col, -kInfinity);
    } else if (kind == "pl") {
        consistent = draft_.clear_upper(col, kInfinity);
    } else if (kind == "bv") {
        set_type(col, 'B');
    } else if (kind == "sc") {
        set_type(col, (draft_.marks[col] & Draft::kMarkedInteger) != 0 ? 'R' : 'S');
        consistent = draft_.set_upper(col, value);
    } else if (kind == "si") {
        set_type(col, 'R');
        consistent = draft_.set_upper(col, value);
    } else if (kind == "pi") {
        consistent = draft_.coltype[col] != 'P' || draft_.limit[col] == value;
        set_type(col, 'P');
        draft_.limit[col] = value;
    } else {  // th
        consistent = draft_.set_threshold(col, value, lines_.begin());
    }
    if (!consistent || draft_.contradicts_binary(col)) {
        source_.fail_at(lines_.begin(), "column %s: this bound contradicts an earlier one",
                        quote(draft_.cols.name(col)).c_str());
    }
}

void MpsReader::set_type(int col, char type) {
    char& present = draft_.coltype[col];
    const bool marked = (draft_.marks[col] & Draft::kMarkedInteger) != 0;
    if (present == type || (present == 'B' && type == 'I')) return;
    if (present != 'C' && !(marked && present == 'I')) {
        source_.fail_at(lines_.begin(), "column %s was given another type before",
                        quote(draft_.cols.name(col)).c_str());
    }
    present = type;
}

}  // namespace nlra
