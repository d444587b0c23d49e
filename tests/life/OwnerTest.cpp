// Who owns a table, as the files say it, and what becomes of files that are not what they should
// be.

#include "Environment.h"
#include "Mem/WriterLock.h"
#include "Pello/Process.h"
#include "SharedMem/OwnerFile.h"
#include "SharedMem/RavoFile.h"
#include "Zint/PloxetAcceptSm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using TestSupport::openWriter;
using TestSupport::TraceCapture;

template <class Shape>
std::string openRefusal(const std::string& name) {
    try {
        openWriter<Shape>(name, TestSupport::growingTable());
    } catch (const Pello::InvalidInitializeException& e) {
        return e.message();
    }
    return "taken";
}

template <class Shape>
class Ownership : public testing::Test {
  protected:
    TestSupport::TempRoot root;
    std::string ownerPath = root.file("t", "owner");

    auto open() { return openWriter<Shape>("t", TestSupport::growingTable()); }
    std::string refusal() { return openRefusal<Shape>("t"); }
    SharedMem::PloxetInfo recorded() {
        auto handler = Pello::Platform::getDebugHandler("test", false);
        return SharedMem::OwnerFile(handler, Mem::OruRootPath(*handler, "t", false), false)
            .ploxetInfo();
    }
};
using Shapes = testing::Types<TestSupport::MessageShape, TestSupport::ErrorShape>;
TYPED_TEST_SUITE(Ownership, Shapes, );

TYPED_TEST(Ownership, IsRecordedWhileItLasts) {
    auto writer = this->open();
    const std::string own = Pello::ProcessId::self().text();
    EXPECT_EQ(this->recorded().socketName, own);
    EXPECT_EQ(this->recorded().tableId.has_value(), TypeParam::Ops::notifying);
    EXPECT_TRUE(Zint::PloxetAcceptSm::answers(own));
    EXPECT_EQ(this->refusal(), fmt::format("cannot attach to {}/t: a writer of this process is "
                                           "attached to it",
                                           this->root.path()));
    struct stat status {};
    ASSERT_EQ(stat(this->ownerPath.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0644U);
    EXPECT_EQ(status.st_size, 512);
    writer->detach(false);
    EXPECT_TRUE(this->recorded().socketName.empty());
    EXPECT_EQ(this->refusal(), "taken");
}

TYPED_TEST(Ownership, OfAnotherIsLeftAlone) {
    auto writer = this->open();
    auto handler = Pello::Platform::getDebugHandler("test", false);
    {
        SharedMem::OwnerFile file(handler, Mem::OruRootPath(*handler, "t", false), false);
        file.lock();
        file.ploxetInfoIs({"1-1", {}});
    }
    writer.reset();
    EXPECT_EQ(this->recorded().socketName, "1-1");
}

TYPED_TEST(Ownership, ByAProcessThatIsGoneIsNone) {
    { this->open()->write(TypeParam::value(1, 1), true); }
    const Pello::ProcessId self = Pello::ProcessId::self();
    auto handler = Pello::Platform::getDebugHandler("test", false);
    // Ids are used again: only the start time tells this process from an older one.
    for (const std::string& name :
         {fmt::format("{}-{}", self.pid, self.startTime - 1), std::string("4194305-77"),
          fmt::format("{}", self.pid), std::string("x")}) {
        {
            SharedMem::OwnerFile file(handler, Mem::OruRootPath(*handler, "t", false), false);
            file.lock();
            file.ploxetInfoIs({name, {}});
        }
        std::string owner;
        EXPECT_FALSE(Mem::WriterLock::ownerIsAlive(*handler, name, owner)) << name;
        const auto writer = this->open();
        EXPECT_EQ(writer->members(), 1U) << name;
    }
}

TYPED_TEST(Ownership, ACorruptOwnerFileMeansANewGeneration) {
    SharedMem::RavoId before;
    {
        const auto writer = this->open();
        writer->write(TypeParam::value(1, 1), true);
        before = writer->ravoId();
    }
    for (const std::uint64_t offset : {0U, 4U, 12U, 40U, 170U, 511U}) {
        TestSupport::patchFile(this->ownerPath, offset, "Z", 1);
        TraceCapture capture(0x3);
        const auto writer = this->open();
        EXPECT_EQ(writer->members(), 0U) << offset;
        EXPECT_EQ(writer->ravoId(), before.nextGeneration()) << offset;
        before = writer->ravoId();
        const auto expectLine = [&](unsigned level, const std::string& text) {
            const bool found =
                std::any_of(capture.lines().begin(), capture.lines().end(), [&](const auto& line) {
                    return line.level == level && line.text.starts_with(text);
                });
            EXPECT_TRUE(found) << text;
        };
        expectLine(1, "owner file validation failed, dumping owner file string: magic:");
        expectLine(1, fmt::format("all entries from {}/t will be lost", this->root.path()));
        expectLine(1, "re-formatted successfully");
    }
}

TYPED_TEST(Ownership, CleaningUpDoesNotNeedASoundOwnerFile) {
    auto writer = this->open();
    TestSupport::patchFile(this->ownerPath, 20, "ZZZZ", 4);
    TraceCapture capture(0x2);
    EXPECT_FALSE(writer->validate());
    writer->cleanup();
    EXPECT_TRUE(fs::is_empty(this->root.path() + "/t"));
    ASSERT_GE(capture.lines().size(), 2U);
    EXPECT_THAT(capture.lines()[capture.lines().size() - 2].text,
                testing::StartsWith("owner file corruption detected but continuing with cleanup, "
                                    "dumped owner file: magic:"));
    writer.reset();
}

TYPED_TEST(Ownership, OtherPeoplesFilesAreRefused) {
    if (geteuid() != 0) GTEST_SKIP() << "needs root, to give files away";
    const std::string folder = this->root.path() + "/t";
    { this->open(); }
    for (const char* const name : {"slots", "buckets", "ravo", "owner"}) {
        const std::string path = folder + "/" + name;
        ASSERT_EQ(chown(path.c_str(), 12345, 12345), 0);
        EXPECT_THAT(this->refusal(), HasSubstr(path)) << name;
        EXPECT_THAT(this->refusal(), HasSubstr("belongs to user 12345")) << name;
        ASSERT_EQ(chown(path.c_str(), 0, 0), 0);
        fs::rename(path, path + ".real");
        fs::create_symlink(path + ".real", path);
        EXPECT_THAT(this->refusal(), HasSubstr("Too many levels of symbolic links")) << name;
        fs::rename(path + ".real", path);
    }
    ASSERT_EQ(chown(folder.c_str(), 12345, 12345), 0);
    EXPECT_EQ(this->refusal(), "cannot use folder " + folder + ": belongs to user 12345");
    ASSERT_EQ(chown(folder.c_str(), 0, 0), 0);
    fs::rename(folder, folder + ".real");
    fs::create_directory_symlink(folder + ".real", folder);
    EXPECT_EQ(this->refusal(), "cannot use folder " + folder + ": a symbolic link");
    const auto namesake = openWriter<TypeParam>("t", Vesk::MapDescriptor(10));
    EXPECT_THROW(namesake->cleanup(), Pello::InvalidInitializeException);
    EXPECT_TRUE(fs::exists(folder + "/slots"));

    // What all tables have in common, in the hands of somebody else.
    const std::string elsewhere = this->root.path() + "/elsewhere";
    fs::create_directory(elsewhere);
    std::ofstream(elsewhere + "/1-1") << "a file";
    for (const char* const name : {".locks", ".ploxet"}) {
        const std::string common = this->root.path() + "/" + name;
        fs::remove_all(common);
        fs::create_directory_symlink(elsewhere, common);
        Zint::PloxetAcceptSm::removeDead();
        EXPECT_EQ(TestSupport::inChild([&] {
                      // A process that has no socket yet.
                      if (openRefusal<TypeParam>("u").find("a symbolic link") ==
                          std::string::npos) {
                          std::abort();
                      }
                  }).code,
                  0)
            << name;
        EXPECT_TRUE(fs::exists(elsewhere + "/1-1")) << name;
        fs::remove(common);
    }
    ASSERT_EQ(chown(this->root.path().c_str(), 12345, 12345), 0);
    EXPECT_EQ(openRefusal<TypeParam>("u"),
              "cannot use folder " + this->root.path() + ": belongs to user 12345");
    ASSERT_EQ(chown(this->root.path().c_str(), 0, 0), 0);
}

TYPED_TEST(Ownership, AForkedChildOwnsNothing) {
    auto writer = this->open();
    const auto before = TestSupport::fileBytes(this->ownerPath);
    const TestSupport::ChildEnd end = TestSupport::inChild([&] {
        try {
            writer->cleanup();
            std::abort();
        } catch (const Pello::InvalidInitializeException& e) {
            if (e.message().find("its writer is") == std::string::npos) std::abort();
        }
        writer.reset(); // as a child does that ends in an orderly way
    });
    EXPECT_EQ(end.code, 0) << end.errors;
    EXPECT_EQ(TestSupport::fileBytes(this->ownerPath), before);
    EXPECT_TRUE(Zint::PloxetAcceptSm::answers(this->recorded().socketName));
    const TestSupport::ChildEnd refused = TestSupport::inChild([&] {
        if (this->refusal().find("its writer is") == std::string::npos) std::abort();
    });
    EXPECT_EQ(refused.code, 0) << refused.errors;
}

} // namespace
