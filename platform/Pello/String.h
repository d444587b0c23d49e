#pragma once

#include <string>

namespace Pello {

/// The system's string. An alias keeps fmt, streams, hashing and ordering of the standard string.
using String = std::string;

} // namespace Pello
