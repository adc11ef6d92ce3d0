// What the type's slots take from the look-ups. For the files of problem/ only.
#pragma once

#include "problem/problem.hpp"

namespace nalora {

Ref problem_name(ProblemObject* p);

}  // namespace nalora
