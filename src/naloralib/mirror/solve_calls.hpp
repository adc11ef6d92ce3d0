// What the rows for solving share, whichever solver they reach.
#pragma once

#include "mirror/method.hpp"
#include "problem/solving.hpp"

namespace nalora {

inline constexpr Parameter kFlags[] = {optional(text("flags"))};

inline constexpr Parameter kSolutionArrays[] = {
    optional(output("x", Conv::real, kColumns)), optional(output("slack", Conv::real, kRows)),
    optional(output("dual", Conv::real, kRows)), optional(output("dj", Conv::real, kColumns))};

// Reports errors itself: they must be read before the watch ends, which is a library call too.
template <class Handle>
int optimize(const Call& call, Handle handle, int (*function)(Handle, const char*)) {
    const SignalWatch watch(call.problem());
    check_library(function(handle, call.text(0)), as_object(call.problem()));
    return 0;
}

// Parameters kSolutionArrays.
template <class Handle>
int read_solution(const Call& call, Handle handle,
                  int (*function)(Handle, double*, double*, double*, double*)) {
    if (!call.given(0) && !call.given(1) && !call.given(2) && !call.given(3)) return 0;
    return function(handle, call.array<double>(0), call.array<double>(1), call.array<double>(2),
                    call.array<double>(3));
}

}  // namespace nalora
