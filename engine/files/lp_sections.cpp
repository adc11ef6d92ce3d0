#include <cmath>

#include "files/lp_reader.hpp"
#include "files/text.hpp"

namespace nlra {

void LpReader::section(LpSection kind, const char* where) {
    switch (kind) {
        case LpSection::kBounds:
            return bounds();
        case LpSection::kGenerals:
            return type_list('I');
        case LpSection::kBinaries:
            return type_list('B');
        case LpSection::kSemiContinuous:
            return type_list('S');
        case LpSection::kSemiIntegers:
            return type_list('R');
        case LpSection::kPartialIntegers:
        case LpSection::kThresholds:
            return numbered_list(kind);
        case LpSection::kSos:
            return sets();
        default:
            break;
    }
    source_.fail_at(where, "this section cannot be read, or not here");
}

// ---- bounds ------------------------------------------------------------------------------------

void LpReader::bounds() {
    while (!words_.is(LpKind::kSection) && !words_.is(LpKind::kEnd)) bound_statement();
}

void LpReader::bound_statement() {
    if (words_.is(LpKind::kName)) {
        const int col = take_column();
        if (words_.is(LpKind::kName) && equal_nocase(words_.now().text, "free")) {
            if (!draft_.clear_lower(col, -kInfinity) || !draft_.clear_upper(col, kInfinity)) {
                source_.fail_at(words_.where(), "this bound contradicts an earlier one");
            }
            words_.advance();
            return;
        }
        const Sense sense = take_sense();
        const char* const where = words_.where();
        return give_bound(col, sense, take_side().value, where);
    }
    const char* const where = words_.where();
    const double first = take_side().value;
    const Sense sense = take_sense();
    const int col = take_column();
    give_bound(col, turn(sense), first, where);
    if (!at_sense()) return;
    const Sense second = take_sense();
    if (second != sense || second == Sense::kEqual) {
        source_.fail_at(where, "both signs must point the same way");
    }
    const char* const last = words_.where();
    give_bound(col, second, take_side().value, last);
}

void LpReader::give_bound(int col, Sense sense, double value, const char* where) {
    if (std::fabs(value) > kInfinity) value = std::copysign(kInfinity, value);
    const bool consistent = (sense == Sense::kLess || draft_.set_lower(col, value)) &&
                            (sense == Sense::kGreater || draft_.set_upper(col, value));
    if (!consistent || draft_.contradicts_binary(col)) {
        source_.fail_at(where, "this bound contradicts an earlier one");
    }
}

// ---- types -------------------------------------------------------------------------------------

void LpReader::type_list(char type) {
    while (words_.is(LpKind::kName)) {
        const char* const where = words_.where();
        set_type(take_column(), type, where);
    }
}

void LpReader::set_type(int col, char type, const char* where) {
    char& present = draft_.coltype[col];
    if (present == type || (present == 'B' && type == 'I')) return;
    if (present == 'I' && type == 'S') type = 'R';
    const bool refined = present == 'C' || (present == 'I' && (type == 'B' || type == 'R')) ||
                         (present == 'S' && type == 'I');
    if (!refined) source_.fail_at(where, "the column was given another type before");
    present = present == 'S' ? 'R' : type;
    if (draft_.contradicts_binary(col)) {
        source_.fail_at(where, "the bounds of a binary column must lie within 0 and 1");
    }
}

void LpReader::numbered_list(LpSection kind) {
    while (words_.is(LpKind::kName)) {
        const char* const where = words_.where();
        const int col = take_column();
        expect(LpKind::kColon, "a colon and a number");
        const double value = take_side().value;
        if (!Draft::valid_limit(value, kind == LpSection::kThresholds)) {
            source_.fail_at(where, "the limit must be finite, and a threshold at least 0");
        }
        if (kind == LpSection::kPartialIntegers) {
            if (draft_.coltype[col] == 'P') source_.fail_at(where, "a second limit of the column");
            set_type(col, 'P', where);
            draft_.limit[col] = value;
        } else if (!draft_.set_threshold(col, value, where)) {
            source_.fail_at(where, "a second threshold of the column");
        }
    }
}

// ---- sets --------------------------------------------------------------------------------------

// name: S1:: x:1 y:2, where the set's name and colon may be missing.
void LpReader::sets() {
    while (words_.is(LpKind::kName)) {
        std::string_view name = words_.now().text;
        const char* where = words_.where();
        words_.advance();
        expect(LpKind::kColon, "a colon behind the set's name");
        std::string_view type = name;
        if (words_.is(LpKind::kColon)) {
            name = {};
        } else {
            if (!set_names_.add(name)) {
                source_.fail_at(where, "set %s occurs twice", quote(name).c_str());
            }
            where = words_.where();
            type = words_.is(LpKind::kName) ? words_.now().text : std::string_view();
            words_.advance();
            expect(LpKind::kColon, "S1:: or S2::");
        }
        expect(LpKind::kColon, "S1:: or S2::");
        const bool first = equal_nocase(type, "s1");
        if (!first && !equal_nocase(type, "s2")) {
            source_.fail_at(where, "the type of a set must be S1 or S2");
        }
        draft_.sets.push_back({first ? '1' : '2', name, {}});
        set_elements();
    }
}

void LpReader::set_elements() {
    // A set without a name may follow: "S1::", or the next set's name: "name: S2::". Elements have
    // a number behind the colon.
    while (words_.is(LpKind::kName)) {
        const LpTokens mark = words_;
        const char* const where = words_.where();
        words_.advance();
        expect(LpKind::kColon, "a colon");
        if (words_.is(LpKind::kColon) || words_.is(LpKind::kName)) {
            words_ = mark;
            return;
        }
        words_ = mark;
        const int col = take_column();
        words_.advance();
        const Side side = take_side();
        if (side.infinite || std::fabs(side.value) >= kInfinity) {
            source_.fail_at(where, "the weight is infinite");
        }
        draft_.sets.back().elements.push_back({col, side.value, where});
    }
}

// ---- words -------------------------------------------------------------------------------------

int LpReader::take_column() {
    if (!words_.is(LpKind::kName)) fail_expected("a column");
    const int col = draft_.cols.find(words_.now().text);
    if (col < 0) {
        source_.fail_at(words_.where(), "unknown column %s", quote(words_.now().text).c_str());
    }
    words_.advance();
    return col;
}

void LpReader::expect(LpKind kind, const char* what) {
    if (!words_.is(kind)) fail_expected(what);
    words_.advance();
}

void LpReader::fail_expected(const char* what) const {
    if (words_.is(LpKind::kEnd)) {
        source_.fail_at(words_.where(), "expected %s, but the file ends before End", what);
    }
    source_.fail_at(words_.where(), "expected %s, found %s", what,
                    quote(words_.now().text).c_str());
}

}  // namespace nlra
