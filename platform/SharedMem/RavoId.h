#pragma once

#include <fmt/format.h>

#include <cstdint>

namespace SharedMem {

/// The identity of a table's files: who created them, and how often they were formatted anew. The
/// value 0 means none and never identifies a table.
class RavoId {
  public:
    constexpr RavoId() = default;
    constexpr explicit RavoId(std::uint32_t word)
        : word_(word) {}
    constexpr RavoId(std::uint16_t process, std::uint16_t generation)
        : word_(static_cast<std::uint32_t>(generation) << 16U | process) {}

    constexpr std::uint32_t word() const { return word_; }
    /// The low 16 bits of the process id of the writer that created the table.
    constexpr std::uint16_t process() const { return static_cast<std::uint16_t>(word_); }
    constexpr std::uint16_t generation() const { return static_cast<std::uint16_t>(word_ >> 16U); }

    /// The identity after another re-format, never 0.
    constexpr RavoId nextGeneration() const {
        const RavoId next(process(), static_cast<std::uint16_t>(generation() + 1U));
        return next.word_ != 0 ? next : RavoId(process(), 1);
    }

    friend constexpr bool operator==(const RavoId&, const RavoId&) = default;

  private:
    std::uint32_t word_ = 0;
};

} // namespace SharedMem

template <>
struct fmt::formatter<SharedMem::RavoId> : fmt::formatter<std::uint32_t> {
    auto format(const SharedMem::RavoId& id, fmt::format_context& context) const {
        return fmt::formatter<std::uint32_t>::format(id.word(), context);
    }
};
