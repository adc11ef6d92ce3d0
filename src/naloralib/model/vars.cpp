// The module function vars: many variables at once, one for each tuple of the product of index
// sets.
#include <charconv>
#include <string>
#include <vector>

#include "model/text.hpp"
#include "model/var_object.hpp"
#include "module/state.hpp"
#include "numpy/element_types.hpp"
#include "support/boundary.hpp"
#include "support/buffer.hpp"

namespace nalora {

namespace {

constexpr const char* kNoMemory =
    "No memory to create variables. Consider restricting one or more index sets/lists/ranges in "
    "the index argument to nalora.vars()";

// ModelError with the pending error as its cause. Interrupts and the like go on as they are.
[[noreturn]] void raise_from_pending(const char* text) {
    if (PyErr_ExceptionMatches(PyExc_Exception) == 0) throw PythonError();
    PyObject *type, *value, *traceback;
    PyErr_Fetch(&type, &value, &traceback);
    PyErr_NormalizeException(&type, &value, &traceback);
    const Ref type_owner = Ref::steal(type), traceback_owner = Ref::steal(traceback);
    Ref cause = Ref::steal(value);
    if (traceback != nullptr) PyException_SetTraceback(cause.get(), traceback);
    const Ref error = take(PyObject_CallFunction(model_error(), "s", text));
    PyException_SetCause(error.get(), cause.release());
    PyErr_SetObject(model_error(), error.get());
    throw PythonError();
}

// ---- texts of index elements ----------------------------------------------------------------

// Names may hold anything that a str can, lone surrogates too.
std::string encoded(PyObject* text) {
    const Ref bytes = take(PyUnicode_AsEncodedString(text, "utf-8", "surrogatepass"));
    return {PyBytes_AS_STRING(bytes.get()),
            static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.get()))};
}
Ref decoded(const std::string& text) {
    return take(
        PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogatepass"));
}

std::string element_text(PyObject* element) {
    if (PyLong_Check(element)) {
        int overflow;
        const long value = PyLong_AsLongAndOverflow(element, &overflow);
        if (overflow == 0) return std::to_string(value);
        return encoded(take(PyLong_Type.tp_repr(element)).get());
    }
    if (PyFloat_Check(element)) return format_number(PyFloat_AS_DOUBLE(element));
    if (PyUnicode_Check(element)) return encoded(element);
    return encoded(take(PyObject_Str(element)).get());
}

std::string require_element_text(PyObject* element) {
    std::string text;
    if (guarded([&] { text = element_text(element); }) < 0) {
        raise_from_pending("Element of index tuple in vars() cannot be represented");
    }
    return text;
}

void append_integer(Py_ssize_t value, std::string& text) {
    char digits[24];
    const auto [end, error] = std::to_chars(digits, digits + sizeof digits, value);
    static_cast<void>(error);  // there is room for every value
    text.append(digits, end);
}

// ---- index sets -----------------------------------------------------------------------------

struct IndexSet {
    Py_ssize_t size;
    Ref elements;  // a tuple; none for the integers below `size`
    std::vector<std::string> texts;

    bool is_integer() const noexcept { return !elements; }
    Ref element(Py_ssize_t position) const {
        if (is_integer()) return take(PyLong_FromSsize_t(position));
        return Ref::borrow(PyTuple_GET_ITEM(elements.get(), position));
    }
    void append_text(Py_ssize_t position, std::string& text) const {
        if (is_integer()) return append_integer(position, text);
        text += texts[static_cast<std::size_t>(position)];
    }
};

class IndexSets {
  public:
    IndexSets(PyObject* arguments, bool named) {
        const Py_ssize_t count = PyTuple_GET_SIZE(arguments);
        sets_.reserve(static_cast<std::size_t>(count));
        for (Py_ssize_t i = 0; i < count; ++i) add(PyTuple_GET_ITEM(arguments, i), named);
        require_memory(volume_);
    }

    std::size_t dimensions() const noexcept { return sets_.size(); }
    const IndexSet& operator[](std::size_t dimension) const noexcept { return sets_[dimension]; }
    // The number of index tuples.
    Py_ssize_t volume() const noexcept { return volume_; }
    bool all_integers() const noexcept {
        for (const IndexSet& set : sets_) {
            if (!set.is_integer()) return false;
        }
        return true;
    }

  private:
    static constexpr Py_ssize_t kBytes = sizeof(VarObject) + sizeof(PyObject*);

    // The volume with one more set of this size.
    Py_ssize_t extended_volume(Py_ssize_t size) const {
        if (size > PY_SSIZE_T_MAX / kBytes / volume_) raise(model_error(), kNoMemory);
        return volume_ * size;
    }

    // Ask for memory for so many variables and give it back: what cannot be had is refused before
    // making them takes all there is.
    static void require_memory(Py_ssize_t volume) {
        const MemoryInterface& m = memory();
        void* block = nullptr;
        if (m.allocate(m.context, static_cast<std::size_t>(volume * kBytes), &block) != 0) {
            raise(model_error(), kNoMemory);
        }
        m.release(m.context, &block);
    }

    void add(PyObject* argument, bool named) {
        const bool integer = PyLong_Check(argument) || PyArray_IsScalar(argument, Integer);
        IndexSet set = integer ? integers(argument) : elements(argument);
        volume_ = extended_volume(set.size);
        for (Py_ssize_t i = 0; named && !integer && i < set.size; ++i) {
            set.texts.push_back(require_element_text(PyTuple_GET_ITEM(set.elements.get(), i)));
        }
        sets_.push_back(std::move(set));
    }

    static IndexSet integers(PyObject* argument) {
        const Ref index = take(PyNumber_Index(argument));
        int overflow;
        const long long size = PyLong_AsLongLongAndOverflow(index.get(), &overflow);
        if (overflow > 0) raise(model_error(), kNoMemory);
        if (overflow < 0 || size <= 0) {
            raise(model_error(),
                  "Invalid index: integer argument to nalora.vars() must be positive (it is "
                  "equivalent to range(k))");
        }
        return {size, Ref(), {}};
    }

    // What a range or another sized object says about itself is believed where it says too much.
    void check_claimed_size(PyObject* argument) const {
        const Py_ssize_t size = PyObject_LengthHint(argument, 1);
        if (size > 0) return require_memory(extended_volume(size));
        if (size == 0) return;
        raise_from_pending(PyErr_ExceptionMatches(PyExc_OverflowError) != 0
                               ? kNoMemory
                               : "No object available from set");
    }

    IndexSet elements(PyObject* argument) const {
        const Ref iterator = Ref::steal(PyObject_GetIter(argument));
        if (!iterator) {
            raise_from_pending(PyErr_ExceptionMatches(PyExc_TypeError) != 0
                                   ? "Invalid index: a call to nalora.vars() must have a tuple of "
                                     "lists, sets, iterable objects, or integer numbers as its "
                                     "arguments"
                                   : "No object available from set");
        }
        check_claimed_size(argument);
        Ref items = Ref::steal(PySequence_Tuple(iterator.get()));
        if (!items) {
            raise_from_pending(PyErr_ExceptionMatches(PyExc_MemoryError) != 0
                                   ? "Not enough memory to create variables with nalora.vars()"
                                   : "No object available from set");
        }
        const Py_ssize_t size = PyTuple_GET_SIZE(items.get());
        if (size == 0) {
            raise(model_error(), "Invalid index: empty dimension in creation of variables");
        }
        return {size, std::move(items), {}};
    }

    std::vector<IndexSet> sets_;
    Py_ssize_t volume_ = 1;
};

// A position in each index set; the last one moves fastest.
class IndexTuple {
  public:
    explicit IndexTuple(const IndexSets& sets) : sets_(sets), positions_(sets.dimensions(), 0) {}

    void advance() noexcept {
        for (std::size_t i = positions_.size(); i-- > 0;) {
            if (++positions_[i] < sets_[i].size) return;
            positions_[i] = 0;
        }
    }

    // The element itself where there is only one.
    Ref key() const {
        if (positions_.size() == 1) return sets_[0].element(positions_[0]);
        Ref tuple = take(PyTuple_New(static_cast<Py_ssize_t>(positions_.size())));
        for (std::size_t i = 0; i < positions_.size(); ++i) {
            PyTuple_SET_ITEM(tuple.get(), static_cast<Py_ssize_t>(i),
                             sets_[i].element(positions_[i]).release());
        }
        return tuple;
    }

    // "(a,3)"
    void append_text(std::string& text) const {
        text += '(';
        for (std::size_t i = 0; i < positions_.size(); ++i) {
            if (i > 0) text += ',';
            sets_[i].append_text(positions_[i], text);
        }
        text += ')';
    }

  private:
    const IndexSets& sets_;
    std::vector<Py_ssize_t> positions_;
};

// ---- variables ------------------------------------------------------------------------------

class Variables {
  public:
    Variables(const VarSettings& settings, const IndexSets& sets, std::string prefix)
        : sets_(sets),
          series_(settings, static_cast<uint64_t>(sets.volume())),
          name_(std::move(prefix)),
          prefix_size_(name_.size()) {}

    Ref array() {
        std::vector<npy_intp> sizes;
        for (std::size_t i = 0; i < sets_.dimensions(); ++i) sizes.push_back(sets_[i].size);
        Ref result =
            new_element_array(ElementType::var, static_cast<int>(sizes.size()), sizes.data());
        if (!result) raise_from_pending("Could not initialize result of nalora.vars()");
        char* element = PyArray_BYTES(result.as<PyArrayObject>());
        IndexTuple index(sets_);
        for (Py_ssize_t left = sets_.volume(); left > 0; --left, element += sizeof(PyObject*)) {
            set_element(element, next(index));
            if (is_named()) index.advance();
        }
        return result;
    }

    Ref dictionary() {
        Ref result = Ref::steal(PyDict_New());
        if (!result) raise_from_pending(kNoDictionary);
        IndexTuple index(sets_);
        for (Py_ssize_t made = 1; made <= sets_.volume(); ++made, index.advance()) {
            const Ref key = index.key();
            const Ref variable = next(index);
            if (PyDict_SetItem(result.get(), key.get(), variable.get()) < 0) {
                raise_from_pending(PyErr_ExceptionMatches(PyExc_MemoryError) != 0
                                       ? kNoDictionary
                                       : "Bad index tuple in vars()");
            }
            if (PyDict_Size(result.get()) < made) raise_duplicate(key.get());
        }
        return result;
    }

  private:
    static constexpr const char* kNoDictionary =
        "Could not create variables. Consider restricting one or more index sets/lists/ranges in "
        "the index argument to nalora.vars()";

    bool is_named() const noexcept { return prefix_size_ > 0; }

    Ref next(const IndexTuple& index) {
        Ref variable = series_.next();
        if (is_named()) {
            name_.resize(prefix_size_);
            index.append_text(name_);
            var_set_name(variable.as<VarObject>(), decoded(name_).get());
        }
        return variable;
    }

    [[noreturn]] static void raise_duplicate(PyObject* key) {
        raise(model_error(),
              "Duplicate entry in vars: <%S>. Check arguments for duplicate entries in one or more "
              "of the lists",
              key);
    }

    const IndexSets& sets_;
    VarSeries series_;
    std::string name_;  // the prefix, behind it what is left of the last name
    std::size_t prefix_size_;
};

constexpr Py_ssize_t kMaxPrefix = 2500;

PyObject* vars(PyObject*, PyObject* args, PyObject* keywords) noexcept {
    return guarded([&] {
        static const char* const names[] = {"indices",   "name",    "lb",   "ub",
                                            "threshold", "vartype", nullptr};
        PyObject *indices = nullptr, *name = nullptr;
        VarSettings settings;
        const Ref nothing = take(PyTuple_New(0));
        if (!PyArg_ParseTupleAndKeywords(
                nothing.get(), keywords, "|OUdddl:vars", const_cast<char**>(names), &indices, &name,
                &settings.lower, &settings.upper, &settings.threshold, &settings.type)) {
            throw PythonError();
        }
        if (indices != nullptr && (!PyTuple_Check(indices) || PyTuple_GET_SIZE(args) > 0)) {
            raise(model_error(),
                  "nalora.vars must be invoked with zero or more lists/sets of indices, ranges, or "
                  "integers");
        }
        require_feasible(settings, "Variables have empty feasible set: lower bound > upper bound");
        std::string prefix = "x";
        if (name != nullptr) prefix = encoded(take(PyUnicode_Substring(name, 0, kMaxPrefix)).get());
        const IndexSets sets(indices != nullptr ? indices : args, !prefix.empty());
        Variables variables(settings, sets, std::move(prefix));
        return sets.all_integers() ? variables.array() : variables.dictionary();
    });
}

const PyMethodDef kFunctions[] = {
    {"vars", keyword_function(vars), METH_VARARGS | METH_KEYWORDS,
     "vars(*indices, name='x', lb=0.0, ub=1e+20, threshold=-1e+20, vartype=continuous)\n--\n\n"
     "Make a variable for every tuple of the product of index sets.\n\n"
     "indices: the index sets: integers, k standing for range(k), or iterables of hashable\n"
     "objects (a dict gives its keys, a str its characters; an iterator is used up). The keyword\n"
     "indices takes a tuple of them in place of the positional arguments.\n"
     "name: a str, of which at most 2500 characters begin each name. The variable for a and 3 is\n"
     "named x(a,3). An empty name leaves the default names, which saves time and memory.\n"
     "lb, ub, threshold, vartype: of each variable, as for var.\n\n"
     "Returns a NumPy array of type npvar and those sizes when all index sets are integers.\n"
     "Otherwise a dict from index tuple to variable, the last index changing fastest; with one\n"
     "index set, from its elements.\n\n"
     "Raises ModelError for lb > ub + 1e-6, for index sets that are empty, no iterables or not\n"
     "positive, for elements that repeat or are not hashable, and for more variables than memory\n"
     "can hold; an error of an iterable is its cause."},
};

}  // namespace

std::span<const PyMethodDef> variable_functions() { return kFunctions; }

}  // namespace nalora
