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

using TestSupport::TempRoot;

constexpr std::uint64_t kTooMuch = std::uint64_t{1} << 62U;

struct AnyMapping : testing::TestWithParam<Mem::SharedMemWrapper::Options> {
    bool isFile() const { return !GetParam().local; }

    TempRoot root;
    Mem::OruRootPath table{*Pello::Platform::getDebugHandler("test", false), "t", true};
    Mem::SharedMemWrapper mapping{table, "f", GetParam()};
};

INSTANTIATE_TEST_SUITE_P(Kinds, AnyMapping,
                         testing::Values(Mem::SharedMemWrapper::Options{false, false},
                                         Mem::SharedMemWrapper::Options{true, false},
                                         Mem::SharedMemWrapper::Options{true, true}),
                         [](const auto& param) {
                             if (!param.param.local) return "file";
                             return param.param.heapAlloc ? "heap" : "anonymous";
                         });

std::vector<unsigned char> contentOf(const Mem::Mapping& mapping) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(mapping.base());
    return {bytes, bytes + mapping.size()};
}

struct stat statusOf(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) throw std::runtime_error("no " + path);
    return status;
}

/// Every byte of the file has memory behind it.
bool hasHoles(const std::string& path) {
    const struct stat status = statusOf(path);
    return status.st_blocks * 512 < status.st_size;
}

TEST_P(AnyMapping, KeepsItsContentAndZeroesWhatIsNew) {
    std::mt19937 random(TestSupport::seedFor("mapping", 1));
    ASSERT_TRUE(mapping->attachAs(40)) << mapping->error();
    std::vector<unsigned char> model(40);
    for (const std::uint64_t size :
         {5000U, 4097U, 100U, 41U, 4096U, 12288U, 8U, 300000U, 8192U, 8200U, 16384U}) {
        ASSERT_TRUE(mapping->resize(size)) << mapping->error();
        model.resize(size);
        ASSERT_EQ(mapping->size(), size);
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
    EXPECT_FALSE(mapping->resize(kTooMuch));
    EXPECT_EQ(mapping->error().substr(0, 11), isFile() ? "fallocate: " : "Cannot allo");
    EXPECT_EQ(mapping->base(), base);
    EXPECT_EQ(contentOf(*mapping.get()), std::vector<unsigned char>(5000, 7));
    EXPECT_EQ(mapping->existingSize(), 5000U);
    EXPECT_TRUE(mapping->resize(9000)) << mapping->error();
}

struct FileMapping : testing::Test {
    std::string write(const std::string& name, std::size_t size) {
        const std::string path = table.filePath(name);
        std::ofstream(path) << std::string(size, 'x');
        return path;
    }

    TempRoot root;
    Mem::OruRootPath table{*Pello::Platform::getDebugHandler("test", false), "t", true};
};

TEST_F(FileMapping, AttachingNeverTruncates) {
    for (const std::size_t existing : {10U, 4096U, 10000U}) {
        const std::string path = write("f", existing);
        Mem::Shared mapping(table, "f");
        ASSERT_TRUE(mapping.attachAs(4096)) << mapping.error();
        const std::size_t size = std::max<std::size_t>(existing, 4096);
        EXPECT_EQ(mapping.size(), size);
        std::vector<unsigned char> expected(existing, 'x');
        expected.resize(size);
        EXPECT_EQ(TestSupport::fileBytes(path), expected);
        EXPECT_EQ(contentOf(mapping), expected);
    }
}

TEST_F(FileMapping, FillsTheHolesOfASparseFile) {
    const std::string path = write("f", 1);
    std::filesystem::resize_file(path, 1U << 20U);
    TestSupport::patchWord(path, (1U << 20U) - 4, 0xABCD);
    ASSERT_TRUE(hasHoles(path));
    Mem::Shared mapping(table, "f");
    ASSERT_TRUE(mapping.attachAs(40)) << mapping.error();
    EXPECT_FALSE(hasHoles(path));
    EXPECT_EQ(mapping.size(), 1U << 20U);
    EXPECT_EQ(static_cast<char>(*mapping.base()), 'x');
    EXPECT_EQ(TestSupport::wordOf(path, (1U << 20U) - 4), 0xABCDU);
}

TEST_F(FileMapping, AFullFileSystemIsAnErrorAndLeavesTheFilesAsTheyWere) {
    TestSupport::SmallFileSystem small(root.path(), 16);
    if (!small.problem().empty()) GTEST_SKIP() << small.problem();
    Mem::RootPath::baseIs(small.path());
    const Mem::OruRootPath full(*Pello::Platform::getDebugHandler("test", false), "t", true);
    std::ofstream(full.filePath("sparse")) << "x";
    std::filesystem::resize_file(full.filePath("sparse"), 40960);
    Mem::Shared grown(full, "grown");
    ASSERT_TRUE(grown.attachAs(4096));
    std::memset(grown.base(), 7, 4096);
    small.leaveFree(1);

    Mem::Shared fresh(full, "fresh");
    EXPECT_FALSE(fresh.attachAs(8192));
    EXPECT_EQ(fresh.error(), "fallocate: No space left on device");
    EXPECT_FALSE(std::filesystem::exists(full.filePath("fresh")));
    Mem::Shared sparse(full, "sparse");
    EXPECT_FALSE(sparse.attachAs(65536));
    EXPECT_EQ(statusOf(full.filePath("sparse")).st_size, 40960);
    EXPECT_FALSE(grown.resize(16384));
    EXPECT_EQ(contentOf(grown), std::vector<unsigned char>(4096, 7));
    EXPECT_EQ(statusOf(full.filePath("grown")).st_size, 4096);
    EXPECT_TRUE(grown.resize(8192)) << "what a failure took was not given back";
}

TEST_F(FileMapping, RefusesWhatIsNoRegularFile) {
    const std::string target = write("target", 10);
    std::filesystem::create_symlink(target, table.filePath("link"));
    std::filesystem::create_directory(table.filePath("folder"));
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
        EXPECT_TRUE(std::filesystem::exists(table.filePath(name))) << name << " was removed";
    }
    EXPECT_EQ(TestSupport::fileBytes(target).size(), 10U);
}

} // namespace
