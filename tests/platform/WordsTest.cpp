// Versions, anchors, bit arrays, sizes and descriptors.

#include "Environment.h"
#include "Mem/VersionAnchor.h"
#include "Mem/VersionedRef.h"
#include "Pello/Util.h"
#include "Quen/Local.h"
#include "Raised.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using TestSupport::raisedBy;
using Ref = Mem::VersionedRef<std::uint32_t>;

TEST(VersionedRefTest, NeverStoresTheVersionOfNothing) {
    EXPECT_EQ((Ref{0xFFFFFFFDU, 1}.next(2)), (Ref{0xFFFFFFFEU, 2}));
    EXPECT_EQ((Ref{0xFFFFFFFEU, 1}.next(2)), (Ref{0, 2}));
    EXPECT_EQ((Ref{0xFFFFFFFFU, 1}.next(2)), (Ref{0, 2}));
    EXPECT_EQ((Ref{0x11111111U, 0x22222222U}.toWord()), 0x2222222211111111U);
}

TEST(VersionAnchorTest, FollowsTheCurrentMappingAlone) {
    alignas(8) std::byte old[64]{};
    alignas(8) std::byte now[64]{};
    Mem::wordAt<std::uint32_t>(old, 24) = 5;
    Mem::wordAt<std::uint32_t>(now, 24) = 9;
    Mem::wordAt<std::uint32_t>(now, 60) = 9;
    const auto handler = Pello::Platform::getDebugHandler("test", false);
    struct Case {
        const char* name;
        Mem::VersionAnchor anchor;
        const std::byte* base;
        std::size_t size;
        bool matches;
    };
    const Case cases[] = {
        {"as it was read", {9, 24, now}, now, 64, true},
        {"another sequence", {5, 24, now}, now, 64, false},
        {"read through an old mapping, unchanged", {9, 24, old}, now, 64, true},
        {"read through an old mapping, changed", {5, 24, old}, now, 64, false},
        {"the last word", {9, 60, now}, now, 64, true},
        {"a word that the file has lost in part", {9, 60, now}, now, 63, false},
        {"beyond the mapping", {0, 4096, now}, now, 64, false},
        {"invalidated", {0, Mem::VersionAnchor::kInvalidated, now}, now, 64, false},
        {"nothing is mapped", {9, 24, now}, nullptr, 0, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(raisedBy<Mem::VersionMismatchException>(
                      [&] { c.anchor.validate(*handler, c.base, c.size); }),
                  c.matches ? "nothing" : "")
            << c.name;
    }
}

TEST(BitArray, IsBoundedAndGrowsWithFalse) {
    Quen::Local<bool> bits(70);
    for (const std::size_t i : {0U, 1U, 63U, 64U, 69U}) {
        bits.set(i);
    }
    bits.resize(65);
    bits.resize(200);
    for (std::size_t i = 0; i < 200; ++i) {
        EXPECT_EQ(bits[i], i == 0 || i == 1 || i == 63 || i == 64) << i;
    }
    using Pello::CorruptionDetectedException;
    EXPECT_EQ(raisedBy<CorruptionDetectedException>([&] { bits.set(200); }),
              "out-of-range index: 200 max:199");
    bits.resize(0);
    EXPECT_EQ(raisedBy<CorruptionDetectedException>([&] { bits.set(0); }),
              "out-of-range index: 0 max:0");
}

TEST(FileSize, IsExactUpToTheLargestOffset) {
    constexpr auto limit = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    using Pello::Util::fileSizeHelper;
    EXPECT_EQ(fileSizeHelper(128, 24, 624), 3696U);
    EXPECT_EQ(fileSizeHelper(limit - 1, 1, 1), limit);
    const std::array<std::uint64_t, 3> cases[] = {
        {limit, 1, 1},                                          // the offset's sign
        {std::numeric_limits<std::uint64_t>::max(), 1, 1},      // the sum
        {std::uint64_t{1} << 33U, std::uint64_t{1} << 33U, 0}}; // the product
    for (const auto& [n, slot, header] : cases) {
        EXPECT_EQ(raisedBy<Pello::RuntimeException>([&, n = n, slot = slot, header = header] {
                      fileSizeHelper(n, slot, header);
                  }),
                  fmt::format("file size overflow: {} slots of {} bytes after {} bytes", n, slot,
                              header));
    }
}

TEST(Descriptor, NamesItsParts) {
    Vesk::MapDescriptor other(10, Vesk::VeskType::reader);
    EXPECT_EQ(fmt::format("{}", other), "size:10 type:reader flags:0x0000");
    other.fixedSize = other.dumpToCore = true;
    EXPECT_EQ(fmt::format("{}", other), "size:10 type:reader flags:0x4002");
    EXPECT_FALSE(other == Vesk::MapDescriptor(10, Vesk::VeskType::reader));
    EXPECT_EQ(fmt::format("{}", Vesk::MapDescriptor(3)), "size:3 type:writer flags:0x0001");
}

} // namespace
