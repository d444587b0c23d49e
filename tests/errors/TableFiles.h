#pragma once

// A table whose files are damaged under the hands of its writer, and what the table says to it.

#include "engine/Support.h"

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace ErrorsTest {

using TestSupport::TraceCapture;

/// Offsets in the slot file's header, and in a slot.
enum Word : std::uint64_t {
    kRavoId = 16,
    kRuntime = 548,
    kOccupiedSlots = 556,
    kFreeHead = 560,
    kHighWater = 564,
    kNumSlots = 580,
    kNext = 4,
    kSequence = 8,
    kRhash = 12,
    kValue = 16
};

constexpr std::uint32_t kEnd = 0xFFFFFFFFU;
constexpr std::uint32_t kBucketBit = 0x80000000U;
constexpr std::uint32_t kCritical = 0x00010000U; ///< in the word `kRuntime`

/// "Class Source.operation text" of a tag and a message.
std::string said(const Pello::SourceTag& tag, const std::string& text);

/// What a call raised, as `said` writes it; what it raised instead of an `E`, or "nothing".
template <class E>
std::string raisedBy(const std::function<void()>& call) {
    try {
        call();
    } catch (const E& e) {
        return said(e.tag(), e.message());
    } catch (const std::exception& e) {
        return std::string("another exception: ") + e.what();
    }
    return "nothing";
}

/// The line that a forked child wrote while it stopped itself, as `said` writes it but for the
/// line number, or how else the child ended.
std::string fatalOf(const std::function<void()>& body);

/// The captured lines as "level Class Source.operation text".
std::vector<std::string> traced(const TraceCapture& capture);

inline bool has(const std::vector<std::string>& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

/// Calls `onTrace` for every trace of these levels: a place where another process might act.
class TraceHook {
  public:
    TraceHook(std::uint16_t levels, std::function<void(const std::string& text)> onTrace);
    ~TraceHook();
    TraceHook(const TraceHook&) = delete;
    TraceHook& operator=(const TraceHook&) = delete;
};

/// A table's files, which a writer may have mapped meanwhile.
struct TableFiles {
    explicit TableFiles(const std::string& theFolder)
        : folder(theFolder) {}

    std::uint32_t header(Word at) const { return TestSupport::wordOf(slots, at); }
    void headerIs(Word at, std::uint32_t word) const { TestSupport::patchWord(slots, at, word); }
    bool critical() const { return (header(kRuntime) & kCritical) != 0; }

    /// The bytes of the three files; `imageIs` puts them back, sizes included.
    using Image = std::array<std::vector<unsigned char>, 3>;
    Image image() const;
    void imageIs(const Image& image) const;

    const std::string folder;
    const std::string slots = folder + "/slots";
    const std::string buckets = folder + "/buckets";
    const std::string ravo = folder + "/ravo";
    const std::string owner = folder + "/owner";
};

/// A table and its writer.
template <class TheShape>
struct Table : testing::Test {
    using Shape = TheShape;
    using Value = EngineTest::ValueOf<Shape>;

    void open(const Vesk::MapDescriptor& descriptor = TestSupport::growingTable()) {
        writer.reset();
        writer = TestSupport::openWriter<Shape>("t", descriptor);
    }
    void fill(std::uint32_t entries) {
        for (std::uint32_t i = 0; i < entries; ++i) {
            writer->write(Shape::value(i, i), true);
        }
    }
    std::string opening() {
        return raisedBy<Pello::InvalidInitializeException>([this] { open(); });
    }

    EngineTest::RawTable raw() const { return EngineTest::rawTableOf<Shape>(*writer); }
    std::vector<std::uint32_t> chain(std::uint32_t bucket) const {
        return raw().chainFrom(raw().nextOfBucket(bucket));
    }
    /// A bucket but the last one, with that many slots or more; 0 asks for an empty one.
    std::uint32_t bucketWith(std::size_t length) const {
        std::uint32_t bucket = 0;
        while (length == 0 ? !chain(bucket).empty() : chain(bucket).size() < length) {
            if (++bucket + 1 == raw().numBuckets()) throw std::runtime_error("no such chain");
        }
        return bucket;
    }
    std::uint32_t slotWord(std::uint32_t i, Word at) const {
        return TestSupport::wordOf(files.slots, raw().slotAt(i) + at);
    }
    void slotIs(std::uint32_t i, Word at, std::uint32_t word) const {
        TestSupport::patchWord(files.slots, raw().slotAt(i) + at, word);
    }
    void bucketIs(std::uint32_t bucket, std::uint32_t next) const {
        TestSupport::patchWord(files.buckets, 28 + 8 * bucket, next);
    }
    /// The words of the value in a slot of another bucket than that one.
    std::vector<std::uint32_t> foreignValue(std::uint32_t bucket) const {
        do {
            bucket = (bucket + 1) % raw().numBuckets();
        } while (chain(bucket).empty());
        std::vector<std::uint32_t> words(sizeof(typename Shape::V) / 4);
        for (std::size_t i = 0; i < words.size(); ++i) {
            words[i] = slotWord(chain(bucket)[0], static_cast<Word>(kValue + 4 * i));
        }
        return words;
    }

    TestSupport::TempRoot root;
    const TableFiles files{root.path() + "/t"};
    std::unique_ptr<TestSupport::WriterOf<Shape>> writer;
};

} // namespace ErrorsTest
