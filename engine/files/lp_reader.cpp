#include "files/lp_reader.hpp"

#include <cmath>

#include "files/lp.hpp"
#include "files/text.hpp"

namespace nlra {

void read_lp(Model& model, const Source& source) { LpReader(source).read(model); }

void LpReader::read(Model& model) {
    draft_.name = words_.problem_name();
    objective();
    if (!words_.is(LpKind::kSection) || words_.now().section != LpSection::kRows) {
        fail_expected("Subject To");
    }
    while (words_.is(LpKind::kSection) && words_.now().section == LpSection::kRows) {
        words_.advance();
        rows();
    }
    while (words_.is(LpKind::kSection) && words_.now().section != LpSection::kEnd) {
        const LpSection kind = words_.now().section;
        const char* const where = words_.where();
        words_.advance();
        section(kind, where);
    }
    if (words_.is(LpKind::kEnd)) source_.fail_at(words_.where(), "the file ends before End");
    if (!words_.is(LpKind::kSection)) fail_expected("a section");
    draft_.finish(model, source_);
}

void LpReader::objective() {
    const LpSection sense = words_.now().section;
    if (sense != LpSection::kMinimize && sense != LpSection::kMaximize) {
        fail_expected("Minimize or Maximize");
    }
    draft_.sense = sense == LpSection::kMinimize ? 1.0 : -1.0;
    words_.advance();
    if (words_.is(LpKind::kName) && words_.now().labels) {
        words_.advance();
        words_.advance();
    }
    parse_sum(sum_, true);
    if (sum_.infinite) source_.fail_at(words_.where(), "the objective is infinite");
    for (const Term& term : sum_.terms) draft_.obj[term.col] = term.value;
    draft_.constant = sum_.constant;
    draft_.qobj = sum_.quadratic;
}

// ---- rows --------------------------------------------------------------------------------------

void LpReader::rows() {
    while (!words_.is(LpKind::kSection) && !words_.is(LpKind::kEnd)) row();
}

void LpReader::row() {
    row_ = words_.where();
    std::string_view name;
    if (words_.is(LpKind::kName) && words_.now().labels) {
        name = words_.now().text;
        if (!row_names_.add(name)) {
            source_.fail_at(words_.where(), "row %s occurs twice", quote(name).c_str());
        }
        words_.advance();
        words_.advance();
    }
    row_body(name, true);
}

void LpReader::row_body(std::string_view name, bool indicator_allowed) {
    parse_sum(left_, false);
    const Sense sense = take_sense();
    if (left_.only_constant()) {
        parse_sum(sum_, false);
        if (!at_sense() && sum_.only_constant()) {
            return add_row(name, left_, sense, {sum_.constant, sum_.infinite});
        }
        return turned_row(name, sense, {left_.constant, left_.infinite});
    }
    if (left_.infinite) source_.fail_at(row_, "an infinite number among the terms of a row");
    const Side side = take_side();
    if (!words_.is(LpKind::kArrow)) return add_row(name, left_, sense, side);

    const bool condition = indicator_allowed && sense == Sense::kEqual && left_.terms.size() == 1 &&
                           left_.terms[0].value == 1.0 && left_.quadratic.empty() &&
                           left_.constant == 0.0 && (side.value == 0.0 || side.value == 1.0);
    if (!condition) fail_expected("one binary column = 0 or 1 before ->");
    const int row = static_cast<int>(draft_.rowtype.size());
    draft_.indicators.push_back({row, left_.terms[0].col, side.value == 1.0 ? 1 : -1, row_});
    words_.advance();
    row_body(name, false);
}

// A row whose terms, in sum_, stand behind a number and a sign: "l <= terms" or "l <= terms <= u".
void LpReader::turned_row(std::string_view name, Sense sense, Side first) {
    if (sum_.infinite) source_.fail_at(row_, "an infinite number among the terms of a row");
    const Sense turned = turn(sense);
    if (!at_sense()) return add_row(name, sum_, turned, first);
    const Sense second = take_sense();
    if (sense == Sense::kEqual || second != sense) {
        source_.fail_at(row_, "both signs of a range must point the same way");
    }
    add_range(name, sum_, sense, first, take_side());
}

LpReader::Sense LpReader::turn(Sense sense) {
    if (sense == Sense::kEqual) return sense;
    return sense == Sense::kLess ? Sense::kGreater : Sense::kLess;
}

void LpReader::add_row(std::string_view name, const Sum& sum, Sense sense, Side side) {
    if (side.infinite) {
        const bool free = side.value < 0.0 ? sense == Sense::kGreater : sense == Sense::kLess;
        if (!free) source_.fail_at(row_, "no values can satisfy this row");
        return append_row(name, sum, 'N', 0.0 - sum.constant, 0.0);
    }
    const char type = sense == Sense::kEqual ? 'E' : sense == Sense::kLess ? 'L' : 'G';
    append_row(name, sum, type, shift(side.value, sum), 0.0);
}

// `sense` stands between all three.
void LpReader::add_range(std::string_view name, const Sum& sum, Sense sense, Side first,
                         Side last) {
    const Side low = sense == Sense::kLess ? first : last;
    const Side high = sense == Sense::kLess ? last : first;
    if (low.value > high.value || (low.infinite && low.value > 0.0) ||
        (high.infinite && high.value < 0.0)) {
        source_.fail_at(row_, "no values can satisfy this row");
    }
    if (low.infinite) return add_row(name, sum, Sense::kLess, high);
    if (high.value >= kInfinity) return add_row(name, sum, Sense::kGreater, low);
    append_row(name, sum, 'R', shift(high.value, sum), high.value - low.value);
}

// A number among the terms moves to the right-hand side, which else stays as it was given.
double LpReader::shift(double rhs, const Sum& sum) {
    return sum.constant == 0.0 ? rhs : rhs - sum.constant;
}

void LpReader::append_row(std::string_view name, const Sum& sum, char type, double rhs,
                          double range) {
    draft_.rownames.push_back(name);
    draft_.rowtype.push_back(type);
    draft_.rhs.push_back(rhs);
    draft_.range.push_back(range);
    for (const Term& term : sum.terms) {
        if (term.value == 0.0) continue;
        draft_.index.push_back(term.col);
        draft_.value.push_back(term.value);
    }
    draft_.start.push_back(static_cast<int64_t>(draft_.index.size()));
    if (!sum.quadratic.empty()) {
        draft_.qrows.push_back({static_cast<int>(draft_.rowtype.size()) - 1, sum.quadratic});
    }
}

// ---- sums of terms -----------------------------------------------------------------------------

// Ends where a term has no sign before it, as the next row's first one.
void LpReader::parse_sum(Sum& sum, bool objective) {
    sum.terms.clear();
    sum.quadratic.clear();
    sum.constant = 0.0;
    sum.infinite = false;
    ++sums_;
    for (bool first = true;; first = false) {
        const bool sign = words_.is(LpKind::kPlus) || words_.is(LpKind::kMinus);
        const bool term = words_.is(LpKind::kNumber) || words_.is(LpKind::kInfinity) ||
                          words_.is(LpKind::kOpen) ||
                          (words_.is(LpKind::kName) && !words_.now().labels);
        if (!sign && !(first && term)) {
            // Only an objective may be empty.
            if (first && !objective) fail_expected("a term");
            return;
        }
        parse_term(sum, take_sign(), objective);
    }
}

void LpReader::parse_term(Sum& sum, double sign, bool objective) {
    if (sum.infinite) source_.fail_at(words_.where(), "a term beside an infinite number");
    if (words_.is(LpKind::kInfinity)) {
        if (!sum.only_constant() || sum.constant != 0.0) {
            source_.fail_at(words_.where(), "an infinite number beside other terms");
        }
        sum.constant = sign * kInfinity;
        sum.infinite = true;
        words_.advance();
        return;
    }
    if (words_.is(LpKind::kOpen)) return parse_brackets(sum, sign, objective);
    double value = sign;
    bool number = false;
    bool times = false;
    const char* const where = words_.where();
    if (words_.is(LpKind::kNumber)) {
        number = true;
        value *= words_.now().value;
        words_.advance();
        times = words_.is(LpKind::kTimes);
        if (times) words_.advance();
        if (words_.is(LpKind::kNumber)) fail_expected("a sign between two numbers");
        if (words_.is(LpKind::kOpen)) fail_expected("a sign before [");
    }
    if (words_.is(LpKind::kName) && !words_.now().labels) {
        if (std::fabs(value) >= kInfinity) source_.fail_at(where, "an infinite coefficient");
        add_term(sum, take_new_column(), value);
    } else if (number && !times) {
        sum.constant += value;
    } else {
        fail_expected("a term");
    }
}

// [ 2 x ^ 2 + 3 x * y ], with "/ 2" in the objective; elsewhere that is allowed.
void LpReader::parse_brackets(Sum& sum, double sign, bool objective) {
    const char* const where = words_.where();
    const size_t first = sum.quadratic.size();
    words_.advance();
    while (!words_.is(LpKind::kClose)) {
        if (sum.quadratic.size() > first && !words_.is(LpKind::kPlus) &&
            !words_.is(LpKind::kMinus)) {
            fail_expected("a sign or ]");
        }
        double value = take_sign();
        const char* const number = words_.where();
        if (words_.is(LpKind::kNumber)) {
            value *= words_.now().value;
            words_.advance();
            if (words_.is(LpKind::kTimes)) words_.advance();
        }
        if (std::fabs(value) >= kInfinity) source_.fail_at(number, "an infinite coefficient");
        const int col = take_new_column();
        int other = col;
        if (words_.is(LpKind::kPower)) {
            words_.advance();
            if (!words_.is(LpKind::kNumber) || words_.now().value != 2.0) {
                fail_expected("2 behind ^");
            }
            words_.advance();
        } else {
            expect(LpKind::kTimes, "^ 2 or * and a column");
            other = take_new_column();
        }
        sum.quadratic.push_back({std::min(col, other), std::max(col, other), sign * value});
    }
    words_.advance();
    if (words_.is(LpKind::kDivide)) {
        words_.advance();
        if (!words_.is(LpKind::kNumber) || words_.now().value != 2.0) fail_expected("2 behind /");
        words_.advance();
        for (size_t i = first; i < sum.quadratic.size(); ++i) sum.quadratic[i].value *= 0.5;
    } else if (objective) {
        source_.fail_at(where, "quadratic terms of the objective need / 2 behind the bracket");
    }
}

void LpReader::add_term(Sum& sum, int col, double value) {
    if (place_sum_[col] == sums_) {
        sum.terms[place_[col]].value += value;
        return;
    }
    place_sum_[col] = sums_;
    place_[col] = static_cast<int>(sum.terms.size());
    sum.terms.push_back({col, value});
}

// ---- words -------------------------------------------------------------------------------------

bool LpReader::at_sense() const {
    return words_.is(LpKind::kLess) || words_.is(LpKind::kGreater) || words_.is(LpKind::kEqual);
}

LpReader::Sense LpReader::take_sense() {
    if (!at_sense()) fail_expected("<=, >= or =");
    const Sense sense = words_.is(LpKind::kLess)      ? Sense::kLess
                        : words_.is(LpKind::kGreater) ? Sense::kGreater
                                                      : Sense::kEqual;
    words_.advance();
    return sense;
}

double LpReader::take_sign() {
    double sign = 1.0;
    while (words_.is(LpKind::kPlus) || words_.is(LpKind::kMinus)) {
        if (words_.is(LpKind::kMinus)) sign = -sign;
        words_.advance();
    }
    return sign;
}

LpReader::Side LpReader::take_side() {
    const double sign = take_sign();
    Side side{sign * kInfinity, words_.is(LpKind::kInfinity)};
    if (!side.infinite) {
        if (!words_.is(LpKind::kNumber)) fail_expected("a number");
        side.value = sign * words_.now().value;
    }
    words_.advance();
    return side;
}

int LpReader::take_new_column() {
    if (!words_.is(LpKind::kName) || words_.now().labels) fail_expected("a column");
    const std::string_view name = words_.now().text;
    int col = draft_.cols.find(name);
    if (col < 0) {
        col = draft_.cols.size();
        draft_.add_col(name);
        place_.push_back(0);
        place_sum_.push_back(0);
    }
    words_.advance();
    return col;
}

}  // namespace nlra
