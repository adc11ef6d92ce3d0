// Python handlers of the messages that reach the library's global environment.
#include <cstring>
#include <limits>
#include <mutex>

#include "callbacks/handles.hpp"
#include "library/library.hpp"
#include "module/parts.hpp"
#include "module/state.hpp"
#include "support/gil.hpp"
#include "support/interpreter.hpp"

namespace nalora {

namespace {

constexpr const char* kAddError =
    "Incorrect arguments in addcbmsghandler. Must provide correct list of three arguments";
constexpr const char* kRemoveError =
    "Incorrect arguments in removecbmsghandler. Must provide correct list of two arguments";

// A registration is a list [handler, data, priority]; its address is the library's user data. The
// functions below hold the lock for one look at the list of registrations each, and no Python code
// runs meanwhile: what they return or take is referenced elsewhere too.

Py_ssize_t entry_count() noexcept {
    const std::lock_guard guard(locks().handlers);
    return state().message_handlers == nullptr ? 0 : PyList_GET_SIZE(state().message_handlers);
}

Ref entry_at(Py_ssize_t i) noexcept {
    const std::lock_guard guard(locks().handlers);
    PyObject* list = state().message_handlers;
    return list == nullptr || i >= PyList_GET_SIZE(list) ? Ref()
                                                         : Ref::borrow(PyList_GET_ITEM(list, i));
}

// Empty when it is not registered (any more). The address is compared before it is used.
Ref registered_entry(const void* address) noexcept {
    const std::lock_guard guard(locks().handlers);
    PyObject* list = state().message_handlers;
    for (Py_ssize_t i = 0; list != nullptr && i < PyList_GET_SIZE(list); ++i) {
        if (PyList_GET_ITEM(list, i) == address) return Ref::borrow(PyList_GET_ITEM(list, i));
    }
    return Ref();
}

void append_entry(PyObject* entry) {
    const std::lock_guard guard(locks().handlers);
    PyObject* list = state().message_handlers;
    if (list != nullptr) check_python(PyList_Append(list, entry));
}

// `entry` is held by the caller, so that dropping the list's reference runs no code.
void erase_entry(const Ref& entry) {
    const std::lock_guard guard(locks().handlers);
    PyObject* list = state().message_handlers;
    for (Py_ssize_t i = 0; list != nullptr && i < PyList_GET_SIZE(list); ++i) {
        if (PyList_GET_ITEM(list, i) == entry.get()) {
            check_python(PyList_SetSlice(list, i, i + 1, nullptr));
            return;
        }
    }
}

bool is_registration(PyObject* entry) noexcept {
    return entry != nullptr && PyList_Check(entry) && PyList_GET_SIZE(entry) >= 3 &&
           PyList_GET_ITEM(entry, 0) != nullptr && PyList_GET_ITEM(entry, 1) != nullptr &&
           PyList_GET_ITEM(entry, 2) != nullptr && PyLong_Check(PyList_GET_ITEM(entry, 2));
}

// What the library calls; runs with the interpreter lock held.
void deliver(void* object, void* data, void* thread, const char* text, int type, int code) {
    if (data == nullptr) {
        raise(interface_error(), "Incorrect general environment message handler detected");
    }
    const Ref entry = registered_entry(data);
    if (!entry) return;  // another handler of the same message has just removed it
    if (!is_registration(entry.get())) {
        raise(interface_error(), "Incorrect general environment message handler detected");
    }
    const Ref handler = Ref::borrow(PyList_GET_ITEM(entry.get(), 0));
    const Ref user_data = Ref::borrow(PyList_GET_ITEM(entry.get(), 1));
    const Ref sender = new_handle(&NlraobjectType, object);
    const Ref thread_id = new_handle(&GenericType, thread);
    const Ref message = decode_text(text != nullptr ? text : "");
    const Ref arguments =
        take(Py_BuildValue("(OOOOll)", sender.get(), user_data.get(), thread_id.get(),
                           message.get(), static_cast<long>(type), static_cast<long>(code)));
    take(PyObject_Call(handler.get(), arguments.get(), nullptr));
}

// A handler's exception stays pending: it stops a running solve and is raised after the call.
int handler_trampoline(void* object, void* data, void* thread, const char* text, int type,
                       int code) noexcept {
    if (interpreter_is_finalizing()) return 0;
    const GilHeld gil;
    if (PyErr_Occurred() != nullptr) return 0;
    if (guarded([&] { deliver(object, data, thread, text, type, code); }) == 0) return 0;
    const char* sender = nullptr;
    if (object != nullptr && NLRAgetobjecttypename(object, &sender) == 0 && sender != nullptr &&
        std::strcmp(sender, "NLRAprob") == 0) {
        NLRAinterrupt(static_cast<NLRAprob>(object), pending_stop_reason());
    }
    return -1;
}

// The priority stands in the entry: stopping the library drops its handlers, not the entries.
int add_to_library(const Ref& entry) noexcept {
    const long priority = PyLong_AsLong(PyList_GET_ITEM(entry.get(), 2));
    return NLRA_ge_addcbmsghandler(handler_trampoline, entry.get(), static_cast<int>(priority));
}

PyObject* addcbmsghandler(PyObject*, PyObject* args, PyObject* kwargs) noexcept {
    return guarded([&] {
        static const char* const keywords[] = {"msghandler", "data", "priority", nullptr};
        PyObject *handler = nullptr, *data = nullptr;
        long priority = 0;
        if (!PyArg_ParseTupleAndKeywords(args, kwargs, "OOl", const_cast<char**>(keywords),
                                         &handler, &data, &priority)) {
            raise_chained(interface_error(), "%s", kAddError);
        }
        if (!PyCallable_Check(handler) || priority < std::numeric_limits<int>::min() ||
            priority > std::numeric_limits<int>::max()) {
            raise(interface_error(), "%s", kAddError);
        }
        // The entry's address is known to the library only while the list holds the entry.
        const Ref entry = take(Py_BuildValue("[OOl]", handler, data, priority));
        start_environment(false);
        append_entry(entry.get());
        if (add_to_library(entry) != 0) {
            set_library_error(nullptr);
            erase_entry(entry);
            throw PythonError{};
        }
        return none();
    });
}

// The very same object; or the same method bound to the same object, of which every attribute
// access makes a new one.
bool same_callable(PyObject* a, PyObject* b) {
    if (a == b) return true;
    if (Py_TYPE(a) != Py_TYPE(b) || !(PyMethod_Check(a) || PyCFunction_Check(a))) return false;
    const int same = PyObject_RichCompareBool(a, b, Py_EQ);
    check_python(same);
    return same != 0;
}

// A null handler or data stands for any. Data are compared by identity: `==` may be anything.
bool matches(PyObject* entry, PyObject* handler, PyObject* data) {
    return (handler == nullptr || same_callable(PyList_GET_ITEM(entry, 0), handler)) &&
           (data == nullptr || PyList_GET_ITEM(entry, 1) == data);
}

PyObject* removecbmsghandler(PyObject*, PyObject* args, PyObject* kwargs) noexcept {
    return guarded([&] {
        static const char* const keywords[] = {"msghandler", "data", nullptr};
        PyObject *handler = nullptr, *data = nullptr;
        if (!PyArg_ParseTupleAndKeywords(args, kwargs, "|OO", const_cast<char**>(keywords),
                                         &handler, &data)) {
            raise_chained(interface_error(), "%s", kRemoveError);
        }
        if (handler == Py_None) handler = nullptr;
        if (data == Py_None) data = nullptr;
        const Py_ssize_t count = entry_count();
        if (count == 0) {
            if (handler == nullptr) return none();
            raise(interface_error(), "Cannot remove callback from an empty set");
        }
        // From the last to the first, so that what is removed moves no entry still to be seen.
        bool found = false;
        for (Py_ssize_t i = count - 1; i >= 0; --i) {
            const Ref entry = entry_at(i);
            if (!entry) continue;
            if (!is_registration(entry.get())) {
                raise(interface_error(), "Incorrect data stored in callback");
            }
            if (!matches(entry.get(), handler, data)) continue;
            check_library(NLRA_ge_removecbmsghandler(handler_trampoline, entry.get()), nullptr);
            erase_entry(entry);
            found = true;
        }
        if (!found) raise(interface_error(), "Callback not found");
        return none();
    });
}

const PyMethodDef kHandlerFunctions[] = {
    {"addcbmsghandler", keyword_function(addcbmsghandler), METH_VARARGS | METH_KEYWORDS,
     "addcbmsghandler(msghandler, data, priority)\n--\n\n"
     "Call msghandler(object, data, thread, message, type, code) for every message of the "
     "library,\n"
     "those of problems included; handlers of a higher priority (an int) come first. object and\n"
     "thread are opaque handles of the sender and of the thread, message is a str, type and code\n"
     "are ints. An exception that the handler raises stops a running solve and is raised by the\n"
     "call that caused the message. Raises InterfaceError for wrong arguments."},
    {"removecbmsghandler", keyword_function(removecbmsghandler), METH_VARARGS | METH_KEYWORDS,
     "removecbmsghandler(msghandler=None, data=None)\n--\n\n"
     "Remove the message handlers that were added with this very msghandler and this very data;\n"
     "None stands for any. Raises InterfaceError when there is none."},
};

}  // namespace

void restore_message_handlers() {
    for (Py_ssize_t i = 0; i < entry_count(); ++i) {
        const Ref entry = entry_at(i);
        if (!entry || !is_registration(entry.get())) continue;
        check_library(NLRA_ge_removecbmsghandler(handler_trampoline, entry.get()), nullptr);
        check_library(add_to_library(entry), nullptr);
    }
}

std::span<const PyMethodDef> handler_functions() { return kHandlerFunctions; }

}  // namespace nalora
