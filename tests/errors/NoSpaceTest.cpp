// Files that cannot grow: an error of the operation that needs the space, never a lost entry and
// never a fault of a later store.

#include "TableFiles.h"
#include "platform/SmallFileSystem.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/resource.h>

namespace ErrorsTest {
namespace {

using Shape = TestSupport::SessionShape;

/// The size that this process may give to a file.
void fileSizeIsAtMost(rlim_t size) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = std::min(size, limit.rlim_max);
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) throw std::runtime_error("cannot limit file sizes");
}

/// A table in a small file system.
struct NoSpace : testing::Test {
    void SetUp() override {
        if (!small.problem().empty()) GTEST_SKIP() << small.problem();
        Mem::RootPath::baseIs(small.path());
    }
    void TearDown() override { fileSizeIsAtMost(RLIM_INFINITY); }
    void open() { writer = TestSupport::openWriter<Shape>("a/t", TestSupport::growingTable(10)); }
    void fillTo(std::uint32_t entries) {
        for (std::uint32_t i = writer->members(); i < entries; ++i) {
            writer->write(Shape::value(i, i + 1), true);
        }
    }
    /// The table holds that many entries, and takes no more changes.
    void expectStoppedWith(std::uint32_t entries) {
        const auto content = EngineTest::contentOf<Shape>(*writer);
        EXPECT_EQ(content.size(), entries);
        for (std::uint32_t i = 0; i < entries; ++i) {
            EXPECT_EQ(content.at(Shape::key(i)), i + 1);
        }
        EXPECT_EQ(
            fatalOf([this] { writer->write(Shape::value(0, 5), true); }),
            "SlotWriterTable Vesk/SlotWriter.enterCriticalSection Vesk reentrancy detected: " +
                files.folder);
    }

    TestSupport::TempRoot root;
    TestSupport::SmallFileSystem small{root.path(), 64};
    const TableFiles files{small.path() + "/a/t"};
    std::unique_ptr<TestSupport::WriterOf<Shape>> writer;
    std::string reason = "fallocate: No space left on device";
};

/// What keeps a file from growing.
enum class Limit {
    fileSystem,
    fileSize // RLIMIT_FSIZE, whose SIGXFSZ would end the process
};

struct NoSpaceToGrow : NoSpace, testing::WithParamInterface<Limit> {
    void atLimit(const std::string& file) {
        if (GetParam() == Limit::fileSystem) {
            small.leaveFree(0);
        } else {
            reason = "fallocate: File too large";
            fileSizeIsAtMost(std::filesystem::file_size(file));
        }
    }
};

INSTANTIATE_TEST_SUITE_P(By, NoSpaceToGrow, testing::Values(Limit::fileSystem, Limit::fileSize),
                         [](const auto& limit) {
                             return limit.param == Limit::fileSize ? "fileSize" : "fileSystem";
                         });

TEST_P(NoSpaceToGrow, SlotsThatCannotGrowKeepEveryEntry) {
    open();
    fillTo(300);
    atLimit(files.slots);
    const std::string raised = raisedBy<Pello::MemoryResourceException>([this] { fillTo(1000); });
    const std::uint32_t slots = writer->members(); // the table was full
    const std::uint32_t wanted = slots + (slots + 9) / 10;
    const auto sizeOf = [this](std::uint32_t n) {
        return EngineTest::rawTableOf<Shape>(*writer).slotAt(n);
    };
    EXPECT_EQ(raised, fmt::format("SlotWriterTable Vesk/SlotWriter.resize failed to resize {} from "
                                  "{} to {} slots, needed {} bytes. Reason: {}",
                                  files.slots, slots, wanted, sizeOf(wanted), reason));
    EXPECT_EQ(writer->capacity(), slots);
    EXPECT_EQ(files.header(kNumSlots), slots);
    EXPECT_EQ(std::filesystem::file_size(files.slots), sizeOf(slots));
    expectStoppedWith(slots);
}

TEST_P(NoSpaceToGrow, BucketsThatCannotGrowKeepEveryEntry) {
    open();
    fillTo(512);
    atLimit(files.buckets);
    EXPECT_EQ(
        raisedBy<Pello::MemoryResourceException>([this] { fillTo(513); }),
        fmt::format("BucketWriter VeskCore/BucketWriter.resize failed to resize {} from 512 to "
                    "1024 buckets, needed 8216 bytes. Reason: {}",
                    files.buckets, reason));
    EXPECT_EQ(writer->buckets(), 512U);
    EXPECT_EQ(std::filesystem::file_size(files.buckets), 24U + 8U * 512U);
    expectStoppedWith(513); // the new entry was linked before the buckets had to grow
}

TEST_F(NoSpace, AFirstAttachLeavesNothingBehindWhenItFails) {
    const auto opening = [this] {
        return raisedBy<Pello::InvalidInitializeException>([this] { open(); });
    };
    const std::string noSlots =
        fmt::format("SlotWriterTable Vesk/SlotWriter.attach cannot attach to shmem {} size:{}: {}",
                    files.slots, 688 + 32 * 88, reason);
    const std::string noBuckets =
        fmt::format("BucketWriter VeskCore/BucketWriter.attach cannot attach to shmem {} size:40: "
                    "{}",
                    files.buckets, reason);
    // In the order of their making; that the lock file stays without a text is no error.
    const std::string expected[] = {"OwnerFile SharedMem/OwnerFile.write cannot write " +
                                        files.owner + ": No space left on device",
                                    noSlots, noSlots, noBuckets,
                                    "RavoFile SharedMem/RavoFile.write cannot write " + files.ravo +
                                        ": write: No space left on device"};
    for (std::size_t free = 0; free < std::size(expected); ++free) {
        small.leaveFree(free);
        EXPECT_EQ(opening(), expected[free]);
        EXPECT_FALSE(std::filesystem::exists(small.path() + "/a"));
    }
    // The same by the limit of the process, at the size of each file. That of `buckets` is smaller
    // than the first file's.
    const std::pair<rlim_t, std::string> limited[] = {
        {8, expected[0]}, {688 + 32 * 88 - 1, noSlots}, {4095, expected[4]}};
    small.leaveFree(5);
    for (const auto& [size, text] : limited) {
        fileSizeIsAtMost(size);
        const std::string tooLarge = text.substr(0, text.find("No space")) + std::strerror(EFBIG);
        EXPECT_EQ(opening(), tooLarge);
        EXPECT_FALSE(std::filesystem::exists(small.path() + "/a"));
    }
    fileSizeIsAtMost(RLIM_INFINITY);
    open();
    fillTo(1);
    writer.reset();
    open(); // sound files need no space
    EXPECT_EQ(writer->members(), 1U);
    writer.reset();
    std::filesystem::remove(files.buckets); // what was there before a failure stays
    small.leaveFree(0);
    const TableFiles::Image before = files.image();
    EXPECT_EQ(opening(), noBuckets);
    EXPECT_EQ(files.image(), before);
    std::filesystem::remove(files.slots); // so does an identity alone
    small.leaveFree(0);
    EXPECT_EQ(opening(), noSlots);
    EXPECT_EQ(files.image()[2], before[2]);
}

TEST_F(NoSpace, AnAttachFailsOverAFileThatGrowsMeanwhile) {
    open();
    writer.reset();
    files.headerIs(kNumSlots, 0); // to be formatted anew
    const TraceHook hook(0x0001, [this](const std::string& text) {
        if (text.starts_with("bad numSlots:0")) {
            std::filesystem::resize_file(files.slots, 1U << 20U);
        }
    });
    EXPECT_EQ(raisedBy<Pello::MemoryResourceException>([this] { open(); }),
              "SlotWriterTable Vesk/SlotWriter.attach failed to resize " + files.slots +
                  " to size 1048576 : " + reason);
}

} // namespace
} // namespace ErrorsTest
