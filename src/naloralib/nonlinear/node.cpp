// Making and reading nodes.
#include "nonlinear/node.hpp"

#include <new>

#include "model/operands.hpp"
#include "nonlinear/node_build.hpp"
#include "support/nested_release.hpp"

namespace nalora {

namespace {

constexpr OperatorRow kOperators[] = {
    {"+", 0, true},      {"-", 2, true},     {"-", 1, false},    {"*", 0, true},
    {"/", 2, true},      {"**", 2, true},    {"exp", 1, false},  {"log", 1, false},
    {"log10", 1, false}, {"sin", 1, false},  {"cos", 1, false},  {"tan", 1, false},
    {"asin", 1, false},  {"acos", 1, false}, {"atan", 1, false}, {"max", 0, false},
    {"min", 0, false},   {"abs", 1, false},  {"sign", 1, false}, {"erf", 1, false},
    {"erfc", 1, false},  {"sqrt", 1, false}, {"and", 0, false},  {"or", 0, false},
    {"pwl", 0, false},   {"user", 0, false}, {"user", 0, false},
};

bool is_user(Op op) noexcept { return op == Op::user || op == Op::user_with_derivatives; }

// Collections and arrays are of no kind, so they never get into a tree.
bool is_argument(Op op, std::size_t position, PyObject* o) noexcept {
    return kind_of(o) != Kind::invalid || (is_user(op) && position == 0 && PyCallable_Check(o));
}

}  // namespace

const OperatorRow& operator_row(Op op) noexcept { return kOperators[static_cast<int>(op)]; }

void ArgumentOwner::release(void* argument) noexcept {
    release_nested(static_cast<PyObject*>(argument));
}

// ---- reading --------------------------------------------------------------------------------

uint32_t argument_count(const NonlinearObject* node) noexcept {
    if (!node->logged) return node->count;
    return node->many.log.size() + (node->many.number != nullptr ? 1 : 0);
}

PyObject* argument(const NonlinearObject* node, uint32_t index) noexcept {
    if (!node->logged) return node->few[index];
    const ArgumentLog& log = node->many.log;
    return index < log.size() ? log[index].object : node->many.number;
}

PyObject* trailing_number(const NonlinearObject* node) noexcept {
    return node->logged ? node->many.number : nullptr;
}

// ---- making ---------------------------------------------------------------------------------

// Arguments are not looked into: they never change, so trees share them freely.
Ref few_node(Op op, PyObject* first, PyObject* second) {
    Ref object = NodeObjects::make();
    NonlinearObject* node = as_nonlinear(object.get());
    node->op = op;
    node->logged = false;
    node->count = second != nullptr ? 2 : 1;
    node->few[0] = own(first);
    node->few[1] = second != nullptr ? own(second) : nullptr;
    return object;
}

Ref logged_node(Op op, ArgumentLog log, Ref number) {
    Ref object = NodeObjects::make();
    NonlinearObject* node = as_nonlinear(object.get());
    node->op = op;
    node->logged = true;
    node->count = 0;
    ::new (&node->many.log) ArgumentLog(std::move(log));
    node->many.number = number.release();
    return object;
}

// Sharing where the node has a log: the new node appends to it in place.
ArgumentLog argument_log(const NonlinearObject* node) {
    if (node->logged) return node->many.log.share();
    ArgumentLog log;
    log.reserve(4);
    for (int i = 0; i < node->count; ++i) log.append({node->few[i]});
    return log;
}

namespace {

// Whether a tree may hold a node whose arguments are a view of this log. True also for trees that
// are too large to tell.
bool may_refer_to(PyObject* tree, const ArgumentLog& log) {
    constexpr std::size_t kLooked = 64;
    PyObject* pending[kLooked] = {tree};
    std::size_t looked = 0, found = 1;
    while (looked < found) {
        PyObject* o = pending[looked++];
        if (kind_of(o) != Kind::nonlinear) continue;
        const NonlinearObject* node = as_nonlinear(o);
        if (node->logged && node->many.log.shares_with(log)) return true;
        const uint32_t count = argument_count(node);
        if (count > kLooked - found) return true;
        for (uint32_t i = 0; i < count; ++i) pending[found++] = argument(node, i);
    }
    return false;
}

}  // namespace

// A log must not come to hold what holds a view of it (s + exp(s) in the log of s): the two would
// keep each other alive. Where such an argument cannot be excluded the new node gets a log of its
// own. It can where nobody but the caller, who may have two references, knows the node.
ArgumentLog log_to_extend(const NonlinearObject* node, PyObject* added) {
    if (!node->logged) return argument_log(node);
    const ArgumentLog& log = node->many.log;
    const bool known_elsewhere = log.is_shared() || Py_REFCNT(node) > 2;
    if (!known_elsewhere || !may_refer_to(added, log)) return log.share();
    ArgumentLog copy;
    copy.reserve(log.size() + 4);
    for (uint32_t i = 0; i < log.size(); ++i) copy.append(log[i]);
    return copy;
}

Ref make_unary(Op op, PyObject* argument) {
    if (PyTuple_Check(argument) || PyList_Check(argument)) {
        raise(model_error(),
              "Could not create a unary nonlinear expression: the argument must be a single "
              "expression");
    }
    if (!is_argument(op, 0, argument)) raise(model_error(), "Invalid object in unary operation");
    return few_node(op, argument, nullptr);
}

Ref make_binary(Op op, PyObject* left, PyObject* right) {
    const Kind left_kind = require_kind(left);
    require_kind(right);
    if (op == Op::sum) return nonlinear_sum(left, right);
    // In a product a nonlinear operand stands first, otherwise the right one.
    if (op == Op::product && left_kind != Kind::nonlinear) std::swap(left, right);
    return few_node(op, left, right);
}

Ref make_nary(Op op, std::span<PyObject* const> arguments) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (!is_argument(op, i, arguments[i])) {
            raise(model_error(), "Invalid object in n-ary operation");
        }
    }
    if (op != Op::sum && arguments.size() == 2) return few_node(op, arguments[0], arguments[1]);
    Ref number;
    if (op == Op::sum && !arguments.empty() && kind_of(arguments.back()) == Kind::number) {
        number = Ref::borrow(arguments.back());
        arguments = arguments.first(arguments.size() - 1);
    }
    ArgumentLog log;
    log.reserve(arguments.size());
    for (PyObject* argument : arguments) log.append({argument});
    return logged_node(op, std::move(log), std::move(number));
}

// A new object over the same arguments, in constant time whatever the tree's size.
Ref copy_node(const NonlinearObject* node) {
    if (node->logged) {
        return logged_node(node->op, node->many.log.share(), Ref::borrow(node->many.number));
    }
    if (node->count == 0) return make_nary(node->op, {});
    return few_node(node->op, node->few[0], node->few[1]);
}

}  // namespace nalora
