#pragma once

// Traces and fatal assertions.
//
// A trace names a level from 0 to 15 and is emitted when the bit of that level is set in the mask
// of its handler. The test of the mask comes before anything else: with the level off, neither
// the arguments are evaluated nor is anything formatted or allocated. Masks may be set from any
// thread at any time.

#include "Pello/Exception.h"
#include "Pello/String.h"

#include <fmt/format.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace Pello {

/// One emitted trace as a sink sees it. The texts live for the duration of the call only.
struct TraceLine {
    const String& handle;
    unsigned level;
    const SourceTag& tag;
    const String& text;
};

using TraceSink = std::function<void(const TraceLine&)>;

/// Replaces the process-wide sink; an empty function restores the standard one, which prints
/// "handle level Class Source.operation:line text" on stderr.
void traceSinkIs(TraceSink sink);

namespace Platform {

/// The trace switch of one table or subsystem, shared by all objects of that name.
class DebugHandler {
  public:
    explicit DebugHandler(String name);

    const String& name() const { return name_; }

    /// Bit n of the mask lets level n through.
    void levelsIs(std::uint16_t mask) { levels_ = mask; }
    std::uint16_t levels() const { return levels_; }
    bool enabled(unsigned level) const {
        return (static_cast<unsigned>(levels()) >> level & 1U) != 0;
    }

    /// Formats and hands to the sink, without looking at the mask: `PELLO_TRACE` has done that.
    template <class... Args>
    [[gnu::always_inline]] void emit(unsigned level, const SourceTag& tag,
                                     fmt::format_string<const Args&...> format,
                                     const Args&... args) const {
        emitFormatted<std::decay_t<const Args&>...>(level, tag, format, args...);
    }

  private:
    template <class... Args>
    [[gnu::cold, gnu::noinline]] void emitFormatted(unsigned level, const SourceTag& tag,
                                                    fmt::string_view format,
                                                    MessageArgument<Args>... args) const {
        emitText(level, tag, fmt::vformat(format, fmt::make_format_args(args...)));
    }
    void emitText(unsigned level, const SourceTag& tag, const String& text) const;

    String name_;
    std::atomic<std::uint16_t> levels_;
};

/// The handler of that name, made when there is none. With `permanent` it stays registered for
/// the life of the process; otherwise it goes with its last user.
std::shared_ptr<DebugHandler> getDebugHandler(const String& name, bool permanent);

/// The mask of handlers made from now on, and of those registered already whose name matches:
/// `name` empty means all of them. The mask of a fresh process is level 0 alone.
void traceLevelsIs(const String& name, std::uint16_t mask);

} // namespace Platform

/// Base of the classes that trace: holds a handler beyond the life of its registration.
class Debuggable {
  public:
    explicit Debuggable(std::shared_ptr<Platform::DebugHandler> handler)
        : handler_(std::move(handler)) {}

    const std::shared_ptr<Platform::DebugHandler>& debugHandler() const { return handler_; }
    bool traceEnabled(unsigned level) const { return handler_->enabled(level); }

    template <class... Args>
    [[gnu::always_inline]] void emit(unsigned level, const SourceTag& tag,
                                     fmt::format_string<const Args&...> format,
                                     const Args&... args) const {
        handler_->emit(level, tag, format, args...);
    }

  private:
    std::shared_ptr<Platform::DebugHandler> handler_;
};

/// Prints "Class Source.operation:line text" on stderr, traces it at level 0 when a handler is
/// given, and calls `abort()`.
[[noreturn]] void fatalText(const Platform::DebugHandler* handler, const SourceTag& tag,
                            const String& text);

/// For tests in forked children only: replaces `abort()` by `_exit(code)`; a negative code
/// restores it.
void fatalExitCodeIs(int code);

template <class... Args>
[[noreturn, gnu::cold, gnu::noinline]] void
fatalFormatted(const Platform::DebugHandler* handler, const SourceTag& tag, fmt::string_view format,
               MessageArgument<Args>... args) {
    fatalText(handler, tag, fmt::vformat(format, fmt::make_format_args(args...)));
}

/// Stops the process with a formatted message: an invariant of the system's own code is broken.
template <class... Args>
[[noreturn, gnu::always_inline]] inline void
fatal(const Platform::DebugHandler* handler, const SourceTag& tag,
      fmt::format_string<const Args&...> format, const Args&... args) {
    fatalFormatted<std::decay_t<const Args&>...>(handler, tag, format, args...);
}

/// An empty function object that fits every callback signature without result.
inline constexpr auto noop = [](const auto&...) {};

} // namespace Pello

/// Traces through `debuggable` (a `Debuggable` or a `DebugHandler`). A macro, so that the
/// arguments are not evaluated while the level is off: on a hot path most of them are loads from
/// shared memory that the compiler may not drop.
#define PELLO_TRACE(debuggable, level, tag, ...)                                                   \
    do {                                                                                           \
        if (Pello::traceOn(debuggable, level)) [[unlikely]] {                                      \
            (debuggable).emit(level, tag, __VA_ARGS__);                                            \
        }                                                                                          \
    } while (false)

namespace Pello {

inline bool traceOn(const Debuggable& object, unsigned level) { return object.traceEnabled(level); }
inline bool traceOn(const Platform::DebugHandler& handler, unsigned level) {
    return handler.enabled(level);
}

} // namespace Pello
