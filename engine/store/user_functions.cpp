#include "store/user_functions.hpp"

#include <utility>

#include "store/make_room.hpp"

namespace nlra {

int UserFunctions::add(UserFunction function) {
    const int64_t slots = size() + 1;
    make_room(slots_, 1);
    make_room(unused_, slots - static_cast<int64_t>(unused_.size()));
    make_room(free_, slots - static_cast<int64_t>(free_.size()));

    int index = size();
    if (free_.empty()) {
        slots_.emplace_back();
    } else {
        index = free_.back();
        free_.pop_back();
    }
    slots_[index].function = std::move(function);
    slots_[index].listed = true;
    unused_.push_back(index);
    return index;
}

int UserFunctions::forget_unused() noexcept {
    while (!unused_.empty()) {
        const int index = unused_.back();
        unused_.pop_back();
        Slot& slot = slots_[index];
        slot.listed = false;
        if (slot.calls > 0) continue;
        slot.function = UserFunction();
        free_.push_back(index);
        return index;
    }
    return -1;
}

void UserFunctions::count_calls(const std::vector<int>& types, const std::vector<double>& values,
                                int change) noexcept {
    if (slots_.empty()) return;
    for (size_t k = 0; k < types.size(); ++k) {
        if (types[k] != NSLP_TOKEN_USERFUNCTION) continue;
        const int index = static_cast<int>(values[k]);
        Slot& slot = slots_[index];
        slot.calls += change;
        if (slot.calls > 0 || slot.listed) continue;
        slot.listed = true;
        unused_.push_back(index);
    }
}

}  // namespace nlra
