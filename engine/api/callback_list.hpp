// Lists of callbacks by falling priority, equal ones in the order of their adding.
#pragma once

#include <algorithm>
#include <vector>

#include "api/problem.hpp"

namespace nlra {

// The same function with the same data is called once: adding it again only moves it.
template <class Function>
void add_callback(std::vector<CallbackEntry<Function>>& list, Function function, void* data,
                  int priority) {
    list.reserve(list.size() + 1);
    std::erase_if(list, [&](const CallbackEntry<Function>& entry) {
        return entry.function == function && entry.data == data;
    });
    const auto place = std::find_if(
        list.begin(), list.end(),
        [&](const CallbackEntry<Function>& entry) { return entry.priority < priority; });
    list.insert(place, {function, data, priority});
}

// A null function or data matches all.
template <class Function>
void remove_callbacks(std::vector<CallbackEntry<Function>>& list, Function function, void* data) {
    std::erase_if(list, [&](const CallbackEntry<Function>& entry) {
        return (function == nullptr || entry.function == function) &&
               (data == nullptr || entry.data == data);
    });
}

}  // namespace nlra
