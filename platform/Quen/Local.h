#pragma once

#include "Pello/Exception.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

namespace Quen {

template <class T>
class Local;

/// A bounds-checked array of bits in process memory that can grow; new entries are false.
template <>
class Local<bool> {
  public:
    explicit Local(std::size_t n = 0) { resize(n); }

    std::size_t size() const { return size_; }

    /// Throws `MemoryResourceException` when there is no memory for `n` entries; the array is as
    /// it was then.
    void resize(std::size_t n);

    bool operator[](std::size_t i) const { return (word(i) >> (i % 64U) & 1U) != 0; }
    void set(std::size_t i) { words_[index(i)] |= std::uint64_t{1} << (i % 64U); }

  private:
    std::size_t index(std::size_t i) const {
        if (i >= size_) [[unlikely]] {
            Pello::raise<Pello::CorruptionDetectedException>({"Local", "Quen/Local", "operator[]"},
                                                             "out-of-range index: {} max:{}", i,
                                                             size_ == 0 ? 0 : size_ - 1);
        }
        return i / 64U;
    }
    std::uint64_t word(std::size_t i) const { return words_[index(i)]; }

    std::unique_ptr<std::uint64_t[]> words_;
    std::size_t size_ = 0;
};

} // namespace Quen
