#include "Mox/Ptr.h"

#include <algorithm>

namespace Mox {

void PtrInterface::zeroReferencesIs(bool zero) {
    if (!zero) return;
    NotifieeList* const list = notifieeList();
    if (list == nullptr || !notificationActive_) {
        end();
        return;
    }
    // A reference of the object's own, so that taking and dropping one below ends nothing.
    newRef();
    list->visitZeroReferences();
    const bool taken = list->hasBookkeeper();
    if (adjust(-1) == 0 && !taken) end();
}

void PtrInterface::end() {
    constexpr std::uint32_t kEnding = 1U << 31U;
    count_ = kEnding;
    delete this;
}

void NotifieeList::newMember(const PtrInterface* /*owner*/, const Notifiee& notifiee,
                             bool observer) {
    members_.push_back({notifiee, observer});
}

void NotifieeList::deleteMember(const PtrInterface* /*owner*/,
                                const PtrInterface::NotifieeConst* notifiee) {
    const auto member = std::find_if(members_.begin(), members_.end(), [notifiee](const Member& m) {
        return m.notifiee.get() == notifiee;
    });
    if (member == members_.end()) return;
    const Notifiee removed = std::exchange(member->notifiee, nullptr); // goes last
    if (depth_ == 0) members_.erase(member);
}

void NotifieeList::deleteAll() {
    std::vector<Notifiee> removed; // go last
    for (Member& member : members_) {
        removed.push_back(std::exchange(member.notifiee, nullptr));
    }
    if (depth_ == 0) members_.clear();
}

template <class Tell>
void NotifieeList::tell(Tell tell) {
    struct Depth {
        explicit Depth(NotifieeList& theList)
            : list(theList) {
            ++list.depth_;
        }
        ~Depth() {
            if (--list.depth_ == 0) {
                std::erase_if(list.members_, [](const Member& m) { return m.notifiee == nullptr; });
            }
        }
        NotifieeList& list;
    };
    const Depth depth(*this);
    const std::size_t count = members_.size();
    for (std::size_t i = 0; i < count; ++i) {
        const Notifiee notifiee = members_[i].notifiee;
        if (notifiee && notifiee->hasNotificationActive()) tell(*notifiee, members_[i].observer);
    }
}

void NotifieeList::visit(AttributeId attribute, const void* key) {
    if (empty()) return;
    tell([attribute, key](PtrInterface::NotifieeConst& notifiee, bool observer) {
        if (observer) notifiee.onAttribute(attribute, key);
    });
}

void NotifieeList::visitZeroReferences() {
    tell([](PtrInterface::NotifieeConst& notifiee, bool) { notifiee.onZeroReferences(); });
}

bool NotifieeList::empty() const {
    return std::none_of(members_.begin(), members_.end(),
                        [](const Member& m) { return m.notifiee && m.observer; });
}

bool NotifieeList::hasBookkeeper() const {
    return std::any_of(members_.begin(), members_.end(),
                       [](const Member& m) { return m.notifiee && !m.observer; });
}

} // namespace Mox
