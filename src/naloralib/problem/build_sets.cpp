// Special ordered sets, and the declaration of indicator constraints.
#include <string>

#include "mirror/convert.hpp"
#include "model/names.hpp"
#include "module/state.hpp"
#include "problem/building.hpp"
#include "problem/walker.hpp"

namespace nalora {

namespace {

// A set's name for the library; empty for names that are no text.
std::string set_name(const SosObject* set) {
    std::string name;
    if (set->name != nullptr && (PyUnicode_Check(set->name) || PyBytes_Check(set->name))) {
        append_stored_name(set->name, "SOS", name, kMaxNameBytes);
    }
    return name;
}

int32_t find_set(ProblemObject* p, const std::string& name) {
    int32_t index = -1;
    return NLRAgetindex(p->prob, NLRA_NAMES_SET, name.c_str(), &index) == 0 ? index : -1;
}

void rename_set(ProblemObject* p, SosObject* set, int32_t index) {
    std::string name;
    do {
        sos_set_default_name(set);
        name = set_name(set);
    } while (find_set(p, name) >= 0);
    check_change(NLRAaddnames(p->prob, NLRA_NAMES_SET, name.c_str(), index, index), p);
}

// Of two sets of the same name one with a default name gets another one.
void name_set(ProblemObject* p, SosObject* set, int32_t index, const std::string& name) {
    if (name.empty()) return;
    const int32_t other = find_set(p, name);
    if (other >= 0 && other < index) {
        if (sos_has_default_name(set)) return rename_set(p, set, index);
        SosObject* present = as_sos(object_at(p, kSets, other));
        if (sos_has_default_name(present)) rename_set(p, present, other);
    }
    check_change(NLRAaddnames(p->prob, NLRA_NAMES_SET, name.c_str(), index, index), p);
}

// The weights come first because converting them may run Python code, which may change the
// problem or the lists.
std::vector<double> set_weights(PyObject* weights, Py_ssize_t count) {
    std::vector<double> values;
    for (Py_ssize_t i = 0; i < count; ++i) {
        if (i >= PyList_GET_SIZE(weights)) {
            raise(model_error(), "Mismatched lengths in arguments: expected %zd, found %zd", count,
                  PyList_GET_SIZE(weights));
        }
        const Ref item = Ref::borrow(PyList_GET_ITEM(weights, i));
        const double value = PyFloat_AsDouble(item.get());
        if (value == -1.0 && PyErr_Occurred() != nullptr) throw PythonError();
        values.push_back(value);
    }
    return values;
}

std::vector<int32_t> set_columns(const ProblemObject* p, PyObject* indices) {
    std::vector<int32_t> columns;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(indices); ++i) {
        PyObject* item = PyList_GET_ITEM(indices, i);
        if (is_var(item)) {
            const int32_t column = p->variable_index->find(var_serial(as_var(item)));
            if (column < 0) {
                raise(model_error(), "SOS contains variable that was not added to the problem");
            }
            columns.push_back(column);
        } else if (is_integer(item)) {
            columns.push_back(int32_value(item));
        } else {
            raise(model_error(), "SOS indices must be passed as a list");
        }
    }
    return columns;
}

void add_set(ProblemObject* p, PyObject* object) {
    if (!is_sos(object)) raise(model_error(), "Object added is not a SOS");
    SosObject* set = as_sos(object);
    if (set->indices == nullptr || set->weights == nullptr) {
        raise(model_error(), "Object added is not a SOS");
    }
    const Ref indices = Ref::borrow(set->indices), weight_list = Ref::borrow(set->weights);
    const std::vector<double> weights =
        set_weights(weight_list.get(), PyList_GET_SIZE(indices.get()));
    if (p->set_index->contains(set->serial)) {
        raise(model_error(), "SOS already added to problem");
    }
    const std::vector<int32_t> columns = set_columns(p, indices.get());
    if (columns.size() != weights.size()) {
        raise(model_error(), "Mismatched lengths in arguments: expected %zd, found %zd",
              static_cast<Py_ssize_t>(columns.size()), static_cast<Py_ssize_t>(weights.size()));
    }
    const std::string name = set_name(set);

    LargeVector<uint64_t> serials;
    Addition addition(p, kSets, serials);
    addition.append(object);
    addition.register_next(set->serial);
    addition.finish_collection();
    const char type = set->type == 2 ? '2' : '1';
    const int64_t starts[2] = {0, static_cast<int64_t>(columns.size())};
    check_change(
        NLRAaddsets64(p->prob, 1, starts[1], &type, starts, columns.data(), weights.data()), p);
    const int32_t index = addition.base();
    if (guarded([&] { name_set(p, set, index, name); }) < 0) {
        NLRAdelsets(p->prob, 1, &index);
        throw PythonError();
    }
    addition.commit();
}

// ---- indicators -----------------------------------------------------------------------------

constexpr const char* kIndicatorUsage =
    "Invalid declaration of indicator constraints.\n"
    "The problem.addIndicator function accepts either two constraints or one or more TUPLES of "
    "constraints, for example\n"
    "p.addIndicator(z==1, 2*x + 4*y <= 4)\n"
    "or\n"
    "p.addIndicator((z==1, 2*x + 4*y <= 4), (z==0, x >= 3), (w==1, x + y == 7))";

struct Condition {
    uint64_t serial;
    double coef;
};

Condition condition_variable(PyObject* body) {
    const Kind kind = body != nullptr ? kind_of(body) : Kind::invalid;
    if (kind == Kind::var) return {var_serial(as_var(body)), 1.0};
    if (kind != Kind::expression) {
        raise(model_error(),
              "Invalid indicator expression. Must be var==0 or var==1, where var is a binary "
              "variable");
    }
    const ExpressionObject* e = as_expression(body);
    if (e->constant != 0.0 || !e->linear.exists()) {
        raise(model_error(), "Invalid condition for indicator constraints: must be a variable");
    }
    const std::span<const LinearEntry> terms = e->linear.canonical();
    if (terms.size() != 1) {
        raise(model_error(),
              "Invalid condition for indicator constraints: there must be exactly one variable");
    }
    if (e->quadratic.exists() && !e->quadratic.canonical().empty()) {
        raise(model_error(),
              "Invalid condition for indicator constraints: it cannot contain a quadratic "
              "expression");
    }
    return {terms[0].serial, terms[0].coef};
}

Indicator indicator(const ProblemObject* p, PyObject* condition, PyObject* implied) {
    if (!is_constraint(implied) || as_constraint(implied)->body == nullptr) {
        raise(model_error(), "Invalid constraint assigned to indicator");
    }
    if (kind_of(as_constraint(implied)->body) == Kind::nonlinear) {
        raise(model_error(), "Nonlinear indicator constraints are not allowed");
    }
    const ConstraintObject* c = as_constraint(condition);
    const Condition variable = condition_variable(c->body);
    const int32_t column = p->variable_index->find(variable.serial);
    if (column < 0) {
        raise(model_error(), "Indicator variable has not been added to problem yet");
    }
    if (variable.coef != 1.0) {
        raise(model_error(), "Indicator variable must have coefficient 1");
    }
    const double lower = constraint_lower(c), upper = constraint_upper(c);
    if (lower != upper || (lower != 0.0 && lower != 1.0)) {
        raise(model_error(),
              "Invalid condition for indicator constraints: must be <variable_name> == 0 or "
              "<variable_name> == 1");
    }
    return {implied, column, lower == 1.0 ? 1 : -1};
}

}  // namespace

void add_sets(ProblemObject* p, PyObject* objects) {
    walk(objects, [&](PyObject* leaf) { add_set(p, leaf); });
}

Ref add_indicators(ProblemObject* p, PyObject* const* args, Py_ssize_t count) {
    std::vector<Indicator> indicators;
    if (count == 2 && is_constraint(args[0]) && is_constraint(args[1])) {
        indicators.push_back(indicator(p, args[0], args[1]));
    } else {
        for (Py_ssize_t i = 0; i < count; ++i) {
            if (!PyTuple_Check(args[i]) || PyTuple_GET_SIZE(args[i]) != 2) {
                raise(model_error(), kIndicatorUsage);
            }
            PyObject* condition = PyTuple_GET_ITEM(args[i], 0);
            PyObject* implied = PyTuple_GET_ITEM(args[i], 1);
            if (!is_constraint(condition) || !is_constraint(implied)) {
                raise(model_error(), "Invalid declaration of indicator constraints.");
            }
            indicators.push_back(indicator(p, condition, implied));
        }
    }
    add_indicator_rows(p, indicators);
    return none();
}

}  // namespace nalora
