#include "packets/CaptureFile.h"

#include "packets/InputError.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

namespace Packets {

namespace {

/// The C library's own 4 KiB would mean a system call for every two dozen packets.
constexpr std::size_t bufferSize = std::size_t{256} * 1024;

struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

using File = std::unique_ptr<std::FILE, FileCloser>;

/// Opened here rather than by libpcap, to which "-" is standard input, and which would let a child
/// process inherit the descriptor.
[[nodiscard]] File openFile(const std::filesystem::path& path, std::span<char> buffer) {
    File file(std::fopen(path.c_str(), "rbe"));
    if (!file) {
        throw InputError(fmt::format("{}: cannot open: {}", path.string(), std::strerror(errno)));
    }
    std::setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size());
    const int first = std::getc(file.get());
    if (first == EOF) {
        const char* reason =
            std::ferror(file.get()) != 0 ? std::strerror(errno) : "the file is empty";
        throw InputError(fmt::format("{}: cannot read: {}", path.string(), reason));
    }
    std::ungetc(first, file.get());
    return file;
}

/// Time stamps of pcapng have 64 bits, in units that the file chooses: a garbled one may lie
/// outside what 64 bits of nanoseconds can say, and then becomes the nearest that they can.
[[nodiscard]] std::int64_t toNanoseconds(const timeval& time) noexcept {
    std::int64_t result = 0;
    if (__builtin_mul_overflow(static_cast<std::int64_t>(time.tv_sec), 1'000'000'000, &result) ||
        __builtin_add_overflow(result, static_cast<std::int64_t>(time.tv_usec), &result)) {
        return time.tv_sec < 0 ? std::numeric_limits<std::int64_t>::min()
                               : std::numeric_limits<std::int64_t>::max();
    }
    return result;
}

[[nodiscard]] std::string describeDlt(int dlt) {
    const char* name = pcap_datalink_val_to_name(dlt);
    const char* description = pcap_datalink_val_to_description(dlt);
    return fmt::format("{} ({}, {})", dlt, name != nullptr ? name : "no name",
                       description != nullptr ? description : "unknown to libpcap");
}

} // namespace

void CaptureFile::Closer::operator()(pcap* handle) const noexcept { pcap_close(handle); }

CaptureFile::CaptureFile(std::filesystem::path path)
    : path_(std::move(path))
    , buffer_(bufferSize) {
    File file = openFile(path_, buffer_);
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    handle_.reset(pcap_fopen_offline_with_tstamp_precision(file.get(), PCAP_TSTAMP_PRECISION_NANO,
                                                           error.data()));
    if (!handle_) {
        throw InputError(
            fmt::format("{}: not a readable capture: {}", path_.string(), error.data()));
    }
    (void)file.release(); // the handle closes it from here on

    const int dlt = pcap_datalink(handle_.get());
    const auto linkType = linkTypeOfDlt(dlt);
    if (!linkType) {
        throw InputError(fmt::format("{}: link type {} is not understood; wanted {}",
                                     path_.string(), describeDlt(dlt), describeDlt(DLT_EN10MB)));
    }
    linkType_ = *linkType;
}

bool CaptureFile::next(CaptureRecord& record) {
    if (!handle_) return false;
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    const int status = pcap_next_ex(handle_.get(), &header, &data);
    if (status == 1) {
        ++records_;
        // Opened with nanosecond precision: tv_usec holds nanoseconds.
        record = {.timestamp = toNanoseconds(header->ts),
                  .frame = {.captured = Bytes(data, header->caplen), .wireLength = header->len}};
        return true;
    }
    const auto ended = std::exchange(handle_, nullptr);
    if (status == PCAP_ERROR_BREAK) return false;
    throw InputError(
        fmt::format("{}: record {}: {}", path_.string(), records_ + 1, pcap_geterr(ended.get())));
}

} // namespace Packets
