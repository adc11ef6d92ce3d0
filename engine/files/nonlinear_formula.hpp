// Formulas as text in the usual notation, from and to postfix tokens. Both directions take linear
// time and no recursion, however deep a formula is.
#pragma once

#include <string>
#include <vector>

#include "files/nonlinear_lines.hpp"
#include "store/formulas.hpp"

namespace nlra {

// Read a formula up to the end of its statement.
Coefficient read_formula(ModelLines& lines, const ColumnReader& columns);

// Write one; `columns` has the columns' names as they stand in the file. The tokens are valid and
// call no user function.
void write_formula(LineOutput& out, const Coefficient& formula,
                   const std::vector<std::string>& columns);

}  // namespace nlra
