#include "numpy/element_types.hpp"

#include "model/operands.hpp"
#include "module/state.hpp"
#include "numpy/inner_product.hpp"
#include "support/boundary.hpp"
#include "support/gil.hpp"

namespace nalora {

namespace element_types {
int numbers[kElementTypes] = {-1, -1, -1};
}

namespace {

// The structure that registration reads; the one of NumPy 1.x serves every version.
#if NPY_ABI_VERSION >= 0x02000000
using DescriptorPrototype = PyArray_DescrProto;
#else
using DescriptorPrototype = PyArray_Descr;
#endif

// ---- the functions that NumPy calls on elements ---------------------------------------------
// They are called without a boundary of ours in between, on unaligned memory too, and those for
// many elements without the interpreter lock.

PyObject* get_item(void* element, void* /*array*/) noexcept {
    return Ref::borrow(element_object(static_cast<const char*>(element))).release();
}

int set_item(PyObject* object, void* element, void* /*array*/) noexcept {
    set_element(static_cast<char*>(element), Ref::borrow(object));
    return 0;
}

// References in another byte order mean nothing, so nothing is touched where they are asked for.
bool refuse_swap(int swap) noexcept {
    if (swap == 0) return false;
    PyErr_SetString(PyExc_TypeError, "The bytes of modeling objects cannot be swapped");
    return true;
}

// Copying takes a reference, as it does in arrays of NumPy's own object type. Without a source the
// elements stay as they are.
void copy_swap_n(void* to, npy_intp to_stride, void* from, npy_intp from_stride, npy_intp n,
                 int swap, void* /*array*/) noexcept {
    const GilEnsured lock;
    if (refuse_swap(swap) || from == nullptr) return;
    auto* target = static_cast<char*>(to);
    const auto* source = static_cast<const char*>(from);
    for (; n > 0; --n, target += to_stride, source += from_stride) {
        PyObject* object;
        std::memcpy(&object, source, sizeof(void*));
        set_element(target, Ref::borrow(object));
    }
}

void copy_swap(void* to, void* from, int swap, void* array) noexcept {
    copy_swap_n(to, 0, from, 0, 1, swap, array);
}

npy_bool always(void* /*element*/, void* /*array*/) noexcept { return NPY_TRUE; }

// Only an expression that is the number 0, and never had a term, is false.
npy_bool is_nonzero_expression(void* element, void* /*array*/) noexcept {
    PyObject* object = element_object(static_cast<const char*>(element));
    if (kind_of(object) != Kind::expression) return NPY_TRUE;
    const ExpressionObject* e = as_expression(object);
    return !is_constant(e) || e->constant != 0.0 ? NPY_TRUE : NPY_FALSE;
}

// Casts among the types and NumPy's object type copy references.
void cast(void* from, void* to, npy_intp n, void* /*from_array*/, void* /*to_array*/) noexcept {
    copy_swap_n(to, sizeof(PyObject*), from, sizeof(PyObject*), n, 0, nullptr);
}

// Numbers among expressions are Python floats, in arrays as anywhere.
template <class Number>
void cast_number(void* from, void* to, npy_intp n, void* /*from_array*/,
                 void* /*to_array*/) noexcept {
    const GilEnsured lock;
    const auto* source = static_cast<const char*>(from);
    auto* target = static_cast<char*>(to);
    for (; n > 0; --n, source += sizeof(Number), target += sizeof(PyObject*)) {
        Number number;
        std::memcpy(&number, source, sizeof number);
        PyObject* object = PyFloat_FromDouble(static_cast<double>(number));
        if (object == nullptr) return;  // NumPy looks for the error
        set_element(target, Ref::steal(object));
    }
}

// Inner products for numpy.dot and numpy.inner, which look for this function and no loop.
void dot(void* a, npy_intp a_stride, void* b, npy_intp b_stride, void* result, npy_intp n,
         void* /*array*/) noexcept {
    const GilEnsured lock;
    guarded([&] {
        const Line first{static_cast<const char*>(a), a_stride, false};
        const Line second{static_cast<const char*>(b), b_stride, false};
        set_element(static_cast<char*>(result), inner_product(first, second, n));
    });
}

// ---- registration ---------------------------------------------------------------------------

struct TypeRow {
    ElementType type;
    const char* attribute;
    PyTypeObject* scalar;
    char kind;
    const char* field;
    PyArray_NonzeroFunc* nonzero;
};
constexpr TypeRow kTypes[] = {
    {ElementType::constraint, "npconstraint", &ConstraintType, 'c', "constraint", always},
    {ElementType::var, "npvar", &VarType, 'v', "variable", always},
    {ElementType::expression, "npexpr", &ExpressionType, 'e', "expression", is_nonzero_expression},
};

// NumPy keeps pointers to these for the rest of the process.
PyArray_ArrFuncs functions[kElementTypes];
DescriptorPrototype prototypes[kElementTypes];

PyArray_Descr* object_descriptor() {
    PyArray_Descr* descriptor = PyArray_DescrFromType(NPY_OBJECT);
    if (descriptor == nullptr) throw PythonError();
    return descriptor;
}

// NumPy counts the references in arrays by the fields of their element type: one field of its
// object type, which is the whole element.
void register_type(const TypeRow& row) {
    const auto index = static_cast<std::size_t>(row.type);
    PyArray_ArrFuncs& f = functions[index];
    PyArray_InitArrFuncs(&f);
    f.getitem = get_item;
    f.setitem = set_item;
    f.copyswap = copy_swap;
    f.copyswapn = copy_swap_n;
    f.nonzero = row.nonzero;
    f.dotfunc = dot;

    const Ref field = take(Py_BuildValue("(Ni)", object_descriptor(), 0));
    const Ref fields = take(Py_BuildValue("{sO}", row.field, field.get()));
    const Ref names = take(Py_BuildValue("(s)", row.field));
    DescriptorPrototype& p = prototypes[index];
    PyObject_Init(reinterpret_cast<PyObject*>(&p), &PyArrayDescr_Type);
    p.typeobj = row.scalar;
    p.kind = row.kind;
    p.type = row.kind;
    p.byteorder = '|';
    p.flags = static_cast<char>(NPY_OBJECT_DTYPE_FLAGS);
    p.type_num = 0;
    p.elsize = sizeof(PyObject*);
    p.alignment = alignof(PyObject*);
    p.fields = Ref::borrow(fields.get()).release();
    p.names = Ref::borrow(names.get()).release();
    p.f = &f;
    p.hash = -1;
    const int number = PyArray_RegisterDataType(&p);
    check_python(number);
    element_types::numbers[index] = number;
}

// NumPy may convert elements of the one type to the other wherever it needs to, or only where it is
// told to (astype, assignments).
void register_cast(int from, int to, PyArray_VectorUnaryFunc* function, bool safe) {
    const Ref descriptor = take(PyArray_DescrFromType(from));
    for (int kind = NPY_NOSCALAR; safe && kind <= NPY_OBJECT_SCALAR; ++kind) {
        check_python(PyArray_RegisterCanCast(descriptor.as<PyArray_Descr>(), to,
                                             static_cast<NPY_SCALARKIND>(kind)));
    }
    check_python(PyArray_RegisterCastFunc(descriptor.as<PyArray_Descr>(), to, function));
}

struct NumberCast {
    int type;
    PyArray_VectorUnaryFunc* function;
};
constexpr NumberCast kNumberCasts[] = {
    {NPY_BOOL, cast_number<npy_bool>},         {NPY_INT, cast_number<npy_int>},
    {NPY_LONG, cast_number<npy_long>},         {NPY_FLOAT, cast_number<npy_float>},
    {NPY_LONGLONG, cast_number<npy_longlong>}, {NPY_DOUBLE, cast_number<npy_double>},
};

// Every variable is an expression, but not the other way: where both types meet the result is
// npexpr, and what makes expressions in place does not fit into npvar.
void register_casts() {
    const int variable = type_number(ElementType::var);
    const int expression = type_number(ElementType::expression);
    const int participants[] = {variable, expression, NPY_OBJECT};
    for (const int from : participants) {
        for (const int to : participants) {
            if (from != to) register_cast(from, to, cast, from != expression || to != variable);
        }
    }
    // Reductions start from numbers.
    for (const NumberCast& row : kNumberCasts) {
        register_cast(row.type, expression, row.function, true);
    }
}

// Views that NumPy makes through the array interface (sliding_window_view, as_strided) know types
// by their texts, "|v8" and "|e8". That of constraints is the one of complex numbers.
void register_texts() {
    const Ref numpy = take(PyImport_ImportModule("numpy"));
    const Ref types = take(PyObject_GetAttrString(numpy.get(), "sctypeDict"));
    for (const ElementType type : {ElementType::var, ElementType::expression}) {
        const Ref descriptor = take(PyArray_DescrFromType(type_number(type)));
        const Ref text = take(PyObject_GetAttrString(descriptor.get(), "str"));
        check_python(PyObject_SetItem(types.get(), text.get(), descriptor.get()));
    }
}

}  // namespace

void register_element_types() {
    if (type_number(ElementType::var) >= 0) return;  // what NumPy knows it knows for good
    for (const TypeRow& row : kTypes) register_type(row);
    register_casts();
    register_texts();
}

void add_element_types(PyObject* module) {
    for (const char* name : {"npvar", "npexpr", "npconstraint"}) {
        for (const TypeRow& row : kTypes) {
            if (std::strcmp(row.attribute, name) != 0) continue;
            const Ref descriptor = take(PyArray_DescrFromType(type_number(row.type)));
            check_python(PyObject_SetAttrString(module, name, descriptor.get()));
        }
    }
}

// NumPy fills new arrays of element types that hold references with nulls.
Ref new_element_array(ElementType type, int dimensions, const npy_intp* sizes) {
    PyArray_Descr* descriptor = PyArray_DescrFromType(type_number(type));
    if (descriptor == nullptr) return Ref();
    return Ref::steal(PyArray_NewFromDescr(&PyArray_Type, descriptor, dimensions, sizes, nullptr,
                                           nullptr, 0, nullptr));
}

}  // namespace nalora
