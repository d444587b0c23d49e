// One bit of a stopped table's files is wrong, each in turn: the validator finds it or it does no
// harm, and nobody who reads or takes over such files crashes, hangs or looks elsewhere.

#include "Environment.h"
#include "Vesk/VeskReader.h"
#include "docs/Documents.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <span>

namespace {

using Bytes = std::vector<unsigned char>;
using TestSupport::TempRoot;

constexpr std::uint32_t kEntries = 70; ///< chains of several slots, and a free list
constexpr const char* kLayout = "docs/layout.md";

/// Bytes with one meaning.
struct Field {
    std::string name;
    std::size_t file; ///< 0: slots, 1: buckets
    std::size_t begin;
    std::size_t size;
};

std::uint32_t wordAt(const Bytes& bytes, std::size_t at) {
    std::uint32_t word = 0;
    std::memcpy(&word, &bytes.at(at), sizeof word);
    return word;
}

/// The fields of a header as the document lists them.
void addHeader(std::vector<Field>& fields, const std::string& name, std::size_t file) {
    for (const Docs::Row& row : Docs::table(kLayout, name)) {
        if (row.at(1).find('x') != std::string::npos) continue; // what follows the header
        std::string meaning = row.at(2).substr(0, row.at(2).find_first_of(",;:`("));
        if (meaning.starts_with('{')) meaning = row.at(2).substr(0, row.at(2).find('}') + 1);
        while (meaning.ends_with(' ')) {
            meaning.pop_back();
        }
        fields.push_back(
            {name + ": " + meaning, file, std::stoul(row.at(0)), std::stoul(row.at(1))});
    }
}

template <class Shape>
class Flips : public testing::Test {
  protected:
    using Value = typename Shape::Ops::Value;
    using Files = std::array<Bytes, 4>;

    Flips() {
        fill();
        for (std::size_t file = 0; file < sound.size(); ++file) {
            sound[file] = TestSupport::fileBytes(paths[file]);
        }
        addHeader(fields, "slot header", 0);
        addHeader(fields, "bucket header", 1);
        const std::size_t slotSize = sizeof(Value) + 16;
        addSlot("lookaside slot", 600);
        for (std::size_t at = 600 + slotSize; at < sound[0].size(); at += slotSize) {
            addSlot((wordAt(sound[0], at + 8) & 1U) != 0 ? "slot in use" : "free slot", at);
        }
        for (std::size_t at = 24; at < sound[1].size(); at += 8) {
            fields.push_back({"bucket: state", 1, at, 4});
            fields.push_back({"bucket: next", 1, at + 4, 4});
        }
    }
    void fill() const {
        const auto writer = TestSupport::openWriter<Shape>("t", TestSupport::growingTable());
        for (std::uint32_t number = 0; number < kEntries; ++number) {
            writer->write(Shape::value(number, 1), true);
        }
        Value out;
        for (std::uint32_t number = 0; number < kEntries; number += 7) {
            writer->remove(Shape::key(number), out);
        }
        id = writer->ravoId();
    }
    void addSlot(const std::string& kind, std::size_t at) {
        constexpr std::size_t kKeySize = sizeof(typename Shape::Key);
        fields.push_back({kind + ": link state", 0, at, 4});
        fields.push_back({kind + ": link next", 0, at + 4, 4});
        fields.push_back({kind + ": sequence", 0, at + 8, 4});
        fields.push_back({kind + ": rhash", 0, at + 12, 4});
        fields.push_back({kind + ": key", 0, at + 16, kKeySize});
        fields.push_back(
            {kind + ": rest of the value", 0, at + 16 + kKeySize, sizeof(Value) - kKeySize});
    }

    bool isFound(const Files& files) const {
        Vesk::VeskWriter<typename Shape::Ops> writer(
            Pello::Platform::getDebugHandler("test.t", false), "t", Vesk::MapDescriptor(1),
            typename Shape::Ops(), "", Pello::noop);
        std::string error;
        const bool isSound = writer.load(std::as_bytes(std::span(files[0])),
                                         std::as_bytes(std::span(files[1])), id, error);
        EXPECT_EQ(isSound, error.empty());
        return !isSound;
    }

    /// Calls `act` with the files of the table, one bit of which is wrong: for every byte another
    /// bit. The table is sound again afterwards.
    template <class Act>
    void forEachByte(Act act) const {
        const auto stride =
            static_cast<std::size_t>(1 / std::min(1.0, TestSupport::lengthFactor()));
        std::size_t number = 0;
        for (const Field& field : fields) {
            for (std::size_t at = field.begin; at < field.begin + field.size; ++at) {
                if (++number % stride != 0) continue;
                const auto wrong =
                    static_cast<unsigned char>(sound[field.file][at] ^ (1U << number % 8));
                TestSupport::patchFile(paths[field.file], at, &wrong, 1);
                act(field);
                TestSupport::patchFile(paths[field.file], at, &sound[field.file][at], 1);
            }
        }
    }

    TempRoot root;
    const std::array<std::string, 4> paths{root.file("t", "slots"), root.file("t", "buckets"),
                                           root.file("t", "ravo"), root.file("t", "owner")};
    mutable SharedMem::RavoId id;
    Files sound;
    std::vector<Field> fields;
};
using Shapes = testing::Types<TestSupport::MessageShape, TestSupport::ErrorShape,
                              TestSupport::SessionShape, TestSupport::SpShape>;
TYPED_TEST_SUITE(Flips, Shapes, );

TYPED_TEST(Flips, AreFoundAsOftenAsTheDocumentSays) {
    ASSERT_FALSE(this->isFound(this->sound));
    Pello::Platform::traceLevelsIs("", 0);
    struct Rate {
        std::size_t found = 0;
        std::size_t bits = 0;
    };
    std::map<std::string, Rate> rates;
    std::vector<std::string> order;
    auto files = this->sound;
    Rate all;
    for (const Field& field : this->fields) {
        if (!rates.contains(field.name)) order.push_back(field.name);
        Rate& rate = rates[field.name];
        for (std::size_t bit = 0; bit < 8 * field.size; ++bit) {
            unsigned char& byte = files[field.file].at(field.begin + bit / 8);
            byte = static_cast<unsigned char>(byte ^ (1U << bit % 8));
            rate.found += this->isFound(files) ? 1U : 0U;
            ++rate.bits;
            byte = static_cast<unsigned char>(byte ^ (1U << bit % 8));
        }
        all.bits += 8 * field.size;
    }
    std::map<std::string, std::string> documented;
    for (const Docs::Row& row : Docs::table("docs/recovery.md", "flips")) {
        documented[row.at(0)] = row.at(1);
    }
    for (const std::string& name : order) {
        const auto& [found, bits] = rates[name];
        all.found += found;
        const std::string rate = found == bits ? "all"
                                 : found == 0
                                     ? "none"
                                     : fmt::format("{:.0f} %", 100.0 * static_cast<double>(found) /
                                                                   static_cast<double>(bits));
        if (std::is_same_v<TypeParam, TestSupport::MessageShape>) {
            EXPECT_EQ(documented[name], rate) << name;
        }
    }
    std::cout << fmt::format("{}: {} of {} flipped bits found\n", TypeParam::name, all.found,
                             all.bits);
}

TYPED_TEST(Flips, EndNoReader) {
    std::size_t refused = 0;
    std::size_t raised = 0;
    std::size_t answered = 0;
    const auto newReader = [] {
        return std::make_unique<Vesk::VeskReader<typename TypeParam::Ops>>(
            Pello::Platform::getDebugHandler("test.t", false), "t", typename TypeParam::Ops(),
            nullptr);
    };
    const auto readAll = [&](Vesk::VeskReader<typename TypeParam::Ops>& reader) {
        typename TypeParam::Ops::Value value;
        try {
            bool found = false;
            for (std::uint32_t number = 0; number < kEntries; ++number) {
                reader.lookup(TypeParam::key(number), found, &value);
            }
            Vesk::IterHint hint;
            std::size_t steps = 0;
            for (bool more = reader.first(value, hint); more && ++steps < 10'000;
                 more = reader.next(value.key(), value, hint)) {
            }
            ++answered;
        } catch (const Pello::CorruptionDetectedException&) {
            ++raised;
        }
    };
    Pello::Platform::traceLevelsIs("", 0);
    const auto attached = newReader();
    ASSERT_TRUE(attached->initialize("test"));
    this->forEachByte([&](const Field&) {
        readAll(*attached);
        const auto late = newReader();
        late->initialize("test") ? readAll(*late) : static_cast<void>(++refused);
    });
    readAll(*attached); // sound again
    EXPECT_EQ(attached->getCacheVersionAnchor(), Mem::CacheVersionAnchor());
    std::cout << fmt::format("{}: {} complete readings, {} raised corruption, {} not attached to\n",
                             TypeParam::name, answered, raised, refused);
}

TYPED_TEST(Flips, AreTakenOverOnlyWhereTheyDoNoHarm) {
    std::size_t formatted = 0;
    std::size_t takenOver = 0;
    Pello::Platform::traceLevelsIs("", 0);
    this->forEachByte([&](const Field& field) {
        auto writer = TestSupport::openWriter<TypeParam>("t", TestSupport::growingTable());
        ++(writer->members() == 0 ? formatted : takenOver);
        typename TypeParam::Ops::Value out;
        for (std::uint32_t number = 0; number < kEntries; ++number) {
            ASSERT_NO_THROW(writer->write(TypeParam::value(number, 2), true)) << field.name;
        }
        for (std::uint32_t number = 0; number < kEntries; number += 2) {
            ASSERT_NO_THROW(writer->remove(TypeParam::key(number), out)) << field.name;
        }
        EXPECT_TRUE(writer->validate()) << field.name;
        writer.reset();
        for (std::size_t file = 0; file < this->sound.size(); ++file) {
            std::ofstream(this->paths[file], std::ios::binary)
                .write(reinterpret_cast<const char*>(this->sound[file].data()),
                       static_cast<std::streamsize>(this->sound[file].size()));
        }
    });
    EXPECT_GT(takenOver, 0U);
    std::cout << fmt::format("{}: {} files formatted anew, {} taken over\n", TypeParam::name,
                             formatted, takenOver);
}

} // namespace
