#pragma once

#include "Vesk/Operations.h"
#include "Vesk/VeskInterfaceBase.h"

#include <cstdint>
#include <cstring>

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
    /// What a lookup returns for an absent key; copied into the caller's buffer when there is one.
    static const Value* absentInto(void* buffer) {
        const Value& absent = Ops::defaultValue();
        if (buffer != nullptr) {
            std::memcpy(buffer, static_cast<const void*>(&absent), sizeof absent);
        }
        return &absent;
    }

    std::uint32_t hashSeed_;

  private:
    [[noreturn]] static void raiseReadOnly(const char* what, const char* operation = nullptr) {
        Pello::raise<Pello::NoPermissionException>(
            {"VeskInterface", "Vesk/VeskInterface", operation != nullptr ? operation : what},
            "{} to read-only Vesk table", what);
    }
};

} // namespace Vesk
