// A model that hides its convexity, said in a way that shows it: equalities that define columns as
// inequalities, cones as functions that are convex, and on demand columns within logarithms and
// roots as what they are defined to be.
#pragma once

#include <memory>
#include <vector>

#include "nonlinear/cones.hpp"
#include "nonlinear/definitions.hpp"
#include "search/solution.hpp"
#include "store/model.hpp"

namespace nlra {

class Restatement {
  public:
    // Null where nothing can be restated, or the poll says to stop. The model must outlive it.
    // `radius`: by how much the apex of cones is rounded. `write_out`: null too where no column is
    // written out.
    static std::unique_ptr<Restatement> make(const Model& model, double radius, bool write_out,
                                             const StopPoll& poll);

    // Columns and rows are the original's, in their places. Every point of the original model is
    // one of this, and no worse.
    const Model& model() const { return model_; }
    // Whether each point of the new model has one of the original that is no worse. Otherwise that
    // is known only of points that close() has been told.
    bool is_equivalent(const StopPoll& poll) const;
    bool is_written() const { return is_written_; }
    // Whether there are cones, and the solution is far from the apex of each.
    bool is_off_apex(const Solution& solution) const;
    // Makes a point of the new model one of the original, which may get better by that. False where
    // it misses the rows by more than the tolerance, relative to their terms, or is worse.
    bool close(Solution& solution, double tolerance) const;

  private:
    Restatement(const Model& model, bool write_out);
    bool restate(const ColumnBounds& bounds, bool strict, double radius, const StopPoll& poll);
    bool meets_rows(const Solution& solution, double tolerance) const;

    const Model& original_;
    // With columns written out, where that is wanted; the roots are this model's.
    Model written_;
    const bool is_written_;
    const ModelRoots roots_;
    Model model_;
    std::vector<Definition> definitions_;
    std::vector<Cone> cones_;
};

// Whether the model is proven to be convex with bounds that its rows imply. `bounds` gets these.
bool is_convex_within_rows(const Model& model, ColumnBounds& bounds, const StopPoll& poll);

}  // namespace nlra
