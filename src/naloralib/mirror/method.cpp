#include "mirror/method.hpp"

#include <cstring>
#include <deque>
#include <string>

#include "module/state.hpp"

namespace nalora {

namespace {

bool is_scalar(Role role) noexcept { return role < Role::index; }

}  // namespace

// ---- parsing --------------------------------------------------------------------------------

void Call::assign(std::span<PyObject* const> args, PyObject* names) {
    const std::span<const Parameter> parameters = method_.parameters;
    if (args.size() > parameters.size()) {
        raise(PyExc_TypeError, "%s() takes at most %zd arguments (%zd given)", method_.name,
              static_cast<Py_ssize_t>(parameters.size()), static_cast<Py_ssize_t>(args.size()));
    }
    for (std::size_t i = 0; i < args.size(); ++i) slots_[i].object = args[i];
    const Py_ssize_t keywords = names != nullptr ? PyTuple_GET_SIZE(names) : 0;
    for (Py_ssize_t k = 0; k < keywords; ++k) {
        PyObject* name = PyTuple_GET_ITEM(names, k);
        std::size_t i = 0;
        while (i < parameters.size() &&
               PyUnicode_CompareWithASCIIString(name, parameters[i].name) != 0) {
            ++i;
        }
        if (i == parameters.size()) {
            raise(PyExc_TypeError, "%s() got an unexpected keyword argument '%U'", method_.name,
                  name);
        }
        if (slots_[i].object != nullptr) {
            raise(PyExc_TypeError, "%s() got multiple values for argument '%U'", method_.name,
                  name);
        }
        slots_[i].object = args.data()[args.size() + k];
    }
    for (std::size_t i = 0; i < parameters.size(); ++i) {
        if (slots_[i].object == nullptr && !parameters[i].optional) {
            raise(PyExc_TypeError, "%s() missing required argument '%s' (pos %zd)", method_.name,
                  parameters[i].name, static_cast<Py_ssize_t>(i + 1));
        }
    }
}

void Call::parse_scalar(std::size_t i) {
    Slot& slot = slots_[i];
    if (slot.object == nullptr || (slot.object == Py_None && method_.parameters[i].optional)) {
        return;
    }
    switch (method_.parameters[i].role) {
        case Role::integer:
            slot.integer = int32_value(take(PyNumber_Index(slot.object)).get());
            return;
        case Role::int64:
            slot.integer = integer_value(take(PyNumber_Index(slot.object)).get());
            return;
        case Role::real:
            slot.real = PyFloat_AsDouble(slot.object);
            if (slot.real == -1.0 && PyErr_Occurred() != nullptr) throw PythonError();
            return;
        default: {
            if (!PyUnicode_Check(slot.object)) {
                raise(PyExc_TypeError, "%s() argument '%s' must be str, not %.200s", method_.name,
                      method_.parameters[i].name, Py_TYPE(slot.object)->tp_name);
            }
            Py_ssize_t length = 0;
            slot.text = PyUnicode_AsUTF8AndSize(slot.object, &length);
            if (slot.text == nullptr) throw PythonError();
            if (std::strlen(slot.text) != static_cast<std::size_t>(length)) {
                raise(PyExc_ValueError, "embedded null character");
            }
        }
    }
}

void Call::parse(std::span<PyObject* const> args, PyObject* names) {
    assign(args, names);
    for (std::size_t i = 0; i < slots_.size(); ++i) {
        if (is_scalar(method_.parameters[i].role)) parse_scalar(i);
    }
}

// ---- arrays ---------------------------------------------------------------------------------

int Call::count(std::size_t i) const {
    if (slots_[i].length > INT_MAX) {
        raise(PyExc_OverflowError, "argument '%s' has too many items", method_.parameters[i].name);
    }
    return static_cast<int>(slots_[i].length);
}

int64_t Call::linked_length(Length length) const {
    const Slot& other = slots_[length.parameter];
    switch (length.rule) {
        case Length::Rule::open:
            return -1;
        case Length::Rule::same:
            return other.length;
        case Length::Rule::plus_one:
            return other.length < 0 ? -1 : other.length + 1;
        case Length::Rule::last_start:
            return other.array.exists() && other.length > 0
                       ? other.array.data<int64_t>()[other.length - 1]
                       : 0;
        case Length::Rule::scalar:
            return other.integer;
        case Length::Rule::range:
            return slots_[length.parameter + 1].integer - other.integer + 1;
        case Length::Rule::rows:
            return int_attribute(problem_, NLRA_ORIGINALROWS);
        case Length::Rule::columns:
            return int_attribute(problem_, NLRA_ORIGINALCOLS);
    }
    return -1;
}

void Call::convert_input(std::size_t i) {
    Slot& slot = slots_[i];
    const Parameter& parameter = method_.parameters[i];
    if (slot.length < 0) slot.length = linked_length(parameter.length);
    const int64_t expected = slot.length;
    slot.array = conv_obj2arr(problem_, &slot.length, slot.object, parameter.conv);
    // Iterators replace the expected length by their own. The library reads the linked arrays to
    // the same length, so a shorter one is never passed on; surplus items are left unread.
    if (slot.array.exists() && slot.length < expected) {
        raise(model_error(), "Mismatched lengths in arguments: expected %lld, found %lld",
              static_cast<long long>(expected), static_cast<long long>(slot.length));
    }
}

void Call::make_output(std::size_t i) {
    Slot& slot = slots_[i];
    const Parameter& parameter = method_.parameters[i];
    if (!given(i)) return;
    if (!PyList_Check(slot.object)) {
        raise(model_error(), "Unexpected argument to conv_arr2obj");
    }
    slot.length = linked_length(parameter.length);
    const std::size_t bytes =
        static_cast<std::size_t>(slot.length > 0 ? slot.length : 0) * conv_width(parameter.conv);
    slot.array = Array(bytes);
    std::memset(slot.array.data<char>(), 0, bytes);
}

void Call::convert() {
    for (std::size_t i = 0; i < slots_.size(); ++i) {
        const Parameter& parameter = method_.parameters[i];
        if (parameter.role == Role::index && (given(i) || !parameter.optional)) {
            slots_[i].integer = conv_obj2index(slots_[i].object, problem_, parameter.conv);
        } else if (parameter.role == Role::input) {
            convert_input(i);
        }
    }
    // Outputs come after everything that may run Python code, which may change the problem's size.
    for (std::size_t i = 0; i < slots_.size(); ++i) {
        if (method_.parameters[i].role == Role::output) make_output(i);
    }
}

void Call::copy_back() const {
    for (std::size_t i = 0; i < slots_.size(); ++i) {
        const Parameter& parameter = method_.parameters[i];
        if (parameter.role != Role::output) continue;
        const Slot& slot = slots_[i];
        conv_arr2obj(problem_, slot.length, slot.array.data<void>(), slot.object, parameter.conv);
    }
}

// ---- running --------------------------------------------------------------------------------

Ref integer_result(const Call& call) { return take(PyLong_FromLong(call.integer_result)); }
Ref real_result(const Call& call) { return take(PyFloat_FromDouble(call.real_result)); }

Ref run_method(const Method& method, PyObject* self, std::span<PyObject* const> args,
               PyObject* names) {
    ProblemObject* p = as_problem(self);
    require_initialised(p);
    Call call(p, method);
    if (method.missing == nullptr) {
        call.parse(args, names);
    } else if (guarded([&] { call.parse(args, names); }) < 0) {
        if (!PyErr_ExceptionMatches(PyExc_TypeError)) throw PythonError();
        raise_chained(interface_error(), "%s", method.missing);
    }
    if (method.adapter != nullptr) return method.adapter(call);
    if (method.prepare != nullptr) method.prepare(call);
    call.convert();
    check_library(method.call(call), self);
    call.copy_back();
    return method.result != nullptr ? method.result(call) : none();
}

PyMethodDef method_definition(const Method& method, MethodEntry entry) {
    static std::deque<std::string> documents;
    std::string document = std::string(method.name) + "($self, /";
    for (const Parameter& parameter : method.parameters) {
        document += ", ";
        document += parameter.name;
        if (parameter.optional) document += "=None";
    }
    document += ")\n--\n\n";
    document += method.doc;
    documents.push_back(std::move(document));
    return {method.name, reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(entry)),
            METH_FASTCALL | METH_KEYWORDS, documents.back().c_str()};
}

std::span<const PyMethodDef> problem_mirror_methods() {
    static const std::vector<PyMethodDef> definitions = [] {
        std::vector<PyMethodDef> all;
        append_model_methods(all);
        append_solution_methods(all);
        append_nonlinear_methods(all);
        return all;
    }();
    return definitions;
}

}  // namespace nalora
