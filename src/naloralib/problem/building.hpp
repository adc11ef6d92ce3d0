// What adding, deleting and reading objects share: the lists in step with the library, and the
// taking back of what could not be finished. For the files of problem/ only.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "problem/problem.hpp"
#include "support/large_pages.hpp"

namespace nalora {

// One kind of object of a problem: its list, its registry, its count in the library, its key.
struct Registry {
    PyObject* ProblemObject::*list;
    IndexMap* ProblemObject::*index;
    int count_attribute;
    uint64_t (*serial)(PyObject* object) noexcept;
};
extern const Registry kVariables, kConstraints, kSets;

// Drop the items of one list that the library does not have; returns the library's count.
int32_t sync_list(ProblemObject* p, const Registry& registry);

// Deletions leave gaps in the list, which hold None, until there are many of them or until the list
// is needed as it should be.
void close_gaps(ProblemObject* p, const Registry& registry);
// Borrowed; gaps or not. The index must be one of the problem's.
inline PyObject* object_at(ProblemObject* p, const Registry& registry, int32_t index) noexcept {
    return PyList_GET_ITEM(p->*registry.list, (p->*registry.index)->gaps().position(index));
}

// For calls that change the library: raises its error, but not what a callback left pending, so
// that both sides stay in step. raise_pending() follows when they are.
inline void check_change(int status, ProblemObject* p) {
    if (status != 0) raise_library_error(as_object(p));
}
inline void raise_pending() {
    if (PyErr_Occurred() != nullptr) throw PythonError();
}

// The Python side of one batch of new columns or rows while it is collected and loaded. Unless
// commit() was reached everything registered is taken back; the list keeps its new items when the
// collection failed (sync_list drops them later) and loses them when loading failed.
//
// The collection may run Python code that changes this very problem. Every such change drops the
// batch's items from the list, which finish_collection() notices.
class Addition {
  public:
    Addition(ProblemObject* p, const Registry& registry, LargeVector<uint64_t>& serials);
    ~Addition();
    Addition(const Addition&) = delete;
    Addition& operator=(const Addition&) = delete;

    // Library index of the first object, and how many there are.
    int32_t base() const noexcept { return base_; }
    int32_t count() const noexcept { return static_cast<int32_t>(serials_.size()); }

    bool is_registered(uint64_t serial) const noexcept {
        return (problem_->*registry_.index)->contains(serial);
    }
    std::span<const uint64_t> serials() const noexcept { return serials_; }
    void append(PyObject* object);
    void register_next(uint64_t serial);
    // ModelError when the problem changed meanwhile. No Python code may run from here to commit().
    void finish_collection();
    const Registry& registry() const noexcept { return registry_; }
    void commit() {
        serials_.clear();
        raise_pending();
    }

  private:
    ProblemObject* problem_;
    const Registry& registry_;
    LargeVector<uint64_t>& serials_;
    int32_t base_;
    bool loading_ = false;
};

// A scratch buffer that is kept from call to call while it is small, so that adding objects one by
// one allocates nothing. Nested calls get one of their own.
template <class Batch>
class Scratch {
  public:
    Scratch() : batch_(spare_ != nullptr ? std::exchange(spare_, nullptr) : new Batch) {}
    ~Scratch() {
        if (spare_ == nullptr && batch_->reset()) {
            spare_ = batch_;
        } else {
            delete batch_;
        }
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    Batch* operator->() const noexcept { return batch_; }
    Batch& operator*() const noexcept { return *batch_; }

  private:
    static inline Batch* spare_ = nullptr;  // guarded by the interpreter lock
    Batch* batch_;
};

inline constexpr std::size_t kMaxNameBytes = 150;

// The names of a batch of variables or constraints: the texts of the objects that were given one.
// The others are called by their serials, for which the library takes the numbers. An object whose
// default name is given to another one in the problem is renamed, to a default name that is free.
class BatchNames {
  public:
    // `append` puts the name of the object at `position` and a NUL to the end of a buffer.
    template <class Append>
    void add(int32_t position, Append append) {
        if (runs_.empty() || runs_.back().first + runs_.back().count != position) {
            runs_.push_back({position, 0, texts_.size()});
        }
        const std::size_t begin = texts_.size();
        append(texts_);
        ++runs_.back().count;
        if (is_letter_and_number(texts_.data() + begin)) default_like_.push_back(begin);
    }
    // Returns the library's status.
    int load(ProblemObject* p, const Addition& addition) const;
    bool is_small() const noexcept {
        return texts_.capacity() <= 65536 && runs_.capacity() <= 4096;
    }
    void clear() noexcept { texts_.clear(), runs_.clear(), default_like_.clear(); }

  private:
    static bool is_letter_and_number(const char* text) noexcept {
        return (*text == 'C' || *text == 'R') && text[1] >= '1' && text[1] <= '9';
    }
    int load_texts(ProblemObject* p, const Addition& addition) const;
    int load_numbers(ProblemObject* p, const Addition& addition, int32_t first, int32_t end) const;

    struct Run {  // objects next to each other with names
        int32_t first, count;
        std::size_t begin;
    };
    std::string texts_;  // packed, each ended by a NUL
    std::vector<Run> runs_;
    std::vector<std::size_t> default_like_;  // where texts begin that may read as default names
};

// One batch of several objects or nested collections; problem.hpp has the forms for one.
void add_variables(ProblemObject* p, std::span<PyObject* const> objects);
void add_constraints(ProblemObject* p, std::span<PyObject* const> objects);

// addConstraint with the rows made indicators of columns[i] == (directions[i] == 1) afterwards.
struct Indicator {
    PyObject* constraint;
    int32_t column;
    int32_t direction;
};
void add_indicator_rows(ProblemObject* p, std::span<const Indicator> indicators);

// Methods, bound in build_methods.cpp.
Ref delete_objects(ProblemObject* p, const Registry& registry, PyObject* args, PyObject* keywords);
Ref add_indicators(ProblemObject* p, PyObject* const* args, Py_ssize_t count);
Ref read_problem(ProblemObject* p, PyObject* args, PyObject* keywords);
Ref write_problem(ProblemObject* p, PyObject* args, PyObject* keywords);

}  // namespace nalora
