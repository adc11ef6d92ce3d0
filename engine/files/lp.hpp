// LP files. Sections: the objective ("Minimize", "Maximize" and short forms), "Subject To" ("st",
// "such that"; also "Lazy Constraints" and "User Cuts", whose rows become ordinary ones), "Bounds",
// "Generals", "Binaries", "Semi-Continuous", "SOS", "End", which must be there. Of our own are
// "Semi-Integers" (names), "Partial-Integers" and "Thresholds" (name:number each): partially
// integer columns with the limit up to which they are integral, and the smallest non-zero values
// of semi-continuous and semi-integer columns. Without a threshold that is the lower bound where
// it is positive.
//
// - A section's name is one only at the start of a line and without a colon behind it.
// - A term is a number, a name, or both; a column may occur again in a row, the terms are added.
//   Quadratic terms stand in brackets, in the objective with "/ 2" behind them.
// - "name: l <= terms <= u", "name: b = 1 -> terms <= u", a number among the terms of a row.
//   "terms >= -inf", in letters, is a free row.
// - In "Bounds": "x <= u", "l <= x <= u", "x = v", "x free"; unlike in MPS files a negative upper
//   bound leaves the lower bound at zero. Binary columns may have bounds within 0 and 1.
// - SOS: "name: S1:: x:1 y:2".
// - Names consist of any characters but blanks and + - * / ^ : < > = \ and do not begin with a
//   digit, a dot and a digit, or a bracket; brackets within must pair. A backslash begins a
//   comment; "\Problem name: ..." before the objective names the problem.
#pragma once

#include "files/output.hpp"
#include "files/source.hpp"
#include "store/model.hpp"

namespace nlra {

// Throws Error NLRA_ERROR_FILE; the model must then be discarded.
void read_lp(Model& model, const Source& source);

// The model read back is the same: columns that would come in another order are listed in the
// objective with coefficient 0. Names that cannot be written throw Error NLRA_ERROR_FILE.
void write_lp(const Model& model, Output& output);

}  // namespace nlra
