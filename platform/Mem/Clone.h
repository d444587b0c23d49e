#pragma once

namespace Mem::Util::Clone {

/// Name of the file by which a copy of a table is steered; it goes with the table.
inline constexpr const char* CONTROL_FILENAME = "clone-control";

} // namespace Mem::Util::Clone
