// What operations on a damaged, full or unusable table raise, and that they change nothing then.

#include "Mem/Atomics.h"
#include "TableFiles.h"

#include <filesystem>
#include <fstream>

namespace ErrorsTest {
namespace {

using Pello::CorruptionDetectedException;

struct Operations : Table<TestSupport::ErrorShape> {
    static std::string corruption(const std::function<void()>& call) {
        return raisedBy<CorruptionDetectedException>(call);
    }

    Value value;
    Vesk::IterHint hint;
    const std::string map = "WriterHashMap VeskCore/WriterHashMap.";
    const std::string slotTable = "SlotWriterTable Vesk/SlotWriter.";
};

TEST_F(Operations, CorruptChainsEndInAnErrorOfTheWalkThatMeetsThem) {
    open();
    fill(200);
    const TableFiles::Image sound = files.image();
    const std::uint32_t bucket = bucketWith(3);
    const std::vector<std::uint32_t> slots = chain(bucket);
    const std::uint32_t n = raw().numSlots();
    const Shape::Key key = Shape::key(slotWord(slots[2], kValue) & 0xFFU);
    bool found = false;
    struct Operation {
        std::string name;
        bool entersCriticalSection; ///< before it walks
        std::function<void()> call;
    };
    const Operation operations[] = {{"find", true, [&] { writer->write(Shape::V(key, 1), true); }},
                                    {"find", true, [&] { writer->write(Shape::V(key, 1), false); }},
                                    {"find", true, [&] { writer->directWrite(Shape::V(key, 1)); }},
                                    {"find", true, [&] { writer->directUpdate(key); }},
                                    {"find", false, [&] { writer->remove(key, value); }},
                                    {"lookup", false, [&] { writer->lookup(key, found, nullptr); }},
                                    {"next", false, [&] { writer->next(key, value, hint = {}); }}};
    struct Damage {
        Word at;
        std::uint32_t word;
        std::string text; ///< {0} is the operation, {1} how it calls a slot
    };
    const Damage damages[] = {
        {kNext, slots[0],
         fmt::format("{}{{0}} hash chain cycle detected, slotCount:{} capacity:{}", map, n + 1, n)},
        {kSequence, slotWord(slots[1], kSequence) & ~1U,
         fmt::format("{}{{0}} slotId: {} not marked as occupied", map, slots[1])},
        {kValue, foreignValue(bucket)[0],
         fmt::format("{}{{0}} corrupt key detected, {{1}}: {}", map, slots[1])},
        {kNext, n,
         fmt::format("SlotWriterTable::Slots Vesk/SlotWriter.operator[] out-of-range index: {} "
                     "max:{}",
                     n, n - 1)}};
    for (const Damage& damage : damages) {
        for (const Operation& operation : operations) {
            slotIs(slots[1], damage.at, damage.word);
            const TableFiles::Image before = files.image();
            EXPECT_EQ(corruption(operation.call),
                      fmt::format(fmt::runtime(damage.text), operation.name,
                                  operation.name == "lookup" ? "slot" : "slotId"));
            EXPECT_EQ(files.critical(), operation.entersCriticalSection) << operation.name;
            files.headerIs(kRuntime, 0);
            EXPECT_EQ(files.image(), before) << operation.name;
            files.imageIs(sound);
        }
    }
}

TEST_F(Operations, ACycleOfBucketsStopsAnIteration) {
    open(); // two empty buckets
    bucketIs(0, kBucketBit | 1);
    bucketIs(1, kBucketBit);
    EXPECT_EQ(corruption([this] { writer->first(value, hint); }),
              map + "first has bucket cycle detected, bucketCount: 2 numBuckets: 2");
    EXPECT_EQ(corruption([this] { writer->hashMap().first(2, value, hint); }),
              "BucketWriter VeskCore/BucketWriter.operator[] out-of-range, index:2 max:1");
}

TEST_F(Operations, ACorruptFreeListStopsAnInsertion) {
    open();
    fill(128);
    files.headerIs(kOccupiedSlots, 127);
    EXPECT_EQ(corruption([this] { writer->write(Shape::value(200, 1), true); }),
              fmt::format("{}grow the slot table is full but numSlots: {{{}, 128}} and "
                          "occupiedSlots: 127 are not equal",
                          slotTable, TestSupport::wordOf(files.slots, 576)));
    EXPECT_TRUE(files.critical());
    files.headerIs(kRuntime, 0);
    files.headerIs(kFreeHead, 128);
    EXPECT_EQ(corruption([this] { writer->directWrite(Shape::value(200, 1)); }),
              "SlotWriterTable::Slots Vesk/SlotWriter.operator[] out-of-range index: 128 max:127");
    EXPECT_TRUE(files.critical());
}

TEST_F(Operations, AFullFixedTableSaysSoAndGoesOn) {
    open(TestSupport::fixedTable(10));
    fill(10);
    for (int round = 0; round < 2; ++round) { // the flag must not stay set
        EXPECT_EQ(raisedBy<Vesk::TableFullException>(
                      [this] { writer->write(Shape::value(50, 1), true); }),
                  slotTable + "alloc Vesk table full (occupancy:10 tableSize:10) " + files.folder);
    }
    EXPECT_TRUE(writer->remove(Shape::key(4), value));
    EXPECT_NE(writer->write(Shape::value(50, 1), true), nullptr);
}

TEST_F(Operations, AProcessorWithoutTheNeededSupport) {
    Mem::Atomics::cpuSupportIs(false);
    EXPECT_EQ(opening(), "VeskWriter Vesk/VeskWriter.initialize Hardware does not support Atomics");
    EXPECT_FALSE(std::filesystem::exists(files.slots));
    EXPECT_NO_THROW(open(Vesk::MapDescriptor(10)));
    Mem::Atomics::cpuSupportIs(true);
}

TEST_F(Operations, FilesThatWereTakenAwayAreMissed) {
    open();
    const std::string marker = files.folder + "/corruption-detected";
    const auto check = [this] {
        return corruption([this] { EXPECT_TRUE(writer->validateFiles()); });
    };
    std::ofstream(marker) << "x";
    EXPECT_EQ(check(), "nothing");
    EXPECT_FALSE(std::filesystem::exists(marker));
    std::ofstream(marker) << "x";
    const std::string head = "Util Vesk/Util.validateFile ";
    for (const std::string& path : {files.slots, files.buckets}) {
        const auto size = std::filesystem::file_size(path);
        std::filesystem::resize_file(path, size - 8);
        EXPECT_EQ(check(), head + fmt::format("{}: size:{} wanted:{}", path, size - 8, size));
        std::filesystem::rename(path, path + "1");
        EXPECT_EQ(check(), head + path + ": No such file or directory");
        std::filesystem::copy_file(path + "1", path);
        EXPECT_EQ(check(), head + path + ": not the file that is mapped");
        std::filesystem::remove(path);
        std::filesystem::create_symlink(path + "1", path);
        EXPECT_EQ(check(), head + path + ": not a regular file");
        std::filesystem::rename(path + "1", path);
        std::filesystem::resize_file(path, size);
    }
    TestSupport::patchWord(files.ravo, 8, 0);
    EXPECT_EQ(check(), fmt::format("RavoFile SharedMem/RavoFile.validate {}: id:0 wanted:{}",
                                   files.ravo, writer->ravoId()));
    EXPECT_TRUE(std::filesystem::exists(marker));
    open(Vesk::MapDescriptor(10)); // a table in process memory has no files to miss
    EXPECT_EQ(check(), "nothing");
}

TEST_F(Operations, ALocalWritersCleanupTakesAllFilesOrNone) {
    // Less would cost the table of that name its entries when its writer starts again.
    open();
    const auto local = TestSupport::openWriter<Shape>("t", Vesk::MapDescriptor(10));
    const TableFiles::Image before = files.image();
    EXPECT_EQ(raisedBy<Pello::InvalidInitializeException>([&] { local->cleanup(); }),
              "WriterLock Mem/WriterLock.acquireWriterLock cannot clean up " + files.folder +
                  ": a writer of this process is attached to it");
    EXPECT_EQ(files.image(), before);
    writer.reset();
    local->cleanup();
    EXPECT_TRUE(std::filesystem::is_empty(files.folder));
}

TEST_F(Operations, DamageWhileTheTableIsFormattedAnew) {
    open();
    writer.reset();
    files.headerIs(kNumSlots, 0);
    int attached = 0;
    const TraceHook hook(0x0004, [&](const std::string& text) {
        if (text == "torvuAttached:1" && ++attached == 2) files.headerIs(kRuntime, kCritical);
    });
    EXPECT_EQ(opening(), "VeskWriter Vesk/VeskWriter.attachAndValidate failed validation");
}

} // namespace
} // namespace ErrorsTest
