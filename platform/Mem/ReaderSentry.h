#pragma once

#include "Mem/RootPath.h"
#include "Mem/Sentry.h"
#include "Pello/Debug.h"
#include "SharedMem/RavoId.h"

namespace Mem {

/// Waits for the files of a table that another process writes.
///
/// There is no reader yet that it could ask for: an attempt leaves the front on its placeholder.
class ReaderSentry : public Sentry, private Pello::Debuggable {
  public:
    /// The front that waits.
    class Notifiee {
      public:
        virtual ~Notifiee() = default;
        virtual void attach(const Pello::String& event) = 0;
        virtual void detach(bool force) = 0;
        virtual Pello::String modeStr() const = 0;
        virtual bool readerFullyAttached() const = 0;
        virtual bool disconnectedActiveReader() const = 0;
    };

    ReaderSentry(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                 const OruRootPath& rootPath, Notifiee& notifiee)
        : Debuggable(std::move(handler))
        , rootPath_(rootPath)
        , notifiee_(notifiee) {}

    void mountAttempt(const Pello::String& event, bool force) override;

    /// Whether attempts may lead to an attach: not while a shadow still flushes what it held.
    void enabledIs(bool enabled) { enabled_ = enabled; }
    bool enabled() const { return enabled_; }

  private:
    OruRootPath rootPath_;
    Notifiee& notifiee_;
    bool enabled_ = true;
};

} // namespace Mem
