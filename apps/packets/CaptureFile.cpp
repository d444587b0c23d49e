#include "packets/CaptureFile.h"

#include "packets/InputError.h"
#include "packets/PcapngReader.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Packets {

namespace {

/// The C library's own 4 KiB would mean a system call for every two dozen packets.
constexpr std::size_t bufferSize = std::size_t{256} * 1024;

/// A source that may keep its reader waiting for ever.
struct Pipe {
    int fd;
    int stop;
};

ssize_t readPipe(void* cookie, char* octets, std::size_t size) {
    const auto& pipe = *static_cast<const Pipe*>(cookie);
    while (true) {
        std::array<pollfd, 2> waiting{{{pipe.stop, POLLIN, 0}, {pipe.fd, POLLIN, 0}}};
        if (poll(waiting.data(), waiting.size(), -1) < 0 && errno != EINTR) return -1;
        if (waiting[0].revents != 0) return 0;
        if (waiting[1].revents == 0) continue;
        const ssize_t got = read(pipe.fd, octets, size);
        if (got >= 0 || (errno != EAGAIN && errno != EINTR)) return got;
    }
}

int closePipe(void* cookie) {
    const std::unique_ptr<Pipe> pipe(static_cast<Pipe*>(cookie));
    return close(pipe->fd);
}

/// Opened here rather than by libpcap, to which "-" is standard input, and which would let a child
/// process inherit the descriptor. `size` becomes that of a regular file.
[[nodiscard]] File openFile(const std::filesystem::path& path, int stop, std::uint64_t& size) {
    // A named pipe must not keep the opener waiting for its other end.
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    File file;
    if (fd >= 0) {
        struct stat status {};
        if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
            size = static_cast<std::uint64_t>(status.st_size);
            file.reset(fdopen(fd, "rb"));
        } else {
            auto pipe = std::make_unique<Pipe>(Pipe{fd, stop});
            file.reset(fopencookie(pipe.get(), "rb", {readPipe, nullptr, nullptr, closePipe}));
            if (file) (void)pipe.release(); // closePipe deletes it
        }
    }
    if (!file) {
        const int error = errno;
        if (fd >= 0) close(fd);
        throw InputError(fmt::format("{}: cannot open: {}", path.string(), std::strerror(error)));
    }
    return file;
}

/// The first octet stands for the format: that of a pcapng file is in no pcap file.
[[nodiscard]] bool isPcapng(const std::filesystem::path& path, std::FILE* file) {
    const int first = std::getc(file);
    if (first == EOF) {
        const char* reason = std::ferror(file) != 0 ? std::strerror(errno) : "the file is empty";
        throw InputError(fmt::format("{}: cannot read: {}", path.string(), reason));
    }
    std::ungetc(first, file);
    return first == (PcapngReader::sectionHeader & 0xffU);
}

constexpr const char* notReadable = "not a readable capture: ";

/// Reads pcap through libpcap.
class PcapReader final : public RecordReader {
  public:
    explicit PcapReader(File file) {
        std::array<char, PCAP_ERRBUF_SIZE> error{};
        handle_.reset(pcap_fopen_offline_with_tstamp_precision(
            file.get(), PCAP_TSTAMP_PRECISION_NANO, error.data()));
        if (!handle_) throw InputError(std::string(notReadable) + error.data());
        (void)file.release(); // the handle closes it from here on
        const int dlt = pcap_datalink(handle_.get());
        constexpr std::uint32_t raw = 101; // DLT_RAW has other numbers on some systems
        number_ = dlt == DLT_RAW ? raw : static_cast<std::uint32_t>(dlt);
        type_ = linkTypeOfNumber(number_);
        if (type_ == LinkType::unknown) {
            const char* const name = pcap_datalink_val_to_name(dlt);
            const char* const description = pcap_datalink_val_to_description(dlt);
            throw InputError(fmt::format(
                "link type {} ({}, {}) is not understood; wanted Ethernet, Linux cooked, raw IP, "
                "BSD loopback, PPP or Cisco HDLC",
                dlt, name != nullptr ? name : "no name",
                description != nullptr ? description : "unknown to libpcap"));
        }
    }

    [[nodiscard]] bool next(CaptureRecord& record) override {
        pcap_pkthdr* header = nullptr;
        const u_char* data = nullptr;
        const int status = pcap_next_ex(handle_.get(), &header, &data);
        if (status == PCAP_ERROR_BREAK) return false;
        if (status != 1) throw InputError(pcap_geterr(handle_.get()));
        // Opened with nanosecond precision: tv_usec holds nanoseconds.
        record = {.timestamp = toNanoseconds(header->ts),
                  .frame = {.captured = Bytes(data, header->caplen), .wireLength = header->len},
                  .linkType = type_};
        return true;
    }

    [[nodiscard]] std::string interfaceName(std::uint32_t /*interface*/) const override {
        return {};
    }
    [[nodiscard]] std::uint32_t linkTypeNumber(std::uint32_t /*interface*/) const override {
        return number_;
    }

  private:
    struct Closer {
        void operator()(pcap* handle) const noexcept { pcap_close(handle); }
    };

    /// The seconds have 32 bits with a sign, and what stands for nanoseconds any 32 bits.
    [[nodiscard]] static std::int64_t toNanoseconds(const timeval& time) noexcept {
        return std::int64_t{time.tv_sec} * 1'000'000'000 + std::int64_t{time.tv_usec};
    }

    std::unique_ptr<pcap, Closer> handle_;
    std::uint32_t number_ = 0;
    LinkType type_ = LinkType::unknown;
};

[[nodiscard]] std::unique_ptr<RecordReader> pcapngReader(File file) {
    try {
        return std::make_unique<PcapngReader>(std::move(file));
    } catch (const InputError& e) {
        throw InputError(std::string(notReadable) + e.what());
    }
}

} // namespace

CaptureFile::CaptureFile(std::filesystem::path path, int stop)
    : path_(std::move(path))
    , buffer_(std::make_unique<char[]>(bufferSize)) {
    File file = openFile(path_, stop, size_);
    std::setvbuf(file.get(), buffer_.get(), _IOFBF, bufferSize);
    const bool pcapng = isPcapng(path_, file.get());
    file_ = file.get();
    try {
        if (pcapng) {
            reader_ = pcapngReader(std::move(file));
        } else {
            reader_ = std::make_unique<PcapReader>(std::move(file));
        }
    } catch (const InputError& e) {
        throw InputError(fmt::format("{}: {}", path_.string(), e.what()));
    }
}

CaptureFile::~CaptureFile() = default;

bool CaptureFile::next(CaptureRecord& record) {
    if (file_ == nullptr) return false;
    try {
        if (reader_->next(record)) {
            ++records_;
            return true;
        }
    } catch (const InputError& e) {
        file_ = nullptr;
        throw InputError(fmt::format("{}: record {}: {}", path_.string(), records_ + 1, e.what()));
    }
    file_ = nullptr;
    return false;
}

std::string CaptureFile::interfaceName(std::uint32_t interface) const {
    std::string name = reader_->interfaceName(interface);
    if (!name.empty()) return name;
    name = path_.stem().string();
    return interface == 0 ? name : fmt::format("{}-{}", name, interface);
}

std::uint32_t CaptureFile::linkTypeNumber(std::uint32_t interface) const {
    return reader_->linkTypeNumber(interface);
}

std::uint64_t CaptureFile::position() const noexcept {
    if (size_ == 0 || file_ == nullptr) return size_;
    const off_t at = ftello(file_);
    return at < 0 ? 0 : static_cast<std::uint64_t>(at);
}

} // namespace Packets
