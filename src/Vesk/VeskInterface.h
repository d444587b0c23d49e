#pragma once

#include "Mem/RootPath.h"
#include "MoxSharedMem/MountStatus.h"
#include "Vesk/MapDescriptor.h"
#include "Vesk/Operations.h"
#include "Vesk/VeskInterfaceBase.h"

#include <cstdint>

namespace Vesk {

/// One table, whatever implements it: a writer, a reader, a shadow or a placeholder.
///
/// Returned addresses: a writer's lie inside its file and are good until the next change of the
/// table; that of an absent key is the table type's default value, which lives for ever.
template <class Ops>
class VeskInterface : public VeskInterfaceBase {
  public:
    using Key = typename Ops::Key;
    using Value = typename Ops::Value;

    explicit VeskInterface(const Ops& ops)
        : hashSeed_(ops.hashSeed()) {
        Ops::initializeDefault();
    }

    virtual bool initialize(const Pello::String& event) = 0;
    virtual void detach(bool force) = 0;
    virtual std::uint32_t members() const = 0;
    virtual std::uint32_t buckets() const = 0;
    virtual std::uint32_t minSize() const = 0;
    virtual std::uint32_t maxSize() const = 0;
    virtual std::uint32_t capacity() const = 0;
    virtual VeskType type() const = 0;
    virtual Mem::OruRootPath rootPath() const = 0;
    virtual Pello::String veskName() const = 0;
    virtual MoxSharedMem::MountStatus mountStatus() const = 0;
    virtual void validateVersionAnchor() const = 0;

    virtual Value* write(const Value&, bool) { raiseReadOnly("write"); }
    virtual bool remove(const Key&, Value&) { raiseReadOnly("remove"); }
    virtual const Value* lookup(const Key& key, bool& found, void* buffer) const = 0;
    virtual bool first(Value& out, IterHint& hint) const = 0;
    virtual bool next(const Key& key, Value& out, IterHint& hint) const = 0;
    virtual Value* directWrite(const Value&) { raiseReadOnly("write", "directWrite"); }
    virtual Value* directUpdate(const Key&) { raiseReadOnly("write", "directUpdate"); }
    virtual void directCommit() { raiseReadOnly("write", "directCommit"); }
    virtual const Value* directLookup(const Key& key, bool& found, void* buffer) const {
        return lookup(key, found, buffer);
    }

    /// The seed of every key hash of this table; attaching replaces it by the file's.
    std::uint32_t hashSeed() const { return hashSeed_; }

  protected:
    std::uint32_t hashSeed_;

  private:
    [[noreturn]] static void raiseReadOnly(const char* what, const char* operation = nullptr) {
        Pello::raise<Pello::NoPermissionException>(
            {"VeskInterface", "Vesk/VeskInterface", operation != nullptr ? operation : what},
            "{} to read-only Vesk table", what);
    }
};

} // namespace Vesk
