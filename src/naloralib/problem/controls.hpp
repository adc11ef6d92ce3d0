// Controls and attributes by name: the tables, their values, the accessor types. For problem/, the
// entry point and the start of the library.
#pragma once

#include <cstdint>

#include "problem/problem.hpp"

namespace nalora {

enum class Role { control, attribute };

enum class ParamType : long { integer = 1, real = 2, text = 3 };

// What serves a name: the optimizer, or one of the nonlinear solver's two lists.
enum class ParamKind : long { optimizer = 0, nonlinear = 1, nonlinear_second = 2 };

// A table's entry, stored as a tuple of three ints.
struct Descriptor {
    int id;
    ParamType type;
    ParamKind kind;
};

// An accessor reaches its problem through a link that is shared with the accessor's copies and cut
// when the problem dies. Without a link it stands for the module-wide defaults.
struct AccessorLink {
    ProblemObject* problem;  // null once the problem is gone
    Py_ssize_t users;
};

struct AccessorObject {
    PyObject_HEAD AccessorLink* link;
    PyObject* dictionary;  // owned: a name table, or the default values; may be null
};

inline AccessorObject* as_accessor(PyObject* o) noexcept {
    return reinterpret_cast<AccessorObject*>(o);
}

// ---- tables (controls_table.cpp) --------------------------------------------------------------

// Fill the tables of names and the default values from temporary problems; the second may be null.
void build_control_tables(NLRAprob prob, NSLPprob nonlinear);
// The table of names of one role; never null. Published tables are not changed any more.
Ref name_table(Role role);
// An exact str for a str or bytes, so that looking it up runs no user code; empty for others.
Ref exact_name(PyObject* name);
// False when the table has no such name.
bool find_descriptor(PyObject* table, PyObject* exact_name, Descriptor& descriptor);

// ---- values (controls_value.cpp) --------------------------------------------------------------

// Read from library handles; the status of the call, and for 0 the value.
int read_value(NLRAprob prob, NSLPprob nonlinear, Role role, const Descriptor& descriptor,
               Ref& value);
// The same for a problem; raises the library's error.
Ref problem_value(ProblemObject* p, Role role, const Descriptor& descriptor);
// ModelError for a value that a control of this type does not take.
void check_control_value(const Descriptor& descriptor, PyObject* value);
void set_problem_control(ProblemObject* p, const Descriptor& descriptor, PyObject* value);
// Raise what setting the control in any new problem would.
void try_control(const Descriptor& descriptor, PyObject* value);
// Every name with its present value.
Ref all_values(ProblemObject* p, Role role);

// ---- module-wide defaults (controls_default.cpp) ----------------------------------------------

// Set the default that the module starts with.
void set_initial_default(const char* name, PyObject* value);
// Record a value for all later problems; the caller has checked it.
void record_default(PyObject* exact_name, PyObject* value);
// The recorded value, or an empty Ref.
Ref recorded_default(PyObject* exact_name);
// Recorded values over the library's.
Ref all_defaults();

}  // namespace nalora
