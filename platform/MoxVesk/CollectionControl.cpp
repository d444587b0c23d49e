#include "MoxVesk/CollectionControl.h"

#include "Pello/Exception.h"

#include <utility>

namespace MoxSharedMem {

void CollectionControl::notify(Mox::AttributeId attribute) {
    const Mox::KeepAlive alive(this); // an observer may let it go
    if (hasNotificationActive()) notifiees_.visit(attribute);
}

void CollectionControl::mountStatusIs(MountStatus status) {
    if (std::exchange(mountStatus_, status) != status) notify(mountStatusAttribute);
}

} // namespace MoxSharedMem

namespace MoxVesk {

CollectionControl::CollectionControl(Vesk::ControlBase& front)
    : front_(&front) {
    front.observerAdd(this);
}

CollectionControl::~CollectionControl() {
    if (cached_ != nullptr) *cached_ = nullptr;
    if (front_ != nullptr) front_->observerDel(this);
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
