#pragma once

// The value of the message counter tables and its key. Both are stored bytewise in files.

#include "Mox/Hash.h"
#include "Mox/Strep.h"
#include "Rsvp/RsvpMsgType.h"
#include "Wirra/IntfId.h"

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Rsvp::Vesk {

/// An interface and a message type:
///
///     offset  size  field
///          0     8  intfId
///          8     4  mType; 0 counts the messages that were in error
///         12     4  padding, zero
class MessageCounterKey {
  public:
    MessageCounterKey() = default;
    constexpr MessageCounterKey(Wirra::IntfId intfId, RsvpMsgType mType)
        : intfId_(intfId)
        , mType_(mType) {}
    /// Reads the text form; `Mox::RangeException` names the attribute.
    explicit MessageCounterKey(Mox::CharRange& range);

    constexpr const Wirra::IntfId& intfId() const { return intfId_; }
    constexpr RsvpMsgType mType() const { return mType_; }

    [[gnu::always_inline]] std::uint32_t hash(std::uint32_t seed) const {
        const std::uint32_t intfHash = intfId_.hash();
        Mox::Hash hash(seed);
        hash.hashMix<4>(&intfHash);
        hash.hashMix<4>(&mType_);
        return hash.result();
    }

    friend constexpr bool operator==(const MessageCounterKey& left,
                                     const MessageCounterKey& right) {
        return left.intfId_ == right.intfId_ && left.mType_ == right.mType_;
    }
    /// By interface, then by number of the message type.
    friend constexpr bool operator<(const MessageCounterKey& left, const MessageCounterKey& right) {
        if (left.intfId_ == right.intfId_) return left.mType_ < right.mType_;
        return left.intfId_ < right.intfId_;
    }

  private:
    static void layout() {
        static_assert(offsetof(MessageCounterKey, intfId_) == 0);
        static_assert(offsetof(MessageCounterKey, mType_) == 8);
        static_assert(offsetof(MessageCounterKey, pad_) == 12);
    }

    Wirra::IntfId intfId_;
    RsvpMsgType mType_ = rsvpNoneMsg;
    [[maybe_unused]] std::uint32_t pad_ = 0;
};

static_assert(sizeof(MessageCounterKey) == 16 && alignof(MessageCounterKey) == 8);
static_assert(std::is_trivially_copyable_v<MessageCounterKey>);
static_assert(std::has_unique_object_representations_v<MessageCounterKey>);

/// The messages of one type on one interface:
///
///     offset  size  field
///          0    16  key
///         16     4  count
///         20     4  padding, zero
class MessageCounter {
  public:
    MessageCounter() = default;
    constexpr MessageCounter(const MessageCounterKey& key, std::uint32_t count)
        : key_(key)
        , count_(count) {}
    /// Reads the text form; `Mox::RangeException` names the attribute.
    explicit MessageCounter(Mox::CharRange& range);

    constexpr const MessageCounterKey& key() const { return key_; }
    constexpr std::uint32_t count() const { return count_; }
    constexpr void countIs(std::uint32_t count) & { count_ = count; }
    /// Modulo 2^32.
    constexpr void countInc(std::uint32_t n) & { count_ += n; }

    /// Whether it differs from a default counter.
    explicit operator bool() const { return !(*this == MessageCounter()); }

    /// "[interface,type]count"
    Mox::String veskString() const;

    friend constexpr bool operator==(const MessageCounter& left, const MessageCounter& right) {
        return left.key_ == right.key_ && left.count_ == right.count_;
    }

  private:
    static void layout() {
        static_assert(offsetof(MessageCounter, key_) == 0);
        static_assert(offsetof(MessageCounter, count_) == 16);
        static_assert(offsetof(MessageCounter, pad_) == 20);
    }

    MessageCounterKey key_;
    std::uint32_t count_ = 0;
    [[maybe_unused]] std::uint32_t pad_ = 0;
};

static_assert(sizeof(MessageCounter) == 24 && alignof(MessageCounter) == 8);
static_assert(std::is_trivially_copyable_v<MessageCounter>);
static_assert(std::has_unique_object_representations_v<MessageCounter>);

Mox::String valueToStrep(const MessageCounterKey& key);
Mox::String valueToStrep(const MessageCounter& counter);

using Mox::operator<<;
using Mox::valueToStrep;

} // namespace Rsvp::Vesk
