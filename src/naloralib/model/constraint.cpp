// Reading and writing constraints: descriptor word and side tables.
#include <cstdio>

#include "model/bound_word.hpp"
#include "model/constraint_object.hpp"
#include "model/names.hpp"
#include "module/state.hpp"
#include "support/boundary.hpp"
#include "support/nested_release.hpp"

namespace nalora {

namespace {

// The descriptor word: bits 0 to 56 serial number, 57 to 59 lower bound, 60 to 62 upper bound, 63
// whether the table holds a name. A word with nothing but a serial is a free row without name.
constexpr BoundField kLower{
    57, true, -kInfinity, {-kInfinity, 0.0, 1.0}, &SideTables::constraint_lower};
constexpr BoundField kUpper{
    60, false, kInfinity, {kInfinity, 0.0, 1.0}, &SideTables::constraint_upper};
constexpr uint64_t kNameFlag = uint64_t{1} << 63;
constexpr uint64_t kAnyTable = kLower.flag() | kUpper.flag() | kNameFlag;

}  // namespace

double constraint_lower(const ConstraintObject* c) noexcept {
    return read_bound(kLower, c->word, constraint_serial(c));
}
double constraint_upper(const ConstraintObject* c) noexcept {
    return read_bound(kUpper, c->word, constraint_serial(c));
}
void constraint_set_lower(ConstraintObject* c, double bound) {
    write_bound(kLower, c->word, constraint_serial(c), bound);
}
void constraint_set_upper(ConstraintObject* c, double bound) {
    write_bound(kUpper, c->word, constraint_serial(c), bound);
}

Ref constraint_name(const ConstraintObject* c) {
    if ((c->word & kNameFlag) == 0) return default_name("R", constraint_serial(c));
    PyObject* name = find_name(&SideTables::constraint_name, constraint_serial(c));
    if (name == nullptr) raise(interface_error(), "Internal error in constraint name");
    return Ref::borrow(name);
}

void constraint_append_name(const ConstraintObject* c, std::string& buffer, std::size_t max_bytes) {
    if ((c->word & kNameFlag) == 0) {
        return append_default_name('R', constraint_serial(c), buffer);
    }
    append_stored_name(constraint_name(c).get(), "constraint", buffer, max_bytes);
}

void constraint_set_name(ConstraintObject* c, PyObject* name) {
    Ref old = exchange_name(&SideTables::constraint_name, constraint_serial(c), Ref::borrow(name));
    c->word |= kNameFlag;
    release_nested(old.release());
}

Ref fresh_constraint_name() { return default_name("R", take_constraint_serial()); }

Ref new_constraint() { return new_constraint(Ref(), -kInfinity, kInfinity); }

// Serial number and bounds take one visit to the tables: rows are made by the hundred thousand.
Ref new_constraint(Ref body, double lower, double upper) {
    const uint64_t lower_code = bound_code(kLower, lower), upper_code = bound_code(kUpper, upper);
    Ref object = ConstraintObjects::make();
    auto* c = object.as<ConstraintObject>();
    c->word = 0;
    c->body = nullptr;
    c->word = take_constraint_serial(lower_code == 3 ? &lower : nullptr,
                                     upper_code == 3 ? &upper : nullptr);
    c->word |= lower_code << kLower.shift | upper_code << kUpper.shift;
    if (lower_code == 3) c->word |= kLower.flag();
    if (upper_code == 3) c->word |= kUpper.flag();
    c->body = body.release();
    return object;
}

void constraint_renew_serial(ConstraintObject* c) {
    const uint64_t old = constraint_serial(c);
    const uint64_t serial = take_constraint_serial();
    if ((c->word & kLower.flag()) != 0) move_number(kLower.table, old, serial);
    if ((c->word & kUpper.flag()) != 0) move_number(kUpper.table, old, serial);
    if ((c->word & kNameFlag) != 0) move_name(&SideTables::constraint_name, old, serial);
    c->word = (c->word & ~kConstraintSerialMask) | serial;
}

void constraint_release_tables(ConstraintObject* c) noexcept {
    if ((c->word & kAnyTable) == 0) return;
    const auto table_if = [c](uint64_t flag, auto table) {
        return (c->word & flag) != 0 ? table : nullptr;
    };
    erase_constraint(constraint_serial(c), table_if(kLower.flag(), kLower.table),
                     table_if(kUpper.flag(), kUpper.table),
                     table_if(kNameFlag, &SideTables::constraint_name));
}

}  // namespace nalora
