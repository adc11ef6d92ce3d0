// The record behind an NSLPprob: what is nonlinear, over the problem that holds the rest. Made and
// freed by api/nonlinear_problem.cpp only.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "api/last_error.hpp"
#include "nslp.h"
#include "params/params.hpp"
#include "search/solution.hpp"

namespace nlra {
struct NlpMemory;  // nonlinear/nlp_solve.hpp
}

struct nslp_problem {
    explicit nslp_problem(nlra_problem& beneath);

    nlra_problem* base;  // null once that problem has been destroyed
    nlra::Params controls;
    nlra::Params interior;  // those of the interior point method
    nlra::ErrorSlot error;
    std::string name;
    NSLPmessagecb message_callback = nullptr;
    void* message_data = nullptr;

    // Of the last nonlinear solve, for attributes.
    struct Result {
        int status = 0;  // NSLP_STATUS
        int stop = 0;    // NLRA_STOP_...
        long iterations = 0;
        nlra::Solution solution;
        std::map<int, double> values;  // by column: given by the user in place of the solution's
    };
    Result result;

    // Of the last solve, for the next one; empty unless it came to an optimum that still is the
    // result.
    struct Memory {
        nlra::Params controls, interior;
        bool is_smooth_form;  // the functions are not those of the model itself
    };
    std::optional<Memory> memory;
    std::shared_ptr<nlra::NlpMemory> nlp;  // once there has been a solve
};
