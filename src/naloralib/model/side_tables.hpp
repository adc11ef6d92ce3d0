// The values of variables and constraints that do not fit their descriptor words, by serial. For
// model/ only. Each function locks the table for its access and nothing else: references to names
// are taken and dropped outside.
#pragma once

#include <cstdint>

#include "model/serial_table.hpp"
#include "support/ref.hpp"

namespace nalora {

struct SideTables {
    SerialTable<double> var_lower, var_upper, var_threshold;
    SerialTable<PyObject*> var_name;  // owned, as constraint_name
    SerialTable<double> constraint_lower, constraint_upper;
    SerialTable<PyObject*> constraint_name;
};

using NumberTable = SerialTable<double> SideTables::*;
using NameTable = SerialTable<PyObject*> SideTables::*;

// False when there is no entry.
bool find_number(NumberTable table, uint64_t serial, double& value) noexcept;
void store_number(NumberTable table, uint64_t serial, double value);
void erase_number(NumberTable table, uint64_t serial) noexcept;
void move_number(NumberTable table, uint64_t from, uint64_t to);

// Borrowed, null when there is no entry.
PyObject* find_name(NameTable table, uint64_t serial) noexcept;
// Returns the old name, for the caller to drop (release_nested) once its flag is set.
[[nodiscard]] Ref exchange_name(NameTable table, uint64_t serial, Ref name);
void move_name(NameTable table, uint64_t from, uint64_t to);

// For objects that die: erase what the tables hold (null: nothing in that table) and drop the name.
void erase_var(uint64_t serial, NumberTable lower, NumberTable upper, NumberTable threshold,
               NameTable name) noexcept;
void erase_constraint(uint64_t serial, NumberTable lower, NumberTable upper,
                      NameTable name) noexcept;

// The first of so many consecutive serials.
uint64_t take_var_serials(uint64_t count) noexcept;
inline uint64_t take_var_serial() noexcept { return take_var_serials(1); }
// With the bounds that do not fit the word stored (null: it fits).
uint64_t take_constraint_serial(const double* lower = nullptr, const double* upper = nullptr);
uint64_t take_sos_serial() noexcept;

}  // namespace nalora
