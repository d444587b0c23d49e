#pragma once

#include <cstdint>

namespace MoxSharedMem {

/// How far a table has come into use, as a control shows it.
enum class MountStatus : std::uint32_t {
    notMounted = 0,
    mounted = 1,
    synchronised = 2,
    detaching = 3
};

} // namespace MoxSharedMem
