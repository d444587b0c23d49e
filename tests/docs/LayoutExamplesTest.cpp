// The hexadecimal examples of docs/layout.md are files that the library writes.

#include "Documents.h"
#include "Environment.h"
#include "RawTable.h"

#include "SharedMem/RavoFile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <unistd.h>

namespace {

using Bytes = std::vector<unsigned char>;
using TestSupport::ErrorShape;

constexpr const char* kDocument = "docs/layout.md";
constexpr const char* kTable = "example";
constexpr std::uint32_t kKey = Rsvp::pktParserBadMsgChecksumErrorType;
constexpr int kCrashed = 7;
constexpr std::size_t kCreationTime = 40;

std::string hexLine(const Bytes& bytes, std::size_t at) {
    std::string hex;
    std::string text;
    for (std::size_t i = at; i < at + 16; ++i) {
        if (i == at + 8) hex += ' ';
        if (i < bytes.size()) {
            hex += fmt::format(" {:02x}", bytes[i]);
            text += bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
        } else {
            hex += "   ";
        }
    }
    return fmt::format("{:08x} {}  |{}|", at, hex, text);
}

/// All bytes as `hexdump -C` prints them: a line that repeats its predecessor shrinks to "*".
Docs::Lines hexdump(const Bytes& bytes) {
    Docs::Lines lines;
    std::string last;
    for (std::size_t at = 0; at < bytes.size(); at += 16) {
        const std::string line = hexLine(bytes, at);
        if (line.substr(8) != last) {
            lines.push_back(line);
        } else if (lines.back() != "*") {
            lines.emplace_back("*");
        }
        last = line.substr(8);
    }
    lines.push_back(fmt::format("{:08x}", bytes.size()));
    return lines;
}

/// The lines that differ from what they were before.
Docs::Lines changes(const Bytes& before, const Bytes& after) {
    Docs::Lines lines;
    for (std::size_t at = 0; at < after.size(); at += 16) {
        if (hexLine(before, at) != hexLine(after, at)) lines.push_back(hexLine(after, at));
    }
    return lines;
}

/// A table of error counters from its birth to the death of its writer.
class LayoutExamples : public testing::Test {
  protected:
    struct Files {
        Bytes slots;
        Bytes buckets;
    };

    LayoutExamples() {
        Mem::pageSize_ = 4096; // stands in the header
        std::srand(1);         // as if nobody had called it: the seed of the hashes
        auto& handler = *Pello::Platform::getDebugHandler("docs", false);
        SharedMem::RavoFile(handler, Mem::OruRootPath(handler, kTable, true), false)
            .write(SharedMem::RavoId(4242, 0));
        {
            const auto writer = open();
            fresh_ = files();
            writer->write(ErrorShape::value(kKey, 1), true);
            inserted_ = files();
            writer->write(ErrorShape::value(kKey, 2), true);
            overwritten_ = files();
        }
        const auto end = TestSupport::inChild([this] {
            const auto writer = open();
            Mem::stopHook = [](Mem::StopPoint point) {
                if (point == Mem::StopPoint::slotValue) _exit(kCrashed);
            };
            writer->write(ErrorShape::value(kKey, 3), true);
        });
        EXPECT_TRUE(end.exited && end.code == kCrashed) << end.errors;
        crashed_ = files();
    }
    ~LayoutExamples() override { Mem::pageSize_ = pageSize_; }

    static std::unique_ptr<TestSupport::WriterOf<ErrorShape>> open() {
        return TestSupport::openWriter<ErrorShape>(kTable, TestSupport::fixedTable(4));
    }
    Files files() const {
        return {TestSupport::fileBytes(root_.file(kTable, "slots")),
                TestSupport::fileBytes(root_.file(kTable, "buckets"))};
    }

    std::size_t pageSize_ = Mem::pageSize_;
    TestSupport::TempRoot root_;
    Files fresh_;
    Files inserted_;
    Files overwritten_;
    Files crashed_;
};

void expectBlock(const std::string& name, const Docs::Lines& real) {
    EXPECT_EQ(Docs::joined(Docs::block(kDocument, name)), Docs::joined(real)) << name;
}

TEST_F(LayoutExamples, fileOfIdentity) {
    expectBlock("ravo", hexdump(TestSupport::fileBytes(root_.file(kTable, "ravo"))));
}

TEST_F(LayoutExamples, freshTable) {
    Docs::Lines shown = Docs::block(kDocument, "slots fresh");
    // The creation time alone is not repeatable.
    Bytes slots = fresh_.slots;
    for (const std::string& line : shown) {
        if (!line.starts_with("00000020")) continue;
        for (std::size_t i = 0; i < 8; ++i) {
            slots[kCreationTime + i] =
                static_cast<unsigned char>(std::stoul(line.substr(35 + 3 * i, 2), nullptr, 16));
        }
    }
    expectBlock("slots fresh", hexdump(slots));
    expectBlock("buckets fresh", hexdump(fresh_.buckets));
}

TEST_F(LayoutExamples, insert) {
    expectBlock("slots inserted", changes(fresh_.slots, inserted_.slots));
    expectBlock("buckets inserted", changes(fresh_.buckets, inserted_.buckets));
}

TEST_F(LayoutExamples, overwrite) {
    expectBlock("slots overwritten", changes(inserted_.slots, overwritten_.slots));
    EXPECT_EQ(inserted_.buckets, overwritten_.buckets);
}

TEST_F(LayoutExamples, crashInTheMiddleOfAnOverwrite) {
    expectBlock("slots crashed", changes(overwritten_.slots, crashed_.slots));
    EXPECT_EQ(overwritten_.buckets, crashed_.buckets);
}

TEST_F(LayoutExamples, hashes) {
    const std::uint32_t seed = TestSupport::wordOf(root_.file(kTable, "slots"), 568);
    const auto rows = Docs::table(kDocument, "hashes");
    std::vector<Docs::Lines> real;
    const auto add = [&](const std::string& key, std::uint32_t stranger, std::uint32_t own) {
        EXPECT_EQ(stranger, own) << key;
        real.push_back({key, fmt::format("`0x{:08X}`", own),
                        fmt::format("`0x{:08X}`", Docs::reversed(own)), fmt::format("{}", own % 2),
                        fmt::format("{}", own % 64)});
    };
    for (const auto type : {Rsvp::unknownErrorType, Rsvp::pktParserBadMsgChecksumErrorType}) {
        add(fmt::format("error kind {}", static_cast<unsigned>(type)),
            Docs::hashOfByte(static_cast<std::uint8_t>(type), seed),
            Rsvp::Vesk::ErrorCounterKey(type).hash(seed));
    }
    for (const auto& [interface, type] :
         {std::pair(1U, Rsvp::rsvpPathMsg), std::pair(2U, Rsvp::rsvpHelloMsg)}) {
        add(fmt::format("interface {}, type {}", interface, static_cast<unsigned>(type)),
            Docs::hashOfMessageKey(interface, type, seed),
            Rsvp::Vesk::MessageCounterKey(Wirra::IntfId(interface), type).hash(seed));
    }
    EXPECT_EQ(rows, real);
    EXPECT_EQ(Docs::quoted(Docs::table(kDocument, "interface hashes").at(0).at(1)).at(0),
              fmt::format("0x{:08X}", Docs::hashOfInterface(1)));
    EXPECT_EQ(Docs::hashOfInterface(1), Wirra::IntfId(1).hash());
}

/// The layout is told well enough that a stranger finds what is stored.
TEST_F(LayoutExamples, strangerFindsEveryEntry) {
    const auto writer = TestSupport::openWriter<ErrorShape>("full", TestSupport::growingTable(10));
    for (std::uint32_t key = 0; key < 200; ++key) {
        writer->write(ErrorShape::value(key, 1000 + key), true);
    }
    const Docs::RawTable table(root_.path() + "/full");
    EXPECT_EQ(table.numBuckets(), 256U);
    for (std::uint32_t key = 0; key < 256; ++key) {
        const auto found = table.count(static_cast<std::uint8_t>(key));
        EXPECT_EQ(found, key < 200 ? std::optional(1000 + key) : std::nullopt) << key;
    }
}

} // namespace
