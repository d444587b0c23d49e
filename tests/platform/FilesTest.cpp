// Folders and identity files of a table.

#include "Environment.h"
#include "Mem/Mapping.h"
#include "SharedMem/RavoFile.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace {

using SharedMem::RavoFile;
using SharedMem::RavoId;
using TestSupport::TempRoot;

struct TableFolder : testing::Test {
    Mem::OruRootPath folder(const std::string& name, bool create = true) const {
        return Mem::OruRootPath(*handler, name, create);
    }
    std::string refusal(const std::string& name) const {
        try {
            folder(name);
        } catch (const Pello::InvalidInitializeException& e) {
            return e.message();
        }
        return "accepted";
    }
    bool empty() const { return std::filesystem::is_empty(root.path()); }

    TempRoot root;
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
    EXPECT_FALSE(std::filesystem::exists(root.path() + "/x")) << "a reader made a folder";
}

TEST_F(TableFolder, AFailureToCreateLeavesNothing) {
    const std::string longName(300, 'n');
    EXPECT_EQ(refusal("a/b/" + longName),
              "cannot create folder " + root.path() + "/a/b/" + longName + ": File name too long");
    EXPECT_TRUE(empty());
    std::ofstream(root.path() + "/file") << "x";
    EXPECT_EQ(refusal("file/a"), "cannot create folder " + root.path() + "/file: Not a directory");
    EXPECT_TRUE(std::filesystem::is_regular_file(root.path() + "/file"));
}

TEST_F(TableFolder, EmptyFoldersGoUpToTheBase) {
    const Mem::OruRootPath deep = folder("a/b/c");
    folder("a/d");
    deep.removeEmptyFolders();
    EXPECT_FALSE(std::filesystem::exists(root.path() + "/a/b"));
    EXPECT_TRUE(std::filesystem::exists(root.path() + "/a/d"));
    folder("a/d").removeEmptyFolders();
    EXPECT_TRUE(std::filesystem::exists(root.path()) && empty());
}

TEST_F(TableFolder, EverybodyMayReadWhateverTheUmask) {
    for (const mode_t mask : {0077U, 0000U, 0777U}) {
        const mode_t before = umask(mask);
        const Mem::OruRootPath table = folder(fmt::format("a{}/b", mask));
        Mem::Shared mapping(table, "f");
        const bool attached = mapping.attachAs(40);
        RavoFile(*handler, table, false).write(RavoId(1));
        umask(before);
        ASSERT_TRUE(attached);
        const auto modeOf = [](const std::string& path) {
            return static_cast<unsigned>(std::filesystem::status(path).permissions());
        };
        EXPECT_EQ(modeOf(root.path() + fmt::format("/a{}", mask)), 0755U);
        EXPECT_EQ(modeOf(table.path()), 0755U);
        EXPECT_EQ(modeOf(table.filePath("f")), 0644U);
        EXPECT_EQ(modeOf(table.filePath("ravo")), 0644U);
    }
}

TEST_F(TableFolder, TheIdentityReadsBackOrIsNone) {
    const Mem::OruRootPath table = folder("t");
    const std::string path = table.filePath("ravo");
    RavoFile file(*handler, table, false);
    EXPECT_EQ(file.read(), RavoId());
    EXPECT_EQ(file.mtime(), 0);
    file.write(RavoId(0x00051234));
    EXPECT_EQ(RavoFile(*handler, table, false).read(), RavoId(4660, 5));
    EXPECT_GT(file.mtime(), 1.6e9);
    const std::vector<unsigned char> sound = TestSupport::fileBytes(path);
    ASSERT_EQ(sound.size(), 4096U);
    const std::array<unsigned char, 16> image{'R',  'A',  'V',  'O',  0x34, 0x12, 0x05, 0x00,
                                              0xCB, 0xED, 0xFA, 0xFF, 0x01, 0x00, 0x00, 0x00};
    EXPECT_TRUE(std::equal(image.begin(), image.end(), sound.begin()));

    for (const std::uint64_t offset : {0U, 4U, 8U, 12U}) { // a word of each kind, garbled
        TestSupport::patchWord(path, offset, TestSupport::wordOf(path, offset) ^ 0x100U);
        EXPECT_EQ(file.read(), RavoId()) << "word at " << offset;
        TestSupport::patchFile(path, 0, sound.data(), sound.size());
    }
    std::filesystem::resize_file(path, 15);
    EXPECT_EQ(file.read(), RavoId());
    file.write(RavoId(7));
    EXPECT_EQ(file.read(), RavoId(7));
    file.validate(RavoId(7));
    try {
        file.validate(RavoId(8));
        ADD_FAILURE() << "another identity is taken for this one";
    } catch (const Pello::CorruptionDetectedException& e) {
        EXPECT_EQ(e.message(), path + ": id:7 wanted:8");
    }
}

TEST_F(TableFolder, TheIdentityIsNeverWrittenThroughALink) {
    const Mem::OruRootPath table = folder("t");
    std::ofstream(table.filePath("target")) << "x";
    std::filesystem::create_symlink("target", table.filePath("ravo"));
    try {
        RavoFile(*handler, table, false).write(RavoId(7));
        ADD_FAILURE() << "written";
    } catch (const Pello::InvalidInitializeException& e) {
        EXPECT_EQ(e.message(),
                  "cannot write " + table.filePath("ravo") + ": Too many levels of symbolic links");
    }
    EXPECT_EQ(TestSupport::fileBytes(table.filePath("target")).size(), 1U);
    RavoFile local(*handler, table, true);
    local.write(RavoId(9));
    EXPECT_EQ(local.read(), RavoId(9));
}

TEST(RavoIdTest, NoGenerationIsNone) {
    EXPECT_EQ(RavoId(5, 0xFFFF).nextGeneration(), RavoId(5, 0));
    EXPECT_EQ(RavoId(0, 0xFFFF).nextGeneration(), RavoId(0, 1));
    EXPECT_EQ(RavoId(0x1234, 0x5678).word(), 0x56781234U);
}

} // namespace
