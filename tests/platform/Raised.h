#pragma once

#include <functional>
#include <string>

namespace TestSupport {

/// The message of the `E` that a call throws, or "nothing".
template <class E>
std::string raisedBy(const std::function<void()>& call) {
    try {
        call();
    } catch (const E& e) {
        return e.message();
    }
    return "nothing";
}

} // namespace TestSupport
