// The validator against damaged files: which damage it names, that it only reads, and what a writer
// makes of a damaged table that it finds.

#include "TableFiles.h"
#include "Vesk/Util.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace ErrorsTest {
namespace {

using SharedMem::RavoId;
using TestSupport::TraceCapture;

/// Words put into a file of the table.
struct Poke {
    const std::string& path;
    std::uint64_t offset;
    std::vector<std::uint32_t> words;
};

struct Damage {
    std::string text; ///< what a validator has to say
    bool header;      ///< found before a validator runs when a writer attaches
    std::vector<Poke> pokes;
};

void harm(const Damage& damage) {
    for (const Poke& poke : damage.pokes) {
        TestSupport::patchFile(poke.path, poke.offset, poke.words.data(), 4 * poke.words.size());
    }
}

/// What can be wrong with sound files that hold 200 entries in 256 buckets, in the order in which
/// a validator looks at it.
std::vector<Damage> damagesOf(const TableFiles& t) {
    std::vector<Damage> all;
    const auto header = [&](const std::string& text, const auto&... pokes) {
        all.push_back({text, true, {pokes...}});
    };
    const auto content = [&](const std::string& text, const auto&... pokes) {
        all.push_back({text, false, {pokes...}});
    };
    const auto head = [&](std::uint64_t at, std::uint32_t w) { return Poke{t.slots, at, {w}}; };
    const auto table = [&](std::uint64_t at, std::uint32_t w) { return Poke{t.buckets, at, {w}}; };
    const auto slot = [&](std::uint32_t i, SlotWord at, std::uint32_t w) {
        return Poke{t.slots, t.offsetOf(i) + at, {w}};
    };
    const auto bucketWord = [&](std::uint32_t b, std::uint32_t w) { return table(28 + 8 * b, w); };
    const auto was = [&](std::uint64_t at) { return TestSupport::wordOf(t.slots, at); };
    using fmt::format;

    content("bad critical section runtimeFlags:8003", head(kRuntime, 0x80030000U));
    header("bad bucket header magic:0xbad format:1", table(0, 0xBAD));
    header("bad bucket header magic:0x544b4256 format:2", table(8, 2));
    header(format("bad bucket ravo id:77 wanted:{}", was(kRavoId)), table(kBucketRavoId, 77));
    header("bad numBuckets:255", table(kNumBuckets, 255)); // no power of two
    header("bad numBuckets:0", table(kNumBuckets, 0));
    header("bad bucket file size:2072 wanted:4120 for 512 buckets", table(kNumBuckets, 512));

    const std::pair<const char*, std::uint64_t> words[] = {{"magic", 0},      {"byte order", 8},
                                                           {"format", 4},     {"ravo id", kRavoId},
                                                           {"slot size", 12}, {"value size", 20}};
    for (const auto& [name, at] : words) {
        header(format("bad {}:{} wanted:{}", name, was(at) + 1, was(at)), head(at, was(at) + 1));
    }
    const std::string typeName(reinterpret_cast<const char*>(t.image().slots.data()) + 48);
    const auto firstLetter = static_cast<char>(typeName[0] + 1);
    header(format("bad type name:{}{} wanted:{}", firstLetter, typeName.substr(1), typeName),
           head(48, was(48) + 1));
    const std::uint32_t n = t.numSlots();
    header("bad numSlots:0", head(kNumSlots, 0));
    header(format("bad numSlots:{} highWater:{}", n, n - 1), head(kHighWater, n - 1));
    header(format("bad shmem size:{} wanted:{} for {} slots", t.offsetOf(n), t.offsetOf(n + 1),
                  n + 1),
           head(kNumSlots, n + 1));

    const std::uint32_t bucket = t.bucketWith(3);
    const std::uint32_t first = t.chain(bucket)[0];
    const std::uint32_t second = t.chain(bucket)[1];
    const std::uint32_t last = t.chain(bucket).back();
    const auto sequence = [&](std::uint32_t i) { return t.slot(i, kSequence); };
    content(format("slotId: {} from bucket: {} not marked as occupied", first, bucket),
            slot(first, kSequence, sequence(first) & ~1U));
    content(format("slotId: {} not marked as occupied", second),
            slot(second, kSequence, sequence(second) & ~1U));
    for (const std::uint32_t i : {first, second, last}) {
        content(format("stuck LOOKASIDE bit: {:#x}", sequence(i) | 2U),
                slot(i, kSequence, sequence(i) | 2U));
        const std::uint32_t rhash = t.slot(i, kRhash);
        content(format("corrupt rhash detected, slotId: {} slot.rhash:{:08x} rhash:{:08x}", i,
                       rhash ^ 0xF0000001U, rhash),
                slot(i, kRhash, rhash ^ 0xF0000001U));
        content(format("corrupt key detected, slotId: {}", i),
                Poke{t.slots, t.offsetOf(i) + kValue, t.valueOf(t.slotOutside(bucket))});
    }
    const auto outOfRange = [n](std::uint32_t i) {
        return format("out-of-range index: {} max:{}", i, n - 1);
    };
    content(outOfRange(n), slot(second, kNext, n));
    content(outOfRange(0x7FFFFFFFU), bucketWord(bucket, 0x7FFFFFFFU));
    content(format("duplicate slot: {}", first), slot(last, kNext, first));
    const auto astray = [&](std::uint32_t from, std::uint32_t to, const Poke& poke) {
        content(format("has bucket: {} with next bucket: {} and numBuckets: 256", from, to), poke);
    };
    const std::uint32_t empty = t.bucketWith(0);
    astray(empty, empty, bucketWord(empty, kBucketBit | empty));
    astray(bucket, 0x12345, slot(last, kNext, kBucketBit | 0x12345U));
    const auto early = [&](std::uint32_t in, const Poke& poke) {
        content(format("thinks we've reached the end of the table, but we're in bucket {} when "
                       "there are numBuckets: 256",
                       in),
                poke);
    };
    early(empty, bucketWord(empty, kEnd));
    early(bucket, slot(last, kNext, kEnd));

    content("walkedSlots:200 is greater than header->occupiedSlots:199", head(kOccupiedSlots, 199));
    content("mismatch header->occupiedSlots:200 count:199",
            slot(first, kNext, t.slot(second, kNext))); // no chain leads to the second
    content("mismatch header->occupiedSlots:201 count:200", head(kOccupiedSlots, 201));

    const std::vector<std::uint32_t> free = t.freeList();
    content(format("corrupted free slot detected with out of bound index: {}", n + 1),
            head(kFreeHead, n + 1));
    content(outOfRange(n), slot(free[1], kNext, n));
    content(format("duplicate freeSlot detected: {}", free[0]), slot(free[2], kNext, free[0]));
    content(format("corrupted free slot not marked as empty: {}", free[1]),
            slot(free[1], kSequence, 5));
    content(format("corrupted free slot not marked as empty: {}", second),
            slot(free[0], kNext, second));
    const auto totals = [&](std::size_t left, const Poke& poke) {
        content(format("bad slotCount:{} occupiedSlots:200 freeSlots:{} capacity:{}", 200 + left,
                       left, n),
                poke);
    };
    totals(free.size() - 1, slot(free[0], kNext, free[2])); // nothing leads to one slot
    totals(0, head(kFreeHead, kEnd));
    return all;
}

template <class Shape>
struct Validator : testing::Test {
    Validator() {
        open();
        for (std::uint32_t i = 0; i < 200; ++i) {
            writer->write(Shape::value(i, i), true);
        }
        sound = files.image();
    }

    void open() { writer = TestSupport::openWriter<Shape>("t", TestSupport::growingTable()); }

    /// What the writer's own validation says now; empty when it is content.
    std::string verdict() {
        TraceCapture capture(1);
        if (writer->validate()) return {};
        const std::string head =
            "0 Validator Vesk/Validator.validate Vesk " + files.folder + " validation failed: ";
        for (const std::string& line : traced(capture)) {
            if (line.starts_with(head)) return line.substr(head.size());
        }
        return "failed without a word";
    }

    TestSupport::TempRoot root;
    TableFiles files{root.path() + "/t", sizeof(typename Shape::V)};
    std::unique_ptr<TestSupport::WriterOf<Shape>> writer;
    TableFiles::Image sound;
};

using Shapes = testing::Types<TestSupport::ErrorShape, TestSupport::SpShape>;
TYPED_TEST_SUITE(Validator, Shapes);

TYPED_TEST(Validator, NamesEachDamageAndOnlyReads) {
    ASSERT_EQ(this->files.numBuckets(), 256U);
    for (const Damage& damage : damagesOf(this->files)) {
        SCOPED_TRACE(damage.text);
        harm(damage);
        const TableFiles::Image before = this->files.image();
        ASSERT_NE(before, this->sound);
        EXPECT_EQ(this->verdict(), damage.text);
        EXPECT_EQ(this->files.image(), before) << "the validator wrote";
        this->files.imageIs(this->sound);
        EXPECT_EQ(this->verdict(), "");
    }
}

TYPED_TEST(Validator, TheFirstDamageInItsOrderIsTheOneNamed) {
    // One of each kind, from the last check to the first: each hides those that stand already.
    const std::vector<Damage> all = damagesOf(this->files);
    for (const char* const text :
         {"bad slotCount", "duplicate freeSlot", "mismatch header->occupiedSlots:201",
          "corrupt rhash", "bad slot size", "bad bucket header magic:0xbad", "bad critical"}) {
        const auto damage = std::find_if(all.begin(), all.end(), [text](const Damage& each) {
            return each.text.starts_with(text);
        });
        harm(*damage);
        EXPECT_EQ(this->verdict(), damage->text);
    }
}

TYPED_TEST(Validator, ADamagedTableIsFormattedAnewAndSaysSo) {
    const RavoId id = this->writer->ravoId();
    for (const Damage& damage : damagesOf(this->files)) {
        SCOPED_TRACE(damage.text);
        this->writer.reset();
        this->files.imageIs(this->sound);
        harm(damage);
        TraceCapture capture(3);
        this->open();
        const std::vector<std::string> lines = traced(capture);
        const std::string head = " VeskWriter Vesk/VeskWriter.attachAndValidate ";
        EXPECT_TRUE(has(lines, "0" + head + "failed to " +
                                   (damage.header ? "attach to" : "validate") + " existing files"));
        EXPECT_EQ(damage.header, capture.find("Vesk " + this->files.folder +
                                              " validation failed: " + damage.text) == nullptr);
        EXPECT_TRUE(
            has(lines, "1" + head + "all entries from " + this->files.folder + " will be lost"));
        EXPECT_TRUE(has(lines, "1 SlotWriterTable Vesk/SlotWriter.attach re-formatted " +
                                   this->files.slots));
        EXPECT_TRUE(has(lines, "1" + head + "re-formatted successfully"));
        EXPECT_EQ(this->writer->members(), 0U);
        EXPECT_EQ(this->writer->ravoId(), id.nextGeneration());
        EXPECT_EQ(this->files.header(kRavoId), id.nextGeneration().word());
        EXPECT_EQ(TestSupport::wordOf(this->files.ravo, 4), id.nextGeneration().word());
        this->writer->write(TypeParam::value(1, 1), true);
        EXPECT_EQ(this->verdict(), "");
    }
}

TYPED_TEST(Validator, StrictValidationKeepsTheDamageForInspection) {
    for (const Damage& damage : damagesOf(this->files)) {
        SCOPED_TRACE(damage.text);
        this->writer.reset();
        this->files.imageIs(this->sound);
        harm(damage);
        TableFiles::Image before = this->files.image();
        const TraceCapture quiet(0);
        Vesk::Util::runningOnPhysicalDutIs(true);
        Vesk::Util::strictValidationIs(true);
        const std::string raised =
            raisedBy<Pello::InvalidInitializeException>([this] { this->open(); });
        Vesk::Util::runningOnPhysicalDutIs(false);
        Vesk::Util::strictValidationIs(false);
        if (damage.header) { // no table of ours: repaired as ever
            EXPECT_EQ(raised, "nothing");
            continue;
        }
        EXPECT_EQ(raised, fmt::format("VeskWriter Vesk/VeskWriter.attachAndValidate failed initial "
                                      "validation of {} after re-attaching",
                                      this->files.folder));
        EXPECT_FALSE(std::filesystem::exists(this->files.ravo));
        before.ravo.clear();
        EXPECT_EQ(this->files.image(), before);
    }
}

TYPED_TEST(Validator, AFileThatLostItsEndIsFormattedAnew) {
    for (const bool slots : {true, false}) {
        const std::string& path = slots ? this->files.slots : this->files.buckets;
        const std::uint64_t whole = slots ? this->sound.slots.size() : this->sound.buckets.size();
        for (const std::uint64_t size :
             {whole - 1, whole / 2, std::uint64_t{20}, std::uint64_t{0}}) {
            this->writer.reset();
            this->files.imageIs(this->sound);
            std::filesystem::resize_file(path, size);
            const TraceCapture quiet(0);
            this->open();
            EXPECT_EQ(this->writer->members(), 0U) << path << " of " << size;
            EXPECT_EQ(this->verdict(), "");
        }
    }
    const auto& table = this->writer->slotTable();
    std::string error;
    for (const std::uint32_t size : {599U, 600U, table.headerSize() - 1}) {
        EXPECT_FALSE(table.validateHeader(size, this->writer->ravoId(), error));
        EXPECT_EQ(error, fmt::format("bad header file size: {} wanted:{}", size,
                                     size < 600 ? 600 : table.headerSize()));
    }
}

TYPED_TEST(Validator, DamageWhileItRuns) {
    // Bytes that change under its hands: another process writes where only the writer may.
    TableFiles& t = this->files;
    const std::uint32_t bucket = t.bucketWith(2);
    const std::uint32_t first = t.chain(bucket)[0];
    const std::uint32_t second = t.chain(bucket)[1];
    const std::uint32_t sequence = t.slot(first, kSequence);
    const std::uint32_t rhash = t.slot(second, kRhash);
    const auto caught = [&](const std::string& at, const std::function<void()>& harm) {
        std::string text;
        bool harmed = false;
        const TraceHook hook(0x0201, [&](const std::string& line) {
            if (line.ends_with(at) && !std::exchange(harmed, true)) harm();
            if (line.starts_with("caught: ")) text = line.substr(8);
        });
        EXPECT_FALSE(this->writer->validate());
        return text;
    };
    EXPECT_EQ(caught(fmt::format("slotIndex: {}", first),
                     [&] { t.slotIs(first, kSequence, sequence & ~1U); }),
              fmt::format("missing OCCUPIED bit: {:#x}", sequence & ~1U));
    t.imageIs(this->sound);
    // A cursor that is no longer good leads to the slow path, which prints the hash unpadded.
    EXPECT_EQ(caught(fmt::format(" found at bucket {}", bucket),
                     [&] {
                         t.slotIs(first, kSequence, sequence + 4);
                         t.slotIs(second, kRhash, 0xFFFFFFFEU);
                     }),
              fmt::format("corrupt rhash detected, slotId: {} slot.rhash:fffffffe rhash:{:0x}",
                          second, rhash));
}

} // namespace
} // namespace ErrorsTest
