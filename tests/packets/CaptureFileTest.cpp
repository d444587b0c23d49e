// Reading capture files: the formats, and what happens to files that are none or break off.

#include "Support.h"

#include "packets/InputError.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <filesystem>

namespace Packets::Test {
namespace {

/// Writes words in the byte order of a capture.
class Writer {
  public:
    explicit Writer(std::endian order)
        : order_(order) {}

    template <typename T>
    Writer& put(T value) {
        for (std::size_t index = 0; index < sizeof(T); ++index) {
            const std::size_t shift = order_ == std::endian::little ? index : sizeof(T) - 1 - index;
            octets_.push_back(static_cast<std::uint8_t>(value >> (8 * shift)));
        }
        return *this;
    }
    Writer& put(const Octets& octets) {
        octets_.insert(octets_.end(), octets.begin(), octets.end());
        return *this;
    }
    [[nodiscard]] const Octets& octets() const { return octets_; }

  private:
    std::endian order_;
    Octets octets_;
};

constexpr std::uint32_t microMagic = 0xa1b2c3d4;
constexpr std::uint32_t nanoMagic = 0xa1b23c4d;
constexpr std::uint32_t linkEthernet = 1;

const std::vector<Octets> bodies{Octets(60, 1), Octets(61, 2), Octets(14, 3)};

[[nodiscard]] Octets pcapHeader(std::uint32_t magic, std::uint32_t linkType,
                                std::endian order = std::endian::little) {
    Writer writer(order);
    writer.put(magic).put(std::uint16_t{2}).put(std::uint16_t{4});
    writer.put(0U).put(0U).put(65535U).put(linkType);
    return writer.octets();
}

[[nodiscard]] Octets pcapFile(std::uint32_t magic, std::endian order) {
    Writer writer(order);
    writer.put(pcapHeader(magic, linkEthernet, order));
    std::uint32_t seconds = 1'700'000'000;
    for (const Octets& body : bodies) {
        const auto length = static_cast<std::uint32_t>(body.size());
        writer.put(seconds++).put(123'456U).put(length).put(length + 7).put(body);
    }
    return writer.octets();
}

/// Section header, one interface with microseconds, one enhanced packet block for each body.
[[nodiscard]] Octets pcapngFile(std::uint64_t microseconds) {
    Writer writer(std::endian::little);
    writer.put(0x0a0d0d0aU).put(28U).put(0x1a2b3c4dU).put(1U).put(~std::uint64_t{0}).put(28U);
    writer.put(1U).put(20U).put(linkEthernet).put(65535U).put(20U);
    for (const Octets& body : bodies) {
        const auto length = static_cast<std::uint32_t>(body.size());
        const std::uint32_t padding = (4 - length % 4) % 4;
        const std::uint32_t block = 32 + length + padding;
        writer.put(6U).put(block).put(0U);
        writer.put(static_cast<std::uint32_t>(microseconds >> 32));
        writer.put(static_cast<std::uint32_t>(microseconds));
        writer.put(length).put(length + 7).put(body).put(Octets(padding)).put(block);
        microseconds += 1'000'000;
    }
    return writer.octets();
}

/// The text of the InputError that `action` throws; it must name `file`.
template <typename Action>
[[nodiscard]] std::string errorOf(const std::filesystem::path& file, Action&& action) {
    try {
        action();
    } catch (const InputError& error) {
        const std::string text = error.what();
        EXPECT_EQ(text.rfind(file.string() + ": ", 0), 0U) << text;
        return text;
    }
    ADD_FAILURE() << file << ": no error";
    return {};
}

[[nodiscard]] std::string openError(const std::filesystem::path& file) {
    return errorOf(file, [&file] { const CaptureFile capture(file); });
}

TEST(CaptureFile, ReadsEveryFormat) {
    struct Case {
        const char* name;
        Octets octets;
        std::int64_t first; // time stamp
    };
    constexpr std::int64_t second = 1'000'000'000;
    const Case cases[] = {
        {"micro.pcap", pcapFile(microMagic, std::endian::little),
         1'700'000'000 * second + 123'456'000},
        {"micro.be.pcap", pcapFile(microMagic, std::endian::big),
         1'700'000'000 * second + 123'456'000},
        {"nano.pcap", pcapFile(nanoMagic, std::endian::little), 1'700'000'000 * second + 123'456},
        {"nano.be.pcap", pcapFile(nanoMagic, std::endian::big), 1'700'000'000 * second + 123'456},
        {"next.pcapng", pcapngFile(1'700'000'000'123'456), 1'700'000'000 * second + 123'456'000},
    };
    const ScratchDirectory directory;
    for (const Case& row : cases) {
        SCOPED_TRACE(row.name);
        writeFile(directory / row.name, row.octets);
        CaptureFile capture(directory / row.name);
        EXPECT_EQ(capture.linkType(), LinkType::ethernet);
        EXPECT_EQ(capture.interfaceName() + std::filesystem::path(row.name).extension().string(),
                  row.name);
        CaptureRecord record;
        std::int64_t expected = row.first;
        for (const Octets& body : bodies) {
            ASSERT_TRUE(capture.next(record));
            EXPECT_EQ(record.timestamp, expected);
            expected += second;
            EXPECT_TRUE(std::ranges::equal(record.frame.captured, body));
            EXPECT_EQ(record.frame.wireLength, body.size() + 7);
        }
        EXPECT_FALSE(capture.next(record));
        EXPECT_FALSE(capture.next(record));
    }
}

TEST(CaptureFile, TimeStampsOutOfRangeStayInOrder) {
    const ScratchDirectory directory;
    // 2^64 - 10 s in microseconds is beyond 2^63 nanoseconds.
    writeFile(directory / "late.pcapng", pcapngFile(~std::uint64_t{0} - 10'000'000));
    CaptureFile capture(directory / "late.pcapng");
    CaptureRecord record;
    ASSERT_TRUE(capture.next(record));
    EXPECT_EQ(record.timestamp, INT64_MAX);
}

TEST(CaptureFile, AFileCutAnywhereGivesItsWholeRecordsThenAnError) {
    const ScratchDirectory directory;
    const Octets file = pcapFile(microMagic, std::endian::little);
    const auto path = directory / "cut.pcap";
    std::vector<std::size_t> boundaries{24};
    for (const Octets& body : bodies) {
        boundaries.push_back(boundaries.back() + 16 + body.size());
    }
    ASSERT_EQ(boundaries.back(), file.size());

    for (std::size_t length = 0; length < file.size(); ++length) {
        SCOPED_TRACE(length);
        writeFile(path, Bytes(file).first(length));
        if (length < 24) {
            EXPECT_NE(openError(path), "");
            continue;
        }
        const auto after = std::upper_bound(boundaries.begin(), boundaries.end(), length);
        const auto wholeRecords = static_cast<std::size_t>(after - boundaries.begin()) - 1;
        CaptureFile capture(path);
        CaptureRecord record;
        for (std::size_t index = 0; index < wholeRecords; ++index) {
            ASSERT_TRUE(capture.next(record));
            EXPECT_TRUE(std::ranges::equal(record.frame.captured, bodies[index]));
        }
        if (boundaries[wholeRecords] != length) {
            const auto readOn = [&capture, &record] { (void)capture.next(record); };
            const std::string number = "record " + std::to_string(wholeRecords + 1) + ": ";
            EXPECT_NE(errorOf(path, readOn).find(number), std::string::npos);
        }
        EXPECT_FALSE(capture.next(record));
    }
}

TEST(CaptureFile, AGarbledRecordEndsTheFile) {
    const ScratchDirectory directory;
    Octets file = pcapFile(microMagic, std::endian::little);
    const std::size_t lengthOfSecond = 24 + 16 + bodies[0].size() + 8;
    std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(lengthOfSecond), 4, std::uint8_t{0xff});
    const auto path = directory / "garbled.pcap";
    writeFile(path, file);
    CaptureFile capture(path);
    CaptureRecord record;
    ASSERT_TRUE(capture.next(record));
    const auto readOn = [&capture, &record] { (void)capture.next(record); };
    EXPECT_NE(errorOf(path, readOn).find("record 2: "), std::string::npos);
    EXPECT_FALSE(capture.next(record));
}

TEST(CaptureFile, RefusesWhatIsNoCaptureAndSaysWhy) {
    const ScratchDirectory directory;
    const auto contains = [](const std::string& text, const std::string& part) {
        EXPECT_NE(text.find(part), std::string::npos) << "'" << part << "' in: " << text;
    };
    contains(openError(directory / "missing.pcap"), "No such file");
    contains(openError(directory / ""), "Is a directory");
    contains(openError("-"), "No such file"); // not standard input

    writeFile(directory / "empty.pcap", {});
    contains(openError(directory / "empty.pcap"), "empty");

    const std::string text = "interface,dir,level,msg_type,msg_name,family,total\n";
    writeFile(directory / "text.csv", Octets(text.begin(), text.end()));
    contains(openError(directory / "text.csv"), "not a readable capture");

    writeFile(directory / "wireless.pcap", pcapHeader(microMagic, 105));
    contains(openError(directory / "wireless.pcap"), "105 (IEEE802_11");
    writeFile(directory / "strange.pcap", pcapHeader(microMagic, 60000));
    contains(openError(directory / "strange.pcap"), "60000 (no name");
}

} // namespace
} // namespace Packets::Test
