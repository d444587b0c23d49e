#pragma once

#include "Pello/Process.h"
#include "Pello/String.h"

#include <fmt/format.h>

#include <cstdint>
#include <optional>

namespace SharedMem {

/// How readers reach the writer of a table: the name of its process's accept socket and, for a
/// table with a notification queue, the table's number there. Empty when no writer lives.
struct PloxetInfo {
    Pello::String socketName;
    std::optional<std::uint32_t> tableId;

    void socketNameIs(const Pello::String& name) { socketName = name; }

    friend bool operator==(const PloxetInfo&, const PloxetInfo&) = default;
};

/// The name of an accept socket, "<pid>-<start time>", taken apart. A name that is none gives
/// process id 0, which no process has.
struct PloxetName {
    static PloxetName PloxetNameIs(const Pello::String& name) {
        return {Pello::ProcessId::parse(name).value_or(Pello::ProcessId())};
    }

    Pello::ProcessId process;
};

} // namespace SharedMem

template <>
struct fmt::formatter<SharedMem::PloxetInfo> {
    static constexpr auto parse(fmt::format_parse_context& context) { return context.begin(); }
    static auto format(const SharedMem::PloxetInfo& info, fmt::format_context& context) {
        if (!info.tableId) return fmt::format_to(context.out(), "{}", info.socketName);
        return fmt::format_to(context.out(), "{} tableId:{}", info.socketName, *info.tableId);
    }
};
