// The tables of docs/protocol.md tell the stores of every operation in their order, and what a
// crash directly before each leaves. Here every operation runs with its stores recorded, and again
// with a crash before each of them.

#include "Documents.h"
#include "Environment.h"
#include "RawTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <unistd.h>

namespace {

using TestSupport::ErrorShape;
using Writer = TestSupport::WriterOf<ErrorShape>;

constexpr const char* kDocument = "docs/protocol.md";
constexpr const char* kTable = "t";
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
using Steps = std::vector<Step>;

/// The rows of an operation that name a stop point; others stand for what happens between stores.
Steps stepsOf(const std::string& name) {
    Steps steps;
    for (const Docs::Lines& row : Docs::table(kDocument, "stores of " + name)) {
        const Docs::Lines names = Docs::quoted(row.at(1));
        if (!names.empty()) steps.push_back({names.at(0), row.at(3), row.at(4)});
    }
    return steps;
}

/// `inner` inside `outer`, before the outer step of that number.
Steps spliced(const Steps& outer, std::size_t at, const Steps& inner) {
    Steps all(outer.begin(), outer.begin() + static_cast<std::ptrdiff_t>(at));
    all.insert(all.end(), inner.begin(), inner.end());
    all.insert(all.end(), outer.begin() + static_cast<std::ptrdiff_t>(at), outer.end());
    return all;
}

struct Operation {
    const char* name;
    Vesk::MapDescriptor descriptor;
    std::vector<std::uint32_t> before; ///< keys that are stored, in this order
    std::vector<std::uint32_t> gone;   ///< keys that are removed again
    std::function<void(Writer&)> run;  ///< empty: opening the table is the operation
    Steps (*steps)();
    const char* after; ///< what readers find when it has ended

    friend void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }
};

Vesk::MapDescriptor halvingTable() {
    Vesk::MapDescriptor descriptor = TestSupport::fixedTable(8);
    descriptor.shrinkBuckets = true;
    return descriptor;
}

void insertKey(Writer& writer) { writer.write(ErrorShape::value(kKey, kNew), true); }
void removeKey(Writer& writer) {
    Writer::Value out;
    writer.remove(ErrorShape::key(kKey), out);
}
void writeDirectly(Writer& writer) {
    // Begun with another content: what the caller stores at the address counts.
    writer.directWrite(ErrorShape::value(kKey, 99))->countIs(kNew);
    writer.directCommit();
}

const Operation kOperations[] = {
    {"insert",
     TestSupport::fixedTable(8),
     {1},
     {},
     insertKey,
     [] { return stepsOf("insert"); },
     "new"},
    {"overwrite",
     TestSupport::fixedTable(8),
     {1, kKey},
     {},
     insertKey,
     [] { return stepsOf("overwrite"); },
     "new"},
    {"keep",
     TestSupport::fixedTable(8),
     {1, kKey},
     {},
     [](Writer& writer) { writer.write(ErrorShape::value(kKey, kNew), false); },
     [] { return stepsOf("keep"); },
     "old"},
    {"remove",
     TestSupport::fixedTable(8),
     {1, kKey},
     {},
     removeKey,
     [] { return stepsOf("remove"); },
     "absent"},
    {"directInsert",
     TestSupport::fixedTable(8),
     {1},
     {},
     writeDirectly,
     [] { return stepsOf("direct insert"); },
     "new"},
    {"directOverwrite",
     TestSupport::fixedTable(8),
     {1, kKey},
     {},
     writeDirectly,
     [] { return stepsOf("direct overwrite"); },
     "new"},
    {"directUpdate",
     TestSupport::fixedTable(8),
     {1, kKey},
     {},
     [](Writer& writer) {
         *writer.directUpdate(ErrorShape::key(kKey)) = ErrorShape::value(kKey, kNew);
         writer.directCommit();
     },
     [] { return stepsOf("direct update"); },
     "new"},
    {"growth",
     TestSupport::growingTable(10),
     {1},
     {},
     insertKey,
     [] { return spliced(stepsOf("insert"), 1, stepsOf("growth")); },
     "new"},
    {"doubling",
     TestSupport::fixedTable(8),
     {1, 2},
     {},
     insertKey,
     [] {
         const Steps insert = stepsOf("insert");
         return spliced(insert, insert.size() - 1, stepsOf("doubling"));
     },
     "new"},
    {"halving",
     halvingTable(),
     {1, 2, 3, 4, kKey},
     {2, 3, 4},
     removeKey,
     [] {
         const Steps remove = stepsOf("remove");
         return spliced(remove, remove.size() - 1, stepsOf("halving"));
     },
     "absent"},
    {"format",
     TestSupport::growingTable(10),
     {},
     {},
     {},
     [] { return stepsOf("format"); },
     "absent"},
    {"reformat",
     TestSupport::growingTable(10),
     {kKey},
     {},
     {},
     [] { return stepsOf("re-format"); },
     "absent"},
};

class StoreOrder : public testing::TestWithParam<Operation> {
  protected:
    // The smallest table that grows: one slot, so that each store of a growth comes once.
    StoreOrder() { Mem::pageSize_ = 600; }
    ~StoreOrder() override {
        Mem::stopHook = nullptr;
        Mem::pageSize_ = pageSize_;
    }

    static std::unique_ptr<Writer> open() {
        return TestSupport::openWriter<ErrorShape>(kTable, GetParam().descriptor);
    }
    /// The table as the operation finds it. One that is to be formatted anew is what a dead writer
    /// left, one that is to be made is not there.
    static void prepare(const TestSupport::TempRoot& root) {
        if (GetParam().before.empty()) return;
        const auto writer = open();
        for (const std::uint32_t key : GetParam().before) {
            writer->write(ErrorShape::value(key, kOld), true);
        }
        Writer::Value out;
        for (const std::uint32_t key : GetParam().gone) {
            writer->remove(ErrorShape::key(key), out);
        }
        if (!GetParam().run) TestSupport::patchWord(root.file(kTable, "slots"), 548, 1U << 16U);
    }
    /// Runs the operation in a child with a hook at the stop points of the operation alone.
    static TestSupport::ChildEnd run(Mem::StopHook hook) {
        return TestSupport::inChild([hook] {
            Pello::Platform::traceLevelsIs("", 0);
            if (!GetParam().run) Mem::stopHook = hook;
            const auto writer = open();
            Mem::stopHook = hook;
            if (GetParam().run) GetParam().run(*writer);
            Mem::stopHook = nullptr;
        });
    }
    /// The names of the stores that the operation passes.
    static Docs::Lines recorded() {
        const auto end = run([](Mem::StopPoint point) {
            const auto name = Mem::kStopPointNames[static_cast<std::size_t>(point)];
            std::fprintf(stderr, "%s\n", std::string(name).c_str());
        });
        EXPECT_EQ(end.code, 0) << end.errors;
        return Docs::linesOf(end.errors);
    }
    static bool othersAreThere(const Docs::RawTable& table) {
        for (const std::uint32_t key : GetParam().before) {
            const auto& gone = GetParam().gone;
            if (key == kKey || std::find(gone.begin(), gone.end(), key) != gone.end()) continue;
            if (table.count(static_cast<std::uint8_t>(key)) != kOld) return false;
        }
        return true;
    }
    static std::string found(const Docs::RawTable& table) {
        const auto count = table.count(kKey);
        return !count ? "absent" : *count == kOld ? "old" : *count == kNew ? "new" : "neither";
    }

  private:
    std::size_t pageSize_ = Mem::pageSize_;
};

/// A store for each of several slots or buckets stands in the document once.
Docs::Lines withoutRepeats(const Docs::Lines& names) {
    Docs::Lines once = names;
    once.erase(std::unique(once.begin(), once.end()), once.end());
    return once;
}

TEST_P(StoreOrder, isWhatTheDocumentSays) {
    const TestSupport::TempRoot root;
    prepare(root);
    Docs::Lines told;
    for (const Step& step : GetParam().steps()) {
        told.push_back(step.point);
    }
    EXPECT_EQ(withoutRepeats(recorded()), told);
    const Docs::RawTable table(root.path() + "/" + kTable);
    EXPECT_EQ(found(table), GetParam().after);
    EXPECT_TRUE(othersAreThere(table));
    EXPECT_FALSE(table.inChange());
}

TEST_P(StoreOrder, crashLeavesWhatTheDocumentSays) {
    static std::size_t remaining = 0;
    const Steps steps = GetParam().steps();
    Docs::Lines names;
    {
        const TestSupport::TempRoot root;
        prepare(root);
        names = recorded();
    }
    std::size_t row = 0;
    for (std::size_t store = 0; store < names.size(); ++store) {
        if (store != 0 && names[store] != names[store - 1]) ++row;
        ASSERT_LT(row, steps.size());
        const Step& step = steps[row];
        SCOPED_TRACE(fmt::format("store {}, {}", store + 1, step.point));
        const TestSupport::TempRoot root;
        prepare(root);
        remaining = store;
        const auto end = run([](Mem::StopPoint) {
            if (remaining-- == 0) _exit(kCrashed);
        });
        ASSERT_EQ(end.code, kCrashed) << end.errors;

        if (step.readers != "-") {
            const Docs::RawTable table(root.path() + "/" + kTable);
            EXPECT_TRUE(step.readers.starts_with(found(table))) << step.readers;
            EXPECT_TRUE(othersAreThere(table));
        }

        TestSupport::TraceCapture traces(1U << 0U | 1U << 1U);
        const auto writer = open();
        const bool formatted = traces.find("re-formatted successfully") != nullptr;
        EXPECT_TRUE(step.next.starts_with(formatted ? "re-formats" : "takes over")) << step.next;
        if (GetParam().run) {
            EXPECT_EQ(formatted, writer->members() == 0);
        }
        // A re-format is due to the critical-section flag where the document does not say else.
        Docs::Lines reasons = Docs::quoted(step.next);
        if (reasons.empty() && formatted) reasons = {"bad critical section runtimeFlags:1"};
        for (const std::string& reason : reasons) {
            EXPECT_TRUE(std::any_of(traces.lines().begin(), traces.lines().end(),
                                    [&reason](const auto& line) {
                                        return line.text.find(reason) != std::string::npos;
                                    }))
                << reason;
        }
        EXPECT_TRUE(writer->validate());
    }
    EXPECT_EQ(row + 1, steps.size());
}

INSTANTIATE_TEST_SUITE_P(Operations, StoreOrder, testing::ValuesIn(kOperations),
                         [](const auto& operation) { return std::string(operation.param.name); });

/// The list of stop points stands in the order of the enumeration, none left out.
TEST(StopPoints, areListed) {
    Docs::Lines listed;
    for (const Docs::Lines& row : Docs::table(kDocument, "stop points")) {
        listed.push_back(Docs::quoted(row.at(0)).at(0));
    }
    EXPECT_EQ(listed, Docs::Lines(Mem::kStopPointNames.begin(), Mem::kStopPointNames.end()));
}

} // namespace
