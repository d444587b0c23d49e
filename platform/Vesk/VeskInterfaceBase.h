#pragma once

#include "Mem/RootPath.h"
#include "Mem/VersionAnchor.h"
#include "MoxSharedMem/MountStatus.h"
#include "Pello/String.h"
#include "SharedMem/RavoId.h"
#include "Vesk/Counters.h"
#include "Vesk/MapDescriptor.h"

#include <cstdint>

namespace Vesk {

/// What every table implementation has whatever it stores, with the answers of a table that does
/// nothing. An operation that an implementation needs to answer otherwise is overridden there. The
/// declaration order is that of the virtual slots, the same in every implementation.
class VeskInterfaceBase {
  public:
    VeskInterfaceBase() = default;
    VeskInterfaceBase(const VeskInterfaceBase&) = delete;
    VeskInterfaceBase& operator=(const VeskInterfaceBase&) = delete;
    virtual ~VeskInterfaceBase() = default;

    bool initialized() const { return initialized_; }
    void initializedIs(bool initialized) { initialized_ = initialized; }

    virtual bool initialize(const Pello::String& event) = 0;
    virtual void detach(bool force) = 0;
    virtual bool validate() { return true; }
    virtual bool validateFiles() { return true; }
    virtual void cleanup() {}
    virtual std::uint32_t members() const = 0;
    virtual std::uint32_t buckets() const = 0;
    virtual std::uint32_t minSize() const = 0;
    virtual std::uint32_t maxSize() const = 0;
    virtual std::uint32_t capacity() const = 0;
    virtual VeskType type() const = 0;
    virtual bool quiesced() const { return false; }
    virtual bool connected() const { return initialized_; }
    virtual Writer::Counters writerCounters() const { return {}; }
    virtual Reader::Counters readerCounters() const { return {}; }
    virtual void notifyingIs(bool) {}
    virtual void yieldTimeIs(const double&) {}
    virtual std::uint64_t sequence() const { return 0; }
    virtual bool clientQuiesced(const Pello::String&) const { return false; }
    virtual Mem::OruRootPath rootPath() const = 0;
    virtual Pello::String veskName() const = 0;
    virtual MoxSharedMem::MountStatus mountStatus() const = 0;
    virtual SharedMem::RavoId ravoId() const { return {}; }
    virtual void validateVersionAnchor() const = 0;
    virtual void validateVersionAnchorHookIs(void (*)(const Mem::VersionAnchor&)) {}
    virtual Mem::CacheVersionAnchor getCacheVersionAnchor() const { return {}; }
    virtual void criticalTaskCheckIs(bool) {}
    virtual bool criticalTaskCheck() const { return false; }
    virtual void scratchpadIs(std::uint64_t) {}
    virtual std::uint64_t scratchpad() const { return 0; }

  private:
    bool initialized_ = false;
};

} // namespace Vesk
