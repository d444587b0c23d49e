#pragma once

#include "Pello/Debug.h"
#include "Quen/Local.h"
#include "SharedMem/RavoId.h"
#include "Vesk/SlotHeaderCommon.h"
#include "Vesk/SlotWords.h"

#include <cstdint>

namespace Vesk {

template <class Ops>
class VeskWriter;

/// Checks that a writer's table is consistent: the bucket file, the critical-section flag, the
/// header, every chained slot, the free list, and the totals. It reads only, and lives for one
/// run, on the writer's thread, while the writer changes nothing.
///
/// The chain walk is the hash map's own iteration: with a validator attached it reports every slot
/// that it passes to `markOccupied`.
template <class Ops>
class Validator : public Pello::Debuggable {
  public:
    explicit Validator(const VeskWriter<Ops>& writer)
        : Debuggable(writer.debugHandler())
        , writer_(writer) {}

    /// True when the table is sound. Otherwise `error()` is the text of the first check that
    /// failed; corruption met on the way is such a failure, never an exception.
    bool validate(SharedMem::RavoId id) {
        bool ok = false;
        try {
            ok = doValidate(id);
        } catch (const Pello::CorruptionDetectedException& e) {
            caught(e);
        } catch (const Pello::MemoryResourceException& e) {
            caught(e);
        }
        if (!ok) {
            PELLO_TRACE(*this, 0, tagOf("validate"), "Vesk {} validation failed: {}",
                        writer_.tableRoot(), error_);
        }
        return ok;
    }

    const Pello::String& error() const { return error_; }

    /// Called by the hash map for each chained slot.
    void markOccupied(std::uint32_t index) {
        const char* const operation = "markOccupied";
        PELLO_TRACE(*this, 9, tagOf(operation), "slotIndex: {}", index);
        if (seenOccupied_[index]) raiseCorruption(tagOf(operation), "duplicate slot: {}", index);
        seenOccupied_.set(index);
        ++occupiedCount_;
        const std::uint32_t sequence = slots().slot(index).sequence();
        if ((sequence & SlotWords::kOccupied) == 0) {
            raiseCorruption(tagOf(operation), "missing OCCUPIED bit: {:#x}", sequence);
        }
        if ((sequence & SlotWords::kLookaside) != 0) {
            raiseCorruption(tagOf(operation), "stuck LOOKASIDE bit: {:#x}", sequence);
        }
        if constexpr (Ops::notifying) {
            if (writer_.torvu().hasRecord(index)) return;
        }
        PELLO_TRACE(*this, 9, tagOf(operation),
                    "no notification in torvu queue for occupied slotId:{}", index);
    }

  private:
    static Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
        return {"Validator", "Vesk/Validator", operation, line};
    }

    template <class... Args>
    [[noreturn]] static void raiseCorruption(const Pello::SourceTag& tag,
                                             fmt::format_string<const Args&...> format,
                                             const Args&... args) {
        Pello::raise<Pello::CorruptionDetectedException>(tag, format, args...);
    }

    /// Keeps the text of a failed check.
    template <class... Args>
    bool fail(const Pello::SourceTag& tag, fmt::format_string<Args...> format, Args&&... args) {
        error_ = fmt::format(format, std::forward<Args>(args)...);
        PELLO_TRACE(*this, 0, tag, "{}", error_);
        return false;
    }

    void caught(const Pello::Exception& e) {
        error_ = e.message();
        PELLO_TRACE(*this, 0, tagOf("validate"), "caught: {}", error_);
    }

    const auto& slots() const { return writer_.slotTable(); }
    const SlotHeaderCommon& header() const { return slots().header(); }

    bool doValidate(SharedMem::RavoId id) {
        // Each check has a text of its own: a later one must not hide the first.
        Pello::String bucketError;
        const bool bucketOk = writer_.hashMap().buckets().validate(id, bucketError);
        if (const std::uint16_t flags = header().runtimeFlags();
            (flags & SlotHeaderCommon::kCriticalSection) != 0) {
            error_ = fmt::format("bad critical section runtimeFlags:{:x}", flags);
            PELLO_TRACE(*slots().debugHandler(), 0,
                        Pello::SourceTag("SlotWriterTable", "Vesk/SlotWriter", "validate"), "{}",
                        error_);
            return false;
        }
        Pello::String headerError;
        const bool headerOk = slots().validateHeader(slots().mapping().size(), id, headerError);
        if (!bucketOk || !headerOk) {
            error_ = bucketOk ? headerError : bucketError;
            return false;
        }
        seenOccupied_.resize(writer_.capacity());
        seenFree_.resize(writer_.capacity());
        return walkOccupiedSlots() && walkFreeSlots() && checkTotals();
    }

    bool walkOccupiedSlots() {
        const Pello::SourceTag tag = tagOf("walkOccupiedSlots");
        PELLO_TRACE(*this, 5, tag, "starting");
        const std::uint32_t occupied = header().occupiedSlots();
        std::uint32_t count = 0;
        typename Ops::Value value;
        IterHint hint;
        for (bool more = writer_.first(value, hint); more;
             more = writer_.next(Ops::key(value), value, hint)) {
            if (++count > occupied) {
                return fail(tag, "walkedSlots:{} is greater than header->occupiedSlots:{}", count,
                            occupied);
            }
        }
        PELLO_TRACE(*this, 5, tag, "marked {} slots", occupiedCount_);
        if (occupied != occupiedCount_) {
            return fail(tag, "mismatch header->occupiedSlots:{} count:{}", occupied,
                        occupiedCount_);
        }
        return true;
    }

    bool walkFreeSlots() {
        const Pello::SourceTag tag = tagOf("walkFreeSlots");
        PELLO_TRACE(*this, 5, tag, "starting");
        for (std::uint32_t index = header().freeHead(); index != SlotLink::kEnd;) {
            PELLO_TRACE(*this, 9, tag, "walking slotIndex: {}", index);
            if (index > header().numSlots().value) {
                return fail(tag, "corrupted free slot detected with out of bound index: {}", index);
            }
            if (seenFree_[index]) return fail(tag, "duplicate freeSlot detected: {}", index);
            seenFree_.set(index);
            ++freeCount_;
            const SlotWords& slot = slots().slot(index);
            if (slot.occupied()) {
                return fail(tag, "corrupted free slot not marked as empty: {}", index);
            }
            index = slot.link.next();
        }
        PELLO_TRACE(*this, 5, tag, "marked {} free slots", freeCount_);
        return true;
    }

    bool checkTotals() {
        const std::uint32_t sum = occupiedCount_ + freeCount_;
        if (sum == writer_.capacity()) return true;
        return fail(tagOf("doValidate"),
                    "bad slotCount:{} occupiedSlots:{} freeSlots:{} capacity:{}", sum,
                    occupiedCount_, freeCount_, writer_.capacity());
    }

    const VeskWriter<Ops>& writer_;
    std::uint32_t occupiedCount_ = 0;
    std::uint32_t freeCount_ = 0;
    Quen::Local<bool> seenOccupied_;
    Quen::Local<bool> seenFree_;
    Pello::String error_;
};

} // namespace Vesk
