// Every trace of a table's life: level, class, source, operation and text.

#include "SharedMem/RavoFile.h"
#include "TableFiles.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace ErrorsTest {
namespace {

using Shape = TestSupport::ErrorShape;
using TestSupport::TraceCapture;

constexpr std::uint16_t kAll = 0xFFFF;

struct Traces : testing::Test {
    Traces() { open(); }

    void open() {
        writer.reset();
        Vesk::MapDescriptor descriptor = TestSupport::growingTable(130);
        descriptor.shrinkBuckets = true;
        descriptor.shrinkSlots = true;
        writer = TestSupport::openWriter<Shape>("t", descriptor);
    }
    void write(const Shape::Key& key, std::uint32_t count) {
        writer->write(Shape::V(key, count), true);
    }
    /// The n-th key of a bucket of two, in the order of iteration.
    Shape::Key key(std::uint32_t bucket, std::size_t n) const {
        std::vector<std::pair<std::uint32_t, std::uint32_t>> order;
        for (std::uint32_t number = 0; number < Shape::keys; ++number) {
            const std::uint32_t hash = Shape::key(number).hash(files.header(HeaderWord{568}));
            if (hash % 2 == bucket) order.emplace_back(Vesk::reverseBits(hash), number);
        }
        std::sort(order.begin(), order.end());
        return Shape::key(order.at(n).second);
    }
    /// Expects every line to have been traced since the last call.
    void expect(const std::vector<std::string>& expected) {
        const std::vector<std::string> lines = traced(capture);
        for (const std::string& line : expected) {
            EXPECT_TRUE(has(lines, line)) << line;
        }
        capture.clear();
    }
    bool startsWith(const std::string& head) {
        const std::vector<std::string> lines = traced(capture);
        return std::any_of(lines.begin(), lines.end(),
                           [&](const std::string& line) { return line.starts_with(head); });
    }

    TestSupport::TempRoot root;
    TableFiles files{root.path() + "/t", sizeof(Shape::V)};
    TraceCapture capture{kAll};
    std::unique_ptr<TestSupport::WriterOf<Shape>> writer;
    const std::string table = " VeskWriter Vesk/VeskWriter.";
    const std::string slots = " SlotWriterTable Vesk/SlotWriter.";
    const std::string map = " WriterHashMap VeskCore/WriterHashMap.";
    const std::string validator = " Validator Vesk/Validator.";
};

TEST_F(Traces, OfTheFiles) {
    const auto attached = [this](std::uint32_t capacity) {
        return fmt::format(
            "1{}attach success {} capacity:{} ravoId:{} mtime:{} ploxetInfo:none", table,
            files.folder, capacity, writer->ravoId(),
            SharedMem::RavoFile(*writer->debugHandler(), writer->tableRoot(), false).mtime());
    };
    const auto header = [this] { return writer->slotTable().header().toString(); };
    expect({"5" + table + "attach localMem_:false rootPath:" + files.folder,
            "2" + slots + "attach to new file " + files.slots,
            "3 SlotTable::Header Vesk/SlotTable.toString " + header(),
            "5" + slots + "shrinkThreshold shrinkThreshold_:0",
            "2" + table + "attach slotsAttached:1", "2" + table + "attach mapAttached:1",
            "2" + table + "attach torvuAttached:1", "5" + validator + "walkOccupiedSlots starting",
            "8" + map + "first none found!", "5" + validator + "walkOccupiedSlots marked 0 slots",
            "5" + validator + "walkFreeSlots starting",
            "9" + validator + "walkFreeSlots walking slotIndex: 127",
            "5" + validator + "walkFreeSlots marked 128 free slots", attached(128)});
    for (std::uint32_t i = 0; i < 129; ++i) {
        writer->write(Shape::value(i, 1), true);
    }
    expect({"2" + map + "growBuckets growing from: 64 to: 128",
            "5" + slots + "resize " + files.folder + " from 128 to 141 slots",
            "5" + slots + "resize overflowing by 11 slots",
            "5" + slots + "resize to 141 successfully",
            "2" + slots + "grow " + files.folder + " from 128 slots to {2, 141}",
            "5" + slots + "shrinkThreshold shrinkThreshold_:128"});
    for (std::uint32_t i = 129; i < 256; ++i) {
        writer->write(Shape::value(i, 1), true);
    }
    EXPECT_EQ(startsWith("5" + slots + "resize remap base address changed from 0x"),
              writer->writerCounters().remaps != 0);
    EXPECT_EQ(writer->mountStatus(), MoxSharedMem::MountStatus::mounted);
    Shape::Ops::Value value;
    capture.clear();
    for (std::uint32_t i = 0; i < 193; ++i) {
        EXPECT_FALSE(startsWith("2" + map + "shrinkBuckets"));
        writer->remove(Shape::key(i), value);
    }
    EXPECT_TRUE(startsWith("2" + map +
                           "shrinkBuckets shrunk from:256 to:128 shrinkBuckets_:true "
                           "time:"));
    const std::uint32_t capacity = writer->capacity();
    open();
    expect({"5" + table + "detach localMem_:false rootPath:" + files.folder,
            "5" + slots + "detach ", "5 SlotTable Vesk/SlotTable.detach ",
            "2" + slots + "attach to existing " + files.slots,
            "2" + table + "attach slotsAttached:2", "2" + table + "attach mapAttached:2",
            "9" + validator + "markOccupied slotIndex: 255",
            "9" + validator + "markOccupied no notification in torvu queue for occupied slotId:255",
            "5" + validator + "walkOccupiedSlots marked 63 slots", attached(capacity)});
    files.headerIs(kRuntime, kCritical);
    writer->validate();
    const std::string dump = "Vesk table \"t\"\n\n\n" + header() + "\n\n" +
                             writer->hashMap().buckets().header().toString() + "\n\n";
    expect({"0" + slots + "validate bad critical section runtimeFlags:1",
            "0" + validator + "validate Vesk " + files.folder +
                " validation failed: bad critical section runtimeFlags:1",
            "0" + table + "validate " + dump});
    open();
    expect({"0" + table + "attachAndValidate failed to validate existing files",
            "0" + table + "attachAndValidate " + dump,
            "1" + table + "attachAndValidate all entries from " + files.folder + " will be lost",
            "1" + slots + "attach re-formatted " + files.slots,
            "1" + table + "attachAndValidate re-formatted successfully"});
    writer.reset();
    writer = TestSupport::openWriter<Shape>("t", TestSupport::fixedTable(50));
    expect({"1" + slots +
                "attach wanted capacity:50 for fixed-size table, but existing file has "
                "capacity:128",
            "0" + table + "attachAndValidate failed to attach to existing files", attached(50)});
    writer->cleanup();
    expect({"1" + table + "removeFiles removing Vesk files in " + files.folder,
            "3" + slots + "cleanup removing file: " + files.slots});
    EXPECT_TRUE(std::filesystem::is_empty(files.folder));
}

TEST_F(Traces, OfTheEntries) {
    const Shape::Key a = key(0, 0);
    const Shape::Key b = key(0, 1);
    const Shape::Key c = key(1, 0);
    const auto line = [](const char* level, const std::string& who, const char* format,
                         const auto&... args) {
        return level + who + fmt::format(fmt::runtime(format), args...);
    };
    const Shape::Ops::Value valueA = Shape::V(a, 1);
    const Shape::Ops::Value valueB = Shape::V(b, 2);
    const std::uint32_t toBucket1 = kBucketBit | 1;
    Shape::Ops::Value value;
    Vesk::IterHint hint;
    write(c, 1); // slot 0, in the last bucket
    writer->first(value, hint);
    EXPECT_FALSE(writer->next(c, value, hint));
    expect({line("8", map, "next {} failed", c)});
    writer->remove(c, value);
    write(a, 7);
    expect({line("9", map, "find {} not found curr:1 next:1", a),
            line("9", table, "write new {} bucket:0 slot:0 next:{}", a, toBucket1)});
    write(b, 2);
    expect({line("9", map, "find {} next curr:0", b),
            line("9", map, "find {} not found curr:1 next:1", b),
            line("9", table, "write new {} bucket:0 slot:1 next:{}", b, toBucket1)});
    write(a, 1);
    expect({line("9", map, "find {} found curr:0 next:1", a),
            line("9", table, "write existing {} bucket:0 slot:0 next:1", a)});
    bool found = false;
    writer->lookup(b, found, nullptr);
    writer->lookup(c, found, nullptr);
    expect({line("9", map, "lookup {} found bucket:0 slotId:1", b),
            line("8", map, "lookup {} not found bucket:1", c)});

    ASSERT_TRUE(writer->first(value, hint));
    const Vesk::IterHint atA = hint;
    ASSERT_TRUE(writer->next(a, value, hint));
    const Vesk::IterHint atB = hint;
    EXPECT_FALSE(writer->next(b, value, hint));
    expect({line("9", map, "first {} found at bucket 0", valueA),
            line("9", map, "next {} success {} using {}, saving new slot hint {}", a, valueB, atA,
                 atB),
            line("9", map, "next {} next bucket 1 using {}", b, atB),
            "8" + map + "first none found!"});
    EXPECT_TRUE(writer->next(a, value, hint = {}));
    EXPECT_FALSE(writer->next(b, value, hint = {}));
    EXPECT_FALSE(writer->next(c, value, hint = {}));
    expect({line("9", map, "next {} comparing slot 0 {}", a, a),
            line("9", map, "next {} next slotId 1 success {}", a, a),
            line("9", map, "next {} success {}", a, valueB),
            line("9", map, "next {} next slotId {} success {}", b, toBucket1, b),
            line("9", map, "next {} next bucket 1", b), line("8", map, "next {} failed", c)});
    files.slotIs(1, kSequence, 4);
    EXPECT_EQ(
        raisedBy<Pello::CorruptionDetectedException>([&] { writer->next(a, value, hint = atA); }),
        "WriterHashMap VeskCore/WriterHashMap.next slotId: 1 not marked as occupied");
    expect({"5" + map +
            "next saw exception in fast path: slotId: 1 not marked as occupied. This "
            "might be okay, dropping to slow path to find out"});
    files.slotIs(1, kSequence, 5);

    writer->directWrite(Shape::V(a, 3));
    writer->directCommit();
    expect({line("9", table, "directWrite {} existing  bucket:0 slot:0 next:1", a),
            "9" + table + "directCommit slot: 0"});
    writer->directWrite(Shape::V(c, 3));
    writer->directCommit();
    expect({line("9", table, "directWrite {} new  bucket:1 slot:2 next:3", c),
            "2" + map + "growBuckets growing from: 2 to: 4"});
    EXPECT_TRUE(writer->remove(c, value));
    EXPECT_FALSE(writer->remove(c, value));
    const std::uint32_t bucket = c.hash(files.header(HeaderWord{568})) % 4;
    expect({line("9", table, "remove {} bucket:{} slot:2", c, bucket),
            line("9", table, "remove {} bucket:{} not found", c, bucket)});
    writer->mountStatus();
    expect({"5" + table + "mountStatus 1"});
}

} // namespace
} // namespace ErrorsTest
