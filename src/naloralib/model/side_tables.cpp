#include "model/side_tables.hpp"

#include <initializer_list>
#include <mutex>

#include "model/objects.hpp"
#include "module/state.hpp"
#include "support/boundary.hpp"
#include "support/nested_release.hpp"

namespace nalora {

namespace {

SideTables* tables = nullptr;

// Which lock guards a table.
std::mutex& lock_of(NumberTable table) noexcept {
    const bool of_constraint =
        table == &SideTables::constraint_lower || table == &SideTables::constraint_upper;
    return of_constraint ? locks().constraint : locks().var;
}
std::mutex& lock_of(NameTable table) noexcept {
    return table == &SideTables::constraint_name ? locks().constraint : locks().var;
}

void require_tables() {
    if (tables == nullptr) raise(PyExc_RuntimeError, "the nalora module was released");
}

}  // namespace

void make_side_tables() {
    if (tables == nullptr) tables = new SideTables;
}

void destroy_side_tables() noexcept {
    SideTables* old;
    {
        const std::scoped_lock guard(locks().var, locks().constraint);
        old = std::exchange(tables, nullptr);
    }
    if (old == nullptr) return;
    // Dropping a name may run code that uses the module; the tables are gone for it already.
    old->var_name.for_each([](PyObject* name) { Py_DECREF(name); });
    old->constraint_name.for_each([](PyObject* name) { Py_DECREF(name); });
    delete old;
}

bool find_number(NumberTable table, uint64_t serial, double& value) noexcept {
    const std::lock_guard guard(lock_of(table));
    const double* found = tables != nullptr ? (tables->*table).find(serial) : nullptr;
    if (found != nullptr) value = *found;
    return found != nullptr;
}

void store_number(NumberTable table, uint64_t serial, double value) {
    require_tables();
    const std::lock_guard guard(lock_of(table));
    (tables->*table).set(serial, value);
}

void erase_number(NumberTable table, uint64_t serial) noexcept {
    const std::lock_guard guard(lock_of(table));
    if (tables != nullptr) (tables->*table).erase(serial);
}

void move_number(NumberTable table, uint64_t from, uint64_t to) {
    double value;
    if (!find_number(table, from, value)) return;
    store_number(table, to, value);
    erase_number(table, from);
}

PyObject* find_name(NameTable table, uint64_t serial) noexcept {
    const std::lock_guard guard(lock_of(table));
    PyObject** found = tables != nullptr ? (tables->*table).find(serial) : nullptr;
    return found != nullptr ? *found : nullptr;
}

Ref exchange_name(NameTable table, uint64_t serial, Ref name) {
    require_tables();
    const std::lock_guard guard(lock_of(table));
    PyObject** found = (tables->*table).find(serial);
    if (found != nullptr) return Ref::steal(std::exchange(*found, name.release()));
    (tables->*table).set(serial, name.get());
    static_cast<void>(name.release());  // the table owns it now
    return Ref();
}

void move_name(NameTable table, uint64_t from, uint64_t to) {
    require_tables();
    const std::lock_guard guard(lock_of(table));
    PyObject** found = (tables->*table).find(from);
    if (found == nullptr) return;
    PyObject* name = *found;
    (tables->*table).set(to, name);
    (tables->*table).erase(from);
}

namespace {

// With the lock held. The name's reference goes to the caller.
PyObject* erase_entries(uint64_t serial, std::initializer_list<NumberTable> numbers,
                        NameTable name) noexcept {
    if (tables == nullptr) return nullptr;
    for (const NumberTable table : numbers) {
        if (table != nullptr) (tables->*table).erase(serial);
    }
    if (name == nullptr) return nullptr;
    PyObject** found = (tables->*name).find(serial);
    if (found == nullptr) return nullptr;
    PyObject* object = *found;
    (tables->*name).erase(serial);
    return object;
}

}  // namespace

void erase_var(uint64_t serial, NumberTable lower, NumberTable upper, NumberTable threshold,
               NameTable name) noexcept {
    PyObject* old;
    {
        const std::lock_guard guard(locks().var);
        old = erase_entries(serial, {lower, upper, threshold}, name);
    }
    release_nested(old);
}

void erase_constraint(uint64_t serial, NumberTable lower, NumberTable upper,
                      NameTable name) noexcept {
    PyObject* old;
    {
        const std::lock_guard guard(locks().constraint);
        old = erase_entries(serial, {lower, upper}, name);
    }
    release_nested(old);
}

uint64_t take_var_serials(uint64_t count) noexcept {
    const std::lock_guard guard(locks().var);
    return std::exchange(state().next_var_serial, state().next_var_serial + count);
}

uint64_t take_constraint_serial(const double* lower, const double* upper) {
    if (lower != nullptr || upper != nullptr) require_tables();
    const std::lock_guard guard(locks().constraint);
    const uint64_t serial = state().next_constraint_serial++;
    if (lower != nullptr) tables->constraint_lower.set(serial, *lower);
    // Should this run out of memory, the other entry stays behind unused: serials do not come back.
    if (upper != nullptr) tables->constraint_upper.set(serial, *upper);
    return serial;
}

uint64_t take_sos_serial() noexcept {
    const std::lock_guard guard(locks().sos);
    return state().next_sos_serial++;
}

}  // namespace nalora
