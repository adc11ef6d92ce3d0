// Text into a caller's buffer.
#pragma once

#include <string_view>

namespace nlra {

// At most maxbytes, the NUL included, which is always there when maxbytes is positive. *nbytes is
// what the whole text needs. Both may be null.
inline void put_text(std::string_view text, char* buffer, int maxbytes, int* nbytes) {
    if (nbytes != nullptr) *nbytes = static_cast<int>(text.size()) + 1;
    if (buffer == nullptr || maxbytes <= 0) return;
    buffer[text.copy(buffer, static_cast<size_t>(maxbytes) - 1)] = '\0';
}

}  // namespace nlra
