// What LinearSolver is made of, and what its continuous and mixed integer halves share. Internal to
// linear/.
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "linear/handover.hpp"
#include "linear/highs_session.hpp"
#include "linear/linear_solver.hpp"

namespace nlra {

struct LinearSolver::Impl {
    std::shared_ptr<HighsSession> session;
    Handover handover;

    Impl() = default;
    ~Impl();
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    // The instance, with the model in its present state.
    Highs& open(const Model& model);
    void drop();

    LpOutcome solve_relaxation(const Model& model, const Params& params, LpMethod method,
                               Monitor& monitor);
    MipOutcome solve_mip(const Model& model, const Params& params, const std::vector<double>& start,
                         Monitor& monitor);

  private:
    MipOutcome search(const Model& model, const Params& params, const std::vector<double>& start,
                      Monitor& monitor);
    HighsModelStatus run_search(const Model& model, const HighsSettings& settings,
                                const std::vector<double>& start, Monitor& monitor,
                                MipOutcome& outcome);
    bool has_improving_ray(HighsSettings settings, Monitor& monitor);
    void decide_unbounded(const Model& model, HighsSettings settings, Monitor& monitor,
                          MipOutcome& outcome);
};

inline int clamp_to_int(int64_t value) {
    return static_cast<int>(std::min<int64_t>(value, kHighsIInf));
}

// Settings that both halves take from the controls; the time limit is what is left of it.
HighsSettings common_settings(const Params& params, const Monitor& monitor);
double time_left(const Monitor& monitor);

// Whether preparations (presolve, heuristics of their own size) take longer than the solve proper.
bool is_tiny(const Model& model);
bool zero_is_feasible(const Model& model, double tolerance);
bool may_be_unbounded(const Model& model);
// Bit mask of presolve rules. HiGHS prints a line to the standard output when it undoes the merging
// of parallel columns of which one has an upper bound only.
int rules_to_avoid(const Highs& highs);
int stop_reason(HighsModelStatus status, const Monitor& monitor);
void copy_values(std::vector<double>& to, const std::vector<double>& from);

}  // namespace nlra
