// The nonlinear solver's problems: start and stop, life, copying, messages, last error.
#include "api/nonlinear_problem.hpp"

#include <algorithm>
#include <memory>

#include "api/boundary.hpp"
#include "api/text_out.hpp"

nslp_problem::nslp_problem(nlra_problem& beneath)
    : base(&beneath),
      controls(nlra::nonlinear_control_table()),
      interior(nlra::interior_control_table()) {}

using namespace nlra;

int NSLPinit() {
    return call_environment(__func__, [] {
        require_started();
        environment().nonlinear_started.store(true);
    });
}

int NSLPfree() {
    return call_environment(__func__, [] { environment().nonlinear_started.store(false); });
}

int NSLPcreateprob(NSLPprob* prob, NLRAprob base) {
    return call(base, __func__, Access::kShare, [&](nlra_problem& problem) {
        if (prob == nullptr) fail(NLRA_ERROR_ARGUMENT, "prob is null");
        *prob = nullptr;
        if (!environment().nonlinear_started.load()) {
            fail(NLRA_ERROR_NOTSTARTED, "the nonlinear solver has not been started");
        }
        auto made = std::make_unique<nslp_problem>(problem);
        problem.nonlinear.push_back(made.get());
        *prob = made.release();
    });
}

// Works after NSLPfree and NLRAfree, and after the problem beneath has gone.
int NSLPdestroyprob(NSLPprob prob) {
    if (prob == nullptr) {
        return call_environment(
            __func__, [] { fail(NLRA_ERROR_ARGUMENT, "the nonlinear problem handle is null"); });
    }
    if (prob->base != nullptr) prob->base->error.clear();
    const int status = guarded(prob->error, __func__, [&] {
        if (prob->base == nullptr) return;
        const Hold hold(*prob->base, Access::kChange);
        std::erase(prob->base->nonlinear, prob);
    });
    if (status == 0) delete prob;
    return status;
}

int NSLPcopyprob(NSLPprob dest, NSLPprob source, const char* name) {
    return call(dest, __func__, Access::kChange, [&](nslp_problem& to) {
        require_usable(source);
        const bool named = name != nullptr && *name != '\0';
        const Hold hold(*source->base, Access::kShare);
        nslp_problem::Result result = source->result;
        to.name = named ? std::string(name) : source->name;
        to.result = std::move(result);
        to.memory.reset();
    });
}

int NSLPcopycontrols(NSLPprob dest, NSLPprob source) {
    return call(dest, __func__, Access::kChange, [&](nslp_problem& to) {
        require_usable(source);
        Params controls = source->controls;
        Params interior = source->interior;
        to.controls = std::move(controls);
        to.interior = std::move(interior);
    });
}

int NSLPgetlasterror(NSLPprob prob, int* code, char* text, int maxbytes, int* nbytes) {
    if (prob == nullptr) return NLRA_ERROR_ARGUMENT;
    prob->error.read(code, text, maxbytes, nbytes);
    return 0;
}

int NSLPsetcbmessage(NSLPprob prob, NSLPmessagecb callback, void* data) {
    return call(prob, __func__, Access::kShare, [&](nslp_problem& problem) {
        problem.message_callback = callback;
        problem.message_data = callback != nullptr ? data : nullptr;
    });
}
