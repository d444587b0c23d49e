// The table front: what `init` accepts, what each descriptor option does, and how it lets go.

#include "Environment.h"
#include "Pello/Loop.h"
#include "Pello/Time.h"
#include "Rsvp/Tables.h"
#include "Vesk/VeskMap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

namespace {

namespace fs = std::filesystem;
using MoxSharedMem::MountStatus;
using testing::ElementsAre;
using testing::HasSubstr;
using Vesk::MapDescriptor;
using Vesk::VeskType;

/// A front as an attribute would own it.
template <class Shape>
struct Front : Vesk::VeskMap<typename Shape::Ops> {
    using Base = Vesk::VeskMap<typename Shape::Ops>;

    explicit Front(std::string name = "t") {
        this->name_ = std::move(name);
        this->notify_ = typename Base::Notify(
            Pello::noop, Pello::noop, Pello::noop,
            [this] { heard.push_back(fmt::format("mount {}", static_cast<int>(status()))); },
            [this](bool quiesced) { heard.push_back(fmt::format("quiesced {}", quiesced)); });
        this->implIs(this->createDefaultLocalWriter());
    }
    Pello::String classType() const override { return "Test::Front"; }
    MountStatus status() const { return this->mountStatus(); }
    void orphan() {
        this->orphanAssert_ = true;
        this->controlDetach();
    }
    bool parked() const { return !this->notify_.keyNotifications; }

    std::vector<std::string> heard;
};

template <class Shape>
class FrontOf : public testing::Test {
  protected:
    TestSupport::TempRoot root;
    Front<Shape> front;

    /// What an init raises; "ok" when nothing.
    std::string init(const MapDescriptor& descriptor) {
        try {
            front.init(descriptor);
        } catch (const Pello::InvalidInitializeException& e) {
            return e.message();
        }
        return "ok";
    }
};
using Shapes = testing::Types<TestSupport::MessageShape, TestSupport::ErrorShape,
                              TestSupport::SessionShape, TestSupport::SpShape>;
TYPED_TEST_SUITE(FrontOf, Shapes, );

MapDescriptor with(bool MapDescriptor::*option, VeskType type = VeskType::writer,
                   std::uint32_t size = 10) {
    MapDescriptor descriptor(size, type);
    descriptor.*option = true;
    return descriptor;
}

/// Whether a core dump of this process has what it maps of a file.
bool isDumped(const std::string& path) {
    std::ifstream smaps("/proc/self/smaps");
    std::string line;
    while (std::getline(smaps, line) && !line.ends_with(path)) {
    }
    while (std::getline(smaps, line) && !line.starts_with("VmFlags:")) {
    }
    return line.find(" dd") == std::string::npos;
}

/// Runs the thread's loop until `done`, at most 10 s.
template <class Done>
void turnUntil(const Done& done) {
    const double end = Pello::time() + 10;
    while (!done() && Pello::time() < end) {
        Pello::Loop::ofThisThread()->runOnce(100);
    }
    EXPECT_TRUE(done());
}

TYPED_TEST(FrontOf, BeginsInProcessMemory) {
    EXPECT_EQ(this->front.status(), MountStatus::notMounted);
    this->front.safeWrite(TypeParam::value(1, 1));
    EXPECT_EQ(this->front.members(), 1U);
    EXPECT_FALSE(fs::exists(this->root.path() + "/t"));
    EXPECT_FALSE(this->front.initialized());
    EXPECT_FALSE(this->front.exists());
    EXPECT_EQ(this->front.owner(), ":0");
    EXPECT_FALSE(fs::exists(this->root.path() + "/t"));
}

TYPED_TEST(FrontOf, RefusesWhatCannotBe) {
    EXPECT_EQ(this->init(MapDescriptor(0, VeskType::writer)),
              "0 is not a valid initialization size for collection t in writer mode");
    EXPECT_EQ(this->init(with(&MapDescriptor::heapAlloc)),
              "cannot initialize collection t heap allocation in non-local mode not allowed");
    EXPECT_THROW(this->front.init(Mem::CollectionDescriptor()), std::bad_cast);
    this->front.safeWrite(TypeParam::value(1, 1)); // still the first writer
    for (const VeskType type : {VeskType::shadow, VeskType::keyshadow}) {
        Front<TypeParam> other("other");
        if (TypeParam::Ops::notifying) {
            other.init(MapDescriptor(10, type));
            EXPECT_EQ(other.members(), 0U);
        } else {
            const std::string wanted =
                fmt::format("cannot initialize collection other with DummyTorvuWriter not "
                            "supported in {} mode",
                            type == VeskType::shadow ? "shadow" : "keyshadow");
            try {
                other.init(MapDescriptor(10, type));
                ADD_FAILURE();
            } catch (const Pello::InvalidInitializeException& e) {
                EXPECT_EQ(e.message(), wanted);
            }
            other.safeWrite(TypeParam::value(1, 1));
        }
        EXPECT_TRUE(other.parked());
        if (TypeParam::Ops::notifying) {
            Front<TypeParam> live("live");
            live.init(with(&MapDescriptor::synchronousInit, type));
            EXPECT_FALSE(live.parked());
        }
    }
    EXPECT_EQ(this->init(MapDescriptor(10, VeskType::writer)), "ok");
    const TestSupport::ChildEnd unsupported = TestSupport::inChild([&] {
        Front<TypeParam> other("other");
        other.init(with(&MapDescriptor::prevValue));
    });
    EXPECT_THAT(unsupported.errors, HasSubstr("VeskMap Vesk/VeskMap.init:"));
    EXPECT_THAT(unsupported.errors,
                HasSubstr("prevValue mount-time option enabled without specifying "
                          "`captureNotifyValues property"));
}

TYPED_TEST(FrontOf, TakesTheSameDescriptorTwiceAndNoOther) {
    const MapDescriptor descriptor(10, VeskType::writer);
    EXPECT_EQ(this->init(descriptor), "ok");
    this->front.safeWrite(TypeParam::value(1, 1));
    EXPECT_EQ(this->init(descriptor), "ok");
    EXPECT_EQ(this->front.members(), 1U);
    for (bool MapDescriptor::*const option :
         {&MapDescriptor::localMem, &MapDescriptor::fixedSize, &MapDescriptor::shrinkSlots,
          &MapDescriptor::shrinkBuckets, &MapDescriptor::keepDeleted,
          &MapDescriptor::synchronousInit, &MapDescriptor::flushNotification,
          &MapDescriptor::heapAlloc, &MapDescriptor::trackMemory, &MapDescriptor::forceResync,
          &MapDescriptor::assertOnOrphanAccess, &MapDescriptor::criticalTaskCheck,
          &MapDescriptor::prevValue, &MapDescriptor::dumpToCore}) {
        const MapDescriptor other = with(option);
        EXPECT_EQ(this->init(other),
                  fmt::format("name:t already initialized, old {}, new {}", descriptor, other));
    }
    EXPECT_EQ(this->front.members(), 1U);
}

TYPED_TEST(FrontOf, GoesThroughItsLifeAndTells) {
    using testing::StartsWith;
    EXPECT_EQ(this->init(MapDescriptor(10, VeskType::writer)), "ok");
    EXPECT_THAT(this->front.heard, ElementsAre("quiesced true", "mount 1"));
    EXPECT_EQ(this->front.ravoId().word() & 0xFFFFU,
              static_cast<std::uint32_t>(getpid()) & 0xFFFFU);
    EXPECT_THAT(this->front.owner(), testing::EndsWith(fmt::format(":{}", getpid())));
    EXPECT_TRUE(this->front.exists());
    this->front.safeWrite(TypeParam::value(1, 1));
    this->front.heard.clear();
    this->front.detach(false);
    EXPECT_THAT(this->front.heard, ElementsAre("quiesced false", "mount 0"));
    EXPECT_EQ(this->front.members(), 0U);
    EXPECT_EQ(this->front.type(), VeskType::reader);
    EXPECT_THROW(this->front.safeWrite(TypeParam::value(1, 1)), Pello::NoPermissionException);
    bool found = true;
    const auto& absent = this->front.safeLookup(TypeParam::key(1), found);
    EXPECT_EQ(&absent, &TypeParam::Ops::defaultValue());
    EXPECT_FALSE(found);
    EXPECT_THAT(this->front.owner(), testing::EndsWith(":0"));
    // Detached, another front may have the table, with all that it held.
    {
        Front<TypeParam> next;
        next.init(MapDescriptor(10, VeskType::writer));
        EXPECT_EQ(next.members(), 1U);
        EXPECT_THROW(this->front.cleanup(), Pello::InvalidInitializeException) << "not ours now";
    }
    // A second placeholder keeps the first, which keeps the writer.
    this->front.detach(true);
    this->front.cleanup();
    EXPECT_TRUE(fs::is_empty(this->root.path() + "/t"));
}

TYPED_TEST(FrontOf, CleansUpAndMayBeginAgain) {
    EXPECT_EQ(this->init(MapDescriptor(10, VeskType::writer)), "ok");
    this->front.safeWrite(TypeParam::value(1, 1));
    this->front.cleanupAndDetach();
    EXPECT_TRUE(fs::is_empty(this->root.path() + "/t"));
    EXPECT_FALSE(this->front.initialized());
    EXPECT_EQ(this->init(MapDescriptor(20, VeskType::writer)), "ok");
    EXPECT_EQ(this->front.members(), 0U);
    const TestSupport::ChildEnd twice = TestSupport::inChild([&] {
        this->front.controlDetach();
        this->front.cleanupAndDetach();
    });
    EXPECT_THAT(twice.errors, HasSubstr("trying to cleanup uninitialized vesk."));
}

TYPED_TEST(FrontOf, AnOrphanMayStopWhoeverUsesIt) {
    EXPECT_EQ(this->init(MapDescriptor(10, VeskType::writer)), "ok");
    this->front.orphan();
    EXPECT_EQ(this->front.status(), MountStatus::notMounted);
    EXPECT_TRUE(this->front.validate());
    const std::string suffix =
        ". If you're seeing this, you're trying to operate on an orphan vesk entity\n";
    const auto errorsOf = [](const std::function<void()>& use) {
        return TestSupport::inChild(use).errors;
    };
    const std::string invoked =
        fmt::format("invoked, name:t rootpath:{}/t{}", this->root.path(), suffix);
    typename TypeParam::Ops::Value value;
    Vesk::IterHint hint;
    EXPECT_THAT(errorsOf([&] { this->front.members(); }), HasSubstr(invoked));
    EXPECT_THAT(errorsOf([&] { this->front.capacity(); }), HasSubstr(invoked));
    EXPECT_THAT(errorsOf([&] { this->front.type(); }), HasSubstr(invoked));
    EXPECT_THAT(errorsOf([&] { this->front.safeFirst(value, hint); }), HasSubstr(invoked));
    EXPECT_THAT(errorsOf([&] { this->front.validateVersionAnchor(); }), HasSubstr(invoked));
    EXPECT_THAT(errorsOf([&] { this->front.safeNext(TypeParam::key(1), value, hint); }),
                HasSubstr(fmt::format("key:{}{}", TypeParam::key(1), suffix)));
    EXPECT_THAT(errorsOf([&] { this->init(MapDescriptor(10, VeskType::writer)); }),
                HasSubstr("Re-initializing a collection that has already become an orphan and has "
                          "assertOnOrphanAccess set"));
}

TYPED_TEST(FrontOf, OptionsDoWhatTheySay) {
    // In process memory whatever the mode, from the heap or not.
    for (const bool heap : {false, true}) {
        Front<TypeParam> local("local");
        MapDescriptor descriptor = with(&MapDescriptor::localMem, VeskType::reader);
        descriptor.heapAlloc = heap;
        local.init(descriptor);
        EXPECT_EQ(local.type(), VeskType::writer);
        local.safeWrite(TypeParam::value(1, 1));
        EXPECT_FALSE(fs::exists(this->root.path() + "/local"));
    }
    {
        Front<TypeParam> fixed("fixed");
        fixed.init(with(&MapDescriptor::fixedSize));
        for (std::uint32_t i = 0; i < fixed.capacity(); ++i) {
            fixed.safeWrite(TypeParam::value(i, 1));
        }
        EXPECT_EQ(fixed.minSize(), 10U);
        EXPECT_THROW(fixed.safeWrite(TypeParam::value(1000, 1)), Vesk::TableFullException);
    }
    {
        Front<TypeParam> tracked("tracked");
        tracked.init(with(&MapDescriptor::trackMemory));
        const auto blocks = Mem::MemoryTracker::blocks();
        ASSERT_EQ(blocks.size(), 1U);
        EXPECT_EQ(blocks[0].name, this->root.file("tracked", "slots"));
        EXPECT_EQ(blocks[0].size, fs::file_size(blocks[0].name));
        EXPECT_THAT(blocks[0].tag, testing::StartsWith("Vesk::VeskWriter<"));
    }
    EXPECT_TRUE(Mem::MemoryTracker::blocks().empty());
    for (const bool dumped : {false, true}) {
        Front<TypeParam> dumpable("dumped");
        MapDescriptor descriptor(10, VeskType::writer);
        descriptor.dumpToCore = dumped;
        descriptor.criticalTaskCheck = dumped;
        dumpable.init(descriptor);
        for (const char* const name : {"slots", "buckets"}) {
            EXPECT_EQ(isDumped(this->root.file("dumped", name)), dumped) << name;
        }
        EXPECT_EQ(dumpable.criticalTaskCheck(), dumped);
    }
    // A clean-up first, also of what another process left.
    EXPECT_EQ(this->init(MapDescriptor(10, VeskType::writer)), "ok");
    this->front.safeWrite(TypeParam::value(1, 1));
    this->front.controlDetach();
    EXPECT_EQ(this->init(with(&MapDescriptor::cleanupOnInit)), "ok");
    EXPECT_EQ(this->front.members(), 0U);
    this->front.criticalTaskCheckIs(true);
    EXPECT_TRUE(this->front.criticalTaskCheck());
    this->front.scratchpadIs(0x0123456789ABCDEFU);
    EXPECT_EQ(this->front.scratchpad(), 0x0123456789ABCDEFU);
    this->front.notifyingIs(false);
    EXPECT_FALSE(this->front.notifying());
    EXPECT_TRUE(this->front.compareVersionAnchor(this->front.getCacheVersionAnchor()));
    EXPECT_FALSE(this->front.compareVersionAnchor({1, Mem::VersionAnchor::kNone}));
    EXPECT_FALSE(this->front.compareVersionAnchor({0, 7}));
}

TYPED_TEST(FrontOf, ReportsCorruptionAsAbsenceAndStopsBeforeWritingOverIt) {
    EXPECT_EQ(this->init(MapDescriptor(10, VeskType::writer)), "ok");
    for (std::uint32_t i = 0; i < 30; ++i) {
        this->front.safeWrite(TypeParam::value(i, 1));
    }
    const std::string buckets = this->root.file("t", "buckets");
    const auto size = static_cast<std::uint32_t>(fs::file_size(buckets));
    for (std::uint32_t at = 28; at < size; at += 8) {
        TestSupport::patchWord(buckets, at, 0x7FFFFFF0U); // no such slot
    }
    bool found = true;
    this->front.safeLookup(TypeParam::key(1), found);
    EXPECT_FALSE(found);
    typename TypeParam::Ops::Value value;
    Vesk::IterHint hint;
    EXPECT_FALSE(this->front.safeFirst(value, hint));
    EXPECT_EQ(this->front.writerCounters().corruptions, 2U);
    EXPECT_THAT(this->front.lastCorruption(), HasSubstr("out-of-range index: 2147483632"));
    for (const auto& [operation, change] : std::map<std::string, std::function<void()>>{
             {"safeWrite", [&] { this->front.safeWrite(TypeParam::value(1, 2)); }},
             {"safeRemove", [&] { this->front.safeRemove(TypeParam::key(1)); }}}) {
        EXPECT_THAT(TestSupport::inChild(change).errors,
                    testing::ContainsRegex("VeskMap Vesk/VeskMap." + operation +
                                           ":[0-9]+ in no man's land"));
    }
}

TYPED_TEST(FrontOf, ChecksItselfWhenAReaderLeavesItsMarker) {
    EXPECT_EQ(this->init(MapDescriptor(10, VeskType::writer)), "ok");
    const std::string marker = this->root.file("t", "corruption-detected");
    const auto leaveMarker = [&] { std::ofstream(marker) << "found"; };
    leaveMarker();
    this->front.notifyingIs(true); // has the sentry look
    EXPECT_FALSE(fs::exists(marker));
    // Not between the two halves of a change, which would look wrong.
    leaveMarker();
    this->front.directWrite(TypeParam::value(1, 1));
    this->front.notifyingIs(true);
    EXPECT_TRUE(fs::exists(marker));
    this->front.directCommit();
    // By itself, as soon as the loop turns: the check that had to wait, and one for a new marker.
    turnUntil([&] { return !fs::exists(marker); });
    leaveMarker();
    turnUntil([&] { return !fs::exists(marker); });
    for (const auto& [lost, finding] : {std::pair("ravo", "ravo: id:0 wanted:"),
                                        std::pair("slots", "slots"), std::pair("owner", "slots")}) {
        TestSupport::TraceCapture capture(0x1);
        fs::remove(this->root.file("t", lost));
        turnUntil([&] { return !capture.lines().empty(); });
        EXPECT_THAT(capture.lines().at(0).text, HasSubstr(finding));
    }
}

TYPED_TEST(FrontOf, OfAReaderWaitsForTheTableAndFollowsIt) {
    const std::string path = this->root.path() + "/t";
    const std::string marker = this->root.file("t", "corruption-detected");
    Front<TypeParam>& reader = this->front;
    const auto mounted = [&] { return reader.status() == MountStatus::mounted; };
    const auto has = [&](std::uint32_t number) {
        bool found = false;
        reader.safeLookup(TypeParam::key(number), found);
        return found;
    };
    const std::size_t canaries = Pello::Util::canaryLog().size();
    EXPECT_EQ(this->init(MapDescriptor(0, VeskType::reader)), "ok");
    reader.tryAttach();
    EXPECT_FALSE(mounted() || fs::exists(path));
    EXPECT_TRUE(reader.heard.empty());

    Front<TypeParam> writer;
    writer.init(MapDescriptor(10, VeskType::writer));
    writer.safeWrite(TypeParam::value(1, 7));
    const std::uint32_t magic = TestSupport::wordOf(path + "/buckets", 0);
    TestSupport::patchWord(path + "/buckets", 0, ~magic);
    TestSupport::TraceCapture capture(0x26);
    reader.tryAttach();
    EXPECT_FALSE(mounted());
    EXPECT_TRUE(fs::exists(marker));
    EXPECT_EQ(capture.find("initialize failed for " + path)->level, 1U);
    TestSupport::patchWord(path + "/buckets", 0, magic);
    EXPECT_TRUE(reader.heard.empty());
    EXPECT_EQ(Pello::Util::canaryLog().size(), canaries);

    capture.clear();
    reader.tryAttach();
    EXPECT_TRUE(mounted() && has(1) && !has(2));
    EXPECT_EQ(capture.find(fmt::format("attempting to attach {} as reader", path))->level, 2U);
    EXPECT_EQ(capture.find("successful")->level, 2U);
    EXPECT_THAT(reader.heard, ElementsAre("quiesced true", "mount 1"));
    EXPECT_EQ(Pello::Util::canaryLog().back(), fmt::format("mounted {} mountStatus:1", path));
    reader.tryAttach();
    EXPECT_EQ(capture.find(path + " is already mounted, mountStatus:1")->level, 5U);
    EXPECT_EQ(reader.readerCounters().lookups, 2U);
    EXPECT_THROW(reader.safeWrite(TypeParam::value(2, 1)), Pello::NoPermissionException);

    // From here on by itself.
    reader.heard.clear();
    reader.detach(true);
    EXPECT_FALSE(mounted() || has(1));
    EXPECT_THAT(reader.heard, ElementsAre("quiesced false", "mount 0"));
    turnUntil(mounted);
    EXPECT_TRUE(has(1));
    writer.cleanupAndDetach();
    turnUntil([&] { return !mounted(); });
    writer.init(MapDescriptor(10, VeskType::writer));
    writer.safeWrite(TypeParam::value(2, 1));
    turnUntil([&] { return has(2); });
    EXPECT_FALSE(has(1));
    EXPECT_FALSE(fs::exists(marker));
}

/// The slot of a virtual function, as calls through a pointer to it find it.
template <class Function>
std::size_t slotOf(Function function) {
    std::size_t word = 0;
    std::memcpy(&word, &function, sizeof word);
    return (word - 1) / sizeof(void*);
}

TEST(Interface, KeepsItsSlots) {
    using I = Vesk::VeskInterface<TestSupport::ErrorShape::Ops>;
    using W = Vesk::VeskWriter<TestSupport::ErrorShape::Ops>;
    const std::size_t slots[] = {slotOf(&I::initialize),
                                 slotOf(&I::detach),
                                 slotOf(&I::validate),
                                 slotOf(&I::validateFiles),
                                 slotOf(&I::cleanup),
                                 slotOf(&I::members),
                                 slotOf(&I::buckets),
                                 slotOf(&I::minSize),
                                 slotOf(&I::maxSize),
                                 slotOf(&I::capacity),
                                 slotOf(&I::type),
                                 slotOf(&I::quiesced),
                                 slotOf(&I::connected),
                                 slotOf(&I::writerCounters),
                                 slotOf(&I::readerCounters),
                                 slotOf(&I::notifyingIs),
                                 slotOf(&I::yieldTimeIs),
                                 slotOf(&I::sequence),
                                 slotOf(&I::clientQuiesced),
                                 slotOf(&I::rootPath),
                                 slotOf(&I::veskName),
                                 slotOf(&I::mountStatus),
                                 slotOf(&I::ravoId),
                                 slotOf(&I::validateVersionAnchor),
                                 slotOf(&I::validateVersionAnchorHookIs),
                                 slotOf(&I::getCacheVersionAnchor),
                                 slotOf(&I::criticalTaskCheckIs),
                                 slotOf(&I::criticalTaskCheck),
                                 slotOf(&I::scratchpadIs),
                                 slotOf(&I::scratchpad),
                                 slotOf(&I::write),
                                 slotOf(&I::remove),
                                 slotOf(&I::lookup),
                                 slotOf(&I::first),
                                 slotOf(&I::next),
                                 slotOf(&I::directWrite),
                                 slotOf(&I::directUpdate),
                                 slotOf(&I::directCommit),
                                 slotOf(&I::directLookup),
                                 slotOf(&W::shrink),
                                 slotOf(&W::handleQuiesced)};
    std::size_t expected = 2; // behind the two destructors
    for (const std::size_t slot : slots) {
        EXPECT_EQ(slot, expected++);
    }
}

} // namespace
