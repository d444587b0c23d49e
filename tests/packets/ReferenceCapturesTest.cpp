// Captures with the findings of an independent decoder. They are no part of the project; without
// them these tests are skipped.

#include "Support.h"

#include <filesystem>
#include <fstream>
#include <set>

namespace Packets::Test {
namespace {

using Row = std::map<std::string, std::string>;

/// Splits a line of comma-separated values; a field in quotes may hold commas.
[[nodiscard]] std::vector<std::string> splitFields(const std::string& line) {
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (const char character : line) {
        if (character == '"') {
            quoted = !quoted;
        } else if (character == ',' && !quoted) {
            fields.emplace_back();
        } else if (character != '\r') {
            fields.back() += character;
        }
    }
    return fields;
}

[[nodiscard]] std::vector<Row> readSheet(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    const std::vector<std::string> names = splitFields(line);
    std::vector<Row> rows;
    while (std::getline(in, line)) {
        const std::vector<std::string> fields = splitFields(line);
        Row& row = rows.emplace_back();
        for (std::size_t index = 0; index < names.size(); ++index) {
            row[names[index]] = fields.at(index);
        }
    }
    return rows;
}

[[nodiscard]] Direction directionIn(const Row& row) {
    return row.at("dir") == "tx" ? Direction::sent : Direction::received;
}

class ReferenceCaptures : public testing::Test {
  protected:
    void SetUp() override {
        if (!std::filesystem::is_directory(captures_ / "expected")) {
            GTEST_SKIP() << "no reference captures in " << captures_;
        }
    }

    /// Decodes a capture and calls `onFrame(number, outcome, counts)` after each frame.
    template <typename OnFrame>
    [[nodiscard]] Counts decode(const std::string& file, OnFrame&& onFrame) const {
        Counts counts({LocalAddress("02:00:5e:10:00")});
        CaptureFile capture(captures_ / file);
        CaptureRecord record;
        for (int number = 1; capture.next(record); ++number) {
            const Outcome outcome = decodeFrame(capture.linkType(), record.frame, counts);
            ++counts.outcomes[outcome];
            onFrame(number, outcome, counts);
        }
        return counts;
    }

    [[nodiscard]] std::vector<Row> sheet(const std::string& name) const {
        return readSheet(captures_ / "expected" / name);
    }

    std::filesystem::path captures_ = PACKETS_CAPTURES;
};

TEST_F(ReferenceCaptures, SoundMessagesAreCounted) {
    const std::set<std::string> types{"1", "2", "3", "4", "5", "6", "7", "12", "13", "15", "20"};
    struct Case {
        const char* file;
        const char* counts;
        std::uint64_t frames;
    };
    for (const Case& row : {Case{"synth/synth-link.pcap", "synth-link.counts.csv", 5440},
                            Case{"real/peafowl-rsvp.pcap", "peafowl-rsvp.counts.csv", 3}}) {
        SCOPED_TRACE(row.file);
        std::map<Counts::MessageKey, std::uint64_t> expected;
        for (const Row& line : sheet(row.counts)) {
            if (!types.contains(line.at("msg_type"))) continue;
            const std::uint64_t count =
                std::stoull(line.at("clean")) + std::stoull(line.at("no_checksum"));
            const Family family = line.at("family") == "4" ? Family::ipv4 : Family::ipv6;
            if (count > 0)
                expected[{directionIn(line), family, std::stoi(line.at("msg_type"))}] += count;
        }
        ASSERT_FALSE(expected.empty());

        const Counts counts = decode(row.file, [](int, Outcome, const Counts&) {});
        EXPECT_EQ(counts.messages, expected); // so nothing was erroneous either
        std::uint64_t frames = 0;
        for (const auto& [outcome, count] : counts.outcomes) {
            frames += count;
        }
        EXPECT_EQ(frames, row.frames);
    }
}

TEST_F(ReferenceCaptures, DefectsAreToldApart) {
    // What each kind of damage leads to; the others leave sound messages.
    const std::map<std::string, Defect> defects{
        {"bad_version", Defect::format},
        {"message_length_lt_8", Defect::format},
        {"message_length_over_payload", Defect::format},
        {"short_header", Defect::format},
        {"unknown_message_type", Defect::format},
        {"other_known_type", Defect::format},
        {"nested_bundle", Defect::format},
        {"bundle_truncated_submessage", Defect::format},
        {"bad_checksum", Defect::checksum},
        {"bundle_inner_bad_checksum", Defect::checksum},
        {"object_length_zero", Defect::objects},
        {"object_length_3", Defect::objects},
        {"object_length_not_mult4", Defect::objects},
        {"object_overruns_message", Defect::objects},
    };
    std::map<int, Row> frames; // the first row of each frame
    for (const Row& line : sheet("synth-bad.packets.csv")) {
        frames.emplace(std::stoi(line.at("frame")), line);
    }
    ASSERT_EQ(frames.size(), 884U);

    auto errors = decltype(Counts::errors){};
    const auto check = [&](int number, Outcome outcome, const Counts& counts) {
        const Row& line = frames.at(number);
        SCOPED_TRACE("frame " + std::to_string(number) + " " + line.at("defect"));
        const auto defect = defects.find(line.at("defect"));
        if (line.at("defect") == "snap_truncated") {
            EXPECT_EQ(outcome, Outcome::cut);
        } else if (defect == defects.end()) {
            EXPECT_EQ(outcome, Outcome::accepted);
        } else {
            EXPECT_EQ(outcome, Outcome::erroneous);
            ++errors[{directionIn(line), defect->second}]; // one fault in a frame
        }
        if (outcome != Outcome::cut) {
            EXPECT_EQ(counts.direction, directionIn(line));
        }
        EXPECT_EQ(counts.errors, errors);
    };
    const Counts counts = decode("synth/synth-bad.pcap", check);

    std::uint64_t good = 0;
    std::map<Defect, std::uint64_t> byDefect;
    for (const auto& [key, count] : counts.messages) {
        if (std::get<int>(key) != 0) good += count;
    }
    for (const auto& [key, count] : counts.errors) {
        byDefect[key.second] += count;
    }
    EXPECT_EQ(good, 636U);
    EXPECT_EQ(byDefect,
              (std::map<Defect, std::uint64_t>{
                  {Defect::format, 208}, {Defect::checksum, 52}, {Defect::objects, 104}}));
}

} // namespace
} // namespace Packets::Test
