#include "api/environment.hpp"

#include <pthread.h>

#include <cstdio>

#include "api/boundary.hpp"
#include "api/text_out.hpp"
#include "search/optimize.hpp"

namespace nlra {

Environment& environment() {
    static Environment& instance = *new Environment;
    return instance;
}

namespace {

// A child of fork() must not inherit a lock that a thread of the parent held at that moment.
void lock_for_fork() { environment().mutex.lock(); }
void unlock_after_fork() { environment().mutex.unlock(); }

void prepare_forking() {
    static const bool done = [] {
        pthread_atfork(lock_for_fork, unlock_after_fork, unlock_after_fork);
        install_fork_handler();
        return true;
    }();
    static_cast<void>(done);
}

}  // namespace
}  // namespace nlra

using namespace nlra;

int NLRAinit(const char*) {
    return call_environment(__func__, [] {
        prepare_forking();
        environment().started.store(true);
    });
}

int NLRAfree() {
    return call_environment(__func__, [] {
        Environment& all = environment();
        all.started.store(false);
        ++all.stops;
        all.nonlinear_started.store(false);
        const std::lock_guard lock(all.mutex);
        all.handlers.clear();
    });
}

int NLRAgetversion(char* version) {
    return call_environment(__func__, [&] {
        if (version == nullptr) fail(NLRA_ERROR_ARGUMENT, "version is null");
        put_text(NALORA_VERSION, version, 32, nullptr);
    });
}

int NLRAgetbanner(char* banner) {
    return call_environment(__func__, [&] {
        if (banner == nullptr) fail(NLRA_ERROR_ARGUMENT, "banner is null");
        put_text("nalora optimizer " NALORA_VERSION ", with HiGHS and Ipopt", banner, 512, nullptr);
    });
}

int NLRAgetcheckedmode(int* checked) {
    return call_environment(__func__, [&] {
        if (checked == nullptr) fail(NLRA_ERROR_ARGUMENT, "checked is null");
        *checked = checked_mode() ? 1 : 0;
    });
}

int NLRAsetcheckedmode(int checked) {
    return call_environment(__func__, [&] { environment().checked.store(checked != 0); });
}

int NLRA_ge_setarchconsistency(int consistent) {
    return call_environment(__func__, [&] { environment().consistent.store(consistent != 0); });
}

int NLRA_ge_getlasterror(int* code, char* text, int maxbytes, int* nbytes) {
    // Asking for an error must not end it: not a call like the others.
    environment().error.read(code, text, maxbytes, nbytes);
    return 0;
}

int NLRAgetobjecttypename(void* object, const char** name) {
    return call_environment(__func__, [&] {
        if (name == nullptr) fail(NLRA_ERROR_ARGUMENT, "name is null");
        const std::lock_guard lock(environment().mutex);
        *name = environment().problems.count(object) > 0 ? "NLRAprob" : "unknown";
    });
}
