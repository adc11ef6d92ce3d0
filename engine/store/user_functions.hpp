// The user functions of a model, by the indices that formulas name them by, and how often formulas
// call each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "nslp.h"

namespace nlra {

struct UserFunction {
    std::string name;
    NSLPuserfunction call = nullptr;  // null: forgotten, the index is free
    void* object = nullptr;
    int arguments = 0;
    bool derivatives = false;
};

class UserFunctions {
  public:
    // Returns the index, which may be that of a forgotten one.
    int add(UserFunction function);
    // Forget one that no formula calls; returns its index, or -1 when there is none.
    int forget_unused() noexcept;

    // Formulas with these tokens enter (change 1) or leave (-1) the model.
    void count_calls(const std::vector<int>& types, const std::vector<double>& values,
                     int change) noexcept;

    bool empty() const { return slots_.empty(); }
    int size() const { return static_cast<int>(slots_.size()); }
    const UserFunction& operator[](int index) const { return slots_[index].function; }

  private:
    struct Slot {
        UserFunction function;
        int64_t calls = 0;
        bool listed = false;  // in unused_
    };
    std::vector<Slot> slots_;
    // With room for all slots. Not all in the first one need still be unused.
    std::vector<int> unused_, free_;
};

}  // namespace nlra
