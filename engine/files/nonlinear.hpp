// Model files of our own, which hold all that a model has: formulas and starting values beside the
// linear, quadratic and mixed integer data, and names of any kind. Solutions and user functions,
// which are code, are not in them. An example:
//
//   nalora model 1
//   name "a small model"
//   column x C 0 4
//   column y C -inf inf start 1.5
//   column "two words" S 0 9 limit 2
//   maximize
//     constant 3
//     linear 1 x 2.5 y
//     quadratic 1 x x -1 x y
//     formula exp(x) - 2*y^3
//   row c1 L 5
//     formula {2.5 y} min(sin(x), "two words", 1)
//   set s S2 1 x 2 y
//   end
//
// - The first line holds the format's version. Then each line is one statement; blanks between its
//   parts do not matter. A line that begins with & continues the one before, and one that begins
//   with # is a comment. The file ends with "end".
// - Names are letters, digits, and _ . [ ] behind a letter or _; bytes of UTF-8 count as letters.
//   Others are quoted, with \" \\ and \x0a (two hexadecimal digits, any byte). What has no name
//   is declared with - in its place.
// - column: name, type (C B I S R P), bounds, limit (0 where not given) and starting value.
// - row: name, type (L G E R N), right-hand side, for R also the range.
// - minimize or maximize, and row, begin a block; the statements behind them belong to it: constant
//   (objective), linear, quadratic (terms as they stand in the polynomial), formula, indicator
//   (column and 0 or 1; rows). What comes more than once is added up, but for indicators.
// - set: name, S1 or S2, and pairs of weight and column.
// - A column is referred to by its name, or by @ and its number, from 1: the only way where several
//   have the name or the column has none. Columns are declared before they are used.
// - Formulas have the operators + - * / ^ with the usual precedence, ^ from right to left, and the
//   functions abs acos asin atan cos erf erfc exp log (natural) log10 max min pwl sign sin sqrt
//   tan; pwl(x, x1, y1, x2, y2, ...) is piecewise linear, through points that are constants. In
//   braces before a formula stand a number and possibly a column, by which it is multiplied.
// - A model that is read has the tokens of the one that was written: a minus before a bare number
//   is part of the number, and brackets keep the order of operations.
#pragma once

#include "files/output.hpp"
#include "files/source.hpp"
#include "store/model.hpp"

namespace nlra {

// Whether the text begins as files of this format do, whatever the version.
bool is_nonlinear_file(const Source& source);

// Throws Error NLRA_ERROR_FILE; the model must then be discarded.
void read_nonlinear(Model& model, const Source& source);

// The model read back is the same to the last bit. Formulas that call user functions throw Error
// NLRA_ERROR_UNSUPPORTED.
void write_nonlinear(const Model& model, Output& output);

}  // namespace nlra
