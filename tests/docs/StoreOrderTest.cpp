// The tables of docs/protocol.md tell the stores of every operation in their order, and what a
// crash directly before each leaves. Here every operation runs with its stores recorded, and again
// with a crash before each of them.

#include "Documents.h"
#include "Environment.h"
#include "RawTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include <unistd.h>

namespace {

using namespace TestSupport;
using Writer = WriterOf<ErrorShape>;

constexpr const char* kDocument = "docs/protocol.md";
constexpr std::uint32_t kKey = 7;
constexpr std::uint32_t kOld = 1;
constexpr std::uint32_t kNew = 2;
constexpr int kCrashed = 7;

/// One store as the document tells it.
struct Step {
    std::string point;
    std::string readers; // begins with absent, old or new, or is - where no reader can be
    std::string next;    // what the next writer does
};

/// The stores of an operation, with those of `inner` where the document refers to it.
std::vector<Step> stepsOf(const std::string& operation, const std::string& inner) {
    std::vector<Step> steps;
    for (const auto& row : Docs::table(kDocument, "stores of " + operation)) {
        const std::string point = Docs::quoted(row.at(1));
        if (!point.empty()) steps.push_back({point, row.at(3), row.at(4)});
        if (inner.empty() || !row.at(2).starts_with("[" + inner + "]")) continue;
        const auto within = stepsOf(inner, "");
        steps.insert(steps.end(), within.begin(), within.end());
    }
    return steps;
}

struct Operation {
    const char* name;
    const char* inner; ///< the operation that happens within
    Vesk::MapDescriptor descriptor;
    std::vector<int> before; ///< keys that are stored, and those that are removed again: negative
    void (*run)(Writer&);    ///< null: opening the table is the operation
    const char* after;       ///< what readers find when it has ended

    friend void PrintTo(const Operation& operation, std::ostream* out) {
        *out << operation.name << " " << operation.inner;
    }
};

void insert(Writer& writer) { writer.write(ErrorShape::value(kKey, kNew), true); }
void keep(Writer& writer) { writer.write(ErrorShape::value(kKey, kNew), false); }
void remove(Writer& writer) {
    Writer::Value out;
    writer.remove(ErrorShape::key(kKey), out);
}
void writeDirectly(Writer& writer) {
    // Begun with another content: what the caller stores at the address counts.
    writer.directWrite(ErrorShape::value(kKey, 99))->countIs(kNew);
    writer.directCommit();
}
void updateDirectly(Writer& writer) {
    *writer.directUpdate(ErrorShape::key(kKey)) = ErrorShape::value(kKey, kNew);
    writer.directCommit();
}

/// A removal halves the buckets when there are too many.
Vesk::MapDescriptor fixed() {
    Vesk::MapDescriptor descriptor = fixedTable(8);
    descriptor.shrinkBuckets = true;
    return descriptor;
}

Vesk::MapDescriptor shrinking() {
    Vesk::MapDescriptor descriptor = growingTable(10);
    descriptor.shrinkSlots = true;
    return descriptor;
}

const Operation kOperations[] = {
    {"insert", "", fixed(), {1}, insert, "new"},
    {"overwrite", "", fixed(), {1, kKey}, insert, "new"},
    {"keep", "", fixed(), {1, kKey}, keep, "old"},
    {"remove", "", fixed(), {1, kKey}, remove, "absent"},
    {"direct insert", "", fixed(), {1}, writeDirectly, "new"},
    {"direct overwrite", "", fixed(), {1, kKey}, writeDirectly, "new"},
    {"direct update", "", fixed(), {1, kKey}, updateDirectly, "new"},
    {"insert", "growth", growingTable(10), {1}, insert, "new"},
    {"insert", "doubling", fixed(), {1, 2}, insert, "new"},
    {"remove", "halving", fixed(), {1, 2, 3, 4, kKey, -2, -3, -4}, remove, "absent"},
    // Six slots: the key that stays is in the fifth, the sixth is free.
    {"remove", "shrinking", shrinking(), {2, 3, 4, kKey, 1, 5, -2, -3, -4, -5}, remove, "absent"},
    {"format", "", growingTable(10), {}, nullptr, "absent"},
    {"re-format", "", growingTable(10), {kKey}, nullptr, "absent"},
};

/// The count of a key as a reader finds it that comes by now, by the offsets and rules of
/// docs/layout.md; 0 when it is absent.
std::uint32_t countOf(const TempRoot& root, std::uint32_t key) {
    const RawFile slots(root.file("t", "slots"));
    const RawFile buckets(root.file("t", "buckets"));
    const auto seed = static_cast<std::uint32_t>(slots.header("seed of the hashes"));
    const std::uint32_t rhash = reversedBits(ErrorShape::key(key).hash(seed));
    const std::size_t numBuckets = buckets.header("{version, number of buckets}") >> 32U;
    std::uint32_t last = 0;
    std::uint32_t next = buckets.word(28 + 8 * (reversedBits(rhash) % numBuckets));
    while (next >> 31U == 0) {
        const std::size_t slot = 600 + 24 * (std::size_t{1} + next);
        const std::uint32_t sequence = slots.word(slot + 8);
        const std::size_t content = (sequence & 2U) != 0 ? 600 : slot;
        const std::uint32_t found = slots.word(content + 12);
        // No two of these few keys have the same hash.
        if ((sequence & 1U) == 0 || found <= last) throw std::runtime_error("corrupt chain");
        if (found == rhash) return slots.word(content + 20);
        last = found;
        next = slots.word(slot + 4);
    }
    return 0;
}

std::size_t storesToCrash = 0;

void hook(Mem::StopPoint point) {
    if (Mem::isOfFiles(point) || storesToCrash-- != 0) return;
    std::fputs(Mem::kStopPointNames[static_cast<std::size_t>(point)].data(), stderr);
    _exit(kCrashed);
}

struct StoreOrder : testing::TestWithParam<Operation> {
    // The smallest table that grows: one slot, so that each store of a growth comes once. Every
    // test of this program that opens a table sets the size that it needs.
    StoreOrder() { Mem::pageSize_ = 600; }

    static auto open() { return openWriter<ErrorShape>("t", GetParam().descriptor); }

    /// The table as the operation finds it. One that is to be formatted anew is what a dead writer
    /// left, one that is to be made is not there.
    static void prepare(const TempRoot& root) {
        if (GetParam().before.empty()) return;
        const auto writer = open();
        Writer::Value out;
        for (const int key : GetParam().before) {
            const auto number = static_cast<std::uint32_t>(std::abs(key));
            if (key > 0) writer->write(ErrorShape::value(number, kOld), true);
            if (key < 0) writer->remove(ErrorShape::key(number), out);
        }
        if (!GetParam().run) patchWord(root.file("t", "slots"), 548, 1U << 16U);
    }
    /// Runs the operation in a child that crashes before the store of that number, and tells its
    /// name, or that ends well when there are fewer.
    static ChildEnd run(std::size_t store) {
        return inChild([store] {
            Pello::Platform::traceLevelsIs("", 0);
            storesToCrash = store;
            if (!GetParam().run) Mem::stopHook = hook;
            const auto writer = open();
            Mem::stopHook = hook;
            if (GetParam().run) GetParam().run(*writer);
            Mem::stopHook = nullptr;
        });
    }
    static void expectFound(const TempRoot& root, const std::string& wanted) {
        const std::array<std::string, 3> names = {"absent", "old", "new"};
        EXPECT_TRUE(wanted.starts_with(names.at(countOf(root, kKey)))) << wanted;
        if (GetParam().run) {
            EXPECT_EQ(countOf(root, 1), kOld); // a key that the operation does not touch
        }
    }
};

TEST_P(StoreOrder, AndCrashesAreAsTheDocumentSays) {
    const std::vector<Step> steps = stepsOf(GetParam().name, GetParam().inner);
    for (std::size_t store = 0, row = 0;; ++store) {
        SCOPED_TRACE(fmt::format("store {}", store));
        const TempRoot root;
        prepare(root);
        const auto end = run(store);
        if (end.code == 0) {
            expectFound(root, GetParam().after);
            EXPECT_EQ(RawFile(root.file("t", "slots")).header("runtime flags"), 0U);
            EXPECT_EQ(row + 1, steps.size());
            return;
        }
        ASSERT_EQ(end.code, kCrashed) << end.errors;
        // A store for each of several slots or buckets stands in the document once.
        if (store != 0 && end.errors != steps.at(row).point) ++row;
        const Step& step = steps.at(row);
        ASSERT_EQ(end.errors, step.point);
        if (step.readers != "-") expectFound(root, step.readers);

        const TraceCapture traces(1U << 0U | 1U << 1U);
        const auto writer = open();
        const bool formatted = traces.find("re-formatted successfully") != nullptr;
        EXPECT_TRUE(step.next.starts_with(formatted ? "re-formats" : "takes over")) << step.next;
        EXPECT_EQ(formatted || !GetParam().run, writer->members() == 0);
        // A re-format is due to the critical-section flag where the document does not say else.
        std::string reason = Docs::quoted(step.next);
        if (reason.empty() && formatted) reason = "bad critical section runtimeFlags:1";
        const auto gives = [&](const auto& line) { return line.text.find(reason) + 1 != 0; };
        EXPECT_TRUE(std::ranges::any_of(traces.lines(), gives)) << reason;
        EXPECT_TRUE(writer->validate());
    }
}

INSTANTIATE_TEST_SUITE_P(Operations, StoreOrder, testing::ValuesIn(kOperations));

/// The list of stop points stands in the order of the enumeration, none left out.
TEST(StopPoints, AreListed) {
    std::vector<std::string> listed;
    for (const auto& row : Docs::table(kDocument, "stop points")) {
        listed.push_back(Docs::quoted(row.at(0)));
    }
    EXPECT_TRUE(std::ranges::equal(listed, Mem::kStopPointNames));
}

} // namespace
