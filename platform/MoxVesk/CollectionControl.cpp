#include "MoxVesk/CollectionControl.h"

#include "Mox/AllocTrack.h"
#include "Pello/Exception.h"

#include <utility>

namespace MoxSharedMem {

void CollectionControl::mountStatusIs(MountStatus status) {
    if (std::exchange(mountStatus_, status) != status) notify(mountStatusAttribute);
}

} // namespace MoxSharedMem

namespace MoxVesk {

CollectionControl::CollectionControl(Vesk::ControlBase& front)
    : front_(&front) {
    front.observerIs(this);
    Mox::AllocTrackTypeInfo::of<CollectionControl>()._trackAllocationNoOverhead(
        sizeof(CollectionControl));
}

CollectionControl::~CollectionControl() {
    if (cached_ != nullptr) *cached_ = nullptr;
    if (front_ != nullptr) front_->observerIs(nullptr);
    Mox::AllocTrackTypeInfo::of<CollectionControl>()._trackDeallocationNoOverhead(
        sizeof(CollectionControl));
}

void CollectionControl::quiescedIs(bool quiesced) {
    if (std::exchange(quiesced_, quiesced) != quiesced) notify(quiescedAttribute);
}

Vesk::ControlBase& CollectionControl::front() const {
    if (front_ == nullptr) {
        Pello::raise<Pello::RuntimeException>(
            {"CollectionControl", "MoxVesk/CollectionControl", "front"}, "the table is gone");
    }
    return *front_;
}

} // namespace MoxVesk
