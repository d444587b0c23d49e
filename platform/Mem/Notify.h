#pragma once

#include "Pello/Debug.h"

#include <functional>
#include <utility>

namespace Mem {

/// What a table front calls when something happens to the table. Each must hold a function when
/// it is called: an empty one throws `std::bad_function_call`.
template <class K, class W>
struct Notify {
    Notify()
        : Notify(Pello::noop, Pello::noop, Pello::noop, Pello::noop, Pello::noop) {}
    Notify(std::function<void(const W&)> value, std::function<void(const K&)> key1,
           std::function<void(const K&)> key2, std::function<void()> mountStatus,
           std::function<void(bool)> quiesced)
        : valueNotify(std::move(value))
        , keyNotify1(std::move(key1))
        , keyNotify2(std::move(key2))
        , mountStatusNotify(std::move(mountStatus))
        , quiescedNotify(std::move(quiesced)) {}

    /// Takes the change callbacks out of use until `unpark`.
    void park() {
        parkedValueNotify = std::exchange(valueNotify, Pello::noop);
        parkedKeyNotify1 = std::exchange(keyNotify1, Pello::noop);
        parkedKeyNotify2 = std::exchange(keyNotify2, Pello::noop);
        keyNotifications = false;
    }

    std::function<void(const W&)> valueNotify;
    std::function<void(const K&)> keyNotify1;
    std::function<void(const K&)> keyNotify2;
    std::function<void()> mountStatusNotify;
    std::function<void(bool)> quiescedNotify;
    std::function<void(const W&)> parkedValueNotify = Pello::noop;
    std::function<void(const K&)> parkedKeyNotify1 = Pello::noop;
    std::function<void(const K&)> parkedKeyNotify2 = Pello::noop;
    /// The three change callbacks are live.
    bool keyNotifications = true;
};

} // namespace Mem
