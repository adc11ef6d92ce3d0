// Reading and writing variables: descriptor word and side tables.
#include <cstdio>

#include "model/bound_word.hpp"
#include "model/names.hpp"
#include "model/objects.hpp"
#include "model/var_object.hpp"
#include "module/state.hpp"
#include "support/boundary.hpp"
#include "support/nested_release.hpp"

namespace nalora {

namespace {

// The descriptor word: bits 0 to 51 serial number, 52 to 54 lower bound, 55 to 57 upper bound, 58
// and 59 whether the tables hold a threshold and a name, 60 to 62 type. A word with nothing but a
// serial is a continuous variable from 0 to infinity without threshold and name.
constexpr BoundField kLower{52, true, -kInfinity, {0.0, -kInfinity, 1.0}, &SideTables::var_lower};
constexpr BoundField kUpper{55, false, kInfinity, {kInfinity, 0.0, 1.0}, &SideTables::var_upper};
constexpr uint64_t kThresholdFlag = uint64_t{1} << 58;
constexpr uint64_t kNameFlag = uint64_t{1} << 59;
constexpr int kTypeShift = 60;
constexpr uint64_t kTypeMask = uint64_t{7} << kTypeShift;
constexpr uint64_t kAnyTable = kLower.flag() | kUpper.flag() | kThresholdFlag | kNameFlag;

}  // namespace

double var_lower(const VarObject* v) noexcept { return read_bound(kLower, v->word, var_serial(v)); }
double var_upper(const VarObject* v) noexcept { return read_bound(kUpper, v->word, var_serial(v)); }

double var_threshold(const VarObject* v) noexcept {
    double value = -kInfinity;
    if ((v->word & kThresholdFlag) != 0) {
        find_number(&SideTables::var_threshold, var_serial(v), value);
    }
    return value;
}

Ref var_name(const VarObject* v) {
    if ((v->word & kNameFlag) == 0) return default_name("C", var_serial(v));
    PyObject* name = find_name(&SideTables::var_name, var_serial(v));
    if (name == nullptr) raise(interface_error(), "Internal error in variable name");
    return Ref::borrow(name);
}

void var_append_name(const VarObject* v, std::string& buffer, std::size_t max_bytes) {
    if ((v->word & kNameFlag) == 0) return append_default_name('C', var_serial(v), buffer);
    append_stored_name(var_name(v).get(), "variable", buffer, max_bytes);
}

void var_set_lower(VarObject* v, double bound) {
    write_bound(kLower, v->word, var_serial(v), bound);
}
void var_set_upper(VarObject* v, double bound) {
    write_bound(kUpper, v->word, var_serial(v), bound);
}

void var_set_threshold(VarObject* v, double threshold) {
    // Unlike a default bound, the default threshold does not undo an earlier one.
    if (threshold == -kInfinity) return;
    store_number(&SideTables::var_threshold, var_serial(v), threshold);
    v->word |= kThresholdFlag;
}

void var_set_type(VarObject* v, int type) noexcept {
    v->word = (v->word & ~kTypeMask) | (static_cast<uint64_t>(type & 7) << kTypeShift);
}

void var_set_name(VarObject* v, PyObject* name) {
    Ref old = exchange_name(&SideTables::var_name, var_serial(v), Ref::borrow(name));
    v->word |= kNameFlag;
    release_nested(old.release());
}

Ref fresh_var_name() { return default_name("C", take_var_serial()); }

// The plainest variable costs one object of three words and no table entry.
Ref new_var() {
    Ref object = VarObjects::make();
    object.as<VarObject>()->word = take_var_serial();
    return object;
}

void require_feasible(const VarSettings& settings, const char* infeasible) {
    constexpr double kFeasibilityTolerance = 1.0e-6;
    if (settings.lower > settings.upper + kFeasibilityTolerance) raise(model_error(), infeasible);
}

void var_apply(VarObject* v, const VarSettings& settings) {
    constexpr long kBinary = 1;
    double lower = settings.lower, upper = settings.upper;
    if (settings.type == kBinary) {
        if (lower < 0.0) lower = 0.0;
        if (upper > 1.0) upper = 1.0;
    }
    if (lower != 0.0) var_set_lower(v, lower);
    if (upper != kInfinity) var_set_upper(v, upper);
    if (settings.threshold != -kInfinity) var_set_threshold(v, settings.threshold);
    if (settings.type != 0) var_set_type(v, static_cast<int>(settings.type & 7));
}

VarSeries::VarSeries(const VarSettings& settings, uint64_t count) noexcept
    : settings_(settings), plain_(settings == VarSettings()), serial_(take_var_serials(count)) {}

Ref VarSeries::next() {
    Ref object = VarObjects::make();
    object.as<VarObject>()->word = serial_++;
    if (!plain_) var_apply(object.as<VarObject>(), settings_);
    return object;
}

void var_renew_serial(VarObject* v) {
    const uint64_t old = var_serial(v);
    const uint64_t serial = take_var_serial();
    if ((v->word & kAnyTable) != 0) {
        if ((v->word & kLower.flag()) != 0) move_number(kLower.table, old, serial);
        if ((v->word & kUpper.flag()) != 0) move_number(kUpper.table, old, serial);
        if ((v->word & kThresholdFlag) != 0) {
            move_number(&SideTables::var_threshold, old, serial);
        }
        if ((v->word & kNameFlag) != 0) move_name(&SideTables::var_name, old, serial);
    }
    v->word = (v->word & ~kVarSerialMask) | serial;
}

void var_release_tables(VarObject* v) noexcept {
    if ((v->word & kAnyTable) == 0) return;  // as most variables: no lock is taken
    const auto table_if = [v](uint64_t flag, auto table) {
        return (v->word & flag) != 0 ? table : nullptr;
    };
    erase_var(var_serial(v), table_if(kLower.flag(), kLower.table),
              table_if(kUpper.flag(), kUpper.table),
              table_if(kThresholdFlag, &SideTables::var_threshold),
              table_if(kNameFlag, &SideTables::var_name));
}

}  // namespace nalora
