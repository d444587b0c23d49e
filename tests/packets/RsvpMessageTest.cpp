// Which messages are sound, and which check names the fault of the others, case by case at the
// edges.

#include "Support.h"

#include "packets/InputError.h"

namespace Packets::Test {

[[nodiscard]] std::string judgeAll(const Octets& payload) {
    Recorder recorder;
    const bool sound = judgePayload(Family::ipv6, payload, noKeys,
                                    [&](const Verdict& verdict) { recorder.verdict(verdict); });
    EXPECT_EQ(sound, recorder.errors.empty());
    return recorder.findings.substr(2);
}

const std::size_t pathSize = path.size();
const Octets hello = message(20, object(22, 8));

/// The sound PATH with one octet changed, its checksum set right again.
[[nodiscard]] Octets changed(std::size_t at, std::size_t to) { return sealed(with(path, at, to)); }
[[nodiscard]] Octets unsummed(const Octets& octets) { return with(with(octets, 2, 0), 3, 0); }
[[nodiscard]] Octets spoiled(const Octets& octets) { return with(octets, 2, octets[2] ^ 0x40U); }
const auto bundle = [](const std::vector<Octets>& parts) { return message(12, concat(parts)); };

TEST(RsvpMessage, EveryTypeAndEveryVersion) {
    const std::string counted = " 1 2 3 4 5 6 7 12 13 15 20 ";
    for (std::size_t octet = 0; octet < 256; ++octet) {
        const std::string type = std::to_string(octet);
        const bool isGood = counted.find(" " + type + " ") != std::string::npos;
        EXPECT_EQ(judgeAll(message(std::uint8_t(octet))), type + (isGood ? " good" : " format"));
        // The flags in the lower half are no part of the version.
        EXPECT_EQ(judgeAll(changed(0, octet)), octet / 16 == 1 ? "1 good" : "1 format");
    }
}

void expect(const std::string& findings, std::initializer_list<Octets> payloads) {
    for (const Octets& payload : payloads) {
        EXPECT_EQ(judgeAll(payload), findings) << "row " << &payload - payloads.begin();
    }
}

/// Alone, and between others in a bundle.
void expectAnywhere(const std::string& findings, std::initializer_list<Octets> messages) {
    expect(findings, messages);
    for (const Octets& inner : messages) {
        expect("12 good, 1 good, " + findings + ", 20 good", {bundle({path, inner, hello})});
    }
}

TEST(RsvpMessage, ChecksInOrder) {
    const Octets badObject = message(1, {0, 0, 5, 1});
    const Octets beyond = message(1, {0, 8, 5, 1});
    const Octets many = concat({object(0, 4), object(255, 0)});
    const Octets lastOctet = with(path, pathSize - 1, 0xff);
    expectAnywhere("2 good", {message(2)});
    expectAnywhere("1 good", {path, unsummed(path), message(1, many)});
    expectAnywhere("1 checksum", {spoiled(path), lastOctet, spoiled(badObject)});
    expectAnywhere("1 objects", {badObject, unsummed(badObject), beyond});
    expectAnywhere("1 objects", {message(1, {0, 3, 5, 1}), message(1, {0, 6, 5, 1, 0, 0, 0, 0})});
    expectAnywhere("13 objects", {message(13, concat({object(24, 8), {0, 5, 24, 1}}))});
    // Only the first defect counts, here and above.
    expectAnywhere("1 format", {changed(0, 0x30), spoiled(changed(0, 0x20))});
    expectAnywhere("8 format", {message(8), spoiled(message(8)), message(8, {0, 0, 5, 1})});
    // Lengths; octets after a message are nobody's.
    const Octets after = {9, 9, 9, 9};
    expect("0 format", {{}, firstOf(path, 7)});
    expect("1 format", {changed(7, 0), changed(7, 4)});
    expect("1 format", {changed(7, pathSize - 2), changed(7, pathSize + 4)});
    expect("1 good", {concat({path, after}), concat({path, {1, 2, 3}})});
    expect("1 good", {concat({path, spoiled(hello)}), message(1, object(20, 60000))});
    expect("1 objects", {concat({beyond, after})});
}

TEST(RsvpMessage, Bundles) {
    const Octets tooLong = changed(7, pathSize + 4);
    const Octets oddLength = firstOf(changed(7, pathSize - 2), pathSize - 2);
    expect("12 good", {bundle({}), bundle({object(4, 32)})}); // INTEGRITY alone
    expect("12 checksum", {spoiled(bundle({path, hello}))});
    expect("12 good, 1 good", {concat({bundle({path}), hello}), bundle({object(4, 32), path})});
    // Nobody knows where the next message begins.
    expect("12 good, 1 format", {bundle({changed(7, 4), hello}), bundle({tooLong})});
    expect("12 good, 1 format", {concat({bundle({tooLong}), {0, 0, 0, 0}})});
    expect("12 good, 20 good, 0 format", {bundle({hello, {0x10, 1, 0, 0}})});
    // Stepped over, unopened.
    expect("12 good, 1 format, 20 good, 0 format", {bundle({oddLength, hello, {0, 0}})});
    const Octets nested = bundle({path, path});
    expect("12 good, 12 format, 20 good",
           {bundle({nested, hello}), bundle({spoiled(nested), hello})});
    // INTEGRITY that is not first or does not fit.
    expect("12 good, 1 good, 8 format", {bundle({path, object(4, 4)})});
    expect("12 good, 36 format", {bundle({{0, 36, 4, 1, 0, 0, 0, 0}})});
    // A checksum that begins with INTEGRITY's class number, where its length would be 0x1014.
    const Octets alike = with(hello, 2, 4);
    expect("12 good, 20 checksum, 1 good", {bundle({alike, message(1, object(20, 5000))})});
}

/// INTEGRITY with key 0x0000000000a1 and a digest of sixteen octets.
[[nodiscard]] Octets integrity(std::size_t key, const Octets& digest = Octets(16, 0)) {
    return concat({{0, 36, 4, 1, 0, 0, 0, 0, 0, 0}, be16(key), Octets(8, 9), digest});
}

/// The digests are those that another implementation (Python's hmac) gives.
TEST(RsvpMessage, Integrity) {
    IntegrityKeys keys;
    keys.add("a1=secret");
    keys.add("00000000a2=");
    const auto judged = [&keys](const Octets& payload) {
        Recorder recorder;
        judgePayload(Family::ipv4, payload, keys, [&](const Verdict& v) { recorder.verdict(v); });
        return recorder.findings.substr(2);
    };
    // The checksum may be set or not: the digest is made without it.
    const Octets digest = {0x72, 0x30, 0x1e, 0xef, 0xc0, 0x8f, 0xa7, 0x53,
                           0xdf, 0xba, 0xe2, 0xa0, 0x1b, 0xe4, 0x23, 0xfd};
    const Octets good = message(20, concat({integrity(0xa1, digest), object(22, 8)}));
    EXPECT_EQ(judged(good), "20 good");
    EXPECT_EQ(judged(unsummed(good)), "20 good");
    for (std::size_t at = 8; at < good.size(); ++at) {
        const std::string wanted = at >= 14 && at < 20              ? "20 good" // another key
                                   : at == 8 || at == 9 || at == 10 ? ""        // another object
                                   : at >= good.size() - 12 && at < good.size() - 10
                                       ? ""
                                       : "20 integrity";
        const std::string found = judged(sealed(with(good, at, good[at] ^ 0x80U)));
        if (!wanted.empty()) {
            EXPECT_EQ(found, wanted) << at;
        }
    }
    EXPECT_EQ(judged(spoiled(good)), "20 checksum");
    // A bundle's own goes before its messages; theirs are their own.
    const Octets around = {0xbb, 0xdc, 0xcd, 0x9d, 0xcb, 0x2e, 0x96, 0x4f,
                           0xfa, 0xc8, 0xe2, 0x3b, 0x7b, 0x16, 0x29, 0x29};
    EXPECT_EQ(judged(bundle({integrity(0xa2, around), hello, good})), "12 good, 20 good, 20 good");
    EXPECT_EQ(judged(bundle({integrity(0xa2), hello, good})), "12 integrity");
    EXPECT_EQ(judged(bundle({hello, message(20, integrity(0xa1))})),
              "12 good, 20 good, 20 integrity");
    // Found as far as objects can be walked; another length holds no such digest.
    EXPECT_EQ(judged(message(20, concat({integrity(0xa1), {0, 0, 0, 0}}))), "20 integrity");
    EXPECT_EQ(judged(message(20, concat({{0, 3, 0, 0}, integrity(0xa1)}))), "20 objects");
    EXPECT_EQ(judged(message(20, {0, 16, 4, 1, 0, 0, 0, 0, 0, 0, 0, 0xa1, 0, 0, 0, 0})),
              "20 integrity");
    EXPECT_EQ(judged(message(20, {0, 8, 4, 1, 0, 0, 0, 0})), "20 good");
    for (const char* const bad :
         {"", "a1", "=x", "1234567890123=x", "g=x", "a1 =x", "-1=x", "a1=y"}) {
        EXPECT_THROW(keys.add(bad), InputError) << bad;
    }
}

TEST(RsvpMessage, ChecksumAgreesWithItsDefinition) {
    // All ones make every carry that there can be.
    for (std::size_t size = 0; size <= 65520; size += size < 256 ? 4 : 1028) {
        expect("1 good", {message(1, object(0xff, size)), message(1, object(0x5a, size))});
    }
}

} // namespace Packets::Test
