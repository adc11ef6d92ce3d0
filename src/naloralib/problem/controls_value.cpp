// Reading and setting the value behind a name.
#include <limits>
#include <string>

#include "module/state.hpp"
#include "problem/controls.hpp"
#include "problem/lifecycle.hpp"
#include "support/numpy.hpp"

namespace nalora {

namespace {

// Served by no getter of the library's: their value is a pointer, told as -1.
constexpr int kPointerIds[] = {12013, 22013};

bool is_pointer(int id) noexcept {
    for (const int pointer : kPointerIds) {
        if (id == pointer) return true;
    }
    return false;
}

// bool is an int. Other NumPy integers are refused: their users mean arrays, not settings.
bool is_integer(PyObject* value) noexcept {
    return PyLong_Check(value) || PyArray_IsScalar(value, Int) || PyArray_IsScalar(value, Long) ||
           PyArray_IsScalar(value, LongLong);
}

int64_t integer_value(PyObject* value) {
    const Ref number = take(PyNumber_Index(value));
    const long long result = PyLong_AsLongLong(number.get());
    if (result == -1 && PyErr_Occurred() != nullptr) throw PythonError{};
    return result;
}

double real_value(PyObject* value) {
    if (PyFloat_Check(value)) return PyFloat_AS_DOUBLE(value);
    const Ref number = take(PyNumber_Index(value));
    const double result = PyLong_AsDouble(number.get());
    if (result == -1.0 && PyErr_Occurred() != nullptr) throw PythonError{};
    return result;
}

// The str's UTF-8 form, which it owns.
const char* text_value(PyObject* value) {
    Py_ssize_t length = 0;
    const char* text = PyUnicode_AsUTF8AndSize(value, &length);
    if (text == nullptr) throw PythonError{};
    if (std::char_traits<char>::length(text) != static_cast<std::size_t>(length)) {
        raise(PyExc_ValueError, "embedded null character");
    }
    return text;
}

int read_integer(NLRAprob prob, NSLPprob nonlinear, Role role, const Descriptor& d, Ref& value) {
    int64_t wide = 0;
    int narrow = 0;
    int status = 0;
    if (d.kind == ParamKind::optimizer) {
        status = role == Role::control ? NLRAgetintcontrol64(prob, d.id, &wide)
                                       : NLRAgetintattrib64(prob, d.id, &wide);
    } else {
        status = role == Role::control ? NSLPgetintcontrol(nonlinear, d.id, &narrow)
                                       : NSLPgetintattrib(nonlinear, d.id, &narrow);
        wide = narrow;
    }
    if (status == 0) value = take(PyLong_FromLongLong(wide));
    return status;
}

int read_real(NLRAprob prob, NSLPprob nonlinear, Role role, const Descriptor& d, Ref& value) {
    double number = 0.0;
    int status = 0;
    if (d.kind == ParamKind::optimizer) {
        status = role == Role::control ? NLRAgetdblcontrol(prob, d.id, &number)
                                       : NLRAgetdblattrib(prob, d.id, &number);
    } else {
        status = role == Role::control ? NSLPgetdblcontrol(nonlinear, d.id, &number)
                                       : NSLPgetdblattrib(nonlinear, d.id, &number);
    }
    if (status == 0) value = take(PyFloat_FromDouble(number));
    return status;
}

int read_text_into(NLRAprob prob, NSLPprob nonlinear, Role role, const Descriptor& d,
                   std::string& buffer, int& needed) noexcept {
    const int size = static_cast<int>(buffer.size());
    if (d.kind == ParamKind::optimizer) {
        return role == Role::control
                   ? NLRAgetstringcontrol(prob, d.id, buffer.data(), size, &needed)
                   : NLRAgetstringattrib(prob, d.id, buffer.data(), size, &needed);
    }
    return role == Role::control ? NSLPgetstrcontrol(nonlinear, d.id, buffer.data(), size, &needed)
                                 : NSLPgetstrattrib(nonlinear, d.id, buffer.data(), size, &needed);
}

// One call with an ample buffer, a second one for the rare text that does not fit.
int read_text(NLRAprob prob, NSLPprob nonlinear, Role role, const Descriptor& d, Ref& value) {
    std::string buffer(2048, '\0');
    int needed = 0;
    int status = read_text_into(prob, nonlinear, role, d, buffer, needed);
    if (status == 0 && needed > static_cast<int>(buffer.size())) {
        buffer.assign(static_cast<std::size_t>(needed), '\0');
        status = read_text_into(prob, nonlinear, role, d, buffer, needed);
    }
    if (status == 0) value = decode_text(buffer.c_str());
    return status;
}

// A problem made while the nonlinear solver was not there has no handle for its names.
void require_solver(ProblemObject* p, const Descriptor& d) {
    require_initialised(p);
    if (d.kind != ParamKind::optimizer && p->nonlinear == nullptr) {
        raise(interface_error(), "The nonlinear solver is not available");
    }
}

int set_integer(ProblemObject* p, const Descriptor& d, int64_t value) {
    if (d.kind == ParamKind::optimizer) return NLRAsetintcontrol64(p->prob, d.id, value);
    if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max()) {
        raise(PyExc_OverflowError, "%lld is too large for a 32-bit integer control",
              static_cast<long long>(value));
    }
    return NSLPsetintcontrol(p->nonlinear, d.id, static_cast<int>(value));
}

}  // namespace

int read_value(NLRAprob prob, NSLPprob nonlinear, Role role, const Descriptor& d, Ref& value) {
    switch (d.type) {
        case ParamType::integer:
            return read_integer(prob, nonlinear, role, d, value);
        case ParamType::real:
            return read_real(prob, nonlinear, role, d, value);
        case ParamType::text:
            return read_text(prob, nonlinear, role, d, value);
    }
    raise(model_error(), role == Role::control ? "getControl() called with unknown ID"
                                               : "getAttrib() called with unknown ID");
}

Ref problem_value(ProblemObject* p, Role role, const Descriptor& d) {
    require_solver(p, d);
    Ref value;
    check_library(read_value(p->prob, p->nonlinear, role, d, value), as_object(p));
    return value;
}

void check_control_value(const Descriptor& d, PyObject* value) {
    switch (d.type) {
        case ParamType::integer:
            if (is_integer(value)) return;
            raise(model_error(), "Cannot set non-integer value to an integer control");
        case ParamType::real:
            if (PyFloat_Check(value) || is_integer(value)) return;
            raise(model_error(), "Cannot set non-numerical value to a floating-point control");
        case ParamType::text:
            if (PyUnicode_Check(value)) return;
            raise(model_error(), "Cannot set non-string value to a string control");
    }
    raise(model_error(), "setControl called with unknown ID");
}

void set_problem_control(ProblemObject* p, const Descriptor& d, PyObject* value) {
    check_control_value(d, value);
    require_solver(p, d);
    const bool optimizer = d.kind == ParamKind::optimizer;
    int status = 0;
    switch (d.type) {
        case ParamType::integer:
            status = set_integer(p, d, integer_value(value));
            break;
        case ParamType::real: {
            const double number = real_value(value);
            status = optimizer ? NLRAsetdblcontrol(p->prob, d.id, number)
                               : NSLPsetdblcontrol(p->nonlinear, d.id, number);
            break;
        }
        case ParamType::text: {
            const char* text = text_value(value);
            status = optimizer ? NLRAsetstrcontrol(p->prob, d.id, text)
                               : NSLPsetstrcontrol(p->nonlinear, d.id, text);
            break;
        }
    }
    check_library(status, as_object(p));
}

// Without the nonlinear solver only the type can be checked of its controls.
void try_control(const Descriptor& d, PyObject* value) {
    check_control_value(d, value);
    start_environment(false);
    const Ref problem = bare_problem();
    auto* p = problem.as<ProblemObject>();
    if (d.kind == ParamKind::optimizer || p->nonlinear != nullptr) set_problem_control(p, d, value);
}

Ref all_values(ProblemObject* p, Role role) {
    const Ref table = name_table(role);
    Ref values = take(PyDict_New());
    PyObject *name, *tuple;
    Py_ssize_t position = 0;
    while (PyDict_Next(table.get(), &position, &name, &tuple)) {
        Descriptor d;
        if (!find_descriptor(table.get(), name, d)) continue;
        const Ref value = is_pointer(d.id) ? take(PyLong_FromLong(-1)) : problem_value(p, role, d);
        check_python(PyDict_SetItem(values.get(), name, value.get()));
    }
    return values;
}

}  // namespace nalora
