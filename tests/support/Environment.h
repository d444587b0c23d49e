#pragma once

// What tests need around a table: a root folder of their own, captured traces, seeds, forked
// children, and a writer for a shape.

#include "Mem/StopPoint.h"
#include "Pello/Debug.h"
#include "Tables.h"
#include "Vesk/MapDescriptor.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace TestSupport {

/// A fresh folder in /dev/shm (or the temporary folder) that becomes the base of all root paths,
/// and goes with this object. One per test: tests run in parallel.
class TempRoot {
  public:
    TempRoot();
    ~TempRoot();
    TempRoot(const TempRoot&) = delete;
    TempRoot& operator=(const TempRoot&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& table, const std::string& name) const {
        return path_ + "/" + table + "/" + name;
    }

  private:
    std::string path_;
    std::string previousBase_;
};

/// Collects every emitted trace while it lives. `levels` is the mask of all handlers meanwhile.
class TraceCapture {
  public:
    explicit TraceCapture(std::uint16_t levels);
    ~TraceCapture();
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    struct Line {
        unsigned level;
        std::string className;
        std::string source;
        std::string operation;
        std::string text;
    };
    const std::vector<Line>& lines() const { return lines_; }
    /// The first line of that text, or null.
    const Line* find(const std::string& text) const;
    void clear() { lines_.clear(); }

  private:
    std::vector<Line> lines_;
};

/// The seed of a random test: RSVPVESK_SEED when that is set, else `fallback`. It is printed.
std::uint32_t seedFor(const char* what, std::uint32_t fallback);

/// A factor for the length of random tests: RSVPVESK_LENGTH when that is set, else 1; a tenth of
/// it under a sanitizer.
double lengthFactor();

/// How a forked child ended.
struct ChildEnd {
    bool exited;
    int code;           ///< exit code, or the signal that killed it
    std::string errors; ///< what it wrote to stderr
};

/// Runs `body` in a forked child, which exits with 0 when the body returns and with 99 when it
/// throws, and `beside` here meanwhile. The child's stderr is captured.
ChildEnd inChild(
    const std::function<void()>& body, const std::function<void()>& beside = [] {});

/// Bytes of a file; empty when there is none.
std::vector<unsigned char> fileBytes(const std::string& path);
/// Overwrites bytes of a file in place.
void patchFile(const std::string& path, std::uint64_t offset, const void* bytes, std::size_t size);
void patchWord(const std::string& path, std::uint64_t offset, std::uint32_t word);
std::uint32_t wordOf(const std::string& path, std::uint64_t offset);

inline Vesk::MapDescriptor growingTable(std::uint32_t size = 1000) {
    return Vesk::MapDescriptor(size, Vesk::VeskType::writer);
}
inline Vesk::MapDescriptor fixedTable(std::uint32_t size) {
    Vesk::MapDescriptor descriptor(size, Vesk::VeskType::writer);
    descriptor.fixedSize = true;
    return descriptor;
}

template <class Shape>
using WriterOf = Vesk::VeskWriter<typename Shape::Ops>;

/// An initialised writer of a table.
template <class Shape>
std::unique_ptr<WriterOf<Shape>> openWriter(const std::string& table,
                                            const Vesk::MapDescriptor& descriptor) {
    auto writer = std::make_unique<WriterOf<Shape>>(
        Pello::Platform::getDebugHandler("test." + table, false), table, descriptor,
        typename Shape::Ops(), "Test", [](bool) {});
    writer->initialize("none");
    return writer;
}

} // namespace TestSupport
