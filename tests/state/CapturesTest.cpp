// Damaged messages of whole captures.

#include "Messages.h"

#include "packets/CaptureFile.h"
#include "packets/FrameDecoder.h"
#include "packets/LocalAddress.h"

#include <algorithm>
#include <filesystem>

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
