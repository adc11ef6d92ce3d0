// The types nalora.linterm, nalora.quadterm and nalora.expression, and how their objects are made.
#include "model/common_methods.hpp"
#include "model/operands.hpp"
#include "model/operators.hpp"
#include "model/text.hpp"
#include "numpy/loops.hpp"

namespace nalora {

// ---- making objects -------------------------------------------------------------------------

Ref make_linterm(double coef, VarObject* var) {
    if (coef == 0.0) return make_float(0.0);
    Ref object = LintermObjects::make();
    auto* t = object.as<LintermObject>();
    t->coef = coef;
    t->var = own(var);
    return object;
}

Ref make_quadterm(double coef, VarObject* x, VarObject* y) {
    if (var_serial(x) > var_serial(y)) std::swap(x, y);
    Ref object = QuadtermObjects::make();
    auto* t = object.as<QuadtermObject>();
    t->coef = coef;
    t->var1 = own(x);
    t->var2 = own(y);
    return object;
}

Ref new_expression() {
    Ref object = ExpressionObjects::make();
    auto* e = object.as<ExpressionObject>();
    e->constant = 0.0;
    new (&e->linear) LinearTerms;
    new (&e->quadratic) QuadraticTerms;
    return object;
}

// Constant time: the terms are shared until one of the two expressions grows.
Ref share_expression(const ExpressionObject* e) {
    Ref object = ExpressionObjects::make();
    auto* copy = object.as<ExpressionObject>();
    copy->constant = e->constant;
    new (&copy->linear) LinearTerms(e->linear.share());
    new (&copy->quadratic) QuadraticTerms(e->quadratic.share());
    return object;
}

Ref scaled_expression(const ExpressionObject* e, double factor) {
    if (factor == 1.0) return share_expression(e);
    Ref object = new_expression();
    auto* copy = object.as<ExpressionObject>();
    copy->constant = factor * e->constant;
    copy->linear = e->linear.scaled(factor, 1);  // a term often follows, as in c - e + t
    copy->quadratic = e->quadratic.scaled(factor);
    return object;
}

void expression_add_linear(ExpressionObject* e, VarObject* x, double coef) {
    e->linear.add(linear_entry(x, coef));
}

void expression_add_quadratic(ExpressionObject* e, VarObject* x, VarObject* y, double coef) {
    e->quadratic.add(quadratic_entry(x, y, coef));
}

namespace {

// ---- lists of terms -------------------------------------------------------------------------

void set_item(const Ref& list, std::size_t index, Ref item) noexcept {
    PyList_SET_ITEM(list.get(), static_cast<Py_ssize_t>(index), item.release());
}

Ref new_list(std::size_t size) { return take(PyList_New(static_cast<Py_ssize_t>(size))); }

// Lists are filled while nobody else can see them, so that no Python code comes in between.
Ref linear_lists(std::span<const LinearEntry> terms) {
    const Ref vars = new_list(terms.size()), coefs = new_list(terms.size());
    for (std::size_t i = 0; i < terms.size(); ++i) {
        set_item(vars, i, Ref::borrow(static_cast<VarObject*>(terms[i].var)));
        set_item(coefs, i, make_float(terms[i].coef));
    }
    return take(PyTuple_Pack(2, vars.get(), coefs.get()));
}

Ref quadratic_lists(std::span<const QuadraticEntry> terms) {
    const Ref vars1 = new_list(terms.size()), vars2 = new_list(terms.size());
    const Ref coefs = new_list(terms.size());
    for (std::size_t i = 0; i < terms.size(); ++i) {
        set_item(vars1, i, Ref::borrow(static_cast<VarObject*>(terms[i].var1)));
        set_item(vars2, i, Ref::borrow(static_cast<VarObject*>(terms[i].var2)));
        set_item(coefs, i, make_float(terms[i].coef));
    }
    return take(PyTuple_Pack(3, vars1.get(), vars2.get(), coefs.get()));
}

constexpr const char* kLinearDoc =
    "extractLinear($self)\n--\n\n"
    "The linear terms: ([variables], [coefficients]), in order of the variables' creation.";
constexpr const char* kQuadraticDoc =
    "extractQuadratic($self)\n--\n\n"
    "The quadratic terms: ([first variables], [second variables], [coefficients]), in order of\n"
    "the variables' creation.";

// What the three types have in common.
PyTypeObject value_type(const char* name, const char* doc, Py_ssize_t size) noexcept {
    PyTypeObject t = {PyVarObject_HEAD_INIT(nullptr, 0)};
    t.tp_name = name;
    t.tp_doc = doc;
    t.tp_basicsize = size;
    t.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
    t.tp_hash = identity_hash;
    t.tp_richcompare = compare_slot;
    t.tp_as_number = &operator_slots;
    return t;
}

// ---- linear terms ---------------------------------------------------------------------------

void linterm_dealloc(PyObject* self) noexcept {
    Py_XDECREF(reinterpret_cast<PyObject*>(as_linterm(self)->var));
    LintermObjects::recycle(self);
}

PyObject* linterm_str(PyObject* self) noexcept {
    return guarded([&] { return linterm_text(as_linterm(self)); });
}

PyObject* linterm_linear(PyObject* self, PyObject*) noexcept {
    return guarded([&] {
        const LintermObject* t = as_linterm(self);
        if (t->var == nullptr) return linear_lists({});
        const LinearEntry entry = linear_entry(t->var, t->coef);
        return linear_lists({&entry, 1});
    });
}

PyObject* linterm_quadratic(PyObject*, PyObject*) noexcept {
    return guarded([] { return quadratic_lists({}); });
}

PyMethodDef linterm_methods[] = {
    {"extractLinear", linterm_linear, METH_NOARGS, kLinearDoc},
    {"extractQuadratic", linterm_quadratic, METH_NOARGS, kQuadraticDoc},
    NALORA_VALUE_METHODS,
    NALORA_NO_PICKLING,
    NALORA_ARRAY_UFUNC,
    {},
};

PyTypeObject make_linterm_type() noexcept {
    PyTypeObject t = value_type("nalora.linterm",
                                "A coefficient times a variable, such as 3 * x. Never changes.",
                                sizeof(LintermObject));
    t.tp_alloc = LintermObjects::allocate;
    t.tp_dealloc = linterm_dealloc;
    t.tp_repr = linterm_str;
    t.tp_str = linterm_str;
    t.tp_methods = linterm_methods;
    return t;
}

// ---- quadratic terms ------------------------------------------------------------------------

void quadterm_dealloc(PyObject* self) noexcept {
    Py_XDECREF(reinterpret_cast<PyObject*>(as_quadterm(self)->var1));
    Py_XDECREF(reinterpret_cast<PyObject*>(as_quadterm(self)->var2));
    QuadtermObjects::recycle(self);
}

PyObject* quadterm_str(PyObject* self) noexcept {
    return guarded([&] { return quadterm_text(as_quadterm(self)); });
}

PyObject* quadterm_linear(PyObject*, PyObject*) noexcept {
    return guarded([] { return linear_lists({}); });
}

PyObject* quadterm_quadratic(PyObject* self, PyObject*) noexcept {
    return guarded([&] {
        const QuadtermObject* t = as_quadterm(self);
        if (t->var1 == nullptr) return quadratic_lists({});
        const QuadraticEntry entry = quadratic_entry(t->var1, t->var2, t->coef);
        return quadratic_lists({&entry, 1});
    });
}

PyMethodDef quadterm_methods[] = {
    {"extractLinear", quadterm_linear, METH_NOARGS, kLinearDoc},
    {"extractQuadratic", quadterm_quadratic, METH_NOARGS, kQuadraticDoc},
    NALORA_VALUE_METHODS,
    NALORA_NO_PICKLING,
    NALORA_ARRAY_UFUNC,
    {},
};

PyTypeObject make_quadterm_type() noexcept {
    PyTypeObject t = value_type(
        "nalora.quadterm",
        "A coefficient times the product of two variables, such as 3 * x * y. Never changes.",
        sizeof(QuadtermObject));
    t.tp_alloc = QuadtermObjects::allocate;
    t.tp_dealloc = quadterm_dealloc;
    t.tp_repr = quadterm_str;
    t.tp_str = quadterm_str;
    t.tp_methods = quadterm_methods;
    return t;
}

// ---- expressions ----------------------------------------------------------------------------

void expression_dealloc(PyObject* self) noexcept {
    as_expression(self)->linear.clear();
    as_expression(self)->quadratic.clear();
    ExpressionObjects::recycle(self);
}

PyObject* expression_str(PyObject* self) noexcept {
    return guarded([&] { return expression_text(as_expression(self)); });
}

PyObject* expression_linear(PyObject* self, PyObject*) noexcept {
    return guarded([&] { return linear_lists(as_expression(self)->linear.canonical()); });
}

PyObject* expression_quadratic(PyObject* self, PyObject*) noexcept {
    return guarded([&] { return quadratic_lists(as_expression(self)->quadratic.canonical()); });
}

PyMethodDef expression_methods[] = {
    {"extractLinear", expression_linear, METH_NOARGS, kLinearDoc},
    {"extractQuadratic", expression_quadratic, METH_NOARGS, kQuadraticDoc},
    NALORA_VALUE_METHODS,
    NALORA_NO_PICKLING,
    NALORA_ARRAY_UFUNC,
    {},
};

PyTypeObject make_expression_type() noexcept {
    PyTypeObject t = value_type(
        "nalora.expression",
        "A constant plus linear and quadratic terms, made by arithmetic on variables.\n\n"
        "Never changes: every operator makes a new expression, in constant time when a term or\n"
        "a number is added. Comparisons with <=, == and >= make constraints.",
        sizeof(ExpressionObject));
    t.tp_alloc = ExpressionObjects::allocate;
    t.tp_dealloc = expression_dealloc;
    t.tp_repr = expression_str;
    t.tp_str = expression_str;
    t.tp_methods = expression_methods;
    return t;
}

}  // namespace

PyTypeObject LintermType = make_linterm_type();
PyTypeObject QuadtermType = make_quadterm_type();
PyTypeObject ExpressionType = make_expression_type();

}  // namespace nalora
