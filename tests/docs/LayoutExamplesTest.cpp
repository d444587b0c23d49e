// The hexadecimal examples of docs/layout.md are files that the library writes, and its numbers are
// the library's.

#include "Documents.h"
#include "Environment.h"
#include "RawTable.h"

#include "SharedMem/RavoFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <span>

#include <unistd.h>

namespace {

using namespace TestSupport;
using Bytes = std::vector<unsigned char>;

constexpr const char* kDocument = "docs/layout.md";
constexpr std::uint32_t kKey = Rsvp::pktParserBadMsgChecksumErrorType;
constexpr std::uint32_t kSeed = 0x6B8B4567;                 // in the header of the example
constexpr std::uint64_t kCreationTime = 0x18EA804578060F00; // likewise
constexpr int kCrashed = 7;

/// A line of `hexdump -C` behind the address.
std::string hexLine(const Bytes& bytes, std::size_t at) {
    const auto part = std::span(bytes).subspan(at, std::min<std::size_t>(16, bytes.size() - at));
    std::string hex = fmt::format("{:02x}", fmt::join(part, " "));
    if (part.size() > 8) hex.insert(24, " ");
    std::string text(part.begin(), part.end());
    std::ranges::replace_if(
        text, [](char c) { return c < 0x20 || c == 0x7F; }, '.');
    return fmt::format("  {:<48}  |{}|\n", hex, text);
}

/// The lines that differ from what they were before, or all bytes, where a line that repeats its
/// predecessor shrinks to "*".
std::string hexdump(const Bytes& bytes, const Bytes& before = {}) {
    std::string dump;
    std::string last;
    for (std::size_t at = 0; at < bytes.size(); at += 16) {
        const std::string line = hexLine(bytes, at);
        if (!before.empty() && line == hexLine(before, at)) continue;
        if (line != last) dump += fmt::format("{:08x}{}", at, line);
        if (line == last && !dump.ends_with("*\n")) dump += "*\n";
        last = line;
    }
    return before.empty() ? dump + fmt::format("{:08x}\n", bytes.size()) : dump;
}

TEST(Layout, ShowsTheBytesThatTheLibraryWrites) {
    Mem::pageSize_ = 4096; // stands in the header
    std::srand(1);         // as if nobody had called it: the seed of the hashes
    const TempRoot root;
    auto& handler = *Pello::Platform::getDebugHandler("docs", false);
    SharedMem::RavoFile(handler, Mem::OruRootPath(handler, "t", true), false)
        .write(SharedMem::RavoId(4242, 0));
    const auto open = [] { return openWriter<ErrorShape>("t", fixedTable(4)); };
    const auto bytes = [&](const char* file) { return fileBytes(root.file("t", file)); };
    auto writer = open();
    patchFile(root.file("t", "slots"), 40, &kCreationTime, sizeof kCreationTime);
    const Bytes fresh = bytes("slots");
    const Bytes freshBuckets = bytes("buckets");
    EXPECT_EQ(hexdump(fresh), Docs::block(kDocument, "slots fresh"));
    EXPECT_EQ(hexdump(freshBuckets), Docs::block(kDocument, "buckets fresh"));
    EXPECT_EQ(hexdump(bytes("ravo")), Docs::block(kDocument, "ravo"));

    writer->write(ErrorShape::value(kKey, 1), true);
    const Bytes inserted = bytes("slots");
    const Bytes buckets = bytes("buckets");
    EXPECT_EQ(hexdump(inserted, fresh), Docs::block(kDocument, "slots inserted"));
    EXPECT_EQ(hexdump(buckets, freshBuckets), Docs::block(kDocument, "buckets inserted"));

    writer->write(ErrorShape::value(kKey, 2), true);
    const Bytes overwritten = bytes("slots");
    EXPECT_EQ(hexdump(overwritten, inserted), Docs::block(kDocument, "slots overwritten"));

    writer.reset();
    const auto end = inChild([&] {
        writer = open();
        Mem::stopHook = [](Mem::StopPoint point) {
            if (point == Mem::StopPoint::slotValue) _exit(kCrashed);
        };
        writer->write(ErrorShape::value(kKey, 3), true);
    });
    EXPECT_EQ(end.code, kCrashed) << end.errors;
    EXPECT_EQ(hexdump(bytes("slots"), overwritten), Docs::block(kDocument, "slots crashed"));
    EXPECT_EQ(bytes("buckets"), buckets);

    // The fields by which tests read tables are where the document says.
    for (const char* file : {"slots", "buckets"}) {
        for (const auto& [name, at, size] : RawFile(root.file("t", file)).fields()) {
            const std::string row = fmt::format("\n| {} | {} | {}", at, size, name);
            EXPECT_NE(Docs::read(kDocument).find(row), std::string::npos) << row;
        }
    }
}

TEST(Layout, ShowsTheHashesOfTheLibrary) {
    std::vector<Docs::Row> rows;
    const auto add = [&rows](const std::string& key, std::uint32_t hash) {
        rows.push_back({key, fmt::format("`0x{:08X}`", hash),
                        fmt::format("`0x{:08X}`", reversedBits(hash)), std::to_string(hash % 2),
                        std::to_string(hash % 64)});
    };
    using Rsvp::Vesk::MessageCounterKey;
    using Wirra::IntfId;
    add("error kind 0", ErrorShape::key(0).hash(kSeed));
    add("error kind 7", ErrorShape::key(kKey).hash(kSeed));
    add("interface 1, type 1", MessageCounterKey(IntfId(1), Rsvp::rsvpPathMsg).hash(kSeed));
    add("interface 2, type 20", MessageCounterKey(IntfId(2), Rsvp::rsvpHelloMsg).hash(kSeed));
    EXPECT_EQ(Docs::table(kDocument, "hashes"), rows);
    EXPECT_EQ(Docs::table(kDocument, "interface hashes").at(0).at(1),
              fmt::format("`0x{:08X}`", IntfId(1).hash()));
}

} // namespace
