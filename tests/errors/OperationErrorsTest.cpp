// What operations on a damaged, full or unusable table raise, and that they change nothing then.

#include "Mem/Atomics.h"
#include "TableFiles.h"
#include "Vesk/Util.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace ErrorsTest {
namespace {

using Pello::CorruptionDetectedException;
using Pello::InvalidInitializeException;
using Shape = TestSupport::ErrorShape;
using TestSupport::fixedTable;
using TestSupport::growingTable;
using TestSupport::openWriter;

struct Operations : testing::Test {
    using Writer = TestSupport::WriterOf<Shape>;

    void open(const Vesk::MapDescriptor& descriptor) {
        writer.reset();
        writer = openWriter<Shape>("t", descriptor);
    }
    void fill(std::uint32_t entries) {
        for (std::uint32_t i = 0; i < entries; ++i) {
            writer->write(Shape::value(i, i), true);
        }
    }
    Shape::Key keyIn(std::uint32_t slot) const {
        return Shape::key(files.valueOf(slot)[0] & 0xFFU);
    }
    std::string opening(const std::string& table = "t") {
        return raisedBy<InvalidInitializeException>(
            [&] { writer.reset(), writer = openWriter<Shape>(table, growingTable()); });
    }
    bool critical() const { return (files.header(kRuntime) & kCritical) != 0; }

    TestSupport::TempRoot root;
    TableFiles files{root.path() + "/t", sizeof(Shape::V)};
    std::unique_ptr<Writer> writer;
};

TEST_F(Operations, CorruptChainsEndInAnErrorOfTheWalkThatMeetsThem) {
    open(growingTable());
    fill(200);
    const TableFiles::Image sound = files.image();
    const std::uint32_t bucket = files.bucketWith(3);
    const std::vector<std::uint32_t> chain = files.chain(bucket);
    const Shape::Key key = keyIn(chain[2]);
    Writer::Value value;
    bool found = false;
    Vesk::IterHint hint;
    struct Operation {
        const char* name;
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
    const auto expectRaised = [&](SlotWord at, const std::vector<std::uint32_t>& words,
                                  const std::string& text) {
        for (const Operation& operation : operations) {
            TestSupport::patchFile(files.slots, files.offsetOf(chain[1]) + at, words.data(),
                                   4 * words.size());
            const TableFiles::Image before = files.image();
            const char* const slot =
                operation.name == std::string_view("lookup") ? "slot" : "slotId";
            EXPECT_EQ(raisedBy<CorruptionDetectedException>(operation.call),
                      fmt::format(fmt::runtime(text), operation.name, slot));
            EXPECT_EQ(critical(), operation.entersCriticalSection) << operation.name;
            files.headerIs(kRuntime, 0);
            EXPECT_EQ(files.image(), before) << operation.name;
            files.imageIs(sound);
        }
    };
    const std::string map = "WriterHashMap VeskCore/WriterHashMap.{0} ";
    const std::uint32_t n = files.numSlots();
    expectRaised(kNext, {chain[0]},
                 map +
                     fmt::format("hash chain cycle detected, slotCount:{} capacity:{}", n + 1, n));
    expectRaised(kSequence, {files.slot(chain[1], kSequence) & ~1U},
                 map + fmt::format("slotId: {} not marked as occupied", chain[1]));
    expectRaised(kValue, files.valueOf(files.slotOutside(bucket)),
                 map + fmt::format("corrupt key detected, {{1}}: {}", chain[1]));
    expectRaised(
        kNext, {n},
        fmt::format("SlotWriterTable::Slots Vesk/SlotWriter.operator[] out-of-range index: "
                    "{} max:{}",
                    n, n - 1));
    EXPECT_TRUE(writer->validate());
}

TEST_F(Operations, CorruptChainsStopAnIteration) {
    open(growingTable());
    fill(200);
    const TableFiles::Image sound = files.image();
    Writer::Value value;
    Vesk::IterHint hint;
    ASSERT_TRUE(writer->first(value, hint));
    const std::uint32_t head = hint.slot;
    const std::uint32_t bucket = files.bucketWith(2);
    const std::uint32_t end = files.chain(bucket).back();
    const std::string map = "WriterHashMap VeskCore/WriterHashMap.";
    const auto first = [&] {
        return raisedBy<CorruptionDetectedException>([&] { writer->first(value, hint); });
    };
    const auto next = [&] {
        const Shape::Key key = keyIn(end);
        return raisedBy<CorruptionDetectedException>([&] { writer->next(key, value, hint = {}); });
    };
    files.slotIs(head, kSequence, 4);
    EXPECT_EQ(first(), map + fmt::format("first slotId: {} from bucket: {} not marked as occupied",
                                         head, hint.bucket));
    files.imageIs(sound);
    files.slotIs(head, kValue, files.valueOf(files.slotOutside(hint.bucket))[0]);
    EXPECT_EQ(first(), map + fmt::format("first corrupt key detected, slotId: {}", head));
    files.imageIs(sound);
    files.slotIs(end, kNext, kEnd);
    EXPECT_EQ(next(), map + fmt::format("next thinks we've reached the end of the table, but we're "
                                        "in bucket {} when there are numBuckets: 256",
                                        bucket));
    files.slotIs(end, kNext, kBucketBit | bucket);
    EXPECT_EQ(next(), map + fmt::format("verifyNextBucket has bucket: {} with next bucket: {} and "
                                        "numBuckets: 256",
                                        bucket, bucket));
    EXPECT_EQ(
        raisedBy<CorruptionDetectedException>([&] { writer->hashMap().first(256, value, hint); }),
        "BucketWriter VeskCore/BucketWriter.operator[] out-of-range, index:256 max:255");

    writer->cleanup();
    open(growingTable()); // two empty buckets
    files.bucketIs(0, kEnd);
    EXPECT_EQ(first(), map +
                           "first thinks we've reached the end of the table, but we're in bucket 0 "
                           "when there are numBuckets: 2");
    files.bucketIs(0, kBucketBit | 1);
    files.bucketIs(1, kBucketBit);
    EXPECT_EQ(first(), map + "first has bucket cycle detected, bucketCount: 2 numBuckets: 2");
    EXPECT_FALSE(writer->validate());
}

TEST_F(Operations, ACorruptFreeListStopsAnInsertion) {
    open(growingTable());
    fill(128);
    files.headerIs(kOccupiedSlots, 127);
    EXPECT_EQ(
        raisedBy<CorruptionDetectedException>([&] { writer->write(Shape::value(200, 1), true); }),
        fmt::format("SlotWriterTable Vesk/SlotWriter.grow the slot table is full but numSlots: "
                    "{{{}, 128}} and occupiedSlots: 127 are not equal",
                    TestSupport::wordOf(files.slots, 576)));
    EXPECT_TRUE(critical());
    files.headerIs(kRuntime, 0);
    files.headerIs(kFreeHead, 128);
    EXPECT_EQ(
        raisedBy<CorruptionDetectedException>([&] { writer->directWrite(Shape::value(200, 1)); }),
        "SlotWriterTable::Slots Vesk/SlotWriter.operator[] out-of-range index: 128 max:127");
    EXPECT_TRUE(critical());
}

TEST_F(Operations, AFullFixedTableChangesNothing) {
    open(fixedTable(10));
    fill(10);
    const TableFiles::Image before = files.image();
    const std::string text = "SlotWriterTable Vesk/SlotWriter.alloc Vesk table full (occupancy:10 "
                             "tableSize:10) " +
                             files.folder;
    for (int round = 0; round < 2; ++round) { // the flag must not stay set
        EXPECT_EQ(
            raisedBy<Vesk::TableFullException>([&] { writer->write(Shape::value(50, 1), true); }),
            text);
        EXPECT_EQ(
            raisedBy<Vesk::TableFullException>([&] { writer->directWrite(Shape::value(50, 1)); }),
            text);
        EXPECT_EQ(files.image(), before);
    }
    writer->write(Shape::value(3, 77), true);
    Writer::Value value;
    EXPECT_TRUE(writer->remove(Shape::key(4), value));
    EXPECT_NE(writer->write(Shape::value(50, 1), true), nullptr);
    EXPECT_TRUE(writer->validate());
}

TEST_F(Operations, AProcessorWithoutTheNeededSupport) {
    Mem::Atomics::cpuSupportIs(false);
    EXPECT_EQ(opening(), "VeskWriter Vesk/VeskWriter.initialize Hardware does not support Atomics");
    EXPECT_FALSE(std::filesystem::exists(files.slots));
    EXPECT_EQ(raisedBy<InvalidInitializeException>([&] { open(Vesk::MapDescriptor(10)); }),
              "nothing");
    Mem::Atomics::cpuSupportIs(true);
}

TEST_F(Operations, FilesThatCannotBeAttached) {
    std::filesystem::create_directories(files.slots);
    EXPECT_EQ(opening(), "SlotWriterTable Vesk/SlotWriter.attach cannot attach to shmem " +
                             files.slots + " size:3696: open: Is a directory");
    std::filesystem::remove(files.slots);
    std::filesystem::create_symlink("elsewhere", files.buckets);
    EXPECT_EQ(opening(), "BucketWriter VeskCore/BucketWriter.attach cannot attach to shmem " +
                             files.buckets + " size:40: open: Too many levels of symbolic links");
    EXPECT_FALSE(std::filesystem::exists(files.folder + "/elsewhere"));
    std::filesystem::remove(files.buckets);
    std::filesystem::create_directories(files.ravo);
    EXPECT_EQ(opening(),
              "RavoFile SharedMem/RavoFile.write cannot write " + files.ravo + ": Is a directory");
    EXPECT_EQ(opening("t/../u"),
              "OruRootPath Mem/RootPath.OruRootPath bad table name \"t/../u\": empty, \".\" and "
              "\"..\" components are not allowed");
    std::ofstream(root.path() + "/file") << "x";
    EXPECT_EQ(opening("file"), "OruRootPath Mem/RootPath.OruRootPath cannot create folder " +
                                   root.path() + "/file: Not a directory");
}

TEST_F(Operations, FilesThatWereTakenAwayAreMissed) {
    open(growingTable());
    const std::string marker = files.folder + "/corruption-detected";
    const auto mark = [&] { std::ofstream(marker) << "x"; };
    const auto check = [this] {
        return raisedBy<CorruptionDetectedException>(
            [this] { EXPECT_TRUE(writer->validateFiles()); });
    };
    mark();
    EXPECT_EQ(check(), "nothing");
    EXPECT_FALSE(std::filesystem::exists(marker));
    mark();
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
    open(growingTable());
    openWriter<Shape>("t", Vesk::MapDescriptor(10))->cleanup();
    const bool kept = std::filesystem::exists(files.slots);
    EXPECT_EQ(std::filesystem::exists(files.buckets), kept);
    EXPECT_EQ(std::filesystem::exists(files.ravo), kept);
}

TEST_F(Operations, DamageWhileTheTableIsFormattedAnew) {
    open(growingTable());
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
