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

    /// Looks at the files now. `event` is the reason, and goes on to what the look leads to.
    virtual void mountAttempt(const Pello::String& event, bool force) = 0;
    /// The front has detached.
    virtual void afterDetach() {}
};

} // namespace Mem
