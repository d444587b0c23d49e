#pragma once

#include "Pello/String.h"

namespace Mem {

/// What keeps a table front in step with the files below its root path. Owned by the front.
class Sentry {
  public:
    Sentry() = default;
    Sentry(const Sentry&) = delete;
    Sentry& operator=(const Sentry&) = delete;
    virtual ~Sentry() = default;

    // The events of the front's first attempt, and of those that follow when that one failed.
    inline static const Pello::String kInit = "VeskMap::init";
    inline static const Pello::String kTryAttach = "tryAttach";

    /// Looks at the files now. `event` is the reason, and goes on to what the look leads to.
    virtual void mountAttempt(const Pello::String& event, bool force) = 0;
    /// A read has found what no writer leaves behind: the name may lead to another table by now.
    virtual void readFailed() {}
    /// The front has detached.
    virtual void afterDetach() {}
};

} // namespace Mem
