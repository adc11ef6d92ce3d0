// The type nalora.SOS: special ordered sets.
#include "model/common_methods.hpp"
#include "model/names.hpp"
#include "model/objects.hpp"
#include "model/side_tables.hpp"
#include "module/state.hpp"
#include "support/boundary.hpp"
#include "support/free_list.hpp"
#include "support/nested_release.hpp"

namespace nalora {

namespace {

using SosObjects = FreeList<SosObject, SosType>;

constexpr const char* kLetters = "sos";
constexpr const char* kDoc =
    "SOS(indices, weights, type=1, name=None)\n--\n\n"
    "A special ordered set.\n\n"
    "indices: the list of the set's variables; it is kept, not copied.\n"
    "weights: the list of their weights, which give the order; it is kept, not copied.\n"
    "type: 1 if at most one variable may be non-zero, 2 if at most two neighbours may.\n"
    "name: by default sos and the serial number.\n\n"
    "Raises ModelError for another type and for indices or weights that are no lists.";

int type_of(PyObject* given) {
    // The low byte counts, as a signed one.
    const auto type = static_cast<signed char>(integer_bits(given) & 0xFF);
    if (type != 1 && type != 2) raise(model_error(), "SOS type must be 1 or 2");
    return type;
}

int init(PyObject* self, PyObject* args, PyObject* keywords) noexcept {
    return guarded([&] {
        const uint64_t serial = take_sos_serial();
        static const char* const names[] = {"indices", "weights", "type", "name", nullptr};
        PyObject *indices, *weights, *type = nullptr, *name = nullptr;
        if (!PyArg_ParseTupleAndKeywords(args, keywords, "OO|OO", const_cast<char**>(names),
                                         &indices, &weights, &type, &name)) {
            throw PythonError();
        }
        Ref own_name = name != nullptr ? Ref::borrow(name) : default_name(kLetters, serial);
        const int number = type != nullptr ? type_of(type) : 1;
        if (!PyList_Check(weights)) raise(model_error(), "SOS weights must be passed as a list");
        if (!PyList_Check(indices)) raise(model_error(), "SOS indices must be passed as a list");
        // Everything is checked: from here on nothing fails, so a set is never half changed.
        SosObject* set = as_sos(self);
        set->serial = serial;
        set->type = number;
        assign_field(set->name, std::move(own_name));
        assign_field(set->indices, Ref::borrow(indices));
        assign_field(set->weights, Ref::borrow(weights));
    });
}

void dealloc(PyObject* self) noexcept {
    SosObject* set = as_sos(self);
    release_nested(set->name);
    release_nested(set->indices);
    release_nested(set->weights);
    SosObjects::recycle(self);
}

PyObject* get_name(PyObject* self, void*) noexcept {
    return guarded([&] {
        const SosObject* set = as_sos(self);
        return set->name != nullptr ? Ref::borrow(set->name) : default_name(kLetters, set->serial);
    });
}

PyGetSetDef attributes[] = {
    {"name", get_name, nullptr, "Name; sos and the serial number when none was given.", nullptr},
    {},
};

// A new list of the same items. An item can be missing while another function fills the list.
Ref copy_list(PyObject* list) {
    const Py_ssize_t size = PyList_GET_SIZE(list);
    Ref copy = take(PyList_New(size));
    for (Py_ssize_t i = 0; i < size; ++i) {
        PyObject* item = i < PyList_GET_SIZE(list) ? PyList_GET_ITEM(list, i) : nullptr;
        if (item == nullptr) raise(PyExc_SystemError, "SOS list with an empty slot");
        PyList_SET_ITEM(copy.get(), i, Ref::borrow(item).release());
    }
    return copy;
}

PyObject* copy(PyObject* self, PyObject*) noexcept {
    return guarded([&] {
        const SosObject* set = as_sos(self);
        if (set->indices == nullptr) {
            raise(model_error(), "Invalid SOS: a set without lists cannot be copied");
        }
        const Ref source_name = Ref::borrow(set->name);
        const Ref name = take(PyUnicode_FromFormat(
            "sos%llu_copy_%S", static_cast<unsigned long long>(set->serial), source_name.get()));
        const Ref indices = copy_list(Ref::borrow(set->indices).get());
        const Ref weights = copy_list(Ref::borrow(set->weights).get());
        return new_sos(name.get(), set->type, indices.get(), weights.get());
    });
}

PyMethodDef methods[] = {
    {"copy", copy, METH_NOARGS, "copy($self)\n--\n\nReturn a copy of the SOS as a new object"},
    {"__copy__", copy, METH_NOARGS, "__copy__($self)\n--\n\nThe same as copy()."},
    {"__deepcopy__", copy, METH_O, "__deepcopy__($self, memo, /)\n--\n\nThe same as copy()."},
    NALORA_NO_PICKLING,
    {},
};

PyObject* text(PyObject* self) noexcept {
    return guarded([&] { return name_text(take(get_name(self, nullptr))); });
}

PyTypeObject make_type() noexcept {
    PyTypeObject t = {PyVarObject_HEAD_INIT(nullptr, 0)};
    t.tp_name = "nalora.SOS";
    t.tp_doc = kDoc;
    t.tp_basicsize = sizeof(SosObject);
    t.tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
    t.tp_alloc = SosObjects::allocate;
    t.tp_init = init;
    t.tp_dealloc = dealloc;
    t.tp_str = text;
    t.tp_getset = attributes;
    t.tp_methods = methods;
    return t;
}

}  // namespace

PyTypeObject SosType = make_type();

bool sos_has_default_name(const SosObject* set) {
    if (set->name == nullptr || !PyUnicode_CheckExact(set->name)) return false;
    return PyUnicode_Compare(set->name, default_name(kLetters, set->serial).get()) == 0;
}

void sos_set_default_name(SosObject* set) {
    assign_field(set->name, default_name(kLetters, take_sos_serial()));
}

Ref new_sos(PyObject* name, int type, PyObject* indices, PyObject* weights) {
    const uint64_t serial = take_sos_serial();
    Ref own_name = name != nullptr ? Ref::borrow(name) : default_name(kLetters, serial);
    Ref object = SosObjects::make();
    SosObject* set = object.as<SosObject>();
    set->serial = serial;
    set->type = type;
    set->name = own_name.release();
    set->indices = Ref::borrow(indices).release();
    set->weights = Ref::borrow(weights).release();
    return object;
}

}  // namespace nalora
