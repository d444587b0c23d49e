// Files that cannot grow: an error of the operation that needs the space, never a lost entry and
// never a fault of a later store.

#include "SmallFileSystem.h"
#include "TableFiles.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <optional>

namespace ErrorsTest {
namespace {

using Shape = TestSupport::SessionShape;
using TestSupport::FileSizeLimit;
using TestSupport::SmallFileSystem;

enum class Shortage {
    fileSystem,
    fileSize
};

/// A table in a small file system, whose files can be kept from growing.
struct NoSpace : testing::TestWithParam<Shortage> {
    void SetUp() override {
        if (!small.problem().empty()) GTEST_SKIP() << small.problem();
        Mem::RootPath::baseIs(small.path());
    }
    void open() { writer = TestSupport::openWriter<Shape>("a/t", TestSupport::growingTable(10)); }
    void fill(std::uint32_t from, std::uint32_t to) {
        for (std::uint32_t i = from; i < to; ++i) {
            writer->write(Shape::value(i, i + 1), true);
        }
    }
    /// From here on the file that has this size now, or any larger one, cannot grow.
    void exhaust(const std::string& path) {
        if (GetParam() == Shortage::fileSystem) {
            small.leaveFree(0);
        } else {
            limit.emplace(std::filesystem::file_size(path));
        }
    }
    std::string reason() const {
        return GetParam() == Shortage::fileSystem ? "fallocate: No space left on device"
                                                  : "fallocate: File too large";
    }
    /// Entries that are readable and whole; all keys below the number are looked up.
    std::uint32_t readable(std::uint32_t keys) const {
        std::uint32_t whole = 0;
        for (std::uint32_t i = 0; i < keys; ++i) {
            bool found = false;
            const auto* const value = writer->lookup(Shape::key(i), found, nullptr);
            whole += found && Shape::whole(*value) && Shape::generation(*value) == i + 1 ? 1U : 0U;
        }
        return whole;
    }
    void expectStopped() {
        EXPECT_NE(files.header(kRuntime) & kCritical, 0U);
        EXPECT_EQ(
            fatalOf([this] { writer->write(Shape::value(0, 5), true); }),
            "SlotWriterTable Vesk/SlotWriter.enterCriticalSection Vesk reentrancy detected: " +
                files.folder);
    }

    TestSupport::TempRoot root;
    SmallFileSystem small{root.path(), 64};
    TableFiles files{small.path() + "/a/t", sizeof(Shape::V)};
    std::unique_ptr<TestSupport::WriterOf<Shape>> writer;
    std::optional<FileSizeLimit> limit;
};

INSTANTIATE_TEST_SUITE_P(Shortages, NoSpace,
                         testing::Values(Shortage::fileSystem, Shortage::fileSize),
                         [](const auto& param) {
                             return param.param == Shortage::fileSystem ? "fileSystem" : "fileSize";
                         });

TEST_P(NoSpace, SlotsThatCannotGrowKeepEveryEntry) {
    open();
    fill(0, 300);
    exhaust(files.slots);
    std::uint32_t stored = 300;
    std::string raised = "nothing";
    while (raised == "nothing" && stored < 1000) {
        raised = raisedBy<Pello::MemoryResourceException>([&] { fill(stored, stored + 1); });
        if (raised == "nothing") ++stored;
    }
    const std::uint32_t slots = stored; // the table was full
    const auto wanted = static_cast<std::uint32_t>(std::ceil(static_cast<float>(slots) * 1.1F));
    EXPECT_EQ(raised, fmt::format("SlotWriterTable Vesk/SlotWriter.resize failed to resize {} from "
                                  "{} to {} slots, needed {} bytes. Reason: {}",
                                  files.slots, slots, wanted, files.offsetOf(wanted), reason()));
    EXPECT_EQ(writer->capacity(), slots);
    EXPECT_EQ(files.numSlots(), slots);
    EXPECT_EQ(std::filesystem::file_size(files.slots), files.offsetOf(slots));
    EXPECT_EQ(writer->members(), stored);
    EXPECT_EQ(readable(stored + 1), stored);
    expectStopped();
}

TEST_P(NoSpace, BucketsThatCannotGrowKeepEveryEntry) {
    open();
    fill(0, 512);
    ASSERT_EQ(files.numBuckets(), 512U);
    ASSERT_GT(files.numSlots(), 512U);
    exhaust(files.buckets);
    EXPECT_EQ(
        raisedBy<Pello::MemoryResourceException>([&] { fill(512, 513); }),
        fmt::format("BucketWriter VeskCore/BucketWriter.resize failed to resize {} from 512 to "
                    "1024 buckets, needed 8216 bytes. Reason: {}",
                    files.buckets, reason()));
    EXPECT_EQ(files.numBuckets(), 512U);
    EXPECT_EQ(std::filesystem::file_size(files.buckets), 24U + 8U * 512U);
    EXPECT_EQ(readable(513), 513U) << "the new entry was linked before the buckets had to grow";
    expectStopped();
}

TEST_P(NoSpace, ASecondWriterOverSoundFilesNeedsNoSpace) {
    open();
    fill(0, 100);
    writer.reset();
    exhaust(files.ravo);
    open();
    EXPECT_EQ(readable(100), 100U);
}

struct FirstAttach : NoSpace {};

INSTANTIATE_TEST_SUITE_P(OnAFullFileSystem, FirstAttach, testing::Values(Shortage::fileSystem),
                         [](const auto&) { return "fileSystem"; });

TEST_P(FirstAttach, LeavesNothingBehindWhenItFails) {
    const auto cannot = [this](const char* who, const std::string& file, unsigned size) {
        return fmt::format("{}.attach cannot attach to shmem {} size:{}: {}", who, file, size,
                           reason());
    };
    const std::string expected[] = {
        cannot("SlotWriterTable Vesk/SlotWriter", files.slots, 688 + 32 * 88),
        cannot("BucketWriter VeskCore/BucketWriter", files.buckets, 40),
        "RavoFile SharedMem/RavoFile.write cannot write " + files.ravo +
            ": No space left on device"};
    for (std::size_t free = 0; free < std::size(expected); ++free) {
        small.leaveFree(free);
        EXPECT_EQ(raisedBy<Pello::InvalidInitializeException>([&] { open(); }), expected[free]);
        EXPECT_FALSE(std::filesystem::exists(small.path() + "/a"));
    }
    small.leaveFree(3);
    open();
    writer->write(Shape::value(1, 1), true);
    writer.reset();
    std::filesystem::remove(files.buckets); // what was there before a failure stays
    small.leaveFree(0);
    const TableFiles::Image before = files.image();
    EXPECT_EQ(raisedBy<Pello::InvalidInitializeException>([&] { open(); }), expected[1]);
    EXPECT_EQ(files.image(), before);
    std::filesystem::remove(files.slots); // so does an identity alone
    small.leaveFree(0);
    EXPECT_EQ(raisedBy<Pello::InvalidInitializeException>([&] { open(); }), expected[0]);
    EXPECT_EQ(files.image().ravo, before.ravo);
}

TEST_P(FirstAttach, FailsOverAFileThatGrowsMeanwhile) {
    open();
    writer.reset();
    files.headerIs(kNumSlots, 0); // to be formatted anew
    const TraceHook hook(0x0001, [this](const std::string& text) {
        if (text.starts_with("bad numSlots:0"))
            std::filesystem::resize_file(files.slots, 1U << 20U);
    });
    EXPECT_EQ(raisedBy<Pello::MemoryResourceException>([&] { open(); }),
              "SlotWriterTable Vesk/SlotWriter.attach failed to resize " + files.slots +
                  " to size 1048576 : " + reason());
}

} // namespace
} // namespace ErrorsTest
