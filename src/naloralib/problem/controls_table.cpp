// The process-wide tables of control and attribute names.
#include <cstring>
#include <mutex>

#include "module/state.hpp"
#include "problem/controls.hpp"

namespace nalora {

namespace {

// Flags of the library's list, and codes of the nonlinear solver's names.
constexpr int kFlagInteger = 1, kFlagReal = 2, kFlagControl = 32;
constexpr int kCodeInteger = 1, kCodeReal = 2, kCodeText = 4, kCodeControl = 16,
              kCodeInternal = 0x200;

constexpr std::size_t kMaxName = 128;

// Built aside and exchanged for the published ones in one step.
struct Tables {
    Ref controls = take(PyDict_New());
    Ref attributes = take(PyDict_New());
    Ref defaults = take(PyDict_New());
};

struct Entry {
    Role role;
    Descriptor descriptor;
};

// ASCII only, whatever the locale; longer names are cut.
Ref lower_case(const char* name) {
    char lower[kMaxName];
    std::size_t length = 0;
    for (; name[length] != '\0' && length < kMaxName; ++length) {
        const char c = name[length];
        lower[length] = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
    return take(PyUnicode_DecodeUTF8(lower, static_cast<Py_ssize_t>(length), "replace"));
}

Entry optimizer_entry(const NLRAcalistentry& row) noexcept {
    const ParamType type = (row.flags & kFlagInteger) != 0 ? ParamType::integer
                           : (row.flags & kFlagReal) != 0  ? ParamType::real
                                                           : ParamType::text;
    const Role role = (row.flags & kFlagControl) != 0 ? Role::control : Role::attribute;
    return {role, {row.id, type, ParamKind::optimizer}};
}

// False for a name that is not meant for modeling layers.
bool nonlinear_entry(NSLPprob nonlinear, const NLRAcalistentry& row, ParamKind kind, Entry& entry) {
    int id = 0, code = 0;
    if (NSLPcontrolcode(nonlinear, row.name, &id, &code) != 0) {
        raise(PyExc_RuntimeError, "Could not get control/attribute list from Nalora");
    }
    constexpr int kTypes = kCodeInteger | kCodeReal | kCodeText;
    if ((code & kCodeInternal) != 0 || (code & kTypes) == 0) return false;
    const ParamType type = (code & kCodeInteger) != 0 ? ParamType::integer
                           : (code & kCodeReal) != 0  ? ParamType::real
                                                      : ParamType::text;
    entry = {(code & kCodeControl) != 0 ? Role::control : Role::attribute, {id, type, kind}};
    return true;
}

// Controls get their default value, read from the fresh problem, beside their descriptor.
void add_entry(Tables& tables, const char* raw_name, const Entry& entry, NLRAprob prob,
               NSLPprob nonlinear) {
    const Ref name = lower_case(raw_name);
    const Descriptor& d = entry.descriptor;
    const Ref tuple = take(Py_BuildValue("(lll)", static_cast<long>(d.id),
                                         static_cast<long>(d.type), static_cast<long>(d.kind)));
    if (entry.role == Role::attribute) {
        check_python(PyDict_SetItem(tables.attributes.get(), name.get(), tuple.get()));
        return;
    }
    check_python(PyDict_SetItem(tables.controls.get(), name.get(), tuple.get()));
    Ref value;
    if (read_value(prob, nonlinear, Role::control, d, value) != 0) {
        raise(PyExc_RuntimeError, "Erroneous control value/type in initialization");
    }
    check_python(PyDict_SetItem(tables.defaults.get(), name.get(), value.get()));
}

void add_list(Tables& tables, ParamKind kind, NLRAprob prob, NSLPprob nonlinear) {
    const NLRAcalistentry* rows = nullptr;
    int count = 0;
    const int status = kind == ParamKind::optimizer   ? NLRAgetcalist_c(prob, &rows, &count)
                       : kind == ParamKind::nonlinear ? NSLPgetcalist(nonlinear, &rows, &count)
                                                      : NSLPgetKTRcalist(nonlinear, &rows, &count);
    if (status != 0) {
        raise(PyExc_RuntimeError, "Could not get control/attribute list from Nalora");
    }
    for (int i = 0; i < count && rows[i].name != nullptr && rows[i].name[0] != '\0'; ++i) {
        Entry entry;
        if (kind == ParamKind::optimizer) {
            entry = optimizer_entry(rows[i]);
        } else if (!nonlinear_entry(nonlinear, rows[i], kind, entry)) {
            continue;
        }
        add_entry(tables, rows[i].name, entry, prob, nonlinear);
    }
}

}  // namespace

void build_control_tables(NLRAprob prob, NSLPprob nonlinear) {
    Tables tables;
    add_list(tables, ParamKind::optimizer, prob, nonlinear);
    if (nonlinear != nullptr) {
        add_list(tables, ParamKind::nonlinear, prob, nonlinear);
        add_list(tables, ParamKind::nonlinear_second, prob, nonlinear);
    }
    // What the module set at its start stays.
    AccessorObject* defaults = as_accessor(state().default_controls);
    if (defaults != nullptr && defaults->dictionary != nullptr) {
        check_python(PyDict_Merge(defaults->dictionary, tables.defaults.get(), 0));
    }
    // Published whole: nobody sees half a table. The old ones are released after the lock.
    const std::lock_guard guard(locks().names);
    ModuleState& s = state();
    tables.controls = Ref::steal(std::exchange(s.control_table, tables.controls.release()));
    tables.attributes = Ref::steal(std::exchange(s.attribute_table, tables.attributes.release()));
}

Ref name_table(Role role) {
    Ref table;
    {
        const std::lock_guard guard(locks().names);
        table =
            Ref::borrow(role == Role::control ? state().control_table : state().attribute_table);
    }
    return table ? std::move(table) : take(PyDict_New());
}

Ref exact_name(PyObject* name) {
    if (PyUnicode_CheckExact(name)) return Ref::borrow(name);
    if (PyUnicode_Check(name)) return take(PyUnicode_FromObject(name));
    if (!PyBytes_Check(name)) return Ref();
    return take(PyUnicode_DecodeUTF8(PyBytes_AS_STRING(name), PyBytes_GET_SIZE(name), "replace"));
}

bool find_descriptor(PyObject* table, PyObject* exact_name, Descriptor& descriptor) {
    PyObject* tuple = PyDict_GetItemWithError(table, exact_name);
    if (tuple == nullptr) {
        if (PyErr_Occurred() != nullptr) throw PythonError{};
        return false;
    }
    if (!PyTuple_Check(tuple)) return false;
    long id = 0, type = 0, kind = 0;
    if (!PyArg_ParseTuple(tuple, "lll", &id, &type, &kind)) throw PythonError{};
    descriptor = {static_cast<int>(id), static_cast<ParamType>(type), static_cast<ParamKind>(kind)};
    return true;
}

}  // namespace nalora
