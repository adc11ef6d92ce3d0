// The objective: replaced as a whole, or not at all.
#include <algorithm>
#include <cmath>

#include "module/state.hpp"
#include "problem/building.hpp"
#include "problem/user_functions.hpp"
#include "support/numpy.hpp"

namespace nalora {

namespace {

struct LinearItem {
    int32_t column;
    double value;
};

// In the library's convention: the objective gains 0.5 x'Qx.
struct QuadraticItem {
    int32_t column1, column2;  // column1 <= column2
    double value;

    bool before(const QuadraticItem& o) const noexcept {
        return column1 != o.column1 ? column1 < o.column1 : column2 < o.column2;
    }
    bool same(const QuadraticItem& o) const noexcept {
        return column1 == o.column1 && column2 == o.column2;
    }
};

// They mostly come in order.
void sort_items(std::vector<QuadraticItem>& items) {
    const auto before = [](const auto& a, const auto& b) { return a.before(b); };
    if (!std::is_sorted(items.begin(), items.end(), before)) {
        std::sort(items.begin(), items.end(), before);
    }
}

struct Objective {
    double constant = 0.0;
    std::vector<LinearItem> linear;
    std::vector<QuadraticItem> quadratic;
    FormulaTokens formula;  // empty for none
};

// Replace one-element arrays by their element.
Ref single_object(PyObject* object) {
    Ref result = Ref::borrow(object);
    for (int level = 0; PyArray_Check(result.get()) && level < 32; ++level) {
        auto* array = result.as<PyArrayObject>();
        if (PyArray_SIZE(array) != 1) {
            raise(model_error(), "Only one objective can be set, passed a sequence or NumPy array");
        }
        result = take(PyArray_GETITEM(array, PyArray_BYTES(array)));
    }
    return result;
}

int32_t column_of(const ProblemObject* p, uint64_t serial, const char* part) {
    const int32_t column = p->variable_index->find(serial);
    if (column < 0) {
        raise(model_error(), "Variable in %s part of objective has not been added to problem yet",
              part);
    }
    return column;
}

void check_finite(double coefficient) {
    if (!std::isfinite(coefficient)) {
        raise(model_error(), "Invalid objective: a coefficient is not a finite number");
    }
}

void add_linear(Objective& objective, const ProblemObject* p, uint64_t serial, double coef) {
    check_finite(coef);
    objective.linear.push_back({column_of(p, serial, "linear"), coef});
}

void add_quadratic(Objective& objective, const ProblemObject* p, uint64_t serial1, uint64_t serial2,
                   double coef) {
    check_finite(coef);
    const int32_t column1 = column_of(p, serial1, "quadratic");
    const int32_t column2 = column_of(p, serial2, "quadratic");
    objective.quadratic.push_back({std::min(column1, column2), std::max(column1, column2),
                                   column1 == column2 ? 2.0 * coef : coef});
}

void add_expression(Objective& objective, const ProblemObject* p, const ExpressionObject* e) {
    check_finite(e->constant);
    objective.constant = e->constant;
    const auto linear = e->linear.canonical();
    const auto quadratic = e->quadratic.canonical();
    objective.linear.reserve(linear.size());
    objective.quadratic.reserve(quadratic.size());
    for (const LinearEntry& entry : linear) add_linear(objective, p, entry.serial, entry.coef);
    for (const QuadraticEntry& entry : quadratic) {
        add_quadratic(objective, p, entry.serial1, entry.serial2, entry.coef);
    }
    sort_items(objective.quadratic);
}

Objective read_objective(ProblemObject* p, FunctionCollector& functions, PyObject* object) {
    Objective objective;
    switch (kind_of(object)) {
        case Kind::var:
            add_linear(objective, p, var_serial(as_var(object)), 1.0);
            return objective;
        case Kind::linterm: {
            const auto* term = reinterpret_cast<LintermObject*>(object);
            if (term->var == nullptr) break;
            add_linear(objective, p, var_serial(term->var), term->coef);
            return objective;
        }
        case Kind::quadterm: {
            const auto* term = reinterpret_cast<QuadtermObject*>(object);
            if (term->var1 == nullptr || term->var2 == nullptr) break;
            add_quadratic(objective, p, var_serial(term->var1), var_serial(term->var2), term->coef);
            return objective;
        }
        case Kind::expression:
            add_expression(objective, p, as_expression(object));
            return objective;
        case Kind::nonlinear: {
            const Ref rest = functions.collect(objective.formula, object);
            add_expression(objective, p, as_expression(rest.get()));
            return objective;
        }
        default:
            break;
    }
    raise(model_error(), "Invalid object set as objective");
}

// What the library holds now, in ascending order.
std::vector<QuadraticItem> present_quadratic(ProblemObject* p, int32_t columns) {
    std::vector<QuadraticItem> items;
    int64_t count = 0;
    if (columns == 0) return items;
    check_library(NLRAgetmqobj64(p->prob, nullptr, nullptr, nullptr, 0, &count, 0, columns - 1),
                  as_object(p));
    if (count == 0) return items;
    std::vector<int64_t> starts(columns + 1);
    std::vector<int32_t> others(count);
    std::vector<double> values(count);
    check_library(NLRAgetmqobj64(p->prob, starts.data(), others.data(), values.data(), count,
                                 &count, 0, columns - 1),
                  as_object(p));
    items.reserve(count);
    for (int32_t column = 0; column < columns; ++column) {
        for (int64_t k = starts[column]; k < starts[column + 1]; ++k) {
            items.push_back({column, others[k], values[k]});
        }
    }
    sort_items(items);
    return items;
}

// What the library holds now besides a formula.
Objective present_terms(ProblemObject* p, int32_t columns) {
    Objective present;
    check_library(NLRAgetdblattrib(p->prob, NLRA_OBJCONSTANT, &present.constant), as_object(p));
    std::vector<double> costs(columns);
    if (columns > 0) {
        check_library(NLRAgetobj(p->prob, costs.data(), 0, columns - 1), as_object(p));
    }
    for (int32_t column = 0; column < columns; ++column) {
        if (costs[column] != 0.0) present.linear.push_back({column, costs[column]});
    }
    present.quadratic = present_quadratic(p, columns);
    return present;
}

// Set the entries of `target` and remove those of `present` that are not among them.
int change_quadratic(ProblemObject* p, const std::vector<QuadraticItem>& present,
                     const std::vector<QuadraticItem>& target) {
    std::vector<int32_t> columns1, columns2;
    std::vector<double> values;
    const auto put = [&](const QuadraticItem& item, double value) {
        columns1.push_back(item.column1);
        columns2.push_back(item.column2);
        values.push_back(value);
    };
    auto old = present.begin();
    for (const QuadraticItem& item : target) {
        for (; old != present.end() && old->before(item); ++old) put(*old, 0.0);
        if (old != present.end() && old->same(item)) ++old;
        put(item, item.value);
    }
    for (; old != present.end(); ++old) put(*old, 0.0);
    if (values.empty()) return 0;
    return NLRAchgmqobj64(p->prob, static_cast<int64_t>(values.size()), columns1.data(),
                          columns2.data(), values.data());
}

int change_linear(ProblemObject* p, int32_t column_count, const Objective& present,
                  const Objective& target) {
    std::vector<char> is_set(column_count);
    std::vector<int32_t> columns;
    std::vector<double> values;
    for (const LinearItem& item : target.linear) {
        is_set[item.column] = 1;
        columns.push_back(item.column);
        values.push_back(item.value);
    }
    for (const LinearItem& item : present.linear) {
        if (is_set[item.column]) continue;
        columns.push_back(item.column);
        values.push_back(0.0);
    }
    columns.push_back(-1);
    values.push_back(-target.constant);
    return NLRAchgobj(p->prob, static_cast<int>(columns.size()), columns.data(), values.data());
}

// All terms or, with the error set, none.
bool change_terms(ProblemObject* p, int32_t columns, const Objective& present,
                  const Objective& target) {
    if (change_quadratic(p, present.quadratic, target.quadratic) != 0) {
        set_library_error(as_object(p));
        return false;
    }
    if (change_linear(p, columns, present, target) != 0) {
        set_library_error(as_object(p));
        change_quadratic(p, target.quadratic, present.quadratic);
        return false;
    }
    return true;
}

int change_formula(ProblemObject* p, const FormulaTokens& formula) {
    const bool none = formula.size() == 0;
    return NSLPchgformula(p->nonlinear, -1, none ? nullptr : types_of(formula),
                          none ? nullptr : formula.values.data());
}

}  // namespace

void set_objective(ProblemObject* p, PyObject* objective, const int* sense) {
    if (sense != nullptr && *sense != 1 && *sense != -1) {
        raise(model_error(), "Invalid optimization sense");
    }
    const Ref object = single_object(objective);
    FunctionCollector functions(p);
    Objective target = read_objective(p, functions, object.get());

    const int32_t columns = int_attribute(p, NLRA_ORIGINALCOLS);
    const Objective present = present_terms(p, columns);
    const bool has_formula = target.formula.size() != 0 || is_nonlinear(p);
    functions.load(target.formula);
    if (!change_terms(p, columns, present, target)) throw PythonError();
    if (has_formula && change_formula(p, target.formula) != 0) {
        set_library_error(as_object(p));
        change_terms(p, columns, target, present);
        throw PythonError();
    }
    if (sense != nullptr) check_change(NLRAchgobjsense(p->prob, *sense), p);
    raise_pending();
}

}  // namespace nalora
