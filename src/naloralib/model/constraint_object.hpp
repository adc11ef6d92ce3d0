// What the constraint and set types need beyond objects.hpp. For model/ only.
#pragma once

#include "model/objects.hpp"
#include "support/free_list.hpp"

namespace nalora {

using ConstraintObjects = FreeList<ConstraintObject, ConstraintType>;

Ref new_constraint(Ref body, double lower, double upper);  // fresh serial, default name
// Take a fresh serial number; what the side tables hold moves along.
void constraint_renew_serial(ConstraintObject* c);
// Drop the side tables' entries of a constraint that dies.
void constraint_release_tables(ConstraintObject* c) noexcept;
// nalora.constraint(...): the keywords' rules.
void constraint_init(ConstraintObject* c, PyObject* args, PyObject* keywords);

}  // namespace nalora
