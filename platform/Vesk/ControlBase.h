#pragma once

#include "Mem/RootPath.h"
#include "Mem/VersionAnchor.h"
#include "MoxSharedMem/MountStatus.h"
#include "SharedMem/RavoId.h"
#include "Vesk/Counters.h"
#include "Vesk/MapDescriptor.h"

#include <cstdint>
#include <vector>

namespace Vesk {

/// One table front as the framework drives it: all that needs neither the table's key nor its
/// value type. The declaration order is that of the virtual slots.
class ControlBase {
  public:
    ControlBase() = default;
    ControlBase(const ControlBase&) = delete;
    ControlBase& operator=(const ControlBase&) = delete;

    virtual void validateVersionAnchor() const = 0;
    virtual Mem::CacheVersionAnchor getCacheVersionAnchor() const = 0;
    virtual bool compareVersionAnchor(const Mem::CacheVersionAnchor& anchor) const = 0;
    virtual void validateVersionAnchorHookIs(void (*hook)(const Mem::VersionAnchor&)) = 0;
    virtual Pello::String collName() const = 0;
    virtual bool ready() const = 0;
    virtual SharedMem::RavoId ravoId() const = 0;
    virtual MoxSharedMem::MountStatus mountStatus() const = 0;

    virtual ~ControlBase() {
        for (Observer* const observer : observers_) {
            observer->frontGone();
        }
    }

    virtual Reader::Counters readerCounters() const = 0;
    virtual Writer::Counters writerCounters() const = 0;
    virtual void init(const Mem::CollectionDescriptor& descriptor) = 0;
    virtual void init(VeskType mode, bool localMem, unsigned int size) = 0;
    virtual bool initialized() const = 0;
    virtual void cleanupAndDetach() = 0;
    virtual void cleanup() = 0;
    virtual Mem::OruRootPath rootPath() const = 0;
    virtual bool validate() = 0;
    virtual bool validateFiles(const Pello::String& name, unsigned int size) = 0;
    virtual VeskType mode() const = 0;
    virtual bool localMem() const = 0;
    virtual std::uint64_t sequence() const = 0;
    virtual Pello::String owner() const = 0;
    virtual void controlDetach() = 0;
    virtual std::uint32_t maxSize() const = 0;
    virtual std::uint32_t capacity() const = 0;
    virtual void notifyingIs(bool on) const = 0;
    virtual bool notifying() const = 0;
    virtual void yieldTimeIs(const double& seconds) const = 0;
    virtual void tryAttach() const = 0;
    virtual bool exists() const = 0;
    virtual bool clientQuiesced(const Pello::String& readerName) const = 0;
    virtual bool quiesced() const = 0;
    virtual bool connected() const = 0;
    virtual void criticalTaskCheckIs(bool check) = 0;
    virtual bool criticalTaskCheck() const = 0;
    virtual void scratchpadIs(std::uint64_t word) = 0;
    virtual std::uint64_t scratchpad() const = 0;

    /// Who wants to know that the front is gone.
    class Observer {
      public:
        virtual void frontGone() = 0;

      protected:
        ~Observer() = default;
    };
    void observerAdd(Observer* observer) { observers_.push_back(observer); }
    void observerDel(const Observer* observer) { std::erase(observers_, observer); }

  private:
    std::vector<Observer*> observers_;
};

} // namespace Vesk
