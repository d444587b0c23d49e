#pragma once

// Reference-counted objects, and the observers that are told what changes in them.

#include "Mox/Module.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

namespace Mox {

class NotifieeList;

struct VFPtrInterface {
    /// Whether reference counts are adjusted atomically. To be set before the first object of the
    /// process is shared between threads.
    inline static bool threadSafePointers_ = false;
};

/// Base of the objects that `Ptr` refers to: the object goes with its last reference, unless one
/// of its observers takes it over at that moment (see `NotifieeList`).
class PtrInterface {
  public:
    class NotifieeConst;

    PtrInterface() = default;
    PtrInterface(const PtrInterface&) = delete;
    PtrInterface& operator=(const PtrInterface&) = delete;

    /// The object's observers; null for an object that has none.
    virtual NotifieeList* notifieeList() const { return nullptr; }
    /// Whether this object takes part in notifications: an observed one tells its observers that
    /// its references are gone, an observer is told at all. Off at construction.
    virtual void hasNotificationActiveIs(bool active) { notificationActive_ = active; }
    /// Called when the last reference goes away (true): deletes the object, or leaves that to the
    /// observers that take it over.
    virtual void zeroReferencesIs(bool zero);
    virtual MoxTypeBase fwkType() const { return {}; }
    virtual ~PtrInterface() = default;

    bool hasNotificationActive() const { return notificationActive_; }
    std::uint32_t references() const { return __atomic_load_n(&count_, __ATOMIC_RELAXED); }

    void newRef() const { adjust(1); }
    void deleteRef() const {
        // Whoever drops the last reference to a const object ends its life all the same.
        if (adjust(-1) == 0) const_cast<PtrInterface*>(this)->zeroReferencesIs(true);
    }

  private:
    /// Deletes the object. References that are taken and dropped meanwhile do not do so again.
    void end();

    /// Returns the new count.
    std::uint32_t adjust(int by) const {
        const auto step = static_cast<std::uint32_t>(by);
        if (VFPtrInterface::threadSafePointers_) {
            return __atomic_add_fetch(&count_, step, __ATOMIC_SEQ_CST);
        }
        return count_ += step;
    }

    mutable std::uint32_t count_ = 0;
    bool notificationActive_ = false;
};

/// A counted reference, or none.
template <class T>
class Ptr {
  public:
    Ptr() = default;
    Ptr(std::nullptr_t) {}
    Ptr(T* object)
        : object_(object) {
        if (object_ != nullptr) object_->newRef();
    }
    Ptr(const Ptr& other)
        : Ptr(other.object_) {}
    Ptr(Ptr&& other) noexcept
        : object_(std::exchange(other.object_, nullptr)) {}
    template <class U>
    requires std::is_convertible_v<U*, T*> Ptr(const Ptr<U>& other)
        : Ptr(other.get()) {}
    ~Ptr() {
        if (object_ != nullptr) object_->deleteRef();
    }
    /// The old object is let go last: that may run code which looks at this reference.
    Ptr& operator=(Ptr other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }

    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }

    friend bool operator==(const Ptr& a, const Ptr& b) { return a.object_ == b.object_; }
    friend bool operator==(const Ptr& a, std::nullptr_t) { return a.object_ == nullptr; }

  private:
    T* object_ = nullptr;
};

/// Keeps an object through a call during which its last reference may go away. One that nobody
/// refers to, such as one on the stack, is left alone.
class KeepAlive {
  public:
    explicit KeepAlive(const PtrInterface* object)
        : object_(object->references() != 0 ? object : nullptr) {}

  private:
    Ptr<const PtrInterface> object_;
};

/// An observer.
class PtrInterface::NotifieeConst : public PtrInterface {
  public:
    /// No reference to the observed object remains. Whoever takes a new one keeps the object.
    virtual void onZeroReferences() {}
    /// An attribute has changed; `key` is that of the element for a table, else null.
    virtual void onAttribute(AttributeId /*attribute*/, const void* /*key*/) {}
};

/// The observers of one object, which it refers to. They may be added and removed at any time,
/// also while they are being told: who is added is told of the next change, and who is removed
/// is not told any more.
///
/// A member that is no observer proper keeps the object's books: it does not make the list
/// non-empty, and as long as one is in the list, the object is not deleted with its last
/// reference.
class NotifieeList {
  public:
    using Notifiee = Ptr<PtrInterface::NotifieeConst>;

    NotifieeList() = default;
    ~NotifieeList() { deleteAll(); } // while the list can still take what the members do to it
    NotifieeList(const NotifieeList&) = delete;
    NotifieeList& operator=(const NotifieeList&) = delete;

    /// `observer` false is for a bookkeeper.
    void newMember(const PtrInterface* owner, const Notifiee& notifiee, bool observer);
    void deleteMember(const PtrInterface* owner, const PtrInterface::NotifieeConst* notifiee);
    void deleteAll();

    /// Tells each observer of a change.
    void visit(AttributeId attribute, const void* key = nullptr);
    /// Tells each member that the object has lost its last reference.
    void visitZeroReferences();

    /// No observers; bookkeepers do not count.
    bool empty() const;
    bool hasBookkeeper() const;

  private:
    struct Member {
        Notifiee notifiee; ///< null once removed
        bool observer;
    };

    template <class Tell>
    void tell(Tell tell);

    std::vector<Member> members_;
    unsigned depth_ = 0; ///< of visits under way; members move only when there is none
};

/// A handle on some object's list.
class NotifieeListPtr {
  public:
    NotifieeListPtr(NotifieeList* list)
        : list_(list) {}

    void deleteMember(const PtrInterface* owner,
                      const PtrInterface::NotifieeConst* notifiee) const {
        if (list_ != nullptr) list_->deleteMember(owner, notifiee);
    }

  private:
    NotifieeList* list_;
};

} // namespace Mox
