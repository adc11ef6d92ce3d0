// How the module uses the engine: starting and stopping it, and errors. See nlra.h for the calls.
#pragma once

#include "nlra.h"
#include "nslp.h"
#include "support/boundary.hpp"

namespace nalora {

// Set the Python error for a failed engine call on `owner` (a problem, a branching object, or null
// for the global environment) unless one is pending already.
void set_library_error(PyObject* owner) noexcept;

// Set the error of a failed call and unwind.
[[noreturn]] void raise_library_error(PyObject* owner);

// To be called after every engine call that can fail, with the interpreter lock held. Raises the
// library's error for a status other than 0, and what a message handler or the output stream
// raised during the call: callbacks leave their first exception pending.
inline void check_library(int status, PyObject* owner) {
    if (status != 0) raise_library_error(owner);
    if (PyErr_Occurred() != nullptr) throw PythonError{};
}

// Set an error whose cause is the pending one, and unwind. An error that is no Exception
// (KeyboardInterrupt, SystemExit) is left pending as it is.
[[noreturn]] void raise_chained(PyObject* type, const char* format, ...);

// The library's text as a str: UTF-8, with replacement characters for what is not.
Ref decode_text(const char* text);

// Start the environment: counts one user; does the work when it is the first or `force` is set.
void start_environment(bool force);
// Count one user less; stop when `force` is set or none is left.
void stop_environment(bool force);
// Whether the nonlinear solver is initialised and usable (read under the environment lock).
bool nonlinear_available() noexcept;
// At import: start, build the control and attribute tables, stop.
void probe_library();

// Print one line on sys.stdout when output is enabled; takes the interpreter lock itself. False
// when the stream raised what is no Exception, for instance KeyboardInterrupt: it is left pending.
// Other errors of the stream are dropped, and the line goes to the process's standard output.
bool print_message(const char* text) noexcept;
// What to tell NLRAinterrupt after a callback has left an exception pending.
int pending_stop_reason() noexcept;
// Message callbacks that print; registered on every problem.
void problem_message_printer(NLRAprob prob, void* data, const char* text, int length, int type);
void nonlinear_message_printer(NSLPprob prob, void* data, const char* text, int length, int type);
// The module's handler of messages that reach the global environment.
int general_message_printer(void* object, void* data, void* thread, const char* text, int type,
                            int code);
// Register the user's handlers with the library again: stopping it drops them.
void restore_message_handlers();

}  // namespace nalora
