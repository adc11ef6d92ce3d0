// The declaration form problem(x, y, x + y <= 1, x + 2 * y, ...): what each positional argument is.
#include "module/state.hpp"
#include "numpy/each_element.hpp"
#include "problem/lifecycle.hpp"
#include "problem/walker.hpp"

namespace nalora {

namespace {

enum class Content { variables, constraints, sets, objective, other };

Content content_of(PyObject* object) noexcept {
    if (is_var(object)) return Content::variables;
    if (is_constraint(object)) return Content::constraints;
    if (is_sos(object)) return Content::sets;
    return kind_of(object) > Kind::number ? Content::objective : Content::other;
}

// The item of an array that holds just one, else empty.
Ref only_item(PyObject* object) {
    if (!PyArray_Check(object)) return Ref();
    PyArrayObject* array = as_array(object);
    if (PyArray_SIZE(array) != 1) return Ref();
    return take(PyArray_GETITEM(array, static_cast<const char*>(PyArray_DATA(array))));
}

// What has been met so far: one name and one objective at most.
class Declarer {
  public:
    Declarer(ProblemObject* p, int sense) : problem_(p), sense_(sense) {}

    void declare(PyObject* argument) {
        // An array of one element stands for the element, also when it lies in another one.
        Ref held = Ref::borrow(argument);
        for (int depth = 0; depth <= kWalkDepth; ++depth) {
            Ref item = only_item(held.get());
            if (!item) break;
            held = std::move(item);
        }
        PyObject* object = held.get();
        if (PyUnicode_Check(object) || PyBytes_Check(object)) {
            set_name(object);
        } else if (is_leaf(object)) {
            declare_single(object);
        } else {
            declare_collection(object);
        }
    }

  private:
    void set_name(PyObject* name) {
        if (named_) raise(model_error(), "More than one string passed in problem declaration");
        named_ = true;
        const char* text = nullptr;
        Py_ssize_t length = 0;
        if (PyBytes_Check(name)) {
            text = PyBytes_AS_STRING(name);
            length = PyBytes_GET_SIZE(name);
        } else {
            text = PyUnicode_AsUTF8AndSize(name, &length);
            if (text == nullptr) throw PythonError{};
        }
        if (std::char_traits<char>::length(text) != static_cast<std::size_t>(length)) {
            raise(PyExc_ValueError, "embedded null character");
        }
        check_library(NLRAsetprobname(problem_->prob, text), as_object(problem_));
    }

    // A variable that is a column already cannot be meant as another one: it is the objective.
    void declare_single(PyObject* object) {
        Content content = content_of(object);
        if (content == Content::variables &&
            problem_->variable_index->contains(var_serial(as_var(object)))) {
            content = Content::objective;
        }
        switch (content) {
            case Content::variables:
                return add_variables(problem_, object);
            case Content::constraints:
                return add_constraints(problem_, object);
            case Content::sets:
                return add_sets(problem_, object);
            case Content::objective:
                return set_the_objective(object);
            case Content::other:
                raise_unknown();
        }
    }

    void declare_collection(PyObject* object) {
        // The first leaf tells what the collection is. An iterator can be walked only once, so the
        // leaves are kept; those of an array of modeling objects are in it anyway.
        Ref leaves = Ref::borrow(object), first;
        if (is_element_array(object)) {
            if (PyArray_SIZE(as_array(object)) == 0) return;
            first = Ref::borrow(element_object(PyArray_BYTES(as_array(object))));
        } else {
            leaves = take(PyList_New(0));
            walk(object, [&](PyObject* leaf) { check_python(PyList_Append(leaves.get(), leaf)); });
            if (PyList_GET_SIZE(leaves.get()) == 0) return;
            first = Ref::borrow(PyList_GET_ITEM(leaves.get(), 0));
        }
        switch (content_of(first.get())) {
            case Content::variables:
                return add_variables(problem_, leaves.get());
            case Content::constraints:
                return add_constraints(problem_, leaves.get());
            case Content::sets:
                return add_sets(problem_, leaves.get());
            case Content::objective:
                raise(model_error(), PyArray_Check(object)
                                         ? "Only one objective can be set, but a sequence or NumPy "
                                           "array of expressions was passed"
                                         : "Incorrect way of defining an objective function (it "
                                           "should not be in an aggregate structure)");
            case Content::other:
                raise_unknown();
        }
    }

    void set_the_objective(PyObject* object) {
        if (has_objective_) {
            raise(model_error(), "At most one expression can be used as an objective function");
        }
        has_objective_ = true;
        set_objective(problem_, object, &sense_);
    }

    [[noreturn]] static void raise_unknown() {
        raise(model_error(),
              "Erroneous problem declaration; argument contained object that was not a variable, "
              "constraint, or expression");
    }

    ProblemObject* problem_;
    int sense_;
    bool named_ = false;
    bool has_objective_ = false;
};

}  // namespace

void declare(ProblemObject* p, PyObject* elements, int sense) {
    Declarer declarer(p, sense);
    for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(elements); ++i) {
        declarer.declare(PyTuple_GET_ITEM(elements, i));
    }
}

}  // namespace nalora
