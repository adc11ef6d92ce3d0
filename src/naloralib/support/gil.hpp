// The interpreter lock as scopes.
#pragma once

#include "support/python.hpp"

namespace nalora {

// Holds the interpreter lock, whatever thread this is (callbacks of the engine).
class GilHeld {
public:
    GilHeld() noexcept : state_(PyGILState_Ensure()) {}
    ~GilHeld() { PyGILState_Release(state_); }
    GilHeld(const GilHeld&) = delete;
    GilHeld& operator=(const GilHeld&) = delete;

private:
    PyGILState_STATE state_;
};

// Lets other threads run while this one works without touching Python objects.
class GilReleased {
public:
    GilReleased() noexcept : state_(PyEval_SaveThread()) {}
    ~GilReleased() { PyEval_RestoreThread(state_); }
    GilReleased(const GilReleased&) = delete;
    GilReleased& operator=(const GilReleased&) = delete;

private:
    PyThreadState* state_;
};

}  // namespace nalora
