#pragma once

// A table front as the attribute of a collection: it routes what happens to the table to the
// collection's member functions, and names the table after the collection's place in the tree.

#include "Mox/Ptr.h"
#include "MoxVesk/Entity.h"
#include "Pello/TypeName.h"
#include "Vesk/VeskMap.h"

#include <utility>

namespace MoxVesk {

/// `Coll` is the owning collection, `W` the value as the table stores it, `K` its key.
template <class Coll, class W, class K, class Ops>
class MoxVeskMap final : public Vesk::VeskMap<Ops> {
  public:
    using Front = Vesk::VeskMap<Ops>;

    MoxVeskMap() = default;
    ~MoxVeskMap() override {
        PELLO_TRACE(*this->debugHandler_, 2, tagOf("~MoxVeskMap"), "deleting state");
    }

    /// Binds the front to its collection and starts it on a writer in process memory. Called once,
    /// by the collection's constructor.
    void entity(const Pello::String& name, Coll* coll, Mox::AttributeId attribute,
                void (Coll::*notify)(const K&), void (Coll::*notifyMountStatus)(),
                void (Coll::*notifyQuiesced)(bool));

    /// The collection's parent has changed. Throws `InvalidInitializeException` when it gets a
    /// parent that has had one before.
    void handleParent();

    /// Removes every entry; the collection's observers hear nothing.
    void _memberDelAll();

    // What these tell may end the last reference to the collection, and with it this front.
    void init(const Mem::CollectionDescriptor& descriptor) override {
        const Mox::KeepAlive alive(entity_);
        Front::init(descriptor);
    }
    using Front::init;
    void cleanupAndDetach() override {
        const Mox::KeepAlive alive(entity_);
        Front::cleanupAndDetach();
    }
    void controlDetach() override {
        const Mox::KeepAlive alive(entity_);
        Front::controlDetach();
    }
    void detach(bool force) override {
        const Mox::KeepAlive alive(entity_);
        Front::detach(force);
    }
    void attach(const Pello::String& event) override {
        const Mox::KeepAlive alive(entity_);
        Front::attach(event);
    }
    void tryAttach() const override {
        const Mox::KeepAlive alive(entity_);
        Front::tryAttach();
    }
    void notifyingIs(bool on) const override {
        const Mox::KeepAlive alive(entity_);
        Front::notifyingIs(on);
    }

    bool validateFiles(const Pello::String& name, unsigned int size) override;
    Pello::String classType() const override { return Pello::typeName<Coll>(); }

    /// Moves through the table in its own order, reading a copy of each entry. What is written
    /// meanwhile may be met or not; an entry that stays is met once.
    class IteratorConst {
      public:
        /// Stands on the first entry.
        explicit IteratorConst(const MoxVeskMap* map)
            : map_(map) {
            if (map_ != nullptr) valid_ = map_->safeFirst(value_, hint_);
        }
        /// Stands on the key's entry, or on the first one behind it.
        IteratorConst(const MoxVeskMap* map, const K& key)
            : map_(map) {
            if (map_ == nullptr) return;
            value_ = map_->safeLookup(key, valid_);
            if (!valid_) valid_ = map_->safeNext(key, value_, hint_);
        }

        void advance() { valid_ = map_->safeNext(Ops::key(value_), value_, hint_); }
        bool valid() const { return valid_; }
        const W& operator*() const { return value_; }
        const W* operator->() const { return &value_; }

      private:
        const MoxVeskMap* map_;
        Vesk::IterHint hint_;
        W value_;
        bool valid_ = false;
    };

    Mox::AttributeId attribute() const { return attribute_; }
    const W& removed() const { return this->valueBuffer_; }

  private:
    static Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
        return {"MoxVeskMap", "MoxVesk/MoxVeskMap", operation, line};
    }
    Pello::String fullName(const Pello::String& prefix) const {
        return prefix + "/" + attributeName_;
    }

    Coll* entity_ = nullptr;
    bool entityInitialized_ = false;
    Pello::String attributeName_;
    Mox::AttributeId attribute_ = 0;
};

template <class Coll, class W, class K, class Ops>
void MoxVeskMap<Coll, W, K, Ops>::entity(const Pello::String& name, Coll* coll,
                                         Mox::AttributeId attribute, void (Coll::*notify)(const K&),
                                         void (Coll::*notifyMountStatus)(),
                                         void (Coll::*notifyQuiesced)(bool)) {
    entity_ = coll;
    attributeName_ = name;
    attribute_ = attribute;
    this->debugHandler_ = Pello::Platform::getDebugHandler("VeskTemp", false);
    this->name_ = fullName(coll->nameString());
    const auto notifyKey = [this, notify](const K& key) { (entity_->*notify)(key); };
    this->notify_ = Mem::Notify<K, W>(
        [notifyKey](const W& value) { notifyKey(Ops::key(value)); }, notifyKey, notifyKey,
        [this, notifyMountStatus] { (entity_->*notifyMountStatus)(); },
        [this, notifyQuiesced](bool quiesced) { (entity_->*notifyQuiesced)(quiesced); });
    PELLO_TRACE(*this->debugHandler_, 5, tagOf("entity"), "creating local VeskWriter {}",
                this->name_);
    this->implIs(this->createDefaultLocalWriter());
}

template <class Coll, class W, class K, class Ops>
void MoxVeskMap<Coll, W, K, Ops>::handleParent() {
    const bool hasParent = entity_->parent() != nullptr;
    if (hasParent && entityInitialized_) {
        Pello::raise<Pello::InvalidInitializeException>(
            tagOf("handleParent"), "Entity {} already initialized", entity_->nameString());
    }
    const Pello::String old =
        std::exchange(this->name_, fullName(hasParent ? MoxSharedMem::Util::fullName(*entity_)
                                                      : entity_->nameString()));
    if (hasParent) {
        entityInitialized_ = true;
        PELLO_TRACE(*this->debugHandler_, 5, tagOf("handleParent"), "old:{} new:{}", old,
                    this->name_);
        this->implIs(nullptr);
        this->implIs(this->createDefaultLocalWriter());
    } else {
        PELLO_TRACE(*this->debugHandler_, 5, tagOf("handleParent"), "{} is now an orphan",
                    this->name_);
        this->orphanAssert_ = this->descriptor().assertOnOrphanAccess;
        this->controlDetach();
    }
}

template <class Coll, class W, class K, class Ops>
void MoxVeskMap<Coll, W, K, Ops>::_memberDelAll() {
    W value;
    Vesk::IterHint hint;
    for (bool more = this->safeFirst(value, hint); more;
         more = this->safeNext(Ops::key(value), value, hint)) {
        this->safeRemove(Ops::key(value));
    }
}

template <class Coll, class W, class K, class Ops>
bool MoxVeskMap<Coll, W, K, Ops>::validateFiles(const Pello::String& name, unsigned int size) {
    PELLO_TRACE(*this->debugHandler_, 5, tagOf("validateFiles"),
                "delegating to VeskMap::validateFiles");
    return Front::validateFiles(name, size);
}

} // namespace MoxVesk
