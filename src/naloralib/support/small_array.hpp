// An array whose length is known at run time, without an allocation while it is short.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <vector>

namespace nalora {

template <class T, std::size_t kFew>
class SmallArray {
  public:
    explicit SmallArray(std::size_t size)
        : many_(size > kFew ? size : 0),
          data_(size > kFew ? many_.data() : few_.data()),
          size_(size) {}
    SmallArray(const SmallArray&) = delete;
    SmallArray& operator=(const SmallArray&) = delete;

    T& operator[](std::size_t i) noexcept { return data_[i]; }
    T* data() noexcept { return data_; }
    std::span<const T> span() const noexcept { return {data_, size_}; }

  private:
    std::array<T, kFew> few_{};
    std::vector<T> many_;
    T* const data_;
    const std::size_t size_;
};

}  // namespace nalora
