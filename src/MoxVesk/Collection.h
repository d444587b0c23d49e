#pragma once

#include "Mox/AllocTrack.h"
#include "MoxVesk/CollTable.h"
#include "MoxVesk/Entity.h"

#include <new>

namespace MoxVesk {

/// What the collections share. `Coll` derives from it and has
/// `template <class Visit> void forEachTable(Visit)`, which calls `visit(table, notify,
/// notifyMountStatus, notifyQuiesced)` for its tables in the order of their construction.
template <class Coll>
class Collection : public Entity {
  public:
    Mox::NotifieeList* notifieeList() const override { return &notifieeList_; }
    void handleParent(const Mox::Ptr<Mox::Entity>& /*parent*/) override {
        self().forEachTable([](auto& table, auto...) { table.map().handleParent(); });
    }
    Vesk::ControlBase* tableControl(const Pello::String& name) override {
        Vesk::ControlBase* found = nullptr;
        self().forEachTable([&](auto& table, auto...) {
            if (name == table.name()) found = &table.map();
        });
        return found;
    }

    // Objects that are counted for as long as they live.
    [[gnu::noinline]] static void* operator new(std::size_t size) {
        void* const memory = ::operator new(size, kAlignment);
        tracking()._trackAllocation(size, static_cast<std::size_t>(kAlignment));
        return memory;
    }
    [[gnu::noinline]] static void operator delete(void* memory, std::size_t size) noexcept {
        tracking()._trackDeallocation(size, static_cast<std::size_t>(kAlignment));
        ::operator delete(memory, kAlignment);
    }

  protected:
    using Entity::Entity;

    static constexpr std::align_val_t kAlignment{16};

    /// Allocates a collection with its notifications on.
    static Mox::Ptr<Coll> make(const Pello::String& name) {
        Mox::Ptr<Coll> coll(new Coll(name));
        coll->hasNotificationActiveIs(true);
        return coll;
    }

    /// The last step of a collection's construction.
    void bindTables() {
        self().forEachTable([](auto& table, auto...) { table.registerCounts(); });
        zeroReferencesNotifiee_ = new ZeroReferencesNotifiee<Coll>(&self());
        zeroReferencesNotifiee_->hasNotificationActiveIs(true);
        notifieeList_.newMember(this, zeroReferencesNotifiee_, false);
        self().forEachTable([](auto& table, auto... members) { table.bind(members...); });
    }

  private:
    friend class ZeroReferencesNotifiee<Coll>;

    Coll& self() { return static_cast<Coll&>(*this); }
    void handOverControls() {
        self().forEachControl([this](TableControl& control) { control.handOver(*this); });
    }
    static Mox::AllocTrackTypeInfo& tracking() { return Mox::AllocTrackTypeInfo::of<Coll>(); }

    mutable Mox::NotifieeList notifieeList_;
    Mox::Ptr<Mox::PtrInterface::NotifieeConst> zeroReferencesNotifiee_;
};

} // namespace MoxVesk
