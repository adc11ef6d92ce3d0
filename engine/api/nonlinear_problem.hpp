// The record behind an NSLPprob: what is nonlinear, over the problem that holds the rest. Made and
// freed by api/nonlinear_problem.cpp only.
#pragma once

#include <string>

#include "api/last_error.hpp"
#include "nslp.h"
#include "params/params.hpp"

struct nslp_problem {
    explicit nslp_problem(nlra_problem& beneath);

    nlra_problem* base;  // null once that problem has been destroyed
    nlra::Params controls;
    nlra::ErrorSlot error;
    std::string name;
    NSLPmessagecb message_callback = nullptr;
    void* message_data = nullptr;
};
