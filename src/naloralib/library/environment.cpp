// Starting and stopping the optimizer library and its nonlinear solver.
#include <limits>
#include <mutex>
#include <utility>

#include "library/library.hpp"
#include "module/state.hpp"
#include "problem/controls.hpp"

namespace nalora {

namespace {

// Two handles that live for the building of the name tables only.
class TemporaryProblem {
  public:
    explicit TemporaryProblem(bool with_nonlinear) {
        if (NLRAcreateprob(&prob_) != 0 ||
            (with_nonlinear && NSLPcreateprob(&nonlinear_, prob_) != 0)) {
            destroy();
            raise(PyExc_RuntimeError, "Could not create temporary problem");
        }
    }
    TemporaryProblem(const TemporaryProblem&) = delete;
    TemporaryProblem& operator=(const TemporaryProblem&) = delete;
    ~TemporaryProblem() { destroy(); }

    NLRAprob prob() const noexcept { return prob_; }
    NSLPprob nonlinear() const noexcept { return nonlinear_; }

  private:
    void destroy() noexcept {
        if (nonlinear_ != nullptr) NSLPdestroyprob(nonlinear_);
        if (prob_ != nullptr) NLRAdestroyprob(prob_);
        nonlinear_ = nullptr;
        prob_ = nullptr;
    }

    NLRAprob prob_ = nullptr;
    NSLPprob nonlinear_ = nullptr;
};

// The tables hold what the library lists, so they need problems to ask; once per process.
void build_tables(bool with_nonlinear) {
    const TemporaryProblem temporary(with_nonlinear);
    build_control_tables(temporary.prob(), temporary.nonlinear());
}

// True until the first successful start, which is the import unless the library failed then.
bool tables_are_empty() noexcept {
    const std::lock_guard guard(locks().names);
    return state().attribute_table == nullptr || PyDict_Size(state().attribute_table) == 0;
}

void set_nslp_state(int value) noexcept {
    const std::lock_guard guard(locks().env);
    state().nslp_state = value;
}

int nslp_state() noexcept {
    const std::lock_guard guard(locks().env);
    return state().nslp_state;
}

void set_running(bool running) noexcept {
    const std::lock_guard guard(locks().env);
    state().library_running = running;
}

// Exchange the flag that says whether the module listens to the global environment's messages.
bool exchange_handler_installed(bool installed) noexcept {
    const std::lock_guard guard(locks().env);
    return std::exchange(state().handler_installed, installed);
}

// Once, however often the library is started by force.
void install_message_printer() {
    if (exchange_handler_installed(true)) return;
    if (NLRA_ge_addcbmsghandler(general_message_printer, nullptr, 1) != 0) {
        exchange_handler_installed(false);
        raise_library_error(nullptr);
    }
}

// Stop at once: used by the probe, which counts as no user.
bool stop_quietly(bool with_nonlinear) noexcept {
    const bool stopped = !with_nonlinear || NSLPfree() == 0;
    return NLRAfree() == 0 && stopped;
}

}  // namespace

// The counter counts starts, not problems: nothing but free() and the module's release lowers it.
// It says nothing about whether the library runs, since free() stops it at any count.
void start_environment(bool force) {
    ModuleState& s = state();
    {
        const std::lock_guard guard(locks().env);
        if (s.env_users < std::numeric_limits<int>::max()) ++s.env_users;
        if (!force && s.env_users > 1 && s.library_running) return;
    }
    // Starting again is harmless to live problems and cures a stop by somebody else.
    if (NLRAinit(nullptr) != 0) {
        {
            const std::lock_guard guard(locks().env);
            --s.env_users;
        }
        raise_library_error(nullptr);
    }
    install_message_printer();
    restore_message_handlers();
    const int nonlinear = nslp_state();
    if (nonlinear < 0) {
        // The library could not be started at import; now is the first time to try.
        set_nslp_state(NSLPinit() == 0 ? 1 : 0);
    } else if (nonlinear > 0 && NSLPinit() != 0) {
        raise(interface_error(), "Error initializing NSLP environment");
    }
    if (tables_are_empty()) build_tables(nonlinear_available());
    set_running(true);
}

// The solver that sits on top goes first. A failure leaves the library marked as running, so that
// the next attempt stops the rest.
void stop_environment(bool force) {
    ModuleState& s = state();
    {
        const std::lock_guard guard(locks().env);
        if (s.env_users > 0) --s.env_users;
        if (!force && s.env_users > 0) return;
        if (!s.library_running) return;
    }
    if (nonlinear_available()) check_library(NSLPfree(), nullptr);
    if (exchange_handler_installed(false)) {
        check_library(NLRA_ge_removecbmsghandler(general_message_printer, nullptr), nullptr);
    }
    check_library(NLRAfree(), nullptr);
    set_running(false);
}

bool nonlinear_available() noexcept { return nslp_state() > 0; }

// Counts as no user, and leaves the library stopped. Import must not fail where the library cannot
// start; what it cannot list, though, is a broken installation.
void probe_library() {
    if (NLRAinit(nullptr) != 0) return;  // the first use will tell
    const bool nonlinear = NSLPinit() == 0;
    set_nslp_state(nonlinear ? 1 : 0);
    const bool built = guarded([&] { build_tables(nonlinear); }) == 0;
    const bool stopped = stop_quietly(nonlinear);
    if (!built) throw PythonError{};
    if (!stopped) raise(PyExc_RuntimeError, "Error initializing optimization environment");
}

}  // namespace nalora
