// Reading capture files: the formats, and what happens to files that are none or break off.

#include "Support.h"

#include "packets/InputError.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>

namespace Packets::Test {

constexpr std::uint32_t microMagic = 0xa1b2c3d4;
constexpr std::uint32_t nanoMagic = 0xa1b23c4d;
const std::vector<Octets> bodies{Octets(60, 1), Octets(61, 2), Octets(14, 3)};

[[nodiscard]] Octets words(std::initializer_list<std::size_t> values) {
    Octets octets;
    for (const std::size_t value : values) {
        const Octets word = concat({be16(value >> 16), be16(value)});
        octets.insert(octets.end(), word.rbegin(), word.rend());
    }
    return octets;
}

[[nodiscard]] Octets pcapFile(std::uint32_t magic, std::uint32_t linkType = 1) {
    Octets file = words({magic, 0x40002, 0, 0, 65535, linkType});
    std::size_t seconds = 1'700'000'000;
    for (const Octets& body : bodies) {
        const Octets header = words({seconds++, 123'456, body.size(), body.size() + 7});
        file = concat({file, header, body});
    }
    return file;
}

/// Section header, one interface with microseconds, one packet.
[[nodiscard]] Octets pcapngFile(std::uint64_t time) {
    constexpr std::size_t unknown = 0xffffffff;
    return concat(
        {words({0x0a0d0d0a, 28, 0x1a2b3c4d, 1, unknown, unknown, 28, 1, 20, 1, 65535, 20}),
         words({6, 92, 0, time >> 32, time, 60, 67}), bodies[0], words({92})});
}

/// The whole records, each as "<time>:<kept>/<wire length> ", and the error or "end".
[[nodiscard]] std::string contents(const std::string& file) {
    std::string text;
    std::unique_ptr<CaptureFile> capture;
    CaptureRecord record;
    try {
        capture = std::make_unique<CaptureFile>(file);
        for (std::size_t index = 0; capture->next(record); ++index) {
            EXPECT_TRUE(std::ranges::equal(record.frame.captured, bodies.at(index)));
            text += fmt::format("{}:{}/{} ", record.timestamp, record.frame.captured.size(),
                                record.frame.wireLength);
        }
        text += "end";
    } catch (const InputError& error) {
        const std::string what = error.what();
        EXPECT_EQ(what.find(file + ": "), 0U) << what;
        text += what.substr(file.size() + 2);
    }
    EXPECT_FALSE(capture && capture->next(record));
    return text;
}

[[nodiscard]] std::string contentsOf(const Octets& octets) {
    std::ofstream(scratch, std::ios::binary) << std::string(octets.begin(), octets.end());
    return contents(scratch);
}

const std::string micro = "1700000000123456000:60/67 1700000001123456000:61/68 "
                          "1700000002123456000:14/21 end";

TEST(CaptureFile, ReadsEveryFormat) {
    EXPECT_EQ(contentsOf(pcapFile(microMagic)), micro);
    EXPECT_EQ(contentsOf(pcapFile(nanoMagic)).find("1700000000000123456:60/67 1700000001000"), 0U);
    EXPECT_EQ(contentsOf(pcapngFile(1'700'000'000'123'456)), "1700000000123456000:60/67 end");
    // Beyond 2^63 nanoseconds, time stamps stay in order.
    EXPECT_EQ(contentsOf(pcapngFile(~std::uint64_t{0})), fmt::format("{}:60/67 end", INT64_MAX));
}

TEST(CaptureFile, AFileCutAnywhereGivesItsWholeRecordsThenAnError) {
    const Octets file = pcapFile(microMagic);
    for (std::size_t length = 0; length < file.size(); ++length) {
        const unsigned whole = (length >= 24 + 76 ? 1U : 0U) + (length >= 24 + 76 + 77 ? 1U : 0U);
        const bool isBoundary = length == 24 || length == 24 + 76 || length == 24 + 76 + 77;
        const std::string end = isBoundary ? "end" : fmt::format("record {}: ", whole + 1);
        const std::string wanted = micro.substr(0, whole * 26) + end;
        const std::string text = contentsOf(firstOf(file, length));
        EXPECT_TRUE(length < 24 ? text.find("end") != 0 : text.starts_with(wanted)) << text;
    }
    const Octets garbled = with(file, 24 + 76 + 11, 0xff);
    EXPECT_EQ(contentsOf(garbled).find("1700000000123456000:60/67 record 2: "), 0U);
}

TEST(CaptureFile, RefusesWhatIsNoCaptureAndSaysWhy) {
    const std::string text = "interface,dir,level,msg_type,msg_name,family,total\n";
    const std::pair<std::string, std::string> cases[] = {
        {contents("missing.pcap"), "No such file"},
        {contents(testing::TempDir()), "Is a directory"},
        {contents("-"), "No such file"}, // not standard input
        {contentsOf(Octets{}), "empty"},
        {contentsOf(Octets(text.begin(), text.end())), "not a readable capture"},
        {contentsOf(pcapFile(microMagic, 105)), "105 (IEEE802_11"},
        {contentsOf(pcapFile(microMagic, 60000)), "60000 (no name"}};
    for (const auto& [found, wanted] : cases) {
        EXPECT_NE(found.find(wanted), std::string::npos) << found;
    }
    std::filesystem::remove(scratch);
}

} // namespace Packets::Test
