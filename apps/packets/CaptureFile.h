#pragma once

#include "packets/Frame.h"
#include "packets/LinkLayer.h"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

namespace Packets {

/// One record of a capture. The bytes are good until the next call of `CaptureFile::next`.
struct CaptureRecord {
    std::int64_t timestamp = 0; ///< nanoseconds since 1970, negative before
    Frame frame;
    LinkType linkType = LinkType::unknown;
    std::uint32_t interface = 0;              ///< for `CaptureFile::interfaceName`
    Direction direction = Direction::unknown; ///< as the capture says
};

/// What reads the records of one format.
class RecordReader {
  public:
    RecordReader() = default;
    RecordReader(const RecordReader&) = delete;
    RecordReader& operator=(const RecordReader&) = delete;
    virtual ~RecordReader() = default;

    /// As `CaptureFile::next`, but an InputError has the reason alone.
    [[nodiscard]] virtual bool next(CaptureRecord& record) = 0;
    /// The interface's name; empty when the capture has none for it.
    [[nodiscard]] virtual std::string interfaceName(std::uint32_t interface) const = 0;
    [[nodiscard]] virtual std::uint32_t linkTypeNumber(std::uint32_t interface) const = 0;
};

/// A capture file, read from start to end: pcap in either byte order, with microseconds or
/// nanoseconds, through libpcap, and pcapng.
class CaptureFile {
  public:
    /// Opens the file and reads its header. InputError with the file's name and the reason when
    /// there is no such file, when it is no capture, or when it is a pcap file whose link type is
    /// not understood. What is no regular file, such as a pipe, ends early as soon as the
    /// descriptor `stop` is readable, when one is given: whoever feeds it may never come to an end.
    explicit CaptureFile(std::filesystem::path path, int stop = -1);
    ~CaptureFile();
    CaptureFile(const CaptureFile&) = delete;
    CaptureFile& operator=(const CaptureFile&) = delete;

    /// Reads the next record; false at the end. A file that breaks off within a record, or is
    /// garbled, gives all records before that and then an InputError with the file's name, the
    /// number of the record (from 1) and the reason; after it, as after the end, there is nothing
    /// more to read.
    [[nodiscard]] bool next(CaptureRecord& record);

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

    /// The name of an interface of which a record was read, numbered over the whole file: the
    /// capture's own; for one without a name that of the file, without folder and extension, to
    /// which interfaces but number 0 have "-<number>" added.
    [[nodiscard]] std::string interfaceName(std::uint32_t interface) const;
    /// Its link type, as files store it.
    [[nodiscard]] std::uint32_t linkTypeNumber(std::uint32_t interface) const;

    /// Bytes read so far, and bytes in all; 0 for what is no regular file.
    [[nodiscard]] std::uint64_t position() const noexcept;
    [[nodiscard]] std::uint64_t size() const noexcept { return size_; }

  private:
    std::filesystem::path path_;
    std::unique_ptr<char[]> buffer_; // of the open file, so it must outlive reader_
    std::unique_ptr<RecordReader> reader_;
    std::FILE* file_ = nullptr; // the reader's; null when there is nothing more to read
    std::uint64_t size_ = 0;
    std::uint64_t records_ = 0; // read so far
};

} // namespace Packets
