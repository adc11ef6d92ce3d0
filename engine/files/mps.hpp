// MPS files. What is read beyond the sections ROWS, COLUMNS, RHS, RANGES and BOUNDS:
//
// - OBJSENSE (MAX, MIN, and their long forms, in the same or the next line), OBJNAME.
// - The first row of type N, or the one that OBJNAME names, is the objective; its right-hand side
//   is minus the objective's constant. Further N rows are free rows of the model.
// - Bounds LO UP FX FR MI PL BV LI UI SC, and of our own: SI, as SC for semi-integer columns; PI,
//   partially integer, the number is the limit up to which the column is integral; TH, the
//   smallest non-zero value of a semi-continuous or semi-integer column. Without TH that is the
//   column's lower bound where it is positive.
// - A negative UP without a lower bound makes the lower bound infinite. A column between INTORG
//   and INTEND markers without any bound is binary. With SC it is semi-integer.
// - QUADOBJ (each pair once), QMATRIX (both halves): 0.5 x'Qx; QCMATRIX row (both halves): x'Qx;
//   QSECTION [row] (each pair once): 0.5 x'Qx.
// - SOS: " S1 name" or " S1 SOS name", a priority behind them is ignored, then lines "column
//   weight" or "SOS column weight".
// - INDICATORS: " IF row column value".
//
// Fields are separated by blanks. Where that fails, the file is read once more by the columns of
// the fixed format, in which names may hold blanks.
#pragma once

#include "files/output.hpp"
#include "files/source.hpp"
#include "store/model.hpp"

namespace nlra {

// `fixed`: by columns only. Throws Error NLRA_ERROR_FILE; the model must then be discarded.
void read_mps(Model& model, const Source& source, bool fixed = false);

// Free format; or fixed, where names have at most 8 bytes and numbers are rounded to 12
// characters. The model read back is the same but for that rounding and the order of the
// coefficients within a row. Names that cannot be written throw Error NLRA_ERROR_FILE.
void write_mps(const Model& model, Output& output, bool fixed = false);

}  // namespace nlra
