// The type nalora.nonlinear.
#include <unordered_map>
#include <unordered_set>
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

bool is_summation(PyObject* o) noexcept {
    if (kind_of(o) != Kind::nonlinear) return false;
    const Op op = as_nonlinear(o)->op;
    return op == Op::sum || op == Op::minus || op == Op::negation;
}

double argument_sign(const NonlinearObject* node, uint32_t index) noexcept {
    return node->op == Op::negation || (node->op == Op::minus && index == 1) ? -1.0 : 1.0;
}

// Walks the sums, differences and negations at the top of a tree, of any depth: each node once, in
// the order in which they are met, its arguments handed to `enter` before the node to `leave`.
template <class Enter, class Leave>
void walk_summations(PyObject* root, Enter&& enter, Leave&& leave) {
    struct Position {
        PyObject* node;
        uint32_t next;
    };
    std::unordered_set<PyObject*> seen{root};
    std::vector<Position> path{{root, 0}};
    while (!path.empty()) {
        const auto [object, i] = path.back();
        const NonlinearObject* node = as_nonlinear(object);
        if (i == argument_count(node)) {
            path.pop_back();
            leave(node);
            continue;
        }
        ++path.back().next;
        PyObject* o = argument(node, i);
        if (!is_summation(o)) {
            enter(node, i);
        } else if (seen.insert(o).second) {
            path.push_back({o, 0});
        }
    }
}

// Visits the terms that are added up at the top of a tree, each with its factor: its sign, added up
// over all the ways that lead to the node which holds it.
template <class Visit>
void visit_summands(PyObject* root, Visit&& visit) {
    if (!is_summation(root)) return;
    std::vector<const NonlinearObject*> order;
    walk_summations(
        root, [](auto...) {}, [&](const NonlinearObject* n) { order.push_back(n); });
    std::unordered_map<const NonlinearObject*, double> factors{{as_nonlinear(root), 1.0}};
    for (std::size_t k = order.size(); k > 0; --k) {  // before a node all that hold it
        const NonlinearObject* node = order[k - 1];
        const double factor = factors[node];
        for (uint32_t i = 0; i < argument_count(node); ++i) {
            PyObject* o = argument(node, i);
            if (is_summation(o)) factors[as_nonlinear(o)] += argument_sign(node, i) * factor;
        }
    }
    const auto visit_argument = [&](const NonlinearObject* node, uint32_t i) {
        const double factor = argument_sign(node, i) * factors[node];
        if (factor != 0.0) visit(argument(node, i), factor);
    };
    walk_summations(root, visit_argument, [](auto...) {});
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
        "quotients and powers nest, and evaluation and problems take at most 64 levels. A product\n"
        "of many factors is flat when Prod or *= make it. An expression that occurs in others is\n"
        "stored once and evaluated about once, but written out into a problem wherever it occurs.\n"
        "Texts end with \"...\" after some 50,000 characters.";
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
