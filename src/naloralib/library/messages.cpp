// Printing the library's messages, and the switch that silences them.
#include <cstdio>
#include <cstring>
#include <mutex>
#include <utility>

#include "library/library.hpp"
#include "module/parts.hpp"
#include "module/state.hpp"
#include "support/gil.hpp"
#include "support/interpreter.hpp"

namespace nalora {

namespace {

// Return the old flag; a negative value only reads.
int exchange_output_flag(int value) noexcept {
    const std::lock_guard guard(locks().output);
    int& flag = state().output_enabled;
    return value < 0 ? flag : std::exchange(flag, value);
}

void write_to_stdout(const char* text) {
    PyObject* stream = PySys_GetObject("stdout");
    if (stream == nullptr || stream == Py_None) return;
    // The stream's own code may replace sys.stdout.
    const Ref held = Ref::borrow(stream);
    const Ref line = take(PyUnicode_FromFormat("%s\n", text));
    check_python(PyFile_WriteObject(line.get(), held.get(), Py_PRINT_RAW));
}

// The interpreter's own writer (PySys_FormatStdout) drops every exception, also the
// KeyboardInterrupt that arrives while a notebook's stream runs Python code. This one keeps it.
void write_line(const char* text) noexcept {
    if (guarded([&] { write_to_stdout(text); }) == 0) return;
    if (!PyErr_ExceptionMatches(PyExc_Exception)) return;
    PyErr_Clear();
    std::fputs(text, stdout);
    std::fputc('\n', stdout);
}

PyObject* get_output_enabled(PyObject*, PyObject*) noexcept {
    return guarded([] { return Ref::borrow(exchange_output_flag(-1) != 0 ? Py_True : Py_False); });
}

PyObject* set_output_enabled(PyObject*, PyObject* value) noexcept {
    return guarded([&] {
        if (!PyLong_Check(value)) {
            constexpr const char* kText =
                "Incorrect argument in setOutputEnabled: should be True or False";
            PyErr_SetString(model_error(), kText);
            raise_chained(PyExc_SystemError,
                          "setOutputEnabled returned a result with an error set: %s", kText);
        }
        int overflow = 0;
        const long number = PyLong_AsLongAndOverflow(value, &overflow);
        exchange_output_flag(number != 0 || overflow != 0 ? 1 : 0);
        return none();
    });
}

const PyMethodDef kOutputFunctions[] = {
    {"getOutputEnabled", get_output_enabled, METH_NOARGS,
     "getOutputEnabled()\n--\n\n"
     "Return True when the library's messages are written to sys.stdout."},
    {"setOutputEnabled", set_output_enabled, METH_O,
     "setOutputEnabled(value, /)\n--\n\n"
     "Write the library's messages to sys.stdout from now on (a non-zero int or True), or drop\n"
     "them (0 or False). Anything else raises SystemError, with ModelError as its cause."},
};

}  // namespace

bool print_message(const char* text) noexcept {
    if (text == nullptr || exchange_output_flag(-1) == 0) return true;
    if (interpreter_is_finalizing()) return true;
    const GilHeld gil;
    PyObject *type, *value, *traceback;
    PyErr_Fetch(&type, &value, &traceback);
    write_line(text);
    if (type == nullptr) return PyErr_Occurred() == nullptr;
    // The first exception is the one that counts.
    PyErr_Restore(type, value, traceback);
    return true;
}

int pending_stop_reason() noexcept {
    const GilHeld gil;
    const bool interrupted =
        PyErr_Occurred() != nullptr && PyErr_ExceptionMatches(PyExc_KeyboardInterrupt);
    return interrupted ? NLRA_STOP_CTRLC : NLRA_STOP_USER;
}

void problem_message_printer(NLRAprob prob, void*, const char* text, int, int) {
    if (!print_message(text)) NLRAinterrupt(prob, pending_stop_reason());
}

void nonlinear_message_printer(NSLPprob, void*, const char* text, int, int) { print_message(text); }

int general_message_printer(void* object, void*, void*, const char* text, int, int) {
    const char* sender = nullptr;
    // A problem's messages were printed by the problem's own printer.
    if (NLRAgetobjecttypename(object, &sender) == 0 && sender != nullptr &&
        std::strcmp(sender, "NLRAprob") == 0) {
        return 0;
    }
    return print_message(text) ? 0 : -1;
}

std::span<const PyMethodDef> output_functions() { return kOutputFunctions; }

}  // namespace nalora
