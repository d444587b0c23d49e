// Every trace of a table's life: level, class, source, operation and text.

#include "Pello/Process.h"
#include "SharedMem/RavoFile.h"
#include "TableFiles.h"

#include <filesystem>
#include <sstream>

namespace ErrorsTest {
namespace {

struct Traces : Table<TestSupport::ErrorShape> {
    Traces() {
        descriptor.size = 130;
        open(descriptor);
    }

    /// Expects the lines of a script to have been traced since the last call. Each is the level,
    /// the first letter of the class, the operation and the text; "*" ends one of which only the
    /// beginning is known.
    template <class... Args>
    void expect(const char* script, const Args&... args) {
        const std::map<char, const char*> classes{{'W', "VeskWriter Vesk/VeskWriter"},
                                                  {'S', "SlotWriterTable Vesk/SlotWriter"},
                                                  {'T', "SlotTable Vesk/SlotTable"},
                                                  {'M', "WriterHashMap VeskCore/WriterHashMap"},
                                                  {'V', "Validator Vesk/Validator"}};
        const std::vector<std::string> lines = traced(capture);
        std::istringstream in(fmt::format(fmt::runtime(script), args...));
        for (std::string line; in >> std::ws && std::getline(in, line);) {
            const std::string wanted = line.substr(0, 2) + classes.at(line[2]) + line.substr(3);
            EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& each) {
                return wanted.ends_with('*') ? each.starts_with(wanted.substr(0, wanted.size() - 1))
                                             : each == wanted;
            })) << wanted;
        }
        capture.clear();
    }

    Vesk::MapDescriptor descriptor = EngineTest::shrinkingTable();
    TraceCapture capture{0xFFFF};
    Value value;
    Vesk::IterHint hint;
};

TEST_F(Traces, OfTheFiles) {
    const auto folder = fmt::arg("folder", files.folder);
    const auto slots = fmt::arg("slots", files.slots);
    const auto header = [this] { return writer->slotTable().header().toString(); };
    const auto success = [this] {
        return fmt::format(
            "success {} capacity:{} ravoId:{} mtime:{} ploxetInfo:{}", files.folder,
            writer->capacity(), writer->ravoId(),
            SharedMem::RavoFile(*writer->debugHandler(), writer->tableRoot(), false).mtime(),
            Pello::ProcessId::self().text());
    };
    EXPECT_TRUE(has(traced(capture), "3 SlotTable::Header Vesk/SlotTable.toString " + header()));
    expect(R"(5 W.attach localMem_:false rootPath:{folder}
              2 S.attach to new file {slots}
              5 S.shrinkThreshold shrinkThreshold_:0
              2 W.attach slotsAttached:1
              2 W.attach mapAttached:1
              2 W.attach torvuAttached:1
              5 V.walkOccupiedSlots starting
              8 M.first none found!
              5 V.walkOccupiedSlots marked 0 slots
              5 V.walkFreeSlots starting
              9 V.walkFreeSlots walking slotIndex: 127
              5 V.walkFreeSlots marked 128 free slots
              1 W.attach {})",
           success(), folder, slots);
    for (std::uint32_t i = 0; i < 256; ++i) {
        writer->write(Shape::value(i, 1), true);
    }
    const bool moved = writer->writerCounters().remaps != 0;
    expect(R"(2 M.growBuckets growing from: 64 to: 128
              5 S.resize {folder} from 128 to 141 slots
              5 S.resize overflowing by 11 slots
              5 S.resize to 141 successfully
              2 S.grow {folder} from 128 slots to {{2, 141}}
              5 S.shrinkThreshold shrinkThreshold_:128
              {})",
           moved ? "5 S.resize remap base address changed from 0x*" : "", folder);
    for (std::uint32_t i = 0; i < 193; ++i) {
        EXPECT_EQ(writer->buckets(), 256U);
        writer->remove(Shape::key(i), value);
    }
    writer->mountStatus();
    expect(R"(2 M.shrinkBuckets shrunk from:256 to:128 shrinkBuckets_:true time:*
              5 W.doMaybeShrinkSlots threshold:256 shrinkThreshold:256
              7 S.purgeFreeSlots removing slot id 277 from free-list
              9 W.doMaybeShrinkSlots skipping not occupied slot:277
              5 S.shrink newNumSlots:256
              5 W.doMaybeShrinkSlots at threshold:256 done
              9 W.doMaybeShrinkSlots moving fromSlot:255 toSlot:65
              7 S.move fromSlotId:255 toSlotId:65
              5 S.shrinkThreshold shrinkThreshold_:0
              5 W.mountStatus 1)");
    open(descriptor);
    EXPECT_TRUE(has(traced(capture), "5 SlotTable Vesk/SlotTable.detach "));
    expect(R"(5 W.detach owner:true localMem_:false rootPath:{folder}
              5 W.detach clearing ploxetInfo
              5 S.detach *
              2 S.attach to existing {slots}
              2 W.attach slotsAttached:2
              2 W.attach mapAttached:2
              9 V.markOccupied slotIndex: 127
              9 V.markOccupied no notification in torvu queue for occupied slotId:127
              5 V.walkOccupiedSlots marked 63 slots
              1 W.attach {})",
           success(), folder, slots);
    files.headerIs(kRuntime, kCritical);
    EXPECT_FALSE(writer->validate());
    const std::string dump = "Vesk table \"t\"\n\n\n" + header() + "\n\n" +
                             writer->hashMap().buckets().header().toString() + "\n\n";
    EXPECT_TRUE(has(traced(capture), "0 VeskWriter Vesk/VeskWriter.validate " + dump));
    expect(R"(0 S.validate bad critical section runtimeFlags:1
              0 V.validate Vesk {folder} validation failed: bad critical section runtimeFlags:1)",
           folder);
    open(descriptor);
    EXPECT_TRUE(has(traced(capture), "0 VeskWriter Vesk/VeskWriter.attachAndValidate " + dump));
    expect(R"(0 W.attachAndValidate failed to validate existing files
              1 W.attachAndValidate all entries from {folder} will be lost
              1 S.attach re-formatted {slots}
              1 W.attachAndValidate re-formatted successfully)",
           folder, slots);
    open(TestSupport::fixedTable(50));
    writer->cleanup();
    expect(R"(1 S.attach wanted capacity:50 for fixed-size table, but existing file has capacity:128
              0 W.attachAndValidate failed to attach to existing files
              1 W.attach success {folder} capacity:50 ravoId:*
              1 W.removeFiles removing Vesk files in {folder}
              3 S.cleanup removing file: {slots})",
           folder, slots);
    EXPECT_TRUE(std::filesystem::is_empty(files.folder));
}

TEST_F(Traces, OfTheEntries) {
    // In the order of iteration, of which the second half is in the last of two buckets.
    std::vector<EngineTest::PlaceOf<Shape>> order;
    for (std::uint32_t number = 0; number < Shape::keys; ++number) {
        order.push_back(EngineTest::placeOf<Shape>(Shape::key(number), writer->hashSeed()));
    }
    std::sort(order.begin(), order.end());
    const auto& [keyA, keyB, keyC] = std::tie(order[0].second, order[1].second, order[255].second);
    const auto write = [this](const Shape::Key& key, std::uint32_t count) {
        writer->write(Shape::V(key, count), true);
    };
    const auto a = fmt::arg("a", keyA);
    const auto b = fmt::arg("b", keyB);
    const auto c = fmt::arg("c", keyC);
    const std::uint32_t toBucket1 = kBucketBit | 1;
    const auto bucket1 = fmt::arg("bucket1", toBucket1);
    const std::string textB = fmt::format("{}", Value(Shape::V(keyB, 2)));
    write(keyC, 1); // slot 0, in the last bucket
    writer->first(value, hint);
    EXPECT_FALSE(writer->next(keyC, value, hint));
    expect("8 M.next {c} failed", c);
    writer->remove(keyC, value);
    write(keyA, 7);
    write(keyB, 2);
    expect(R"(9 M.find {a} not found curr:1 next:1
              9 W.write new {a} bucket:0 slot:0 next:{bucket1}
              9 M.find {b} next curr:0
              9 M.find {b} not found curr:1 next:1
              9 W.write new {b} bucket:0 slot:1 next:{bucket1})",
           a, b, bucket1);
    write(keyA, 1);
    bool found = false;
    writer->lookup(keyB, found, nullptr);
    writer->lookup(keyC, found, nullptr);
    expect(R"(9 M.find {a} found curr:0 next:1
              9 W.write existing {a} bucket:0 slot:0 next:1
              9 M.lookup {b} found bucket:0 slotId:1
              8 M.lookup {c} not found bucket:1)",
           a, b, c);

    ASSERT_TRUE(writer->first(value, hint));
    const std::string textA = fmt::format("{}", value);
    const Vesk::IterHint atA = hint;
    ASSERT_TRUE(writer->next(keyA, value, hint));
    const Vesk::IterHint atB = hint;
    EXPECT_FALSE(writer->next(keyB, value, hint));
    expect(R"(9 M.first {0} found at bucket 0
              9 M.next {a} success {1} using {2}, saving new slot hint {3}
              9 M.next {b} next bucket 1 using {3}
              8 M.first none found!)",
           textA, textB, atA, atB, a, b);
    EXPECT_TRUE(writer->next(keyA, value, hint = {}));
    EXPECT_FALSE(writer->next(keyB, value, hint = {}));
    EXPECT_FALSE(writer->next(keyC, value, hint = {}));
    expect(R"(9 M.next {a} comparing slot 0 {a}
              9 M.next {a} next slotId 1 success {a}
              9 M.next {a} success {0}
              9 M.next {b} next slotId {bucket1} success {b}
              9 M.next {b} next bucket 1
              8 M.next {c} failed)",
           textB, a, b, c, bucket1);
    slotIs(1, kSequence, 4);
    EXPECT_THROW(writer->next(keyA, value, hint = atA), Pello::CorruptionDetectedException);
    expect("5 M.next saw exception in fast path: slotId: 1 not marked as occupied. This might be "
           "okay, dropping to slow path to find out");
    slotIs(1, kSequence, 5);

    writer->directWrite(Shape::V(keyA, 3));
    writer->directCommit();
    writer->directWrite(Shape::V(keyC, 3));
    writer->directCommit();
    EXPECT_TRUE(writer->remove(keyC, value));
    EXPECT_FALSE(writer->remove(keyC, value));
    expect(R"(9 W.directWrite {a} existing  bucket:0 slot:0 next:1
              9 W.directCommit slot: 0
              9 W.directWrite {c} new  bucket:1 slot:2 next:3
              2 M.growBuckets growing from: 2 to: 4
              9 W.remove {c} bucket:{0} slot:2
              9 W.remove {c} bucket:{0} not found)",
           keyC.hash(writer->hashSeed()) % 4, a, c);
}

} // namespace
} // namespace ErrorsTest
