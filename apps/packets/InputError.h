#pragma once

#include <stdexcept>

namespace Packets {

/// Something given from outside (a capture file, the text of an option) cannot be used. The message
/// names it and the reason.
class InputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace Packets
