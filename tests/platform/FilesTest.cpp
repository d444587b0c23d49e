// Folders and identity files of a table.

#include "Environment.h"
#include "Mem/Mapping.h"
#include "Raised.h"
#include "SharedMem/RavoFile.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

using Pello::InvalidInitializeException;
using SharedMem::RavoFile;
using SharedMem::RavoId;
using TestSupport::raisedBy;

struct TableFolder : testing::Test {
    Mem::OruRootPath folder(const std::string& name, bool create = true) const {
        return Mem::OruRootPath(*handler, name, create);
    }
    std::string refusal(const std::string& name) const {
        return raisedBy<InvalidInitializeException>([&] { folder(name); });
    }
    bool empty() const { return fs::is_empty(root.path()); }

    TestSupport::TempRoot root;
    std::shared_ptr<Pello::Platform::DebugHandler> handler =
        Pello::Platform::getDebugHandler("test", false);
};

TEST_F(TableFolder, RefusesNamesThatCouldLeaveTheBase) {
    for (const char* const name :
         {"", "/", "///", ".", "..", "a//b", "a/", "a/../b", "./a", "a/.."}) {
        EXPECT_EQ(refusal(name), fmt::format("bad table name \"{}\": empty, \".\" and \"..\" "
                                             "components are not allowed",
                                             name));
    }
    EXPECT_TRUE(empty());
    EXPECT_EQ(folder("/a/..b").path(), root.path() + "/a/..b");
    EXPECT_EQ(folder("//x/y", false).dirName(), "x/y");
    EXPECT_FALSE(fs::exists(root.path() + "/x")) << "a reader made a folder";
}

TEST_F(TableFolder, AFailureToCreateLeavesNothing) {
    const std::string longName(300, 'n');
    EXPECT_EQ(refusal("a/b/" + longName),
              "cannot create folder " + root.path() + "/a/b/" + longName + ": File name too long");
    EXPECT_TRUE(empty());
    std::ofstream(root.path() + "/file") << "x";
    EXPECT_EQ(refusal("file/a"), "cannot create folder " + root.path() + "/file: Not a directory");
    EXPECT_TRUE(fs::is_regular_file(root.path() + "/file"));
}

TEST_F(TableFolder, EmptyFoldersGoUpToTheBase) {
    folder("a/d");
    folder("a/b/c").removeEmptyFolders();
    EXPECT_TRUE(fs::exists(root.path() + "/a/d") && !fs::exists(root.path() + "/a/b"));
    folder("a/d").removeEmptyFolders();
    EXPECT_TRUE(empty());
}

TEST_F(TableFolder, EverybodyMayReadWhateverTheUmask) {
    for (const mode_t mask : {0077U, 0000U, 0777U}) {
        const mode_t before = umask(mask);
        const Mem::OruRootPath table = folder(fmt::format("a{}/b", mask));
        EXPECT_TRUE(Mem::Shared(table, "f").attachAs(40));
        RavoFile(*handler, table, false).write(RavoId(1));
        umask(before);
        const std::string path = table.path();
        for (const std::string& each : {path + "/..", path, path + "/f", path + "/ravo"}) {
            EXPECT_EQ(static_cast<unsigned>(fs::status(each).permissions()),
                      fs::is_directory(each) ? 0755U : 0644U)
                << each;
        }
    }
}

TEST_F(TableFolder, TheIdentityReadsBackOrIsNone) {
    const Mem::OruRootPath table = folder("t");
    const std::string path = table.filePath("ravo");
    RavoFile file(*handler, table, false);
    EXPECT_EQ(file.read(), RavoId());
    EXPECT_EQ(file.mtime(), 0);
    file.write(RavoId(4660, 5));
    EXPECT_EQ(RavoFile(*handler, table, false).read(), RavoId(4660, 5));
    EXPECT_GT(file.mtime(), 1.6e9);
    std::vector<unsigned char> image{'R',  'A',  'V',  'O',  0x34, 0x12, 0x05, 0x00,
                                     0xCB, 0xED, 0xFA, 0xFF, 0x01, 0x00, 0x00, 0x00};
    image.resize(4096);
    EXPECT_EQ(TestSupport::fileBytes(path), image);
    for (const std::uint64_t offset : {0U, 4U, 8U, 12U}) { // a word of each kind, garbled
        TestSupport::patchWord(path, offset, TestSupport::wordOf(path, offset) ^ 0x100U);
        EXPECT_EQ(file.read(), RavoId()) << "word at " << offset;
        TestSupport::patchFile(path, 0, image.data(), image.size());
    }
    fs::resize_file(path, 15);
    EXPECT_EQ(file.read(), RavoId());
    file.write(RavoId(7));
    const auto validated = [&file](std::uint32_t id) {
        return raisedBy<Pello::CorruptionDetectedException>([&] { file.validate(RavoId(id)); });
    };
    EXPECT_EQ(validated(7), "nothing");
    EXPECT_EQ(validated(8), path + ": id:7 wanted:8");
}

TEST_F(TableFolder, TheIdentityIsNeverWrittenThroughALink) {
    const Mem::OruRootPath table = folder("t");
    const std::string path = table.filePath("ravo");
    std::ofstream(table.filePath("target")) << "x";
    fs::create_symlink("target", path);
    EXPECT_EQ(raisedBy<InvalidInitializeException>(
                  [&] { RavoFile(*handler, table, false).write(RavoId(7)); }),
              "cannot write " + path + ": open: Too many levels of symbolic links");
    RavoFile local(*handler, table, true);
    local.write(RavoId(9));
    EXPECT_EQ(local.read(), RavoId(9));
    EXPECT_EQ(fs::file_size(table.filePath("target")), 1U);
}

TEST(RavoIdTest, NoGenerationIsNone) {
    EXPECT_EQ(RavoId(5, 0xFFFF).nextGeneration(), RavoId(5, 0));
    EXPECT_EQ(RavoId(0, 0xFFFF).nextGeneration(), RavoId(0, 1));
    EXPECT_EQ(RavoId(0x1234, 0x5678).word(), 0x56781234U);
}

} // namespace
