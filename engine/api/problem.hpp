// The record behind an NLRAprob. Made and freed by api/problem.cpp only; solvers read the model and
// fill in results, the C functions do the rest.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "api/duplicates.hpp"
#include "api/last_error.hpp"
#include "nlra.h"
#include "params/params.hpp"
#include "search/solution.hpp"
#include "store/error.hpp"
#include "store/model.hpp"

struct nslp_problem;

namespace nlra {

class LinearSolver;     // linear/linear_solver.hpp
class QuadraticMemory;  // nonlinear/qp_memory.hpp

template <class Function>
struct CallbackEntry {
    Function function;
    void* data;
    int priority;
};

struct MipStart {
    std::string name;
    std::vector<int> cols;
    std::vector<double> values;
};

// Figures of the last solve, for attributes.
struct SolveInfo {
    int lp_status = 0;   // NLRA_LP_...
    int mip_status = 0;  // NLRA_MIP_...
    int stop = 0;        // NLRA_STOP_...
    double lp_objective = 0.0;
    double mip_objective = 0.0;
    double best_bound = 0.0;
    double rel_gap = 0.0;
    int64_t nodes = 0;
    int64_t simplex_iterations = 0;
    int64_t barrier_iterations = 0;
    int mip_solutions = 0;
    double seconds = 0.0;  // of the last solve
};

}  // namespace nlra

struct nlra_problem {
    nlra_problem();
    ~nlra_problem();
    nlra_problem(const nlra_problem&) = delete;
    nlra_problem& operator=(const nlra_problem&) = delete;

    // The model, but for finish_deletions() while `unsettled`. Calls begin with settle(), apart
    // from those that need no more than what is right before.
    nlra::Model model;
    std::atomic<bool> unsettled{false};
    std::mutex settling;  // calls that only read may come from several threads
    void settle() {
        if (unsettled.load(std::memory_order_acquire)) settle_now();
    }
    void settle_now();

    nlra::Params controls;
    nlra::ErrorSlot error;
    std::vector<nlra::CallbackEntry<NLRAmessagecb>> message_callbacks;  // by falling priority
    std::vector<nlra::CallbackEntry<NLRAchecktimecb>> checktime_callbacks;
    nlra::SolveInfo info;
    nlra::Solution lp_solution;   // relaxation or continuous problem
    nlra::Solution mip_solution;  // incumbent
    std::vector<nlra::MipStart> mip_starts;
    // Kept between solves for warm starts.
    std::unique_ptr<nlra::LinearSolver> linear;
    std::unique_ptr<nlra::QuadraticMemory> quadratic;

    // Held by whoever changes, solves or reads results of the problem (api/boundary.hpp);
    // `holder` is the thread that does, for one call or from NLRAhold to NLRArelease.
    std::atomic<bool> busy{false};
    std::atomic<std::thread::id> holder{};
    // Only the holder looks at these.
    bool changing = false;  // in a call that changes or solves
    bool kept = false;      // from NLRAhold to NLRArelease
    std::atomic<bool> solving{false};
    std::atomic<int> stop_request{0};  // NLRA_STOP_..., set by NLRAinterrupt while solving

    std::vector<nslp_problem*> nonlinear;  // nonlinear problems that sit on this one
    nlra::DuplicateFinder duplicates;      // scratch memory of argument checks

    // Edits make old results stale: called by every C function that changes the model.
    void drop_solutions();
    // Those of the nonlinear problems on this one only.
    void drop_nonlinear_results();
};
