// Whole captures: which sessions and senders are followed, against sheets that were made
// independently; and damaged messages.

#include "Messages.h"

#include "packets/CaptureFile.h"
#include "packets/FrameDecoder.h"
#include "packets/LocalAddress.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace State::Test {

const Packets::IntegrityKeys noKeys;

/// Hands each sound message to `hear(const Observed&)`.
template <class Hear>
class Listener {
  public:
    explicit Listener(Hear hear)
        : hear_(std::move(hear)) {}

    void packet(const Packets::FrameSource& source) {
        const std::size_t size = source.family == Packets::Family::ipv4 ? 4 : 16;
        std::array<std::uint8_t, 16> bytes{};
        std::copy(source.address, source.address + size, bytes.begin());
        observed.sent = Packets::directionOf(source, locals_) == Packets::Direction::sent;
        observed.source = {bytes, size == 4 ? Wirra::ipv4AddressFamily : Wirra::ipv6AddressFamily};
    }
    void verdict(const Packets::Verdict& verdict) {
        EXPECT_EQ(verdict.message.empty(), verdict.defect != Packets::Defect::none);
        if (verdict.message.empty()) return;
        EXPECT_EQ(verdict.message[1], verdict.type);
        EXPECT_EQ(verdict.message.size(), Packets::readBe16(verdict.message.data() + 6));
        observed.message = verdict.message;
        hear_(observed);
    }

    Observed observed;

  private:
    Hear hear_;
    std::vector<Packets::LocalAddress> locals_{Packets::LocalAddress("02:00:5e:10:00")};
};

template <class Hear>
void forEachMessage(const std::filesystem::path& file, Hear hear) {
    Packets::CaptureFile capture(file);
    Packets::FrameDecoder decoder(noKeys);
    Packets::CaptureRecord record;
    Listener listener(hear);
    while (capture.next(record)) {
        listener.observed.interface = Wirra::IntfId(record.interface);
        listener.observed.time = record.timestamp;
        (void)decoder.decode(record, listener);
    }
}

[[nodiscard]] std::vector<std::filesystem::path> filesOf(const std::vector<std::string>& folders) {
    std::vector<std::filesystem::path> files;
    for (const std::string& folder : folders) {
        std::error_code absent;
        for (const auto& entry : std::filesystem::directory_iterator(folder, absent)) {
            if (entry.path().extension() != ".json") files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

/// "session destination, tunnel ID or port, extended tunnel ID or protocol, sender, LSP ID".
[[nodiscard]] std::string rowOf(const Rsvp::RsvpSpId& path) {
    const Rsvp::RsvpSessionId& session = path.sessionId();
    const auto number = [](const Wirra::IpGenAddr& address) {
        return std::to_string(Packets::readBe32(address.bytes().data()));
    };
    const bool isP2mp = session.sessionType() >= 13;
    const bool isPlain = session.sessionType() < 7;
    const bool hasSender = !isP2mp && path.subGroupId() != nullptr;
    return fmt::format(
        "{},{},{},{},{}{}",
        isP2mp ? "p2mp:" + number(session.destination()) : session.destination().stringValue(),
        session.tunnelId(),
        isPlain ? number(session.extendedTunnelId()) : session.extendedTunnelId().stringValue(),
        (hasSender ? path.subGroupId()->originator() : session.extendedTunnelId()).stringValue(),
        isPlain ? "port:" : "", path.lspId());
}

/// Rows as above that have a PATH or RESV.
[[nodiscard]] std::set<std::string> sheetOf(const std::filesystem::path& file) {
    std::ifstream in(file);
    std::map<std::string, std::size_t> columns;
    std::set<std::string> rows;
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> cells;
        std::istringstream cut(line);
        for (std::string cell; std::getline(cut, cell, ',');) {
            while (!cell.empty() && cell.back() == '\r') {
                cell.pop_back();
            }
            cells.push_back(cell);
        }
        if (columns.empty()) {
            for (const std::string& name : cells) {
                columns.emplace(name, columns.size());
            }
            continue;
        }
        const auto at = [&](const char* name) { return cells.at(columns.at(name)); };
        if (at("path") == "0" && at("resv") == "0") continue;
        rows.insert(fmt::format("{},{},{},{},{}", at("session_dest"), at("tunnel_id"),
                                at("ext_tunnel_id"), at("sender"), at("lsp_id")));
    }
    return rows;
}

TEST(Captures, SessionsAndSendersAreThoseOfTheSheets) {
    const std::string folder = STATE_CAPTURES;
    if (!std::filesystem::exists(folder)) GTEST_SKIP() << folder << " is not there";
    std::size_t compared = 0;
    for (const std::filesystem::path& file : filesOf({folder + "/real", folder + "/synth"})) {
        const std::filesystem::path sheet =
            folder + "/expected/" + file.stem().string() + ".sessions.csv";
        if (file.stem() == "synth-bad" || !std::filesystem::exists(sheet)) continue;
        Log log;
        Follower follower(log);
        forEachMessage(file, [&](const Observed& seen) { follower.message(seen); });
        std::set<std::string> followed;
        for (const Rsvp::RsvpSpId& path : log.paths) {
            followed.insert(rowOf(path));
        }
        EXPECT_EQ(followed, sheetOf(sheet)) << file;
        compared += followed.size();
        std::cout << file.filename().string() << ": " << followed.size() << " senders, "
                  << log.paths.size() << " entries of paths, " << log.sessions.size()
                  << " of sessions\n";
    }
    EXPECT_GT(compared, 1000U);
}

/// Every sound message cut short within its objects, and with octets changed. Each fills its heap
/// block exactly, for an address checker to see reads outside.
TEST(Captures, DamagedMessagesDoNoHarm) {
    std::size_t messages = 0;
    for (const std::filesystem::path& file :
         filesOf({STATE_SAMPLES, STATE_CAPTURES "/real", STATE_CAPTURES "/synth"})) {
        Log log;
        Follower follower(log);
        std::size_t number = 0;
        forEachMessage(file, [&](const Observed& seen) {
            constexpr std::size_t most = 1000; // of each capture
            if (number++ % 5 != 0 || number > 5 * most) return;
            ++messages;
            Observed damaged = seen;
            for (std::size_t size = 0; size <= seen.message.size(); ++size) {
                const Octets cut(seen.message.begin(), seen.message.begin() + std::ptrdiff_t(size));
                damaged.message = cut;
                follower.message(damaged);
            }
            Octets octets(seen.message.begin(), seen.message.end());
            damaged.message = octets;
            for (std::uint8_t& octet : octets) {
                const std::uint8_t was = octet;
                for (const unsigned change : {0x01U, 0x04U, 0x80U, 0xffU}) {
                    octet = static_cast<std::uint8_t>(was ^ change);
                    follower.message(damaged);
                }
                octet = was;
            }
            (void)log.take();
        });
        // What is left ends in due time.
        follower.message({.interface = Wirra::IntfId(1),
                          .source = {},
                          .time = std::int64_t{1} << 62,
                          .message = message(HELLO, {})});
        (void)log.take();
        EXPECT_EQ(follower.sessions() + follower.paths() + follower.messageIds(), 0U) << file;
    }
    EXPECT_GT(messages, 300U);
    std::cout << messages << " messages\n";
}

} // namespace State::Test
