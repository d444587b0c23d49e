// The validation of a table: which damage it names, that it only reads, and what a writer makes of
// a damaged table that it finds.

#include "TableFiles.h"
#include "Vesk/Util.h"

#include <filesystem>

namespace ErrorsTest {
namespace {

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

    void harm() const {
        for (const Poke& poke : pokes) {
            TestSupport::patchFile(poke.path, poke.offset, poke.words.data(),
                                   4 * poke.words.size());
        }
    }
};

struct Validator : Table<TestSupport::SpShape> {
    Validator() {
        open();
        fill(200);
        sound = files.image();
    }
    std::vector<Damage> damages() const;

    /// What the writer's own validation says now; empty when it is content.
    std::string verdict() {
        const TraceCapture capture(1);
        if (writer->validate()) return {};
        const std::string head =
            "0 Validator Vesk/Validator.validate Vesk " + files.folder + " validation failed: ";
        for (const std::string& line : traced(capture)) {
            if (line.starts_with(head)) return line.substr(head.size());
        }
        return "failed without a word";
    }
    void leaveDamaged(const Damage& damage) {
        writer.reset();
        files.imageIs(sound);
        damage.harm();
    }

    TableFiles::Image sound;
};

/// What can be wrong with sound files that hold 200 entries in 256 buckets.
std::vector<Damage> Validator::damages() const {
    using fmt::format;
    const auto head = [&](std::uint64_t at, std::uint32_t w) { return Poke{files.slots, at, {w}}; };
    const auto table = [&](std::uint64_t at, std::uint32_t w) {
        return Poke{files.buckets, at, {w}};
    };
    const auto inBucket = [&](std::uint32_t b, std::uint32_t w) { return table(28 + 8 * b, w); };
    const auto inSlot = [&](std::uint32_t i, Word at, std::uint32_t w) {
        return head(raw().slotAt(i) + at, w);
    };
    const std::uint32_t n = raw().numSlots();
    const std::uint32_t id = files.header(kRavoId);
    std::vector<Damage> all{
        {"bad critical section runtimeFlags:8003", false, {head(kRuntime, 0x80030000U)}},
        {"bad bucket header magic:0xbad format:1", true, {table(0, 0xBAD)}},
        {"bad bucket header magic:0x544b4256 format:2", true, {table(8, 2)}},
        {format("bad bucket ravo id:77 wanted:{}", id), true, {table(4, 77)}},
        {"bad numBuckets:255", true, {table(20, 255)}}, // no power of two
        {"bad numBuckets:0", true, {table(20, 0)}},
        {"bad bucket file size:2072 wanted:4120 for 512 buckets", true, {table(20, 512)}},
        {"bad numSlots:0", true, {head(kNumSlots, 0)}},
        {format("bad numSlots:{} highWater:{}", n, n - 1), true, {head(kHighWater, n - 1)}},
        {format("bad shmem size:{} wanted:{} for {} slots", raw().slotAt(n), raw().slotAt(n + 1),
                n + 1),
         true,
         {head(kNumSlots, n + 1)}}};
    const std::pair<const char*, std::uint64_t> words[] = {{"magic", 0},      {"byte order", 8},
                                                           {"format", 4},     {"ravo id", kRavoId},
                                                           {"slot size", 12}, {"value size", 20}};
    for (const auto& [name, at] : words) {
        const std::uint32_t was = TestSupport::wordOf(files.slots, at);
        all.push_back(
            {format("bad {}:{} wanted:{}", name, was + 1, was), true, {head(at, was + 1)}});
    }
    const std::string type(reinterpret_cast<const char*>(sound[0].data()) + 48);
    all.push_back({format("bad type name:{}{} wanted:{}", char(type[0] + 1), type.substr(1), type),
                   true,
                   {head(48, TestSupport::wordOf(files.slots, 48) + 1)}});

    const auto content = [&](const std::string& text, const Poke& poke) {
        all.push_back({text, false, {poke}});
    };
    const std::uint32_t bucket = bucketWith(3);
    const std::uint32_t empty = bucketWith(0);
    const std::uint32_t first = chain(bucket)[0];
    const std::uint32_t second = chain(bucket)[1];
    const std::uint32_t last = chain(bucket).back();
    const auto freed = [&](std::uint32_t i) {
        return inSlot(i, kSequence, slotWord(i, kSequence) & ~1U);
    };
    content(format("slotId: {} from bucket: {} not marked as occupied", first, bucket),
            freed(first));
    content(format("slotId: {} not marked as occupied", second), freed(second));
    for (const std::uint32_t i : {first, second, last}) {
        const std::uint32_t stuck = slotWord(i, kSequence) | 2U;
        const std::uint32_t rhash = slotWord(i, kRhash);
        content(format("stuck LOOKASIDE bit: {:#x}", stuck), inSlot(i, kSequence, stuck));
        content(format("corrupt rhash detected, slotId: {} slot.rhash:{:08x} rhash:{:08x}", i,
                       rhash ^ 0xF0000001U, rhash),
                inSlot(i, kRhash, rhash ^ 0xF0000001U));
        content(format("corrupt key detected, slotId: {}", i),
                {files.slots, raw().slotAt(i) + kValue, foreignValue(bucket)});
    }
    const std::string range = format("out-of-range index: {} max:{}", n, n - 1);
    content(range, inSlot(second, kNext, n));
    content(range, inBucket(bucket, n));
    content(format("duplicate slot: {}", first), inSlot(last, kNext, first));
    const char* const astray = "has bucket: {} with next bucket: {} and numBuckets: 256";
    content(format(fmt::runtime(astray), empty, empty), inBucket(empty, kBucketBit | empty));
    content(format(fmt::runtime(astray), bucket, 999), inSlot(last, kNext, kBucketBit | 999));
    const char* const early = "thinks we've reached the end of the table, but we're in bucket {} "
                              "when there are numBuckets: 256";
    content(format(fmt::runtime(early), empty), inBucket(empty, kEnd));
    content(format(fmt::runtime(early), bucket), inSlot(last, kNext, kEnd));

    content("walkedSlots:200 is greater than header->occupiedSlots:199", head(kOccupiedSlots, 199));
    content("mismatch header->occupiedSlots:200 count:199",
            inSlot(first, kNext, raw().nextOfSlot(second))); // no chain leads to the second
    content("mismatch header->occupiedSlots:201 count:200", head(kOccupiedSlots, 201));

    const auto free = raw().chainFrom(files.header(kFreeHead));
    const char* const used = "corrupted free slot not marked as empty: {}";
    const char* const totals = "bad slotCount:{} occupiedSlots:200 freeSlots:{} capacity:{}";
    content(format("corrupted free slot detected with out of bound index: {}", n + 1),
            head(kFreeHead, n + 1));
    content(range, inSlot(free[1], kNext, n));
    content(format("duplicate freeSlot detected: {}", free[0]), inSlot(free[2], kNext, free[0]));
    content(format(fmt::runtime(used), free[1]), inSlot(free[1], kSequence, 5));
    content(format(fmt::runtime(used), second), inSlot(free[0], kNext, second));
    content(format(fmt::runtime(totals), n - 1, n - 201, n), inSlot(free[0], kNext, free[2]));
    content(format(fmt::runtime(totals), 200, 0, n), head(kFreeHead, kEnd));
    return all;
}

TEST_F(Validator, NamesEachDamageAndOnlyReads) {
    ASSERT_EQ(writer->buckets(), 256U);
    for (const Damage& damage : damages()) {
        damage.harm();
        const TableFiles::Image before = files.image();
        ASSERT_NE(before, sound) << damage.text;
        EXPECT_EQ(verdict(), damage.text);
        EXPECT_EQ(files.image(), before) << damage.text << ": the validator wrote";
        files.imageIs(sound);
        EXPECT_EQ(verdict(), "");
    }
}

TEST_F(Validator, TheFirstDamageInItsOrderIsTheOneNamed) {
    // One of each kind, from the last check to the first: each hides those that stand already.
    const std::vector<Damage> all = damages();
    for (const char* const text :
         {"bad slotCount", "duplicate freeSlot", "mismatch header->occupiedSlots:201",
          "corrupt rhash", "bad slot size", "bad bucket header magic:0xbad", "bad critical"}) {
        const auto damage = std::find_if(all.begin(), all.end(), [text](const Damage& each) {
            return each.text.starts_with(text);
        });
        damage->harm();
        EXPECT_EQ(verdict(), damage->text);
    }
}

TEST_F(Validator, ADamagedTableIsFormattedAnewOrKeptForInspection) {
    const SharedMem::RavoId next = writer->ravoId().nextGeneration();
    const std::string operation = "VeskWriter Vesk/VeskWriter.attachAndValidate ";
    for (const Damage& damage : damages()) {
        SCOPED_TRACE(damage.text);
        leaveDamaged(damage);
        TableFiles::Image before = files.image();
        TraceCapture capture(3);
        Vesk::Util::runningOnPhysicalDutIs(true);
        Vesk::Util::strictValidationIs(true);
        std::string raised = opening();
        Vesk::Util::runningOnPhysicalDutIs(false);
        Vesk::Util::strictValidationIs(false);
        if (!damage.header) { // else no table of ours: repaired as ever
            EXPECT_EQ(raised, operation + "failed initial validation of " + files.folder +
                                  " after re-attaching");
            EXPECT_FALSE(std::filesystem::exists(files.ravo));
            before[2].clear();
            EXPECT_EQ(files.image(), before);
            leaveDamaged(damage);
            capture.clear();
            raised = opening();
        }
        EXPECT_EQ(raised, "nothing");
        const std::vector<std::string> lines = traced(capture);
        for (const std::string& line :
             {"0 " + operation + "failed to " + (damage.header ? "attach to" : "validate") +
                  " existing files",
              "1 " + operation + "all entries from " + files.folder + " will be lost",
              "1 SlotWriterTable Vesk/SlotWriter.attach re-formatted " + files.slots,
              "1 " + operation + "re-formatted successfully"}) {
            EXPECT_TRUE(has(lines, line)) << line;
        }
        EXPECT_EQ(damage.header, capture.find("Vesk " + files.folder +
                                              " validation failed: " + damage.text) == nullptr);
        EXPECT_EQ(writer->members(), 0U);
        EXPECT_EQ(writer->ravoId(), next);
        EXPECT_EQ(files.header(kRavoId), next.word());
        EXPECT_EQ(TestSupport::wordOf(files.ravo, 4), next.word());
        EXPECT_EQ(verdict(), "");
    }
}

TEST_F(Validator, AFileThatLostItsEndIsFormattedAnew) {
    for (const std::size_t file : {0U, 1U}) {
        const std::size_t whole = sound[file].size();
        for (const std::size_t size : {whole - 1, whole / 2, std::size_t{20}, std::size_t{0}}) {
            leaveDamaged({});
            std::filesystem::resize_file(file == 0 ? files.slots : files.buckets, size);
            const TraceCapture quiet(0);
            open();
            EXPECT_EQ(writer->members(), 0U) << file << " of " << size;
            EXPECT_EQ(verdict(), "");
        }
    }
    const auto& table = writer->slotTable();
    std::string error;
    for (const std::uint32_t size : {599U, table.headerSize() - 1}) {
        EXPECT_FALSE(table.validateHeader(size, writer->ravoId(), error));
        EXPECT_EQ(error, fmt::format("bad header file size: {} wanted:{}", size,
                                     size < 600 ? 600 : table.headerSize()));
    }
}

TEST_F(Validator, DamageWhileItRuns) {
    // Bytes that change under its hands: another process writes where only the writer may.
    const std::uint32_t bucket = bucketWith(2);
    const std::uint32_t first = chain(bucket)[0];
    const std::uint32_t second = chain(bucket)[1];
    const std::uint32_t sequence = slotWord(first, kSequence);
    const std::uint32_t rhash = slotWord(second, kRhash);
    const auto caught = [&](const std::string& at, const std::function<void()>& harm) {
        std::string text;
        const TraceHook hook(0x0201, [&](const std::string& line) {
            if (line.ends_with(at)) harm();
            if (line.starts_with("caught: ")) text = line.substr(8);
        });
        EXPECT_FALSE(writer->validate());
        files.imageIs(sound);
        return text;
    };
    EXPECT_EQ(caught(fmt::format("slotIndex: {}", first),
                     [&] { slotIs(first, kSequence, sequence & ~1U); }),
              fmt::format("missing OCCUPIED bit: {:#x}", sequence & ~1U));
    // A cursor that is no longer good leads to the slow path, which prints the hash unpadded.
    EXPECT_EQ(caught(fmt::format(" found at bucket {}", bucket),
                     [&] {
                         slotIs(first, kSequence, sequence + 4);
                         slotIs(second, kRhash, 0xFFFFFFFEU);
                     }),
              fmt::format("corrupt rhash detected, slotId: {} slot.rhash:fffffffe rhash:{:0x}",
                          second, rhash));
}

} // namespace
} // namespace ErrorsTest
