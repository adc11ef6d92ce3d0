// One pass over an LP file into a draft of the model. Used by read_lp only; lp_reader.cpp has the
// objective and the rows, lp_sections.cpp what follows them.
#pragma once

#include <vector>

#include "files/draft.hpp"
#include "files/lp_tokens.hpp"
#include "files/source.hpp"

namespace nlra {

class LpReader {
  public:
    explicit LpReader(const Source& source) : source_(source), words_(source) {}
    void read(Model& model);

  private:
    struct Term {
        int col;
        double value;
    };
    // A sum of terms; reused, since most files are made of very many of them.
    struct Sum {
        std::vector<Term> terms;  // each column once; zeros stay
        std::vector<QuadTerm> quadratic;
        double constant = 0.0;
        bool infinite = false;  // the constant was given as "inf"
        bool only_constant() const { return terms.empty() && quadratic.empty(); }
    };
    enum class Sense { kLess, kGreater, kEqual };
    // A number on one side of a row.
    struct Side {
        double value;
        bool infinite;  // given as "inf"
    };

    // lp_reader.cpp
    void objective();
    void rows();
    void row();
    // What follows a row's name; also what follows the -> of an indicator.
    void row_body(std::string_view name, bool indicator_allowed);
    void turned_row(std::string_view name, Sense sense, Side first);
    void add_row(std::string_view name, const Sum& sum, Sense sense, Side side);
    void add_range(std::string_view name, const Sum& sum, Sense sense, Side first, Side last);
    void append_row(std::string_view name, const Sum& sum, char type, double rhs, double range);
    static double shift(double rhs, const Sum& sum);
    void parse_sum(Sum& sum, bool objective);
    void parse_term(Sum& sum, double sign, bool objective);
    void parse_brackets(Sum& sum, double sign, bool objective);
    // Adds to the column's term of the present sum, if there is one.
    void add_term(Sum& sum, int col, double value);
    bool at_sense() const;
    Sense take_sense();
    static Sense turn(Sense sense);
    double take_sign();  // any number of signs
    Side take_side();
    // Columns come to be where they are first mentioned, but only in objective and rows.
    int take_new_column();

    // lp_sections.cpp
    void section(LpSection kind, const char* where);
    void bounds();
    void bound_statement();
    void give_bound(int col, Sense sense, double value, const char* where);
    // Sections of names, and of pairs of name and number.
    void type_list(char type);
    // A second type must refine the first: I to B or R, S to R.
    void set_type(int col, char type, const char* where);
    void numbered_list(LpSection kind);
    void sets();
    void set_elements();
    int take_column();
    void expect(LpKind kind, const char* what);
    [[noreturn]] void fail_expected(const char* what) const;

    const Source& source_;
    LpTokens words_;
    Draft draft_;
    const char* row_ = nullptr;  // where the present row begins
    Sum sum_;
    Sum left_;
    int64_t sums_ = 0;                // sums parsed so far
    std::vector<int64_t> place_sum_;  // by column: the last sum with the column ...
    std::vector<int> place_;          // ... and where it is in that sum's terms
    NameTable row_names_, set_names_;
};

}  // namespace nlra
