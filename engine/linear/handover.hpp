// Handing a model over to a HiGHS instance: whole the first time, by its edits afterwards.
// Internal to linear/.
#pragma once

#include "Highs.h"
#include "store/model.hpp"

namespace nlra {

class Handover {
  public:
    // Bring the instance to the model's present state and mark the model's edits as consumed. A
    // basis survives all edits as far as rows and columns do. Throws Error NLRA_ERROR_SOLVER when
    // HiGHS refuses the model, which then counts as not handed over.
    void sync(Highs& highs, const Model& model);

    // The instance has lost its model.
    void forget() { loaded_ = false; }

  private:
    void load(Highs& highs, const Model& model);
    void append(Highs& highs, const Model& model);
    void change(Highs& highs, const Model& model);

    bool loaded_ = false;
    int rows_ = 0;
    int cols_ = 0;
};

}  // namespace nlra
