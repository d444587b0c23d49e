// A table that has grown for an event gives the memory back when its entries are gone: when, how
// much, and what readers and the host's own tasks see meanwhile.

#include "Support.h"

#include "Pello/Loop.h"
#include "Pello/Scheduler.h"
#include "Pello/Time.h"
#include "Vesk/VeskReader.h"

#include <bit>
#include <cstddef>
#include <fstream>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace EngineTest {
namespace {

/// Bytes of a file that are in memory, as the file system counts them.
std::uint64_t allocatedOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return static_cast<std::uint64_t>(status.st_blocks) * 512;
}

/// Kilobytes of this process in files of that folder.
std::uint64_t residentOf(const std::string& folder) {
    std::ifstream smaps("/proc/self/smaps");
    std::uint64_t sum = 0;
    bool ours = false;
    for (std::string line; std::getline(smaps, line);) {
        if (line.find('-') < line.find(' ')) ours = line.find(folder) != std::string::npos;
        if (ours && line.starts_with("Rss:")) sum += std::stoull(line.substr(4));
    }
    return sum;
}

TEST(Swing, AMillionEntriesAndBack) {
    using Shape = TestSupport::SpShape;
    const auto entries = static_cast<std::uint32_t>(1'000'000 * TestSupport::lengthFactor());
    constexpr std::uint32_t kLeft = 10;
    const TestSupport::TempRoot root;
    const auto writer = openWriter<Shape>("table", shrinkingTable());
    const std::string slots = root.file("table", "slots");
    const std::string buckets = root.file("table", "buckets");
    const double began = Pello::time();
    for (std::uint32_t n = 0; n < entries; ++n) {
        const std::uint32_t capacity = writer->capacity();
        writer->write(Shape::value(n, n), false);
        // A tenth more, rounded up, and never before the last slot is taken.
        ASSERT_EQ(writer->capacity(), n < capacity ? capacity : capacity + (capacity + 9) / 10);
    }
    const double filled = Pello::time();
    EXPECT_TRUE(writer->validate());
    EXPECT_EQ(contentOf<Shape>(*writer).size(), entries);
    EXPECT_EQ(writer->counters().slowNexts, 0U);
    const std::uint64_t most = allocatedOf(slots) + allocatedOf(buckets);
    const std::uint64_t mostResident = residentOf(root.path());

    const double iterated = Pello::time();
    ValueOf<Shape> value;
    for (std::uint32_t n = kLeft; n < entries; ++n) {
        ASSERT_TRUE(writer->remove(Shape::key(n), value));
        ASSERT_EQ(Shape::generation(value), n);
    }
    const double removed = Pello::time();
    EXPECT_TRUE(writer->validate());
    EXPECT_EQ(contentOf<Shape>(*writer).size(), kLeft);
    const std::uint32_t capacity = std::max(4 * std::bit_floor(kLeft), Shape::minimumCapacity);
    EXPECT_EQ(writer->capacity(), capacity);
    const std::size_t slotsSize = rawTableOf<Shape>(*writer).slotAt(capacity);
    const std::size_t bucketsSize = 24 + 8 * std::size_t{writer->buckets()};
    EXPECT_LE(writer->buckets(), 4 * kLeft);
    const std::uint64_t page = 4096;
    for (const auto& [path, size] :
         {std::pair(slots, slotsSize), std::pair(buckets, bucketsSize)}) {
        EXPECT_EQ(TestSupport::fileBytes(path).size(), size);
        EXPECT_LE(allocatedOf(path), (size + page - 1) / page * page);
    }
    EXPECT_LE(residentOf(root.path()), (slotsSize + bucketsSize) / 1024 + 8);
    const auto& counters = writer->counters();
    fmt::print("swing: {} entries in {:.2f} s, down to {} in {:.2f} s; {} growths, {} shrinks, {} "
               "entries moved; files {:.1f} MB, then {:.1f} kB; resident {:.1f} MB, then {} kB\n",
               entries, filled - began, kLeft, removed - iterated, counters.slotGrowths,
               counters.slotShrinks, counters.moved, static_cast<double>(most) / 1e6,
               static_cast<double>(allocatedOf(slots) + allocatedOf(buckets)) / 1e3,
               static_cast<double>(mostResident) / 1e3, residentOf(root.path()));
}

template <class Shape>
class Swings : public testing::Test {
  protected:
    using Value = ValueOf<Shape>;

    void open(bool shrinks) {
        writer.reset();
        Vesk::MapDescriptor descriptor = TestSupport::growingTable();
        descriptor.shrinkSlots = shrinks;
        writer = openWriter<Shape>("table", descriptor);
    }
    void fillTo(std::uint32_t entries) {
        while (writer->members() < entries) {
            writer->write(Shape::value(writer->members(), 1), true);
        }
    }
    /// Removes the keys that came first: those in the lower slots.
    void emptyTo(std::uint32_t entries) {
        while (writer->members() > entries) {
            writer->remove(Shape::key(gone++), out);
        }
    }

    TestSupport::TempRoot root;
    std::unique_ptr<WriterOf<Shape>> writer;
    std::uint32_t gone = 0;
    Value out;
};
using SwingShapes = testing::Types<TestSupport::MessageShape, TestSupport::SessionShape,
                                   TestSupport::SpShape, CrowdedShape>;
TYPED_TEST_SUITE(Swings, SwingShapes, );

TYPED_TEST(Swings, ComeWhenLessThanHalfOfTheThresholdIsLeft) {
    const std::uint32_t least = TypeParam::minimumCapacity;
    this->open(true);
    this->fillTo(2 * least + 1);
    const std::uint32_t grown = this->writer->capacity();
    ASSERT_LT(grown, 4 * least);
    TestSupport::TraceCapture capture(0x24);
    this->emptyTo(least);
    EXPECT_EQ(this->writer->capacity(), grown);
    this->emptyTo(least - 1);
    EXPECT_EQ(this->writer->capacity(), 2 * least); // four times the power of two below
    const std::string path = this->root.path() + "/table";
    EXPECT_EQ(capture.find(fmt::format("threshold:{0} shrinkThreshold:{0}", 2 * least))->level, 5U);
    EXPECT_NE(capture.find(fmt::format("newNumSlots:{}", 2 * least)), nullptr);
    EXPECT_NE(capture.find(fmt::format("at threshold:{} done", 2 * least)), nullptr);
    const auto* const line = capture.find(
        fmt::format("{} from {} slots to {}", path,
                    Mem::VersionedRef<std::uint32_t>{
                        this->writer->slotTable().header().numSlots().version - 1, grown},
                    2 * least));
    ASSERT_NE(line, nullptr);
    EXPECT_EQ(line->level, 2U);
    this->emptyTo(least / 2 - 1);
    EXPECT_EQ(this->writer->capacity(), least);
    EXPECT_EQ(this->writer->slotTable().shrinkThreshold(), 0U);
    this->emptyTo(0);
    EXPECT_EQ(this->writer->capacity(), least);
    EXPECT_TRUE(this->writer->validate());

    // Not while the table does not ask for it; by as much as is due once it does.
    this->gone = 0;
    this->open(false);
    this->fillTo(4 * least + 1);
    this->emptyTo(1);
    EXPECT_GT(this->writer->capacity(), 4 * least);
    this->open(true);
    capture.clear();
    this->emptyTo(0);
    EXPECT_EQ(this->writer->capacity(), least);
    EXPECT_NE(capture.find(
                  fmt::format("threshold:{} shrinkThreshold:{} SUPER SHRINK!", least, 4 * least)),
              nullptr);
}

TYPED_TEST(Swings, KeepTheOrderOfTheFreeSlotsAndEveryEntry) {
    const std::uint32_t least = TypeParam::minimumCapacity;
    this->open(true);
    this->fillTo(2 * least + 3);
    this->emptyTo(least);
    const auto freeSlots = [this] {
        return rawTableOf<TypeParam>(*this->writer)
            .chainFrom(this->writer->slotTable().header().freeHead());
    };
    const std::vector<std::uint32_t> before = freeSlots();
    this->emptyTo(least - 1);
    std::uint32_t moved = 0;
    std::vector<std::uint32_t> expected{this->gone - 1}; // freed just before
    std::copy_if(before.begin(), before.end(), std::back_inserter(expected),
                 [least](std::uint32_t slot) { return slot < 2 * least; });
    while (moved < this->writer->counters().moved) {
        expected.erase(expected.begin());
        ++moved;
    }
    EXPECT_GT(moved, 0U);
    EXPECT_EQ(freeSlots(), expected);
    for (std::uint32_t n = 0; n < 2 * least + 3; ++n) {
        bool found = false;
        this->writer->lookup(TypeParam::key(n), found, nullptr);
        EXPECT_EQ(found, n >= this->gone);
    }
    EXPECT_EQ(contentOf<TypeParam>(*this->writer).size(), least - 1);
}

TYPED_TEST(Swings, WaitForTheEndOfADirectOperation) {
    this->open(false);
    this->fillTo(4 * TypeParam::minimumCapacity);
    this->emptyTo(3);
    this->open(true);
    const std::uint32_t grown = this->writer->capacity();
    const auto value = TypeParam::value(this->gone, 5);
    *this->writer->directWrite(value) = value;
    const auto loop = Pello::Loop::ofThisThread();
    this->writer->shrink();
    EXPECT_EQ(this->writer->capacity(), grown);
    loop->runOnce(100);
    EXPECT_EQ(this->writer->capacity(), grown);
    this->writer->directCommit();
    for (int i = 0; i < 100 && this->writer->capacity() == grown; ++i) {
        loop->runOnce(100);
    }
    EXPECT_EQ(this->writer->capacity(), TypeParam::minimumCapacity);
    EXPECT_FALSE(this->writer->slotTable().header().inCriticalSection());
    EXPECT_TRUE(this->writer->validate());
    this->writer->detach(false);
    this->writer->shrink(); // of nothing any more
}

TYPED_TEST(Swings, LetCriticalTasksRunMeanwhile) {
    this->open(true);
    this->writer->criticalTaskCheckIs(true);
    const std::uint32_t least = TypeParam::minimumCapacity;
    // While free slots leave the list (the first link is of the slot that joins it), and while
    // entries move.
    static Mem::StopPoint slow;
    static unsigned passes;
    for (const Mem::StopPoint point : {Mem::StopPoint::freeLink, Mem::StopPoint::relinkSlot}) {
        slow = point;
        passes = point == Mem::StopPoint::freeLink ? 2 : 1;
        this->fillTo(2 * least + 3);
        this->writer->remove(TypeParam::key(2 * least + 1), this->out);
        this->emptyTo(least);
        Mem::stopHook = [](Mem::StopPoint passed) {
            if (passed != slow || --passes != 0) return;
            for (const double start = Pello::time(); Pello::time() < start + 0.011;) {
            }
        };
        unsigned runs = 0;
        Pello::schedulerRootPello()->criticalPriorityTaskIs([&] { ++runs; });
        const std::uint64_t moved = this->writer->counters().moved;
        this->emptyTo(least - 1);
        Mem::stopHook = nullptr;
        EXPECT_GT(this->writer->counters().moved, moved);
        EXPECT_EQ(runs, 1U);
        Pello::schedulerRootPello()->runCriticalPriorityTasks();
        this->emptyTo(0);
        this->gone = 0;
    }
}

/// From here on this process cannot truncate files.
void forbidTruncation() {
    sock_filter filter[] = {
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_ftruncate},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ERRNO | EIO},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
    };
    const sock_fprog program{static_cast<unsigned short>(std::size(filter)), filter};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        throw std::runtime_error("seccomp");
    }
}

TYPED_TEST(Swings, ThatCannotTruncateSaySoAndLoseNothing) {
    this->open(true);
    const std::uint32_t least = TypeParam::minimumCapacity;
    this->fillTo(2 * least + 1);
    this->emptyTo(least);
    const std::uint32_t grown = this->writer->capacity();
    const auto end = TestSupport::inChild([&] {
        forbidTruncation();
        try {
            this->emptyTo(least - 1);
        } catch (const Pello::MemoryResourceException& e) {
            const std::string wanted = fmt::format("{}/table/slots from {} to {} slots, needed ",
                                                   this->root.path(), grown, 2 * least);
            if (e.message().find("failed to resize " + wanted) != 0) throw;
            if (this->writer->capacity() != grown) throw;
            if (this->writer->slotTable().header().numSlots().value != 2 * least) throw;
            if (contentOf<TypeParam>(*this->writer).size() != least - 1) throw;
            _exit(7);
        }
    });
    EXPECT_EQ(end.code, 7) << end.errors;
}

/// A reader stands on a slot that moves, and so does the one behind it: the slot that it left keeps
/// its link, to a slot that is empty by now.
TEST(Swing, AReaderStandsOnASlotThatMoves) {
    using Shape = CrowdedShape;
    constexpr std::uint32_t kCrowd = 3000; // three keys of one hash: 3000, 3001, 3002
    const TestSupport::TempRoot root;
    Vesk::MapDescriptor descriptor = TestSupport::growingTable();
    descriptor.shrinkSlots = true;
    const auto writer = openWriter<Shape>("t", descriptor);
    ValueOf<Shape> value;
    for (std::uint32_t n = 0; n < 128; ++n) {
        writer->write(Shape::value(n, 1), true);
    }
    for (std::uint32_t n = kCrowd; n < kCrowd + 3; ++n) {
        writer->write(Shape::value(n, 1), true); // above the 128 slots that will remain
    }
    std::uint32_t removed = 0;
    while (writer->members() > 64) {
        writer->remove(Shape::key(removed++), value);
    }
    Vesk::VeskReader<Shape::Ops> reader(Pello::Platform::getDebugHandler("test.mover", false), "t",
                                        Shape::Ops(), nullptr);
    ASSERT_TRUE(reader.initialize("test"));
    bool found = false;
    reader.lookup(Shape::key(kCrowd), found, nullptr);
    ASSERT_TRUE(found);
    const std::uint32_t grown = writer->capacity();
    Pello::Platform::traceLevelsIs("test.mover", 1U << 9U);
    Pello::traceSinkIs([&](const Pello::TraceLine& line) {
        if (line.text.find(" success") == std::string::npos || writer->capacity() != grown) return;
        Pello::Platform::traceLevelsIs("test.mover", 0);
        writer->remove(Shape::key(removed++), value); // the shrink
    });
    ValueOf<Shape> out;
    Vesk::IterHint hint;
    EXPECT_TRUE(reader.next(Shape::key(kCrowd), out, hint));
    Pello::traceSinkIs(nullptr);
    EXPECT_LT(writer->capacity(), grown);
    EXPECT_GE(writer->counters().moved, 3U);
    EXPECT_EQ(out.key(), Shape::key(kCrowd + 1));
    EXPECT_GT(reader.readerCounters().retries, 0U);
}

} // namespace
} // namespace EngineTest
