#pragma once

#include "Mox/AllocTrack.h"
#include "Mox/Ptr.h"
#include "MoxSharedMem/MountStatus.h"
#include "MoxVesk/Entity.h"
#include "Pemble/Slab.h"
#include "Vesk/ControlBase.h"

namespace MoxSharedMem {

/// What the framework knows of one table of a collection.
class CollectionControl : public Mox::PtrInterface, public Pemble::SlabAllocated {
  public:
    static constexpr Mox::AttributeId mountStatusAttribute = 0x102;
    static constexpr Mox::AttributeId quiescedAttribute = 0x103;

    Mox::NotifieeList* notifieeList() const override { return &notifiees_; }

    MountStatus mountStatus() const { return mountStatus_; }
    /// Told by the table; observers hear of a change.
    void mountStatusIs(MountStatus status);

    /// Keeps the collection alive as long as this object, or lets it go (null).
    void entityRefIs(const Mox::Ptr<const Mox::PtrInterface>& entity) { entityRef_ = entity; }

  protected:
    void notify(Mox::AttributeId attribute);

  private:
    mutable Mox::NotifieeList notifiees_;
    MountStatus mountStatus_ = MountStatus::notMounted;
    Mox::Ptr<const Mox::PtrInterface> entityRef_;
};

} // namespace MoxSharedMem

namespace MoxVesk {

/// The handle by which a table is driven: brought into use, cleaned up, asked for its state. It
/// may outlive the table; its operations then throw.
class CollectionControl final : public MoxSharedMem::CollectionControl,
                                private Mox::Tracked<CollectionControl>,
                                private Vesk::ControlBase::Observer {
  public:
    explicit CollectionControl(Vesk::ControlBase& front);
    ~CollectionControl() override;

    bool quiesced() const { return quiesced_; }
    /// Told by the table; observers hear of a change.
    void quiescedIs(bool quiesced);

    /// Throws `Pello::RuntimeException` when the table is gone.
    Vesk::ControlBase& front() const;

    /// A plain pointer to this object that shall become null at its end; null for none.
    void cachedIs(CollectionControl** cached) { cached_ = cached; }

  private:
    void frontGone() override { front_ = nullptr; }

    Vesk::ControlBase* front_;
    CollectionControl** cached_ = nullptr;
    bool quiesced_ = false;
};

} // namespace MoxVesk
