// The methods that mirror one library function each are rows of tables; this is the vocabulary of
// the rows and the one routine that runs them. For mirror/ only.
//
// A row lists the parameters in the order of the library's documentation. Scalars, indices and
// input arrays are converted before the call, arrays for outputs are made before and copied into
// the caller's lists after it. Lengths link the arrays of a call with each other or with the size
// of the problem. What no rule tells, a row's `prepare` does; a function without like bypasses all
// of this with an `adapter`.
#pragma once

#include <climits>
#include <span>
#include <vector>

#include "mirror/convert.hpp"

namespace nalora {

enum class Role : uint8_t {
    integer,  // int, 32 bits
    int64,    // int, 64 bits
    real,     // float
    text,     // str
    index,    // object, name or int for a row, column or set
    input,    // array into the library; None passes a null pointer
    output    // list to be filled; None: not wanted
};

struct Length {
    enum class Rule : uint8_t {
        open,        // as long as the given sequence
        same,        // as long as another parameter's array
        plus_one,    // one more than another parameter's array: starts
        last_start,  // the last entry of another parameter's array of starts: coefficients
        scalar,      // the value of another parameter
        range,       // rows or columns first to last: the parameter is first, the next one last
        rows,        // of the problem
        columns
    };
    Rule rule = Rule::open;
    uint8_t parameter = 0;
};
constexpr Length same(uint8_t parameter) { return {Length::Rule::same, parameter}; }
constexpr Length plus_one(uint8_t parameter) { return {Length::Rule::plus_one, parameter}; }
constexpr Length last_start(uint8_t parameter) { return {Length::Rule::last_start, parameter}; }
constexpr Length value_of(uint8_t parameter) { return {Length::Rule::scalar, parameter}; }
constexpr Length range_from(uint8_t first) { return {Length::Rule::range, first}; }
inline constexpr Length kRows = {Length::Rule::rows, 0};
inline constexpr Length kColumns = {Length::Rule::columns, 0};

struct Parameter {
    const char* name;
    Role role;
    Conv conv = Conv::integer;  // of indices and arrays
    Length length = {};         // of arrays
    bool optional = false;
};
constexpr Parameter integer(const char* name) { return {name, Role::integer}; }
constexpr Parameter int64(const char* name) { return {name, Role::int64}; }
constexpr Parameter real(const char* name) { return {name, Role::real}; }
constexpr Parameter text(const char* name) { return {name, Role::text}; }
constexpr Parameter index(const char* name, Conv conv) { return {name, Role::index, conv}; }
constexpr Parameter input(const char* name, Conv conv, Length length = {}) {
    return {name, Role::input, conv, length};
}
constexpr Parameter output(const char* name, Conv conv, Length length) {
    return {name, Role::output, conv, length};
}
constexpr Parameter optional(Parameter parameter) {
    parameter.optional = true;
    return parameter;
}

class Call;

struct Method {
    const char* name;
    std::span<const Parameter> parameters;
    const char* doc;  // without the signature line, which the parameters tell
    int (*call)(Call&);
    Ref (*result)(const Call&) = nullptr;  // null: None
    const char* missing = nullptr;         // InterfaceError when the arguments do not parse
    void (*prepare)(Call&) = nullptr;      // after parsing, before the arrays are converted
    Ref (*adapter)(Call&) = nullptr;       // replaces everything after parsing
};

// The arguments of one call, by the parameters' numbers. Borrows the Python objects.
class Call {
  public:
    Call(ProblemObject* p, const Method& method)
        : problem_(p), method_(method), slots_(method.parameters.size()) {}

    ProblemObject* problem() const noexcept { return problem_; }
    NLRAprob prob() const noexcept { return problem_->prob; }

    // Whether an argument other than None was given.
    bool given(std::size_t i) const noexcept {
        return slots_[i].object != nullptr && slots_[i].object != Py_None;
    }
    PyObject* object(std::size_t i) const noexcept { return slots_[i].object; }
    int integer(std::size_t i) const noexcept { return static_cast<int>(slots_[i].integer); }
    int64_t int64(std::size_t i) const noexcept { return slots_[i].integer; }
    double real(std::size_t i) const noexcept { return slots_[i].real; }
    const char* text(std::size_t i) const noexcept { return slots_[i].text; }
    template <class T>
    T* array(std::size_t i) const noexcept {
        return slots_[i].array.data<T>();
    }
    int64_t length(std::size_t i) const noexcept { return slots_[i].length; }
    int count(std::size_t i) const;  // the length as the library counts most things

    // The length that an input array must have, whatever its row says.
    void expect(std::size_t i, int64_t length) noexcept { slots_[i].length = length; }

    // What `call` leaves for `result`.
    union {
        int integer_result = 0;
        double real_result;
    };

    void parse(std::span<PyObject* const> args, PyObject* names);
    void convert();
    void copy_back() const;

  private:
    struct Slot {
        PyObject* object = nullptr;
        Array array;
        int64_t length = -1;  // of the array; negative: open
        union {
            int64_t integer = 0;
            double real;
        };
        const char* text = "";
    };

    void assign(std::span<PyObject* const> args, PyObject* names);
    void parse_scalar(std::size_t i);
    int64_t linked_length(Length length) const;
    void convert_input(std::size_t i);
    void make_output(std::size_t i);

    ProblemObject* problem_;
    const Method& method_;
    std::vector<Slot> slots_;
};

Ref integer_result(const Call& call);
Ref real_result(const Call& call);

Ref run_method(const Method& method, PyObject* self, std::span<PyObject* const> args,
               PyObject* names);

// The interpreter's method table for a table of rows; lives as long as the process.
using MethodEntry = PyObject* (*)(PyObject*, PyObject* const*, Py_ssize_t, PyObject*);
PyMethodDef method_definition(const Method& method, MethodEntry entry);

template <const auto& Rows, std::size_t I>
PyObject* method_entry(PyObject* self, PyObject* const* args, Py_ssize_t count,
                       PyObject* names) noexcept {
    return guarded([&] {
        return run_method(Rows[I], self, {args, static_cast<std::size_t>(count)}, names);
    });
}

template <const auto& Rows, std::size_t... I>
void append_methods(std::vector<PyMethodDef>& definitions, std::index_sequence<I...>) {
    (definitions.push_back(method_definition(Rows[I], method_entry<Rows, I>)), ...);
}

template <const auto& Rows>
void append_methods(std::vector<PyMethodDef>& definitions) {
    append_methods<Rows>(definitions, std::make_index_sequence<std::size(Rows)>());
}

// The tables, one function a file.
void append_model_methods(std::vector<PyMethodDef>& definitions);
void append_solution_methods(std::vector<PyMethodDef>& definitions);
void append_nonlinear_methods(std::vector<PyMethodDef>& definitions);

}  // namespace nalora
