#pragma once

// What a collection has for each of its tables: the attribute, the control, the operation counts,
// and the steps of its member functions, which are the same for all tables.

#include "Mox/AllocTrack.h"
#include "Mox/Ptr.h"
#include "MoxVesk/CollectionControl.h"
#include "MoxVesk/MoxVeskMap.h"
#include "Vintu/Counters.h"

#include <cstdint>

namespace MoxVesk {

/// A collection's hold on the control of one table. Declared before the tables: it goes after them.
struct TableControl {
    TableControl() = default;
    ~TableControl() {
        if (cached != nullptr) cached->cachedIs(nullptr);
    }
    TableControl(const TableControl&) = delete;
    TableControl& operator=(const TableControl&) = delete;

    void make(Vesk::ControlBase& front) {
        keepAlive = new CollectionControl(front);
        keepAlive->hasNotificationActiveIs(true);
        attribute = keepAlive;
        cached = keepAlive.get();
        cached->cachedIs(&cached);
    }
    /// Makes the control the one that keeps the collection, and lets it go.
    void handOver(const Mox::PtrInterface& collection) {
        if (attribute) attribute->entityRefIs(&collection);
        attribute = nullptr;
        keepAlive = nullptr;
    }

    Mox::Ptr<CollectionControl> attribute;
    Mox::Ptr<CollectionControl> keepAlive; ///< that of construction, which the table reports to
    CollectionControl* cached = nullptr;   ///< the same; null once it is gone
};

/// One table of `Coll`, which has a `notifieeList()`.
template <class Coll, class V, class K, class Ops>
class CollTable {
  public:
    using W = typename Ops::Value;
    using Map = MoxVeskMap<Coll, W, K, Ops>;
    using IteratorConst = typename Map::IteratorConst;

    explicit CollTable(Coll& coll, TableControl& control, const char* name,
                       Mox::AttributeId attribute)
        : coll_(coll)
        , control_(control)
        , name_(name)
        , attribute_(attribute) {}

    const char* name() const { return name_; }
    Map& map() { return map_; }
    const Map& map() const { return map_; }

    // Construction, in two passes over all tables of the collection.
    void registerCounts() {
        const Pello::String name = name_;
        isCount_ = Vintu::writer().registerCounter(name + "Is");
        delCount_ = Vintu::writer().registerCounter(name + "Del");
        notifyCount_ = Vintu::writer().registerCounter(name + "Notify");
    }
    void bind(void (Coll::*changed)(const K&), void (Coll::*mountStatusChanged)(),
              void (Coll::*quiescedChanged)(bool)) {
        control_.make(map_);
        map_.entity(name_, &coll_, attribute_, changed, mountStatusChanged, quiescedChanged);
    }

    /// The key's value, or the default value.
    V get(const K& key) const {
        bool found = false;
        return map_.safeLookup(key, found);
    }
    void is(const V& value) {
        const Mox::KeepAlive alive(&coll_);
        const K key = value.key(); // the caller's value may go with what an observer does
        ++*isCount_;
        map_.safeWrite(value);
        tell(key);
    }
    /// Publishes a value that was changed in place.
    void commit(const V* value) {
        const Mox::KeepAlive alive(&coll_);
        const K key = value->key();
        ++*isCount_;
        map_.directCommit();
        tell(key);
    }
    /// Removes an entry and returns it; the default value when there is none.
    V del(const K& keyArgument) {
        const Mox::KeepAlive alive(&coll_);
        const K key = keyArgument;
        ++*delCount_;
        if (!map_.safeRemove(key)) return Ops::defaultValue();
        V removed = map_.removed(); // an observer may remove another one
        tell(key);
        return removed;
    }
    void delAll() {
        const Mox::KeepAlive alive(&coll_);
        if (coll_.notifieeList()->empty()) {
            map_._memberDelAll();
            return;
        }
        for (IteratorConst each(&map_); each.valid(); each.advance()) {
            del(each->key());
        }
    }
    void controlIs(const Mox::Ptr<CollectionControl>& control) {
        if (control == control_.attribute) return;
        const Mox::KeepAlive alive(&coll_);
        control_.attribute = control;
        coll_.notifieeList()->visit(attribute_ + 1);
    }
    void notify(const K& key) {
        const Mox::KeepAlive alive(&coll_);
        tell(key);
    }
    void notifyMountStatus() {
        const MoxSharedMem::MountStatus status = map_.mountStatus();
        if (control_.cached != nullptr) control_.cached->mountStatusIs(status);
    }
    void notifyQuiesced(bool quiesced) {
        if (control_.cached != nullptr) control_.cached->quiescedIs(quiesced);
    }

    /// Makes this table a copy of another: empties it first, also when it is the other itself.
    void copyFrom(const CollTable& original) {
        delAll();
        for (IteratorConst each(&original.map_); each.valid(); each.advance()) {
            is(*each);
        }
    }

    /// A count since a snapshot was taken; 0 when the count has not grown since.
    std::uint32_t relativeCount(const K& key, const CollTable& snapshot) const {
        const std::uint32_t current = get(key).count();
        const std::uint32_t before = snapshot.get(key).count();
        return before < current ? current - before : 0;
    }

  private:
    /// Tells the observers, one of whom may drop the last reference: the caller keeps the
    /// collection meanwhile.
    void tell(const K& key) {
        coll_.notifieeList()->visit(attribute_, &key);
        ++*notifyCount_;
    }

    Coll& coll_;
    TableControl& control_;
    const char* name_;
    Mox::AttributeId attribute_;
    std::uint64_t* isCount_ = nullptr;
    std::uint64_t* delCount_ = nullptr;
    std::uint64_t* notifyCount_ = nullptr;
    Map map_;
};

/// The bookkeeper of a collection `Coll`: when no reference to it remains, the controls of its
/// tables get one each, so that the collection lives as long as somebody holds one of them.
template <class Coll>
class ZeroReferencesNotifiee : public Mox::PtrInterface::NotifieeConst,
                               public Pemble::SlabAllocated,
                               private Mox::Tracked<ZeroReferencesNotifiee<Coll>> {
  public:
    explicit ZeroReferencesNotifiee(Coll* coll)
        : coll_(coll) {}

    void onZeroReferences() override {
        const Mox::Ptr<NotifieeConst> self(this); // the list's reference may be the last
        coll_->handOverControls();
        Mox::NotifieeListPtr(coll_->notifieeList()).deleteMember(coll_, this);
    }

  private:
    Coll* coll_;
};

} // namespace MoxVesk

/// The member functions of a collection for its table `t`, which it keeps in `t##_` with its
/// control in `t##ControlHold_`. `KeyArg` and `ValueArg` say how keys and values are passed.
#define MOXVESK_TABLE_MEMBERS(t, V, K, ValueArg, KeyArg)                                           \
    V t(KeyArg key) const { return t##_.get(key); }                                                \
    void t##Is(ValueArg value) { t##_.is(value); }                                                 \
    V t##Del(KeyArg key) { return t##_.del(key); }                                                 \
    void t##DelAll() { t##_.delAll(); }                                                            \
    void t##Commit(const V* value) { t##_.commit(value); }                                         \
    const Mox::Ptr<MoxVesk::CollectionControl>& t##Control() const {                               \
        return t##ControlHold_.attribute;                                                          \
    }                                                                                              \
    void t##ControlIs(const Mox::Ptr<MoxVesk::CollectionControl>& control) {                       \
        t##_.controlIs(control);                                                                   \
    }                                                                                              \
    void t##Notify(const K& key) { t##_.notify(key); }                                             \
    void t##NotifyMountStatus() { t##_.notifyMountStatus(); }                                      \
    void t##NotifyQuiesced(bool quiesced) { t##_.notifyQuiesced(quiesced); }                       \
    auto& t##Map() { return t##_.map(); }                                                          \
    const auto& t##Map() const { return t##_.map(); }
