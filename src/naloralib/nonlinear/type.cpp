// The type nalora.nonlinear.
#include <vector>

#include "model/common_methods.hpp"
#include "model/operands.hpp"
#include "model/operators.hpp"
#include "nonlinear/node_build.hpp"
#include "numpy/loops.hpp"
#include "support/nested_release.hpp"

namespace nalora {

namespace {

void dealloc(PyObject* self) noexcept {
    NonlinearObject* node = as_nonlinear(self);
    if (node->logged) {
        node->many.log.clear();
        Py_XDECREF(node->many.number);
    } else {
        for (int i = 0; i < node->count; ++i) release_nested(node->few[i]);
    }
    NodeObjects::recycle(self);
}

PyObject* text(PyObject* self) noexcept {
    return guarded([&] { return node_text(self); });
}

// ---- linear and quadratic terms -------------------------------------------------------------

// Visits the terms that are added up at the top of a tree, each with its sign: through sums,
// differences and negations, of any depth and in order.
template <class Visit>
void visit_summands(PyObject* root, Visit&& visit) {
    struct Summand {
        PyObject* object;
        double sign;
    };
    std::vector<Summand> todo{{root, 1.0}};
    unsigned visited = 0;
    while (!todo.empty()) {
        if ((++visited & 0x3FF) == 0) check_python(PyErr_CheckSignals());
        const Summand current = todo.back();
        todo.pop_back();
        if (kind_of(current.object) != Kind::nonlinear) {
            visit(current.object, current.sign);
            continue;
        }
        const NonlinearObject* node = as_nonlinear(current.object);
        if (node->op != Op::sum && node->op != Op::minus && node->op != Op::negation) continue;
        for (uint32_t i = argument_count(node); i > 0; --i) {
            const bool negative = node->op == Op::negation || (node->op == Op::minus && i == 2);
            todo.push_back({argument(node, i - 1), negative ? -current.sign : current.sign});
        }
    }
}

void append(const Ref& list, void* var) {
    check_python(PyList_Append(list.get(), static_cast<PyObject*>(var)));
}
void append(const Ref& list, double coef) {
    check_python(PyList_Append(list.get(), make_float(coef).get()));
}

PyObject* extract_linear(PyObject* self, PyObject*) noexcept {
    return guarded([&] {
        const Ref vars = take(PyList_New(0)), coefs = take(PyList_New(0));
        const auto add = [&](void* var, double coef) {
            append(vars, var);
            append(coefs, coef);
        };
        visit_summands(self, [&](PyObject* o, double sign) {
            const Kind kind = kind_of(o);
            if (kind == Kind::var) add(o, sign);
            if (kind == Kind::linterm) add(as_linterm(o)->var, sign * as_linterm(o)->coef);
            if (kind != Kind::expression) return;
            for (const LinearEntry& entry : as_expression(o)->linear.canonical()) {
                add(entry.var, sign * entry.coef);
            }
        });
        return take(PyTuple_Pack(2, vars.get(), coefs.get()));
    });
}

PyObject* extract_quadratic(PyObject* self, PyObject*) noexcept {
    return guarded([&] {
        const Ref vars1 = take(PyList_New(0)), vars2 = take(PyList_New(0));
        const Ref coefs = take(PyList_New(0));
        const auto add = [&](void* var1, void* var2, double coef) {
            append(vars1, var1);
            append(vars2, var2);
            append(coefs, coef);
        };
        visit_summands(self, [&](PyObject* o, double sign) {
            const Kind kind = kind_of(o);
            if (kind == Kind::quadterm) {
                const QuadtermObject* t = as_quadterm(o);
                add(t->var1, t->var2, sign * t->coef);
            }
            if (kind != Kind::expression) return;
            for (const QuadraticEntry& entry : as_expression(o)->quadratic.canonical()) {
                add(entry.var1, entry.var2, sign * entry.coef);
            }
        });
        return take(PyTuple_Pack(3, vars1.get(), vars2.get(), coefs.get()));
    });
}

PyMethodDef methods[] = {
    {"extractLinear", extract_linear, METH_NOARGS,
     "extractLinear($self)\n--\n\n"
     "The linear terms that are added at the top of the tree: ([variables], [coefficients])."},
    {"extractQuadratic", extract_quadratic, METH_NOARGS,
     "extractQuadratic($self)\n--\n\n"
     "The quadratic terms that are added at the top of the tree: ([first variables],\n"
     "[second variables], [coefficients])."},
    NALORA_VALUE_METHODS,
    NALORA_NO_PICKLING,
    NALORA_ARRAY_UFUNC,
    {},
};

PyTypeObject make_type() noexcept {
    PyTypeObject t = {PyVarObject_HEAD_INIT(nullptr, 0)};
    t.tp_name = "nalora.nonlinear";
    t.tp_doc =
        "A nonlinear expression: an operator and its arguments, made by arithmetic on "
        "variables.\n\n"
        "Never changes. Adding a term to a sum takes constant time and keeps it flat; products,\n"
        "quotients and powers nest.";
    t.tp_basicsize = sizeof(NonlinearObject);
    t.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
    t.tp_alloc = NodeObjects::allocate;
    t.tp_dealloc = dealloc;
    t.tp_repr = text;
    t.tp_str = text;
    t.tp_hash = identity_hash;
    t.tp_richcompare = compare_slot;
    t.tp_as_number = &operator_slots;
    t.tp_methods = methods;
    return t;
}

}  // namespace

PyTypeObject NonlinearType = make_type();

}  // namespace nalora
