// Marks a problem as being solved, which is what interrupts go by.
#pragma once

#include "api/problem.hpp"

namespace nlra {

class Solving {
  public:
    explicit Solving(nlra_problem& problem) : problem_(problem) {
        // Other threads may read the model during the solve: nothing is left to be merged then.
        problem.model.matrix.merge();
        problem.stop_request.store(NLRA_STOP_NONE);
        problem.solving.store(true);
    }
    ~Solving() { problem_.solving.store(false); }
    Solving(const Solving&) = delete;
    Solving& operator=(const Solving&) = delete;

  private:
    nlra_problem& problem_;
};

}  // namespace nlra
