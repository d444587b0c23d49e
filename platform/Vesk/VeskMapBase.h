#pragma once

#include "Mem/ReaderSentry.h"
#include "Mem/Sentry.h"
#include "Pello/Debug.h"
#include "Vesk/ControlBase.h"
#include "Vesk/MapDescriptor.h"

#include <cstdint>
#include <memory>

namespace Vesk {

/// The part of a table front that does not depend on what the table stores. A new front is not
/// initialised, has no sentry and has notifications on. The declaration order of the virtual
/// functions continues that of `ControlBase`.
class VeskMapBase : public ControlBase, public Mem::ReaderSentry::Notifiee {
  public:
    bool ready() const override;
    using ControlBase::init;
    void init(VeskType mode, bool localMem, unsigned int size) override;
    bool initialized() const override { return initialized_; }
    VeskType mode() const override { return descriptor_.type; }
    bool localMem() const override { return descriptor_.localMem; }
    bool notifying() const override { return notifying_; }
    SharedMem::RavoId ravoId() const override = 0;
    /// Whether some writer has left files of the table.
    bool exists() const override;

    void attach(const Pello::String& event) override = 0;
    void detach(bool force) override = 0;
    Pello::String modeStr() const override;
    /// A reader that sees the table, or a shadow that has synchronised.
    bool readerFullyAttached() const override;
    /// A shadow that is attached and has lost its writer.
    bool disconnectedActiveReader() const override;
    bool inTransition() const override { return transitions_ != 0; }
    /// The name of the collection's type, for the owner file.
    virtual Pello::String classType() const = 0;

    /// Records that shared memory held what no writer can have left there; traced at level 0.
    void doCorruptionDetected(const Pello::String& message) const;
    std::uint64_t corruptions() const { return corruptions_; }
    const Pello::String& lastCorruption() const { return lastCorruption_; }

    const Pello::String& name() const { return name_; }
    const MapDescriptor& descriptor() const { return descriptor_; }

  protected:
    /// Stands while an attach or detach of the front runs.
    class Transition {
      public:
        explicit Transition(VeskMapBase& front)
            : front_(front) {
            ++front_.transitions_;
        }
        ~Transition() { --front_.transitions_; }
        Transition(const Transition&) = delete;
        Transition& operator=(const Transition&) = delete;

      private:
        VeskMapBase& front_;
    };

    // Why an implementation is asked to attach.
    inline static const Pello::String eventInit_ = Mem::Sentry::kInit;
    inline static const Pello::String eventTryAttach_ = Mem::Sentry::kTryAttach;
    inline static const Pello::String eventNotifEnabled_ = "notifications enabled";
    inline static const Pello::String eventFlushComplete_ = "VeskMap::flushComplete";
    inline static const Pello::String eventDisconnect_ = "VeskMap::handleDisconnect";

    static Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
        return {"VeskMap", "Vesk/VeskMap", operation, line};
    }

    /// What an implementation has counted, with the corruption that the front met.
    Writer::Counters veskMapUpdateWriterCounters(Writer::Counters counters) const;
    Reader::Counters veskMapUpdateReaderCounters(Reader::Counters counters) const;

    std::shared_ptr<Pello::Platform::DebugHandler> debugHandler_ =
        Pello::Platform::getDebugHandler("VeskTemp", false);
    MapDescriptor descriptor_{0};
    std::unique_ptr<Mem::Sentry> mounter_;
    bool initialized_ = false;
    Pello::String name_;   ///< the full name: root path, files and traces
    Pello::String handle_; ///< what the name of the trace handle begins with
    mutable bool notifying_ = true;

  private:
    unsigned transitions_ = 0;
    mutable std::uint64_t corruptions_ = 0;
    mutable Pello::String lastCorruption_;
};

} // namespace Vesk
