#include "api/problem.hpp"

#include <algorithm>

#include "api/boundary.hpp"
#include "api/text_out.hpp"
#include "linear/linear_solver.hpp"
#include "nonlinear/qp_memory.hpp"

nlra_problem::nlra_problem() : controls(nlra::control_table()) {}

nlra_problem::~nlra_problem() {
    for (nslp_problem* above : nonlinear) above->base = nullptr;
}

void nlra_problem::settle_now() {
    const std::lock_guard lock(settling);
    if (!unsettled.load(std::memory_order_relaxed)) return;
    model.finish_deletions();
    unsettled.store(false, std::memory_order_release);
}

void nlra_problem::drop_solutions() {
    lp_solution.clear();
    mip_solution.clear();
    info = nlra::SolveInfo();
    drop_nonlinear_results();
}

void nlra_problem::drop_nonlinear_results() {
    for (nslp_problem* above : nonlinear) above->result = {};
}

using namespace nlra;

int NLRAcreateprob(NLRAprob* prob) {
    return call_environment(__func__, [&] {
        if (prob == nullptr) fail(NLRA_ERROR_ARGUMENT, "prob is null");
        *prob = nullptr;
        require_started();
        auto problem = std::make_unique<nlra_problem>();
        const std::lock_guard lock(environment().mutex);
        environment().problems.insert(problem.get());
        *prob = problem.release();
    });
}

// Works after NLRAfree too, so that nobody needs to keep an order when taking things down.
int NLRAdestroyprob(NLRAprob prob) {
    int status = call_environment(__func__, [&] {
        if (prob == nullptr) fail(NLRA_ERROR_ARGUMENT, "the problem handle is null");
        const std::lock_guard lock(environment().mutex);
        if (environment().problems.count(prob) == 0) {
            fail(NLRA_ERROR_ARGUMENT, "this is not the handle of a problem");
        }
    });
    if (status != 0) return status;
    // Taken until the memory is gone: nobody else can have it any more.
    status = guarded(prob->error, __func__, [&] {
        if (!take(*prob, Access::kChange)) {
            fail(NLRA_ERROR_BUSY, "the problem is in use");
        }
    });
    if (status != 0) return status;
    {
        const std::lock_guard lock(environment().mutex);
        environment().problems.erase(prob);
    }
    delete prob;
    return 0;
}

int NLRAhold(NLRAprob prob) {
    return call(prob, __func__, Access::kChange, [](nlra_problem& problem) {
        if (problem.kept) fail(NLRA_ERROR_BUSY, "the problem is in use");
        problem.kept = true;
    });
}

int NLRArelease(NLRAprob prob) {
    return call_to_undo(prob, __func__, [](nlra_problem& problem) {
        if (problem.changing) fail(NLRA_ERROR_BUSY, "the problem is being solved");
        if (!problem.kept) fail(NLRA_ERROR_STATE, "the problem is not held");
        problem.kept = false;
        give_back(problem);
    });
}

int NLRAcopyprob(NLRAprob dest, NLRAprob source, const char* name) {
    return call(dest, __func__, Access::kChange, [&](nlra_problem& to) {
        require_usable(source);
        const Hold hold(*source, Access::kShare);
        source->settle();
        const bool named = name != nullptr && *name != '\0';
        if (dest == source) {
            if (named) to.model.name = name;
            return;
        }
        Model model = source->model;
        model.edits = Edits();
        if (named) model.name = name;
        Solution lp_solution = source->lp_solution;
        Solution mip_solution = source->mip_solution;
        std::vector<MipStart> starts = source->mip_starts;

        to.model = std::move(model);
        to.lp_solution = std::move(lp_solution);
        to.mip_solution = std::move(mip_solution);
        to.mip_starts = std::move(starts);
        to.info = source->info;
        to.linear.reset();
        to.quadratic.reset();
        for (nslp_problem* above : to.nonlinear) above->memory.reset();
    });
}

int NLRAcopycontrols(NLRAprob dest, NLRAprob source) {
    return call(dest, __func__, Access::kChange, [&](nlra_problem& to) {
        require_usable(source);
        Params copy = source->controls;
        to.controls = std::move(copy);
    });
}

int NLRAsetprobname(NLRAprob prob, const char* name) {
    return call(prob, __func__, Access::kChange, [&](nlra_problem& problem) {
        if (name == nullptr) fail(NLRA_ERROR_ARGUMENT, "name is null");
        problem.model.name = name;
    });
}

int NLRAgetprobname(NLRAprob prob, char* name, int maxbytes, int* nbytes) {
    return call(prob, __func__, Access::kPeek, [&](nlra_problem& problem) {
        put_text(problem.model.name, name, maxbytes, nbytes);
    });
}

int NLRAgetlasterror(NLRAprob prob, int* code, char* text, int maxbytes, int* nbytes) {
    if (prob == nullptr) return NLRA_ERROR_ARGUMENT;
    prob->error.read(code, text, maxbytes, nbytes);
    return 0;
}
