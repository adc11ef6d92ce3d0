// What the variable type needs beyond objects.hpp. For model/ only.
#pragma once

#include "model/objects.hpp"
#include "support/free_list.hpp"

namespace nalora {

using VarObjects = FreeList<VarObject, VarType>;

// Take a fresh serial number; what the side tables hold moves along.
void var_renew_serial(VarObject* v);
// Drop the side tables' entries of a variable that dies.
void var_release_tables(VarObject* v) noexcept;

}  // namespace nalora
