// Module-wide state: one struct, made and torn down by module/entry.cpp. Locks are plain mutexes
// that guard table access only: never hold one while Python code can run or an object is released.
// Nested in one order only: names, then defaults. A forked child gets fresh ones.
#pragma once

#include <cstdint>
#include <mutex>

#include "support/python.hpp"

namespace nalora {

struct Locks {
    std::mutex var, constraint, sos, names, defaults, handlers, env, output;
};
// Usable from the start of initialisation to the end of the process: objects that outlive the
// module still take them.
Locks& locks() noexcept;
// Make all of them, and again in every forked child.
void make_locks();

struct ModuleState {
    PyObject* module = nullptr;  // borrowed once initialisation is complete
    PyObject* model_error = nullptr;
    PyObject* interface_error = nullptr;
    PyObject* solver_error = nullptr;
    PyObject* default_controls = nullptr;        // nalora.control without a problem
    PyObject* default_control_values = nullptr;  // dict: name to value set by the user
    PyObject* control_table = nullptr;           // dict: name to (identifier, type, kind)
    PyObject* attribute_table = nullptr;
    PyObject* message_handlers = nullptr;  // list of [handler, data]
    int nslp_state = -1;  // -1 library never started, 0 without nonlinear solver, 1 with it
    int env_users = 0;    // starts that were not stopped
    // free() stops the library whatever the count, so the count does not tell whether it runs.
    bool library_running = false;
    bool handler_installed = false;  // the module's handler of global messages
    int output_enabled = 1;
    uint64_t next_var_serial = 1;
    uint64_t next_constraint_serial = 1;
    uint64_t next_sos_serial = 1;
};
ModuleState& state() noexcept;

inline PyObject* model_error() noexcept { return state().model_error; }
inline PyObject* interface_error() noexcept { return state().interface_error; }
inline PyObject* solver_error() noexcept { return state().solver_error; }

}  // namespace nalora
