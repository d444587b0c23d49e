#pragma once

#include "packets/Frame.h"
#include "packets/LinkLayer.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

struct pcap;

namespace Packets {

/// One record of a capture. The bytes are good until the next call of `CaptureFile::next`.
struct CaptureRecord {
    std::int64_t timestamp = 0; ///< nanoseconds since 1970, negative before
    Frame frame;
};

/// A capture file, read from start to end through libpcap: pcap in either byte order, with
/// microseconds or nanoseconds, and pcapng whose interfaces all have one link type and snap length.
class CaptureFile {
  public:
    /// Opens the file and reads its header. InputError with the file's name and the reason when
    /// there is no such file, when it is no capture, or when its link type is not understood.
    explicit CaptureFile(std::filesystem::path path);
    CaptureFile(const CaptureFile&) = delete;
    CaptureFile(CaptureFile&&) noexcept = default;
    CaptureFile& operator=(const CaptureFile&) = delete;

    /// Reads the next record; false at the end. A file that breaks off within a record, or is
    /// garbled, gives all records before that and then an InputError with the file's name, the
    /// number of the record (from 1) and the reason; after it, as after the end, there is nothing
    /// more to read.
    [[nodiscard]] bool next(CaptureRecord& record);

    [[nodiscard]] LinkType linkType() const noexcept { return linkType_; }

    /// The name for the interface of a capture that names none: the file's, without directory and
    /// extension.
    [[nodiscard]] std::string interfaceName() const { return path_.stem().string(); }

  private:
    struct Closer {
        void operator()(pcap* handle) const noexcept;
    };

    std::filesystem::path path_;
    std::vector<char> buffer_;             // of the open file, so it must outlive handle_
    std::unique_ptr<pcap, Closer> handle_; // null when there is nothing more to read
    LinkType linkType_{};
    std::uint64_t records_ = 0; // read so far
};

} // namespace Packets
