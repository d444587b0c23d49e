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

/// Builds pcapng files, in the byte order that the section at hand has.
struct Pcapng {
    [[nodiscard]] Octets number(std::size_t size, std::uint64_t value) const {
        Octets result;
        for (std::size_t at = 0; at < size; ++at) {
            const std::size_t shift = 8 * (big ? size - 1 - at : at);
            result.push_back(static_cast<std::uint8_t>(value >> shift));
        }
        return result;
    }
    [[nodiscard]] static Octets padded(Octets octets) {
        octets.resize((octets.size() + 3) / 4 * 4);
        return octets;
    }
    [[nodiscard]] Octets option(std::size_t code, const Octets& value) const {
        return concat({number(2, code), number(2, value.size()), padded(value)});
    }
    Pcapng& block(std::size_t type, const std::vector<Octets>& parts) {
        const Octets body = concat(parts);
        const Octets length = number(4, body.size() + 12);
        starts.push_back(octets.size());
        octets = concat({octets, number(4, type), length, body, length});
        return *this;
    }
    Pcapng& section(bool bigEndian) {
        big = bigEndian;
        return block(0x0a0d0d0a,
                     {number(4, 0x1a2b3c4d), number(2, 1), number(2, 0), number(8, ~0ULL)});
    }
    Pcapng& interface(std::size_t linkType, const Octets& options = {}, std::size_t snap = 0) {
        return block(1, {number(2, linkType), number(2, 0), number(4, snap), options});
    }
    Pcapng& packet(std::size_t interface, std::uint64_t time, std::size_t body,
                   const Octets& options = {}) {
        return block(6, {number(4, interface), number(4, time >> 32), number(4, time & ~0U),
                         number(4, bodies[body].size()), number(4, bodies[body].size() + 7),
                         padded(bodies[body]), options});
    }
    /// epb_flags and the end of options.
    [[nodiscard]] Octets flags(std::size_t value) const {
        return concat({option(2, number(4, value)), number(4, 0)});
    }

    bool big = false;
    Octets octets;
    std::vector<std::size_t> starts; // of the blocks
};

const std::string stem = std::filesystem::path(scratch).stem().string();

/// The whole records, each as "<time>:<kept>/<wire length> ", and the error or "end". What differs
/// from the ordinary follows the wire length: "@<interface>", the direction as "<" or ">", and
/// "#<link type>".
[[nodiscard]] std::string contents(const std::string& file) {
    std::string text;
    std::unique_ptr<CaptureFile> capture;
    CaptureRecord record;
    try {
        capture = std::make_unique<CaptureFile>(file);
        for (std::size_t index = 0; capture->next(record); ++index) {
            EXPECT_TRUE(std::ranges::equal(record.frame.captured, bodies.at(index)));
            text += fmt::format("{}:{}/{}", record.timestamp, record.frame.captured.size(),
                                record.frame.wireLength);
            // What libpcap does not tell.
            const std::string name = capture->interfaceName(record.interface);
            if (name != stem) text += "@" + name;
            if (record.direction == Direction::received) text += "<";
            if (record.direction == Direction::sent) text += ">";
            if (record.linkType != LinkType::ethernet) {
                text += fmt::format("#{}", capture->linkTypeNumber(record.interface));
            }
            text += " ";
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
    Octets negative = pcapFile(microMagic);
    std::fill_n(negative.begin() + 24, 4, 0xff); // seconds have a sign
    EXPECT_EQ(contentsOf(negative).find("-876544000:60/67 1700000001"), 0U);
}

/// Two sections, the second in the other byte order, with all that differs between interfaces.
[[nodiscard]] Pcapng twoSections(bool big) {
    Pcapng file;
    file.section(big).block(0xbad, {Octets(8, 9)});
    file.interface(1, concat({file.option(2, {'e', 't', '1', 0}), file.number(4, 0)}));
    file.interface(113, concat({file.option(9, {9}), file.option(14, file.number(8, ~0ULL))}));
    file.packet(0, 1'700'000'000'123'456, 0, file.flags(1)).packet(1, 5, 1, file.flags(0xf2));
    file.section(!big).block(0xbad, {}).interface(147, file.option(9, {0x80 | 1}), 14);
    file.packet(0, 3, 2, file.flags(3));
    return file;
}
const std::string beforeEpoch = "-999999995:61/68@" + stem + "-1>#113 ";
const std::string inTwoSections =
    "1700000000123456000:60/67@et1< " + beforeEpoch + "1500000000:14/21@" + stem + "-2#147 end";

TEST(CaptureFile, ReadsPcapng) {
    EXPECT_EQ(contentsOf(Pcapng().section(false).octets), "end");
    EXPECT_EQ(contentsOf(twoSections(false).octets), inTwoSections);
    EXPECT_EQ(contentsOf(twoSections(true).octets), inTwoSections);
    // Beyond 64 bits of nanoseconds time stamps stay in order; nothing shifts or divides too far.
    const std::pair<std::uint8_t, std::string> resolutions[] = {{6, std::to_string(INT64_MAX)},
                                                                {0, std::to_string(INT64_MAX)},
                                                                {12, "18446744073709551"},
                                                                {25, "1844"},
                                                                {127, "0"},
                                                                {0x80 | 40, "16777215999999999"},
                                                                {0xff, "0"}};
    for (const auto& [resolution, time] : resolutions) {
        Pcapng file;
        file.section(true).interface(1, file.option(9, {resolution})).packet(0, ~0ULL, 0);
        EXPECT_EQ(contentsOf(file.octets), time + ":60/67 end") << int(resolution);
    }
    // Simple packets have the time of the packet before; the obsolete form has the counter of drops
    // in front.
    Pcapng old;
    old.section(true).interface(1, {}, 60);
    old.block(3, {old.number(4, 60), bodies[0]});
    old.block(2, {old.number(2, 0), old.number(2, 7), old.number(8, 2), old.number(4, 61),
                  old.number(4, 61), Pcapng::padded(bodies[1]), old.flags(2)});
    old.interface(0).block(3, {old.number(4, 14), Pcapng::padded(bodies[2])});
    EXPECT_EQ(contentsOf(old.octets), "0:60/60 2000:61/61> 2000:14/14 end");
    Pcapng snapped;
    snapped.section(false).interface(1, {}, 60).block(3, {snapped.number(4, 90), bodies[0]});
    EXPECT_EQ(contentsOf(snapped.octets), "0:60/90 end");
}

TEST(CaptureFile, PcapngCutAnywhereGivesItsWholeRecordsThenAnError) {
    const Pcapng file = twoSections(false);
    for (std::size_t length = 4; length < file.octets.size(); ++length) {
        const std::string text = contentsOf(firstOf(file.octets, length));
        const bool isBoundary =
            std::find(file.starts.begin(), file.starts.end(), length) != file.starts.end();
        const std::size_t whole = length < 28 ? 0 : text.find(isBoundary ? "end" : "record ");
        ASSERT_NE(whole, std::string::npos) << length << " " << text;
        EXPECT_EQ(text.substr(0, whole), inTwoSections.substr(0, whole)) << length;
    }
}

TEST(CaptureFile, PcapngThatContradictsItselfEndsThere) {
    const auto refused = [](const Pcapng& file, const std::string& why) {
        EXPECT_NE(contentsOf(file.octets).find(why), std::string::npos) << contentsOf(file.octets);
    };
    const Pcapng sound = twoSections(false);
    const auto changed = [&sound](std::size_t block, std::size_t at, std::size_t to) {
        Pcapng file = sound;
        file.octets = with(file.octets, file.starts.at(block) + at, to);
        return file;
    };
    refused(changed(0, 8, 0), "not a readable capture: bad byte-order magic");
    refused(changed(0, 12, 2), "version 2");
    refused(changed(0, 4, 24), "bad length 24 of a block of type 0xa0d0d0a");
    refused(changed(4, 4, 0), "record 1: bad length ");
    refused(changed(4, 4, 17), "bad length ");
    refused(changed(4, 7, 0x7f), "bad length "); // of 2 GB, for which nothing is allocated
    refused(changed(5, 4, 104), "record 2: a block of type 0x6 has length 104 at its begin");
    refused(changed(5, 8, 2), "record 2: a packet of interface 2, of which 2 are described");
    refused(changed(4, 20, 100), "record 1: a packet of 100 octets in a block that has room for ");
    // Options that do not fit leave a good packet without them.
    const std::string without = inTwoSections.substr(0, inTwoSections.find('<')) + " ";
    EXPECT_EQ(contentsOf(changed(4, 28 + 60 + 2, 200).octets).find(without), 0U);
    // A section begins without interfaces.
    Pcapng other = sound;
    other.section(true).packet(0, 0, 0);
    refused(other, "record 4: a packet of interface 0, of which 0 are described");
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
