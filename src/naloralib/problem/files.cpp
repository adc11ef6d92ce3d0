// Reading and writing model files, and the objects for what a file holds.
#include <cmath>
#include <cstring>
#include <memory>
#include <utility>

#include "module/state.hpp"
#include "problem/building.hpp"
#include "problem/user_functions.hpp"

namespace nalora {

namespace {

// A file name (str, bytes or path-like) in the file system's encoding, and a string of flags.
struct FileArguments {
    Ref filename;
    const char* flags = "";
    const char* path() const noexcept { return PyBytes_AS_STRING(filename.get()); }
};

FileArguments parse(PyObject* args, PyObject* keywords, const char** names) {
    FileArguments result;
    PyObject* filename = nullptr;
    if (!PyArg_ParseTupleAndKeywords(args, keywords, "O|s", const_cast<char**>(names), &filename,
                                     &result.flags)) {
        throw PythonError();
    }
    PyObject* bytes = nullptr;
    if (!PyUnicode_FSConverter(filename, &bytes)) throw PythonError();
    result.filename = Ref::steal(bytes);
    return result;
}

// The Python side of a model read from a file, complete before the problem takes it over.
struct Contents {
    Ref variables = take(PyList_New(0)), constraints = take(PyList_New(0)),
        sets = take(PyList_New(0));
    std::unique_ptr<IndexMap> variable_index = std::make_unique<IndexMap>(),
                              constraint_index = std::make_unique<IndexMap>(),
                              set_index = std::make_unique<IndexMap>();
};

// Walks through the packed names of rows, columns or sets.
class Names {
  public:
    Names(ProblemObject* p, int type, int count) {
        if (count == 0) return;
        int64_t bytes = 0;
        check_library(NLRAgetnames(p->prob, type, nullptr, 0, &bytes, 0, count - 1), as_object(p));
        buffer_.resize(static_cast<std::size_t>(bytes) + 1);
        check_library(NLRAgetnames(p->prob, type, buffer_.data(), bytes, &bytes, 0, count - 1),
                      as_object(p));
        next_ = buffer_.data();
    }
    // Files in other encodings than UTF-8 stay readable, with replaced characters.
    Ref next() {
        const std::size_t length = std::strlen(next_);
        Ref name = take(PyUnicode_DecodeUTF8(next_, static_cast<Py_ssize_t>(length), "replace"));
        next_ += length + 1;
        return name;
    }

  private:
    std::vector<char> buffer_;
    const char* next_ = nullptr;
};

// Mixed integer data: limits by column and the sets.
struct Entities {
    std::vector<int32_t> columns;
    std::vector<char> types;
    std::vector<double> limits;
    std::vector<char> set_types;
    std::vector<int64_t> set_starts{0};
    std::vector<int32_t> set_columns;
    std::vector<double> set_weights;
};

Entities read_entities(ProblemObject* p) {
    Entities e;
    int entities = 0, sets = 0;
    const auto get = [&](int64_t* starts) {
        check_library(NLRAgetglobal64(p->prob, &entities, &sets, e.types.data(), e.columns.data(),
                                      e.limits.data(), e.set_types.data(), starts,
                                      e.set_columns.data(), e.set_weights.data()),
                      as_object(p));
    };
    get(nullptr);
    e.set_starts.resize(static_cast<std::size_t>(sets) + 1);
    get(e.set_starts.data());
    e.columns.resize(entities);
    e.types.resize(entities);
    e.limits.resize(entities);
    e.set_types.resize(sets);
    e.set_columns.resize(e.set_starts[sets]);
    e.set_weights.resize(e.set_starts[sets]);
    get(e.set_starts.data());
    return e;
}

int type_code(char letter) {
    constexpr const char* kLetters = "CBISRP";
    const char* found = letter != '\0' ? std::strchr(kLetters, letter) : nullptr;
    if (found == nullptr) raise(model_error(), "Could not read problem");
    return static_cast<int>(found - kLetters);
}

void append(const Ref& list, const Ref& object) {
    check_python(PyList_Append(list.get(), object.get()));
}

void read_variables(ProblemObject* p, Contents& contents, const Entities& entities) {
    const int32_t count = int_attribute(p, NLRA_ORIGINALCOLS);
    if (count == 0) return;
    std::vector<double> lower(count), upper(count);
    std::vector<char> types(count);
    check_library(NLRAgetlb(p->prob, lower.data(), 0, count - 1), as_object(p));
    check_library(NLRAgetub(p->prob, upper.data(), 0, count - 1), as_object(p));
    check_library(NLRAgetcoltype(p->prob, types.data(), 0, count - 1), as_object(p));
    Names names(p, NLRA_NAMES_COLUMN, count);
    for (int32_t i = 0; i < count; ++i) {
        const Ref object = new_var();
        auto* v = object.as<VarObject>();
        var_set_name(v, names.next().get());
        var_set_lower(v, lower[i]);
        var_set_upper(v, upper[i]);
        var_set_type(v, type_code(types[i]));
        append(contents.variables, object);
        contents.variable_index->set(var_serial(v), i);
    }
    for (std::size_t k = 0; k < entities.columns.size(); ++k) {
        if (std::strchr("SRP", entities.types[k]) == nullptr) continue;
        PyObject* object = PyList_GET_ITEM(contents.variables.get(), entities.columns[k]);
        var_set_threshold(as_var(object), entities.limits[k]);
    }
}

void read_constraints(ProblemObject* p, Contents& contents) {
    const int32_t count = int_attribute(p, NLRA_ORIGINALROWS);
    if (count == 0) return;
    std::vector<double> rhs(count), range(count);
    std::vector<char> types(count);
    check_library(NLRAgetrhs(p->prob, rhs.data(), 0, count - 1), as_object(p));
    check_library(NLRAgetrhsrange(p->prob, range.data(), 0, count - 1), as_object(p));
    check_library(NLRAgetrowtype(p->prob, types.data(), 0, count - 1), as_object(p));
    Names names(p, NLRA_NAMES_ROW, count);
    for (int32_t i = 0; i < count; ++i) {
        const Ref object = new_constraint();
        auto* c = object.as<ConstraintObject>();
        constraint_set_name(c, names.next().get());
        const char type = types[i];
        if (type == 'E' || type == 'G') constraint_set_lower(c, rhs[i]);
        if (type == 'R') constraint_set_lower(c, rhs[i] - std::fabs(range[i]));
        if (type == 'E' || type == 'L' || type == 'R') constraint_set_upper(c, rhs[i]);
        append(contents.constraints, object);
        contents.constraint_index->set(constraint_serial(c), i);
    }
}

void read_sets(ProblemObject* p, Contents& contents, const Entities& entities) {
    const auto count = static_cast<int32_t>(entities.set_types.size());
    Names names(p, NLRA_NAMES_SET, count);
    for (int32_t i = 0; i < count; ++i) {
        const Ref members = take(PyList_New(0)), weights = take(PyList_New(0));
        for (int64_t k = entities.set_starts[i]; k < entities.set_starts[i + 1]; ++k) {
            append(members,
                   Ref::borrow(PyList_GET_ITEM(contents.variables.get(), entities.set_columns[k])));
            append(weights, take(PyFloat_FromDouble(entities.set_weights[k])));
        }
        const Ref object = new_sos(names.next().get(), entities.set_types[i] == '2' ? 2 : 1,
                                   members.get(), weights.get());
        append(contents.sets, object);
        contents.set_index->set(object.as<SosObject>()->serial, i);
    }
}

// The new model has no user functions. Old objects go last: releasing them may run Python code.
void exchange(ProblemObject* p, Contents& contents) noexcept {
    const Ref functions = Ref::steal(std::exchange(p->user_functions, nullptr));
    const auto swap_list = [](PyObject*& field, Ref& list) {
        Ref old = Ref::steal(field);
        field = list.release();
        list = std::move(old);
    };
    const auto swap_index = [](IndexMap*& field, std::unique_ptr<IndexMap>& index) {
        IndexMap* old = field;
        field = index.release();
        index.reset(old);
    };
    swap_list(p->variables, contents.variables);
    swap_list(p->constraints, contents.constraints);
    swap_list(p->sets, contents.sets);
    swap_index(p->variable_index, contents.variable_index);
    swap_index(p->constraint_index, contents.constraint_index);
    swap_index(p->set_index, contents.set_index);
}

// The library holds a new model that Python has no objects for: both sides become empty.
void empty_problem(ProblemObject* p, Contents& empty) noexcept {
    NLRAloadlp(p->prob, "", 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
               nullptr, nullptr, nullptr);
    exchange(p, empty);
}

// The nonlinear reader takes all files, the other one those without formulas. Trying one after the
// other would read pipes twice.
int read_model(ProblemObject* p, const FileArguments& file) {
    return p->nonlinear != nullptr && nonlinear_available()
               ? NSLPreadprob(p->nonlinear, file.path(), file.flags)
               : NLRAreadprob(p->prob, file.path(), file.flags);
}

}  // namespace

Ref read_problem(ProblemObject* p, PyObject* args, PyObject* keywords) {
    static const char* names[] = {"filename", "options", nullptr};
    const FileArguments file = parse(args, keywords, names);
    Contents contents, nothing;
    check_change(read_model(p, file), p);
    const int status = guarded([&] {
        raise_pending();
        const Entities entities = read_entities(p);
        read_variables(p, contents, entities);
        read_constraints(p, contents);
        read_sets(p, contents, entities);
    });
    if (status < 0) {
        guarded_release(as_object(p), [&] { empty_problem(p, nothing); });
        throw PythonError();
    }
    exchange(p, contents);
    return none();
}

Ref write_problem(ProblemObject* p, PyObject* args, PyObject* keywords) {
    static const char* names[] = {"filename", "flags", nullptr};
    const FileArguments file = parse(args, keywords, names);
    if (is_nonlinear(p) || std::strchr(file.flags, 'g') != nullptr) {
        require_nonlinear_solver(p);
        check_library(NSLPwriteprob(p->nonlinear, file.path(), file.flags), as_object(p));
    } else {
        check_library(NLRAwriteprob(p->prob, file.path(), file.flags), as_object(p));
    }
    return none();
}

}  // namespace nalora
