#include "api/messages.hpp"

#include <pthread.h>

#include <algorithm>
#include <bit>
#include <string>
#include <vector>

#include "api/boundary.hpp"
#include "api/callback_list.hpp"
#include "api/nonlinear_problem.hpp"

namespace nlra {

void send_message(nlra_problem& problem, std::string_view line, int msgtype) {
    const std::string text(line);
    const auto callbacks = problem.message_callbacks;
    for (const auto& entry : callbacks) {
        entry.function(&problem, entry.data, text.c_str(), static_cast<int>(text.size()), msgtype);
    }
    if (callbacks.empty()) {
        const std::vector<nslp_problem*> above = problem.nonlinear;
        for (nslp_problem* nonlinear : above) {
            if (nonlinear->message_callback == nullptr) continue;
            nonlinear->message_callback(nonlinear, nonlinear->message_data, text.c_str(),
                                        static_cast<int>(text.size()), msgtype);
        }
    }
    std::vector<CallbackEntry<NLRAgemessagecb>> handlers;
    {
        const std::lock_guard lock(environment().mutex);
        handlers = environment().handlers;
    }
    void* const thread = std::bit_cast<void*>(pthread_self());
    for (const auto& entry : handlers) {
        entry.function(&problem, entry.data, thread, text.c_str(), msgtype, 0);
    }
}

bool has_listeners(const nlra_problem& problem) {
    if (!problem.message_callbacks.empty()) return true;
    if (std::any_of(problem.nonlinear.begin(), problem.nonlinear.end(),
                    [](const nslp_problem* p) { return p->message_callback != nullptr; })) {
        return true;
    }
    const std::lock_guard lock(environment().mutex);
    return !environment().handlers.empty();
}

}  // namespace nlra

using namespace nlra;

int NLRAaddcbmessage(NLRAprob prob, NLRAmessagecb callback, void* data, int priority) {
    return call(prob, __func__, Access::kShare, [&](nlra_problem& problem) {
        if (callback == nullptr) fail(NLRA_ERROR_ARGUMENT, "callback is null");
        add_callback(problem.message_callbacks, callback, data, priority);
    });
}

int NLRAremovecbmessage(NLRAprob prob, NLRAmessagecb callback, void* data) {
    return call_to_undo(prob, __func__, [&](nlra_problem& problem) {
        remove_callbacks(problem.message_callbacks, callback, data);
    });
}

int NLRAaddcbchecktime(NLRAprob prob, NLRAchecktimecb callback, void* data, int priority) {
    return call(prob, __func__, Access::kShare, [&](nlra_problem& problem) {
        if (callback == nullptr) fail(NLRA_ERROR_ARGUMENT, "callback is null");
        add_callback(problem.checktime_callbacks, callback, data, priority);
    });
}

int NLRAremovecbchecktime(NLRAprob prob, NLRAchecktimecb callback, void* data) {
    return call_to_undo(prob, __func__, [&](nlra_problem& problem) {
        remove_callbacks(problem.checktime_callbacks, callback, data);
    });
}

int NLRA_ge_addcbmsghandler(NLRAgemessagecb handler, void* data, int priority) {
    return call_environment(__func__, [&] {
        require_started();
        if (handler == nullptr) fail(NLRA_ERROR_ARGUMENT, "handler is null");
        const std::lock_guard lock(environment().mutex);
        add_callback(environment().handlers, handler, data, priority);
    });
}

int NLRA_ge_removecbmsghandler(NLRAgemessagecb handler, void* data) {
    return call_environment(__func__, [&] {
        const std::lock_guard lock(environment().mutex);
        remove_callbacks(environment().handlers, handler, data);
    });
}
