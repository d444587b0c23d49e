#pragma once

// A table's files as bytes, for tests that look at them as another program does: by offsets,
// without a class of the library.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

/// A field of a header; its name is how docs/layout.md begins to describe it.
struct RawField {
    std::string_view name;
    std::size_t offset;
    std::size_t size; ///< at most 8
};

/// The bytes that a slot file or a bucket file had when it was opened. Throws `std::out_of_range`
/// for what lies beyond its end.
class RawFile {
  public:
    explicit RawFile(const std::string& path);

    /// The fields of this file's header; none when it has neither file's magic.
    const std::vector<RawField>& fields() const;
    /// The value of one of them. Throws `std::out_of_range` when there is none of that name.
    std::uint64_t header(std::string_view name) const;
    std::uint32_t word(std::size_t offset) const;

  private:
    std::uint64_t number(std::size_t offset, std::size_t size) const;

    std::vector<unsigned char> bytes_;
};

/// The bits of a word in reverse order: a hash as the rhash of a slot, and back.
std::uint32_t reversedBits(std::uint32_t word);

} // namespace TestSupport
