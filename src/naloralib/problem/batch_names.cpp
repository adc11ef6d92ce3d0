// Naming the columns and rows of a batch.
#include <memory>

#include "module/state.hpp"
#include "problem/building.hpp"

namespace nalora {

namespace {

// Names of one kind of object, as the library and the objects have them.
struct Naming {
    int type;
    bool (*has_name)(PyObject* object) noexcept;
    void (*set_name)(PyObject* object, PyObject* name);
    Ref (*fresh)();
};

constexpr Naming kColumnNaming{
    NLRA_NAMES_COLUMN, [](PyObject* o) noexcept { return var_has_name(as_var(o)); },
    [](PyObject* o, PyObject* name) { var_set_name(as_var(o), name); }, fresh_var_name};
constexpr Naming kRowNaming{
    NLRA_NAMES_ROW, [](PyObject* o) noexcept { return constraint_has_name(as_constraint(o)); },
    [](PyObject* o, PyObject* name) { constraint_set_name(as_constraint(o), name); },
    fresh_constraint_name};

const Naming& naming_of(const Addition& addition) noexcept {
    return &addition.registry() == &kVariables ? kColumnNaming : kRowNaming;
}

// The index of a name, -1 when it is free.
int32_t find(ProblemObject* p, const Naming& naming, const char* name) {
    int32_t index = -1;
    return NLRAgetindex(p->prob, naming.type, name, &index) == 0 ? index : -1;
}

// Returns the library's status.
int rename(ProblemObject* p, const Naming& naming, PyObject* object, int32_t index) {
    for (;;) {
        const Ref name = naming.fresh();
        const char* text = PyUnicode_AsUTF8(name.get());
        if (text == nullptr) throw PythonError();
        if (find(p, naming, text) >= 0) continue;
        naming.set_name(object, name.get());
        return NLRAaddnames(p->prob, naming.type, text, index, index);
    }
}

}  // namespace

int BatchNames::load_texts(ProblemObject* p, const Addition& addition) const {
    const Naming& naming = naming_of(addition);
    for (const std::size_t begin : default_like_) {
        const int32_t index = find(p, naming, texts_.data() + begin);
        if (index < 0 || index >= addition.base()) continue;
        PyObject* object = object_at(p, addition.registry(), index);
        if (naming.has_name(object)) continue;
        if (const int status = rename(p, naming, object, index)) return status;
    }
    for (const Run& run : runs_) {
        const int first = addition.base() + run.first, last = first + run.count - 1;
        const int status =
            NLRAaddnames(p->prob, naming.type, texts_.data() + run.begin, first, last);
        if (status != 0) return status;
    }
    return 0;
}

int BatchNames::load_numbers(ProblemObject* p, const Addition& addition, int32_t first,
                             int32_t end) const {
    if (first == end) return 0;
    const Naming& naming = naming_of(addition);
    static_assert(sizeof(int64_t) == sizeof(uint64_t));
    const auto* numbers = reinterpret_cast<const int64_t*>(addition.serials().data()) + first;
    const int32_t base = addition.base() + first;
    int few[8];
    const std::unique_ptr<int[]> many(end - first > 8 ? new int[end - first] : nullptr);
    int* const taken = many != nullptr ? many.get() : few;  // mostly never touched
    int count = 0;
    int status = NLRAnumbernames(p->prob, naming.type, numbers, base, addition.base() + end - 1,
                                 &count, taken);
    for (int k = 0; k < count && status == 0; ++k) {
        const int32_t index = base + taken[k];
        status = rename(p, naming, object_at(p, addition.registry(), index), index);
    }
    return status;
}

int BatchNames::load(ProblemObject* p, const Addition& addition) const {
    if (const int status = load_texts(p, addition)) return status;
    int32_t next = 0;
    for (const Run& run : runs_) {
        if (const int status = load_numbers(p, addition, next, run.first)) return status;
        next = run.first + run.count;
    }
    return load_numbers(p, addition, next, addition.count());
}

}  // namespace nalora
