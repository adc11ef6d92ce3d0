// Turning a compressed matrix from columns to rows or back.
#pragma once

#include <cstdint>
#include <vector>

namespace nlra {

struct Compressed {
    std::vector<int64_t> start;
    std::vector<int> index;
    std::vector<double> value;
};

// `start` has one entry more than there are vectors, whose indices are below `minors`. Within a
// vector of the result the indices rise.
inline Compressed transpose(const std::vector<int64_t>& start, const std::vector<int>& index,
                            const std::vector<double>& value, int minors) {
    Compressed result;
    result.start.assign(static_cast<size_t>(minors) + 1, 0);
    result.index.resize(index.size());
    result.value.resize(value.size());
    for (int minor : index) ++result.start[minor + 1];
    for (int i = 0; i < minors; ++i) result.start[i + 1] += result.start[i];
    std::vector<int64_t> next(result.start.begin(), result.start.end() - 1);
    const int majors = static_cast<int>(start.size()) - 1;
    for (int major = 0; major < majors; ++major) {
        for (int64_t k = start[major]; k < start[major + 1]; ++k) {
            const int64_t to = next[index[k]]++;
            result.index[to] = major;
            result.value[to] = value[k];
        }
    }
    return result;
}

}  // namespace nlra
