// Marks a problem as being solved, which is what interrupts go by.
#pragma once

#include "api/environment.hpp"
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
    // To be called when the solve is done. Stopping the library ends it early (Monitor), with what
    // it has found so far; that it was the library's end must not look like any other stop.
    void finish() const {
        if (environment().stops.load() == stops_) return;
        fail(NLRA_ERROR_CLOSED, "the library was stopped while the problem was being solved");
    }
    Solving(const Solving&) = delete;
    Solving& operator=(const Solving&) = delete;

  private:
    nlra_problem& problem_;
    const unsigned stops_ = environment().stops.load();
};

}  // namespace nlra
