#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "files/draft.hpp"
#include "files/nonlinear.hpp"
#include "files/nonlinear_formula.hpp"
#include "files/nonlinear_lines.hpp"
#include "files/text.hpp"
#include "nonlinear/formula_parser.hpp"
#include "nonlinear/user_function.hpp"
#include "store/error.hpp"

namespace nlra {

namespace {

constexpr std::string_view kFirstWords[] = {"nalora", "model"};
constexpr int kVersion = 1;

class NonlinearReader {
  public:
    explicit NonlinearReader(const Source& source)
        : source_(source), lines_(source), columns_(draft_.cols) {}

    void read(Model& model) {
        first_line();
        while (!done_) {
            if (!lines_.next()) {
                source_.fail_at(lines_.position(), "the file ends before the line 'end'");
            }
            statement();
        }
        if (lines_.next()) lines_.fail_expected("nothing behind the line 'end'");
        draft_.finish(model, source_);
        complete(model);
    }

  private:
    // What the statements of a block belong to; rows are numbers from 0 on.
    static constexpr int kObjective = -1;
    static constexpr int kNone = -2;

    void first_line();
    void statement();
    [[noreturn]] void fail_here(const char* text) {
        source_.fail_at(lines_.position(), "%s", text);
    }
    // A word of one character out of `choices`.
    char letter(const char* choices, const char* expected);

    std::string_view declared_name() { return lines_.take('-') ? "" : lines_.name(); }
    void need_block(const char* statement) {
        if (block_ != kNone) return;
        source_.fail_at(lines_.position(), "'%s' belongs to the objective or a row", statement);
    }

    void name();
    void column();
    void column_option(int col);
    void minimize() { objective(1.0); }
    void maximize() { objective(-1.0); }
    void objective(double sense);
    void constant();
    void row();
    void linear();
    void quadratic();
    void formula();
    void indicator();
    void set();
    void end() { done_ = true; }

    void add_coefficient(double& present, double value);
    void check_terms(const std::vector<QuadTerm>& terms);
    // What a draft has no place for.
    void complete(Model& model);

    const Source& source_;
    ModelLines lines_;
    Draft draft_;
    ColumnReader columns_;
    bool done_ = false;
    bool has_objective_ = false;
    int block_ = kNone;
    std::vector<std::string_view> colnames_;  // of all columns; draft_.cols leaves repeats out
    std::vector<int> last_block_;             // by column: the last block with a linear term in it
    std::vector<int64_t> last_entry_;         // by column: where that term is
    Formulas formulas_;
    std::map<int, Indicator> indicators_;
};

void NonlinearReader::first_line() {
    lines_.next();
    for (const std::string_view word : kFirstWords) {
        if (lines_.word("the first line 'nalora model 1'") != word) {
            fail_here("a file of this format begins with the line 'nalora model 1'");
        }
    }
    const int version = lines_.count("the version of the format");
    if (version != kVersion) {
        source_.fail_at(lines_.position(), "version %d of the format is unknown; %d can be read",
                        version, kVersion);
    }
    if (!lines_.at_end()) lines_.fail_expected("the end of the line");
}

void NonlinearReader::statement() {
    struct Keyword {
        std::string_view word;
        void (NonlinearReader::*read)();
    };
    static constexpr Keyword kKeywords[] = {
        {"name", &NonlinearReader::name},         {"column", &NonlinearReader::column},
        {"minimize", &NonlinearReader::minimize}, {"maximize", &NonlinearReader::maximize},
        {"constant", &NonlinearReader::constant}, {"row", &NonlinearReader::row},
        {"linear", &NonlinearReader::linear},     {"quadratic", &NonlinearReader::quadratic},
        {"formula", &NonlinearReader::formula},   {"indicator", &NonlinearReader::indicator},
        {"set", &NonlinearReader::set},           {"end", &NonlinearReader::end}};
    const std::string_view word = lines_.word("a statement");
    for (const Keyword& keyword : kKeywords) {
        if (keyword.word != word) continue;
        (this->*keyword.read)();
        if (!lines_.at_end()) lines_.fail_expected("the end of the line");
        return;
    }
    source_.fail_at(word.data(), "unknown statement %s", quote(word).c_str());
}

char NonlinearReader::letter(const char* choices, const char* expected) {
    const std::string_view word = lines_.word(expected);
    if (word.size() != 1 || std::strchr(choices, word[0]) == nullptr) {
        source_.fail_at(word.data(), "expected %s, not %s", expected, quote(word).c_str());
    }
    return word[0];
}

void NonlinearReader::name() {
    if (!draft_.name.empty()) fail_here("a second name of the model");
    draft_.name = lines_.name();
}

// ---- columns -----------------------------------------------------------------------------------

void NonlinearReader::column() {
    const std::string_view name = declared_name();
    const int col = draft_.cols.size();
    if (name.empty() || !draft_.add_col(name)) {
        if (!name.empty()) columns_.mark_shared(draft_.cols.find(name));
        draft_.add_unnamed_col();
    }
    colnames_.push_back(name);
    last_block_.push_back(kNone);
    last_entry_.push_back(0);
    // All is given, so that the rules of other formats for what is not do not apply.
    draft_.marks[col] =
        Draft::kLowerGiven | Draft::kUpperGiven | Draft::kAnyBound | Draft::kLimitGiven;
    draft_.coltype[col] = letter("CBISRP", "one of the types C B I S R P");
    draft_.lower[col] = lines_.number(true);
    draft_.upper[col] = lines_.number(true);
    while (!lines_.at_end()) column_option(col);
}

void NonlinearReader::column_option(int col) {
    const std::string_view word = lines_.word("'limit' or 'start'");
    const double value = lines_.number();
    if (word == "start") {
        if (!formulas_.start.emplace(col, value).second) fail_here("a second starting value");
    } else if (word == "limit") {
        const char type = draft_.coltype[col];
        const bool threshold = type == 'S' || type == 'R';
        if ((!threshold && type != 'P') || !Draft::valid_limit(value, threshold)) {
            source_.fail_at(lines_.position(), "a column of type %c cannot have the limit %g", type,
                            value);
        }
        draft_.limit[col] = value;
    } else {
        source_.fail_at(word.data(), "expected 'limit' or 'start', not %s", quote(word).c_str());
    }
}

// ---- the objective and rows --------------------------------------------------------------------

void NonlinearReader::objective(double sense) {
    if (has_objective_) fail_here("a second objective");
    has_objective_ = true;
    draft_.sense = sense;
    block_ = kObjective;
}

void NonlinearReader::constant() {
    if (block_ != kObjective) fail_here("'constant' belongs to the objective");
    add_coefficient(draft_.constant, lines_.number());
}

void NonlinearReader::row() {
    block_ = static_cast<int>(draft_.rownames.size());
    draft_.rownames.push_back(declared_name());
    const char type = letter("LGERN", "one of the types L G E R N");
    draft_.rowtype.push_back(type);
    draft_.rhs.push_back(lines_.number(true));
    const double range = type == 'R' ? lines_.number(true) : 0.0;
    if (range < 0.0) fail_here("the range must not be negative");
    draft_.range.push_back(range);
    draft_.start.push_back(static_cast<int64_t>(draft_.index.size()));
}

// The first value replaces the zero that is there, whose sign may differ.
void NonlinearReader::add_coefficient(double& present, double value) {
    present = present == 0.0 ? value : present + value;
    if (!(std::fabs(present) < kInfinity)) fail_here("the sum of the coefficients is infinite");
}

void NonlinearReader::linear() {
    need_block("linear");
    while (!lines_.at_end()) {
        const double value = lines_.number();
        const int col = columns_.read(lines_);
        if (block_ == kObjective) {
            add_coefficient(draft_.obj[col], value);
        } else if (last_block_[col] == block_) {
            add_coefficient(draft_.value[last_entry_[col]], value);
        } else {
            last_block_[col] = block_;
            last_entry_[col] = static_cast<int64_t>(draft_.value.size());
            draft_.index.push_back(col);
            draft_.value.push_back(value);
        }
    }
    if (block_ >= 0) draft_.start.back() = static_cast<int64_t>(draft_.index.size());
}

void NonlinearReader::quadratic() {
    need_block("quadratic");
    std::vector<QuadTerm> terms;
    while (!lines_.at_end()) {
        const double value = lines_.number();
        const int first = columns_.read(lines_);
        const int second = columns_.read(lines_);
        terms.push_back({std::min(first, second), std::max(first, second), value});
    }
    std::vector<QuadTerm>* target = &draft_.qobj;
    if (block_ != kObjective) {
        if (draft_.qrows.empty() || draft_.qrows.back().row != block_) {
            draft_.qrows.push_back({block_, {}});
        }
        target = &draft_.qrows.back().terms;
    }
    target->insert(target->end(), terms.begin(), terms.end());
}

void NonlinearReader::formula() {
    need_block("formula");
    double factor = 1.0;
    int column = -1;
    lines_.peek();
    const char* where = lines_.position();
    if (lines_.take('{')) {
        factor = lines_.number();
        if (lines_.peek() != '}') column = columns_.read(lines_);
        if (!lines_.take('}')) lines_.fail_expected("}");
    }
    Coefficient coefficient = read_formula(lines_, columns_);
    coefficient.factor = factor;
    coefficient.column = column;
    try {
        check_pieces({piece_of(coefficient)}, {draft_.cols.size(), nullptr});
    } catch (const Error& error) {
        source_.fail_at(where, "%s", error.text.c_str());
    }
    Formula& formula = block_ == kObjective ? formulas_.objective : formulas_.rows[block_];
    formula.push_back(std::move(coefficient));
}

void NonlinearReader::indicator() {
    if (block_ < 0) fail_here("'indicator' belongs to a row");
    const int col = columns_.read(lines_);
    const double value = lines_.number();
    if (value != 0.0 && value != 1.0) fail_here("an indicator's value must be 0 or 1");
    if (!indicators_.emplace(block_, Indicator{col, value == 1.0 ? 1 : -1}).second) {
        fail_here("a second indicator of the row");
    }
}

// ---- sets and the end --------------------------------------------------------------------------

void NonlinearReader::set() {
    const std::string_view name = declared_name();
    const std::string_view type = lines_.word("S1 or S2");
    if (type != "S1" && type != "S2") {
        source_.fail_at(type.data(), "expected S1 or S2, not %s", quote(type).c_str());
    }
    draft_.sets.push_back({type[1], name, {}});
    while (!lines_.at_end()) {
        const char* where = lines_.position();
        const double weight = lines_.number();
        draft_.sets.back().elements.push_back({columns_.read(lines_), weight, where});
    }
}

// Terms of the same pair have been added up.
void NonlinearReader::check_terms(const std::vector<QuadTerm>& terms) {
    for (const QuadTerm& term : terms) {
        if (!(std::fabs(term.value) < kInfinity)) fail_here("a sum of quadratic terms is infinite");
    }
}

void NonlinearReader::complete(Model& model) {
    for (int col = 0; col < model.cols(); ++col) {
        if (!model.colnames.has_name(col)) model.colnames.set(col, colnames_[col]);
    }
    for (const auto& [row, terms] : model.qrows) check_terms(terms);
    check_terms(model.qobj);
    for (const auto& [row, entry] : indicators_) {
        model.set_indicator(row, entry.col, entry.complement);
    }
    model.formulas = std::move(formulas_);
}

}  // namespace

bool is_nonlinear_file(const Source& source) {
    ModelLines lines(source);
    if (!lines.next()) return false;
    for (const std::string_view word : kFirstWords) {
        const char c = lines.peek();
        if (c != word[0] || lines.word("") != word) return false;
    }
    return true;
}

void read_nonlinear(Model& model, const Source& source) { NonlinearReader(source).read(model); }

}  // namespace nlra
