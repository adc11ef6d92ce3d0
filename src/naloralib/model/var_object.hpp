// What the variable type needs beyond objects.hpp. For model/ only.
#pragma once

#include "model/objects.hpp"
#include "support/free_list.hpp"

namespace nalora {

using VarObjects = FreeList<VarObject, VarType>;

// What a variable is made with, besides its name.
struct VarSettings {
    double lower = 0.0, upper = kInfinity, threshold = -kInfinity;
    long type = 0;

    bool operator==(const VarSettings&) const = default;
};

// Raise ModelError with the text if no value lies between the bounds, by more than a tolerance.
void require_feasible(const VarSettings& settings, const char* infeasible);
// Set up a new variable; the bounds of a binary one are cut to 0 and 1.
void var_apply(VarObject* v, const VarSettings& settings);

// Makes so many variables of the same settings, with consecutive serials.
class VarSeries {
  public:
    VarSeries(const VarSettings& settings, uint64_t count) noexcept;
    Ref next();  // to be called `count` times at most

  private:
    VarSettings settings_;
    bool plain_;  // the settings are the defaults
    uint64_t serial_;
};

// Take a fresh serial number; what the side tables hold moves along.
void var_renew_serial(VarObject* v);
// Drop the side tables' entries of a variable that dies.
void var_release_tables(VarObject* v) noexcept;

}  // namespace nalora
