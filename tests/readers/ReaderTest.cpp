// A reader beside the writer, looked at before every store that the writer makes: whatever moment
// another process picks, it reads what the table held before the change or after it.

#include "Environment.h"
#include "Vesk/VeskReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <linux/seccomp.h>
#include <map>
#include <random>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;
using TestSupport::openWriter;
using TestSupport::TraceCapture;
namespace fs = std::filesystem;

template <class Shape>
using ReaderOf = Vesk::VeskReader<typename Shape::Ops>;

template <class Shape>
std::unique_ptr<ReaderOf<Shape>> readerOf(const std::string& table) {
    return std::make_unique<ReaderOf<Shape>>(
        Pello::Platform::getDebugHandler("test.reader." + table, false), table,
        typename Shape::Ops(), nullptr);
}

template <class Shape>
class Readers : public testing::Test {
  protected:
    using Value = typename Shape::Ops::Value;
    using Model = std::map<std::uint32_t, std::uint32_t>; // generations by number

    Readers() {
        Vesk::MapDescriptor descriptor = TestSupport::growingTable();
        descriptor.shrinkBuckets = true;
        descriptor.shrinkSlots = true;
        writer = openWriter<Shape>("t", descriptor);
        reader = readerOf<Shape>("t");
        EXPECT_TRUE(reader->initialize("test"));
    }
    ~Readers() override { Mem::stopHook = nullptr; }

    /// What the reader finds under a number: its generation, or nothing.
    std::optional<std::uint32_t> found(std::uint32_t number) {
        bool present = false;
        const Value& value = *reader->lookup(Shape::key(number), present, nullptr);
        if (!present) return std::nullopt;
        EXPECT_EQ(value.key(), Shape::key(number));
        EXPECT_TRUE(Shape::whole(value));
        return Shape::generation(value);
    }

    /// Every entry once, in one iteration: generations by key.
    std::map<typename Shape::Key, std::uint32_t> iterated() {
        std::map<typename Shape::Key, std::uint32_t> all;
        Value value;
        Vesk::IterHint hint;
        for (bool more = reader->first(value, hint); more;
             more = reader->next(value.key(), value, hint)) {
            EXPECT_TRUE(Shape::whole(value));
            EXPECT_TRUE(all.emplace(value.key(), Shape::generation(value)).second);
            if (all.size() > 10'000) return all;
        }
        return all;
    }

    /// The table is `before` or `after`, which differ in one number at most.
    void expectOneOf(const Model& before, const Model& after, std::uint32_t changed) {
        const auto all = iterated();
        std::size_t known = 0;
        for (std::uint32_t number = 0; number < kNumbers; ++number) {
            const auto at = [number](const Model& model) {
                const auto entry = model.find(number);
                return entry == model.end() ? std::nullopt : std::optional(entry->second);
            };
            const auto iteratedAt = all.find(Shape::key(number));
            const auto seen =
                iteratedAt == all.end() ? std::nullopt : std::optional(iteratedAt->second);
            known += seen ? 1U : 0U;
            for (const auto& one : {found(number), seen}) {
                ASSERT_TRUE(one == at(before) || (number == changed && one == at(after)))
                    << "number " << number << " of " << before.size();
            }
        }
        ASSERT_EQ(known, all.size());
    }

    static constexpr std::uint32_t kNumbers = 200;

    TestSupport::TempRoot root;
    std::unique_ptr<TestSupport::WriterOf<Shape>> writer;
    std::unique_ptr<ReaderOf<Shape>> reader;
};
using Shapes = testing::Types<TestSupport::MessageShape, TestSupport::ErrorShape,
                              TestSupport::SessionShape, TestSupport::SpShape>;
TYPED_TEST_SUITE(Readers, Shapes, );

TYPED_TEST(Readers, SeeTheTableBeforeOrAfterAChangeAtEveryStore) {
    static std::function<void()> look;
    static std::uint64_t looks = 0;
    std::mt19937 random(TestSupport::seedFor("readers", 11));
    const auto below = [&random](std::uint32_t n) {
        return static_cast<std::uint32_t>(random() % n);
    };
    typename TestFixture::Model model;
    typename TestFixture::Value out;
    looks = 0;
    std::uint32_t changes = 0;
    const auto steps = static_cast<std::uint32_t>(600 * TestSupport::lengthFactor());
    for (std::uint32_t step = 1; step <= steps && !this->HasFatalFailure(); ++step) {
        // Up to many entries and down to few again, so that everything is resized both ways.
        const bool filling = step / 150 % 2 == 0;
        const std::uint32_t number = below(this->kNumbers);
        typename TestFixture::Model after = model;
        std::function<void()> change;
        if (below(10) < (filling ? 8U : 2U)) {
            after[number] = step;
            if (below(4) == 0) {
                change = [&] {
                    *this->writer->directWrite(TypeParam::value(number, step)) =
                        TypeParam::value(number, step);
                    this->writer->directCommit();
                };
            } else {
                change = [&] { this->writer->write(TypeParam::value(number, step), true); };
            }
        } else {
            after.erase(number);
            change = [&] { this->writer->remove(TypeParam::key(number), out); };
        }
        const bool looking = step % 6 == 0 || this->writer->members() == this->writer->buckets();
        look = [&] {
            ++looks;
            this->expectOneOf(model, after, number);
        };
        if (looking) Mem::stopHook = [](Mem::StopPoint) { look(); };
        change();
        Mem::stopHook = nullptr;
        model = after;
        if (looking) {
            ++changes;
            this->expectOneOf(model, model, number);
        }
    }
    const Vesk::Reader::Counters counters = this->reader->readerCounters();
    EXPECT_GT(counters.buckets.resizes, 3U);
    EXPECT_GT(counters.lookasideReads, 0U);
    EXPECT_GE(counters.slotResizes,
              this->writer->capacity() == TypeParam::minimumCapacity ? 1U : 2U);
    EXPECT_EQ(counters.slotsMappedSize, fs::file_size(this->root.file("t", "slots")));
    EXPECT_EQ(this->reader->members(), model.size());
    EXPECT_EQ(this->reader->buckets(), this->writer->buckets());
    EXPECT_EQ(this->reader->capacity(), this->writer->capacity());
    EXPECT_EQ(this->reader->maxSize(), 1000U);
    std::cout << looks << " looks in " << changes << " changes, " << counters.lookups
              << " lookups, " << counters.retries << " retries, " << counters.buckets.resizes
              << " bucket resizes\n";
}

TYPED_TEST(Readers, HintsGoOnThroughChangesOfTheTable) {
    typename TestFixture::Value value;
    for (std::uint32_t number = 0; number < 40; ++number) {
        this->writer->write(TypeParam::value(number, 1), true);
    }
    Vesk::IterHint hint;
    std::map<typename TypeParam::Key, int> seen;
    bool more = this->reader->first(value, hint);
    for (std::uint32_t turn = 0; more; ++turn) {
        ++seen[value.key()];
        // Two doublings, then removals and growths between the steps, and lookups that follow them.
        if (turn == 3) {
            for (std::uint32_t number = 40; number < 200; ++number) {
                this->writer->write(TypeParam::value(number, 1), true);
            }
        }
        if (turn == 9) {
            typename TestFixture::Value out;
            for (std::uint32_t number = 100; number < 200; ++number) {
                this->writer->remove(TypeParam::key(number), out);
            }
        }
        this->found(turn % 40);
        more = this->reader->next(value.key(), value, hint);
    }
    for (std::uint32_t number = 0; number < 40; ++number) {
        EXPECT_EQ(seen[TypeParam::key(number)], 1) << number;
    }
}

TYPED_TEST(Readers, WriteNothingAndKnowWhatTheyRead) {
    this->writer->write(TypeParam::value(1, 1), true);
    const auto before = TestSupport::fileBytes(this->root.file("t", "slots"));
    EXPECT_EQ(this->found(1), 1U);
    this->reader->validateVersionAnchor();
    EXPECT_NE(this->reader->getCacheVersionAnchor(), Mem::CacheVersionAnchor());
    EXPECT_EQ(TestSupport::fileBytes(this->root.file("t", "slots")), before);
    this->writer->write(TypeParam::value(1, 2), true);
    EXPECT_THROW(this->reader->validateVersionAnchor(), Mem::VersionMismatchException);
    EXPECT_EQ(this->found(7), std::nullopt);
    EXPECT_EQ(this->reader->getCacheVersionAnchor(), Mem::CacheVersionAnchor());

    typename TestFixture::Value value = TypeParam::value(9, 9);
    bool present = true;
    EXPECT_EQ(this->reader->lookup(TypeParam::key(7), present, &value)->key(), value.key());
    EXPECT_EQ(value.key(), typename TestFixture::Value().key());
    std::uint32_t held = 0;
    unsigned size = 0;
    for (std::uint32_t slot = 0; slot < this->reader->capacity() + 2; ++slot) {
        held += this->reader->getValue(slot, value, nullptr) ? 1U : 0U;
        this->reader->getValue(slot, static_cast<void*>(&value), size);
    }
    EXPECT_EQ(held, 1U);
    EXPECT_EQ(size, sizeof value);
    const auto refused = [](const std::function<void()>& change) {
        try {
            change();
        } catch (const Pello::NoPermissionException& e) {
            return e.message();
        }
        return Pello::String("done");
    };
    EXPECT_EQ(refused([&] { this->reader->write(value, true); }), "write to read-only Vesk table");
    EXPECT_EQ(refused([&] { this->reader->remove(value.key(), value); }),
              "remove to read-only Vesk table");

    std::ifstream maps("/proc/self/maps");
    std::size_t readOnly = 0;
    for (std::string line; std::getline(maps, line);) {
        if (line.find(this->root.path()) != std::string::npos) {
            readOnly += line.find(" r--s ") != std::string::npos ? 1U : 0U;
        }
    }
    EXPECT_EQ(readOnly, 2U);
}

TYPED_TEST(Readers, MakeNoSystemCallForARead) {
    for (std::uint32_t number = 0; number < this->kNumbers; ++number) {
        this->writer->write(TypeParam::value(number, 1), true);
    }
    const TestSupport::ChildEnd end = TestSupport::inChild([&] {
        this->found(0); // maps what has grown
        bool complete = true;
        typename TestFixture::Value value;
        // From here on all but the end of the process is SIGKILL.
        if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) throw std::runtime_error("seccomp");
        for (std::uint32_t number = 0; number < this->kNumbers + 50; ++number) {
            bool present = false;
            this->reader->lookup(TypeParam::key(number), present, &value);
            complete = complete && present == (number < this->kNumbers);
        }
        std::uint32_t entries = 0;
        Vesk::IterHint hint;
        for (bool more = this->reader->first(value, hint); more;
             more = this->reader->next(value.key(), value, hint)) {
            ++entries;
        }
        syscall(SYS_exit, complete && entries == this->kNumbers ? 0 : 1);
    });
    EXPECT_TRUE(end.exited && end.code == 0) << end.code << " " << end.errors;
}

TYPED_TEST(Readers, AttachToSoundFilesOnly) {
    auto other = readerOf<TypeParam>("none");
    TraceCapture capture(0x3);
    EXPECT_FALSE(other->initialize("test"));
    EXPECT_EQ(capture.lines().back().text, "failed to attach to buckets");
    EXPECT_FALSE(fs::exists(this->root.path() + "/none"));
    EXPECT_TRUE(this->reader->initialize("again"));
    other = readerOf<TypeParam>("t");
    EXPECT_TRUE(other->initialize("test"));
    EXPECT_THAT(capture.lines().back().text, HasSubstr("success "));
    EXPECT_THAT(capture.lines().back().text, HasSubstr(" capacity:0 ravoId:"));
    other->detach(false);
    EXPECT_THAT(capture.lines().back().text, HasSubstr("/t detached"));

    const std::string marker = this->root.file("t", "corruption-detected");
    const std::map<std::string, std::string> faults = {{"ravo", "failed to read ravo file"},
                                                       {"buckets", "failed to validate buckets"},
                                                       {"slots", "failed to validate slots"}};
    for (const auto& [file, text] : faults) {
        const std::uint32_t word = TestSupport::wordOf(this->root.file("t", file), 0);
        TestSupport::patchWord(this->root.file("t", file), 0, ~word);
        capture.clear();
        EXPECT_FALSE(readerOf<TypeParam>("t")->initialize("test"));
        EXPECT_NE(capture.find(text), nullptr) << text;
        EXPECT_THAT(capture.lines().back().text, testing::StartsWith("Vesk table \""));
        EXPECT_EQ(fs::remove(marker), file != "ravo") << file;
        TestSupport::patchWord(this->root.file("t", file), 0, word);
    }
}

/// What a read raises.
template <class Read>
std::string raised(Read read) {
    try {
        read();
    } catch (const Pello::CorruptionDetectedException& e) {
        return e.message();
    }
    return "nothing";
}

TYPED_TEST(Readers, FindCorruptionAndEnd) {
    for (std::uint32_t number = 0; number < 10; ++number) {
        this->writer->write(TypeParam::value(number, 1), true);
    }
    this->iterated();
    const std::string slots = this->root.file("t", "slots");
    const std::string buckets = this->root.file("t", "buckets");
    const auto size = static_cast<std::uint32_t>(sizeof(typename TestFixture::Value));
    const std::uint64_t slotSize = size + 16;
    const std::uint64_t firstSlot = 600 + slotSize;
    // Every word of the headers, of the first slots and of the buckets, set to what it should not
    // be: every read ends, in an answer or in the exception.
    std::size_t raisedCount = 0;
    const auto attack = [&](const std::string& file, std::uint64_t at) {
        const std::uint32_t word = TestSupport::wordOf(file, at);
        for (const std::uint32_t wrong : {~word, word ^ 1U, word + 0x10U, 0U, 0x80000000U}) {
            TestSupport::patchWord(file, at, wrong);
            for (std::uint32_t number = 0; number < 12; ++number) {
                raisedCount += raised([&] { this->found(number); }) == "nothing" ? 0U : 1U;
            }
            raisedCount += raised([&] {
                               typename TestFixture::Value value;
                               Vesk::IterHint hint;
                               std::size_t steps = 0;
                               for (bool more = this->reader->first(value, hint);
                                    more && ++steps <= this->reader->capacity();
                                    more = this->reader->next(value.key(), value, hint)) {
                               }
                               EXPECT_LE(steps, this->reader->capacity())
                                   << "a walk without an end";
                           }) == "nothing"
                               ? 0U
                               : 1U;
            TestSupport::patchWord(file, at, word);
        }
    };
    for (std::uint64_t at = firstSlot; at < firstSlot + 10 * slotSize; at += 4) {
        if ((at - firstSlot) % slotSize < 16) attack(slots, at);
    }
    for (std::uint64_t at = 16; at < fs::file_size(buckets); at += 4) {
        attack(buckets, at);
    }
    EXPECT_GT(raisedCount, 100U);
    EXPECT_EQ(this->iterated().size(), 10U);
    std::cout << raisedCount << " findings\n";
}

TYPED_TEST(Readers, SurviveTruncationByAnybody) {
    for (std::uint32_t number = 0; number < 150; ++number) {
        this->writer->write(TypeParam::value(number, 1), true);
    }
    this->iterated();
    const std::array files{this->root.file("t", "slots"), this->root.file("t", "buckets")};
    const std::array whole{TestSupport::fileBytes(files[0]), TestSupport::fileBytes(files[1])};
    const auto end = TestSupport::inChild([&] {
        for (const std::string& file : files) {
            fs::resize_file(file, 700);
            for (std::uint32_t number = 0; number < 150; ++number) {
                raised([&] { this->found(number); });
            }
            raised([&] { this->iterated(); });
        }
        // As before once the files are: what was read meanwhile stays zeros nowhere.
        for (std::size_t i = 0; i < 2; ++i) {
            TestSupport::patchFile(files[i], 0, whole[i].data(), whole[i].size());
        }
        if (this->iterated().size() != 150) std::abort();
        std::_Exit(0); // the writer's own mapping is not guarded
    });
    EXPECT_TRUE(end.exited && end.code == 0) << end.code << end.errors;
}

/// A host that has a handler of its own: it gets every other SIGBUS, and none of a reader's.
TEST(BusGuard, CallsTheHandlerThatWasThereBefore) {
    const auto end = TestSupport::inChild([] {
        static volatile std::sig_atomic_t calls = 0;
        static void* own = nullptr;
        static struct sigaction before {};
        struct sigaction action {};
        // A guard that an earlier reader of this process has installed is called for the rest.
        action.sa_flags = SA_SIGINFO;
        action.sa_sigaction = [](int signal, siginfo_t* info, void* context) {
            if (info->si_addr != own) {
                if ((before.sa_flags & SA_SIGINFO) == 0) std::_Exit(3);
                before.sa_sigaction(signal, info, context);
                return;
            }
            calls = calls + 1;
            mmap(own, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
        };
        sigaction(SIGBUS, &action, &before);
        const TestSupport::TempRoot root;
        const auto writer = openWriter<TestSupport::SpShape>("t", TestSupport::growingTable());
        writer->write(TestSupport::SpShape::value(1, 1), true);
        const auto reader = readerOf<TestSupport::SpShape>("t");
        if (!reader->initialize("test")) std::abort();
        bool present = false;
        reader->lookup(TestSupport::SpShape::key(1), present, nullptr);
        const int file = memfd_create("own", 0);
        if (!present || ftruncate(file, 4096) != 0) std::abort();
        own = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0);
        if (ftruncate(file, 0) != 0) std::abort();
        static_cast<void>(*static_cast<volatile char*>(own));
        if (calls != 1) std::abort();
        fs::resize_file(root.file("t", "slots"), 0);
        raised([&] { reader->lookup(TestSupport::SpShape::key(1), present, nullptr); });
        if (calls != 1) std::abort();
        std::_Exit(0);
    });
    EXPECT_TRUE(end.exited && end.code == 0) << end.code << end.errors;
}

TYPED_TEST(Readers, NoticeAReformat) {
    this->writer->write(TypeParam::value(1, 1), true);
    EXPECT_EQ(this->found(1), 1U);
    this->writer.reset();
    TestSupport::patchWord(this->root.file("t", "owner"), 20, 77);
    const TraceCapture quiet(0);
    this->writer = openWriter<TypeParam>("t", TestSupport::growingTable());
    EXPECT_THAT(raised([&] { this->found(1); }), HasSubstr("ravo id"));
}

} // namespace
