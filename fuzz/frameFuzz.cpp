// Any frames of one capture, one after the other. The input: an octet for the link type, then for
// each frame two octets for its length, one for what the capture cut off, and its octets. What is
// sound is followed, too.

#include "Checked.h"
#include "Followed.h"

#include <algorithm>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    Packets::FrameDecoder decoder(Fuzz::keys());
    Fuzz::Followed sink;
    Packets::CaptureRecord record;
    constexpr unsigned kLinkTypes = static_cast<unsigned>(Packets::LinkType::unknown) + 1;
    record.linkType = static_cast<Packets::LinkType>(data[0] % kLinkTypes);
    Packets::Bytes rest(data + 1, size - 1);
    while (rest.size() >= 3) {
        const std::size_t length =
            std::min<std::size_t>(Packets::readBe16(rest.data()), rest.size() - 3);
        // A block of its own, for the address checker to see reads outside.
        const std::vector<std::uint8_t> octets(rest.begin() + 3,
                                               rest.begin() + 3 + std::ptrdiff_t(length));
        record.frame = {.captured = octets, .wireLength = length + rest[2]};
        record.timestamp += 1'000'000'000;
        sink.timeIs(record.timestamp);
        sink.outcomeIs(decoder.decode(record, sink));
        rest = rest.subspan(3 + length);
    }
    sink.end();
    return 0;
}
