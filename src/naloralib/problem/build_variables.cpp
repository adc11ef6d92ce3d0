// Variables become columns.
#include <string>

#include "module/state.hpp"
#include "problem/building.hpp"
#include "problem/walker.hpp"

namespace nalora {

namespace {

constexpr char kTypeLetters[] = {'C', 'B', 'I', 'S', 'R', 'P'};

struct VariableBatch {
    LargeVector<uint64_t> serials;
    LargeVector<double> lower, upper;
    BatchNames names;
    // The columns that are not continuous, and those of them with a threshold.
    std::vector<int32_t> typed_columns, limited_columns;
    std::string types;
    std::vector<double> limits;

    void expect(std::size_t columns) {
        serials.reserve(columns), lower.reserve(columns), upper.reserve(columns);
    }

    bool reset() noexcept {
        const bool small = lower.capacity() <= 4096 && names.is_small();
        serials.clear(), lower.clear(), upper.clear(), names.clear();
        typed_columns.clear(), limited_columns.clear(), types.clear(), limits.clear();
        return small;
    }
};

void collect(Addition& addition, VariableBatch& batch, PyObject* object) {
    if (!is_var(object)) raise(model_error(), "Incorrect objects added as variables to problem");
    const VarObject* v = as_var(object);
    const uint64_t serial = var_serial(v);
    if (addition.is_registered(serial)) raise(model_error(), "Variable already added to problem");
    addition.append(object);
    const auto type = static_cast<std::size_t>(var_type(v));
    if (type >= sizeof kTypeLetters) {
        raise(model_error(), "Incorrect variable type passed to addVariable()");
    }
    const char letter = kTypeLetters[type];
    const double lower = var_lower(v), upper = var_upper(v);
    const int32_t column = addition.base() + addition.count();
    if (letter != 'C') {
        if (letter == 'S' || letter == 'R' || letter == 'P') {
            const double limit = var_threshold(v);
            if (!(lower <= limit && limit <= upper)) {
                raise(model_error(),
                      "Incorrect semi-continuous, semi-integer, or partially integer variable; "
                      "check that its threshold is between its lower and upper bounds");
            }
            batch.limited_columns.push_back(column);
            batch.limits.push_back(limit);
        }
        batch.typed_columns.push_back(column);
        batch.types.push_back(letter);
    }
    batch.lower.push_back(lower);
    batch.upper.push_back(upper);
    if (var_has_name(v)) {
        batch.names.add(addition.count(),
                        [v](std::string& buffer) { var_append_name(v, buffer, kMaxNameBytes); });
    }
    addition.register_next(serial);
}

void load(ProblemObject* p, const Addition& addition, const VariableBatch& batch) {
    const int32_t first = addition.base(), count = addition.count();
    check_change(NLRAaddcols64(p->prob, count, 0, nullptr, nullptr, nullptr, nullptr,
                               batch.lower.data(), batch.upper.data()),
                 p);
    const int failed = guarded([&] {
        int status = 0;
        if (!batch.types.empty()) {
            status = NLRAchgcoltype(p->prob, static_cast<int>(batch.types.size()),
                                    batch.typed_columns.data(), batch.types.data());
        }
        if (status == 0) status = batch.names.load(p, addition);
        if (status == 0 && !batch.limits.empty()) {
            status = NLRAchgglblimit(p->prob, static_cast<int>(batch.limits.size()),
                                     batch.limited_columns.data(), batch.limits.data());
        }
        check_change(status, p);
    });
    if (failed == 0) return;
    std::vector<int32_t> columns(count);
    for (int32_t i = 0; i < count; ++i) columns[i] = first + i;
    NLRAdelcols(p->prob, count, columns.data());
    throw PythonError();
}

}  // namespace

void add_variables(ProblemObject* p, std::span<PyObject* const> objects) {
    Scratch<VariableBatch> batch;
    Addition addition(p, kVariables, batch->serials);
    if (const std::size_t count = leaf_count(objects); count > 1) batch->expect(count);
    for (PyObject* object : objects) {
        walk(object, [&](PyObject* leaf) { collect(addition, *batch, leaf); });
    }
    if (addition.count() == 0) return;
    addition.finish_collection();
    load(p, addition, *batch);
    addition.commit();
}

void add_variables(ProblemObject* p, PyObject* objects) { add_variables(p, {&objects, 1}); }

}  // namespace nalora
