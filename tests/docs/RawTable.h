#pragma once

// A table of error counters as a stranger reads it: by the offsets, rules and constants that stand
// in docs/layout.md, without a header of the project.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Docs {

/// The hash of a key of one byte.
std::uint32_t hashOfByte(std::uint8_t byte, std::uint32_t seed);
/// The hash of a message counter's key: an interface and a message type.
std::uint32_t hashOfInterface(std::uint64_t interface);
std::uint32_t hashOfMessageKey(std::uint64_t interface, std::uint32_t type, std::uint32_t seed);
std::uint32_t reversed(std::uint32_t word);

class RawTable {
  public:
    /// Reads the files of a table's folder.
    explicit RawTable(const std::string& folder);

    std::uint32_t seed() const { return word(slots_, 568); }
    std::uint32_t numBuckets() const { return word(buckets_, 20); }
    bool inChange() const { return (slots_.at(550) & 1U) != 0; }

    /// The count stored for a kind of error, as a reader finds it that comes by now; nothing when
    /// the key is absent. Throws `std::runtime_error` for a chain that no reader may meet.
    std::optional<std::uint32_t> count(std::uint8_t errorType) const;

  private:
    using Bytes = std::vector<unsigned char>;

    static std::uint32_t word(const Bytes& bytes, std::size_t offset);

    Bytes slots_;
    Bytes buckets_;
};

} // namespace Docs
