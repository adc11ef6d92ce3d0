// A linear mixed integer model that contains the points of a convex one, by tangents. Every sum is
// taken apart into its convex terms, each with a column t at or above it and tangents of its own:
// much tighter than tangents of the sum (Hijazi, Bonami and Ouorou 2014).
//
// Where a term's only column is zero unless a binary column is 1, its tangents are those of the
// term's perspective (Frangioni and Gentile 2006); where the column is integral, chords between
// neighbouring integers take their place. Both cut off more of the fractional points.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "nonlinear/curvature.hpp"
#include "nonlinear/nlp_functions.hpp"
#include "nonlinear/tape.hpp"
#include "search/square_sum.hpp"
#include "store/model.hpp"

namespace nlra {

class TangentModel {
  public:
    // The model's columns are of types C, B and I; `functions` are its functions, proven convex,
    // and must outlive this.
    TangentModel(const Model& model, const ModelFunctions& functions);

    // The first columns are those of the model given, then come those of linear forms and terms.
    Model& linear() { return linear_; }
    // Values of all columns that follow from those of the model given.
    std::vector<double> extend(const std::vector<double>& x);
    // Adds the tangents at x that are missing by more than a tolerance; returns their number. Where
    // a term is not defined at x or too steep, a point on the way to `inside` takes its place.
    int cut(const std::vector<double>& x, const std::vector<double>& inside);
    // Rules these values of the integral columns out; false unless all of them are binary.
    bool exclude(const std::vector<double>& x);
    int cuts() const { return cuts_; }

  private:
    // gradient * x + switched * x[binary] + constant <= t
    struct Tangent {
        std::vector<LinearTerm> gradient;
        double switched;
        double constant;
    };
    // A convex function of the columns.
    struct Term {
        RootParts parts;
        int t = -1;             // its column
        int column = -1;        // the only one it depends on
        int binary = -1;        // switches that column
        bool integral = false;  // the column is, and has no switch
        double at_zero = 0.0;
        std::vector<Tangent> tangents;
    };
    struct Form {
        int column;
        std::vector<LinearTerm> terms;
    };
    using Terms = std::vector<LinearTerm>;

    void find_switches(const Model& model);
    void copy_linear_rows(const Model& model, const ModelFunctions& functions);
    void set_objective(const RootParts& parts);
    void add_side(const RootParts& parts, double sign, double side);
    // Linear terms and the columns of all others; sign * the function is convex.
    Terms take_apart(const RootParts& parts, double sign, double& constant);
    int add_term(RootParts parts, double low);
    int column_of(const Square& square);
    int add_column(double low);
    void add_row(const Terms& terms, double low, double high);
    void look_at_columns();
    void cut_by_tangents(const std::vector<double>& point, bool switched, std::vector<char>& done);
    void cut_by_chords(const std::vector<double>& point, std::vector<char>& done);
    std::vector<double> unswitched(const std::vector<double>& point) const;
    bool tangent_at(size_t number, const std::vector<double>& point, double value,
                    Tangent& tangent);
    void keep_if_missing(Term& term, Tangent made, const std::vector<double>& point);
    void append(const Term& term, const Tangent& tangent);

    const CurvatureAnalysis analysis_;
    Model linear_;
    std::vector<int> switch_of_;  // by column: the binary, -1 without
    std::vector<Term> terms_;
    std::vector<Form> forms_;
    std::unique_ptr<Tape> tape_;
    std::vector<double> values_, gradient_;
    int cuts_ = 0;
};

}  // namespace nlra
