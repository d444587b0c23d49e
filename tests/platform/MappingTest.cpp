// Mappings: what they hold over growth, shrinking and failure, and which files they take.

#include "Mem/Mapping.h"
#include "Environment.h"
#include "SmallFileSystem.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <random>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

using Bytes = std::vector<unsigned char>;

struct FileMapping : testing::Test {
    static Mem::OruRootPath folder() {
        return Mem::OruRootPath(*Pello::Platform::getDebugHandler("test", false), "t", true);
    }

    TestSupport::TempRoot root;
    Mem::OruRootPath table = folder();
};

struct AnyMapping : FileMapping, testing::WithParamInterface<Mem::SharedMemWrapper::Options> {
    bool isFile() const { return !GetParam().local; }

    Mem::SharedMemWrapper mapping{table, "f", GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Of, AnyMapping,
                         testing::Values(Mem::SharedMemWrapper::Options{false, false},
                                         Mem::SharedMemWrapper::Options{true, false},
                                         Mem::SharedMemWrapper::Options{true, true}),
                         [](const auto& mapping) {
                             if (!mapping.param.local) return "file";
                             return mapping.param.heapAlloc ? "heap" : "pages";
                         });

Bytes contentOf(const Mem::Mapping& mapping) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(mapping.base());
    return {bytes, bytes + mapping.size()};
}

/// Not every byte of the file has memory behind it.
bool hasHoles(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) throw std::runtime_error("no " + path);
    return status.st_blocks * 512 < status.st_size;
}

TEST_P(AnyMapping, KeepsItsContentAndZeroesWhatIsNew) {
    std::mt19937 random(TestSupport::seedFor("mapping", 1));
    ASSERT_TRUE(mapping->attachAs(40)) << mapping->error();
    Bytes model(40);
    for (const std::uint64_t size :
         {5000U, 4097U, 100U, 41U, 4096U, 12288U, 8U, 300000U, 8192U, 8200U, 16384U}) {
        ASSERT_TRUE(mapping->resize(size)) << mapping->error();
        model.resize(size);
        ASSERT_EQ(contentOf(*mapping.get()), model) << "after resizing to " << size;
        for (unsigned char& byte : model) {
            byte = static_cast<unsigned char>(random() | 1U);
        }
        std::memcpy(mapping->base(), model.data(), model.size());
        if (isFile()) {
            EXPECT_EQ(TestSupport::fileBytes(mapping->name()), model);
            EXPECT_FALSE(hasHoles(mapping->name()));
        }
    }
}

TEST_P(AnyMapping, AFailedGrowthChangesNothing) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    if (GetParam().heapAlloc) GTEST_SKIP() << "the sanitizer's allocator aborts instead";
#endif
    ASSERT_TRUE(mapping->attachAs(5000));
    std::memset(mapping->base(), 7, 5000);
    const std::byte* const base = mapping->base();
    EXPECT_FALSE(mapping->resize(std::uint64_t{1} << 62U));
    EXPECT_EQ(mapping->error().substr(0, 11), isFile() ? "fallocate: " : "Cannot allo");
    EXPECT_EQ(mapping->base(), base);
    EXPECT_EQ(contentOf(*mapping.get()), Bytes(5000, 7));
    EXPECT_EQ(mapping->existingSize(), 5000U);
    EXPECT_TRUE(mapping->resize(9000)) << mapping->error();
}

TEST_F(FileMapping, AttachingFillsFilesUpAndNeverTruncates) {
    const std::string path = table.filePath("f");
    for (const std::size_t existing : {10U, 4096U, 10000U, 1U << 20U}) {
        std::ofstream(path) << 'x';
        fs::resize_file(path, existing); // sparse
        Mem::Shared mapping(table, "f");
        ASSERT_TRUE(mapping.attachAs(4096)) << mapping.error();
        Bytes expected(std::max<std::size_t>(existing, 4096));
        expected[0] = 'x';
        EXPECT_EQ(contentOf(mapping), expected);
        EXPECT_EQ(TestSupport::fileBytes(path), expected);
        EXPECT_FALSE(hasHoles(path));
    }
}

TEST_F(FileMapping, AFullFileSystemIsAnErrorAndLeavesTheFilesAsTheyWere) {
    TestSupport::SmallFileSystem small(root.path(), 16);
    if (!small.problem().empty()) GTEST_SKIP() << small.problem();
    Mem::RootPath::baseIs(small.path());
    const Mem::OruRootPath full = folder();
    std::ofstream(full.filePath("sparse")) << "x";
    fs::resize_file(full.filePath("sparse"), 40960);
    Mem::Shared grown(full, "grown");
    ASSERT_TRUE(grown.attachAs(4096));
    std::memset(grown.base(), 7, 4096);
    small.leaveFree(1);

    Mem::Shared fresh(full, "fresh");
    EXPECT_FALSE(fresh.attachAs(8192));
    EXPECT_EQ(fresh.error(), "fallocate: No space left on device");
    EXPECT_FALSE(fs::exists(full.filePath("fresh")));
    EXPECT_FALSE(Mem::Shared(full, "sparse").attachAs(65536));
    EXPECT_EQ(fs::file_size(full.filePath("sparse")), 40960U);
    EXPECT_FALSE(grown.resize(16384));
    EXPECT_EQ(TestSupport::fileBytes(full.filePath("grown")), Bytes(4096, 7));
    EXPECT_TRUE(grown.resize(8192)) << "what a failure took was not given back";
}

TEST_F(FileMapping, RefusesWhatIsNoRegularFile) {
    std::ofstream(table.filePath("target")) << "x";
    fs::create_symlink("target", table.filePath("link"));
    fs::create_directory(table.filePath("folder"));
    ASSERT_EQ(mkfifo(table.filePath("fifo").c_str(), 0644), 0);
    const std::pair<const char*, const char*> cases[] = {
        {"link", "open: Too many levels of symbolic links"},
        {"folder", "open: Is a directory"},
        {"fifo", "not a regular file"}};
    for (const auto& [name, error] : cases) {
        Mem::Shared mapping(table, name);
        EXPECT_FALSE(mapping.attachAs(4096)) << name;
        EXPECT_EQ(mapping.error(), error);
        EXPECT_EQ(mapping.base(), nullptr);
        EXPECT_TRUE(fs::exists(table.filePath(name))) << name << " was removed";
    }
    EXPECT_EQ(fs::file_size(table.filePath("target")), 1U);
}

} // namespace
