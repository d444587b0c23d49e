#include "SharedMem/RavoFile.h"

#include "Mem/OwnFile.h"
#include "Mem/StopPoint.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace SharedMem {

namespace {

constexpr std::uint32_t kMagic = 0x4F564152; // "RAVO"
constexpr std::uint32_t kFormat = 1;
constexpr std::size_t kFileSize = 4096;

using Record = std::array<std::uint32_t, 4>;

struct File {
    explicit File(int opened)
        : fd(opened) {}
    ~File() {
        if (fd >= 0) close(fd);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int fd;
};

} // namespace

RavoFile::RavoFile(Pello::Platform::DebugHandler& handler, const Mem::OruRootPath& rootPath,
                   bool local)
    : path_(rootPath.filePath(RAVO_NAME))
    , local_(local) {
    PELLO_TRACE(handler, 5, Pello::SourceTag("RavoFile", "SharedMem/RavoFile", "RavoFile"), "{}",
                path_);
}

RavoId RavoFile::read() const {
    if (local_) return localId_;
    const File file(open(path_.c_str(), Mem::OwnFile::kReadFlags));
    Record record{};
    if (file.fd < 0 || pread(file.fd, record.data(), sizeof record, 0) != sizeof record) return {};
    const bool sound = record[0] == kMagic && record[2] == ~record[1] && record[3] == kFormat;
    return sound ? RavoId(record[1]) : RavoId();
}

void RavoFile::write(RavoId id) {
    if (local_) {
        localId_ = id;
        return;
    }
    std::array<char, kFileSize> image{};
    const Record record{kMagic, id.word(), ~id.word(), kFormat};
    std::memcpy(image.data(), record.data(), sizeof record);
    Pello::String error;
    const Mem::OwnFile file = Mem::OwnFile::open(path_, Mem::OwnFile::Absent::isMade, error);
    Mem::stopAt(Mem::StopPoint::ravoRecord);
    if (file.isOpen()) {
        const int failure = Mem::writeWhole(file.fd(), image.data(), image.size());
        if (failure != 0) error = fmt::format("write: {}", std::strerror(failure));
    }
    if (!error.empty()) {
        Pello::raise<Pello::InvalidInitializeException>({"RavoFile", "SharedMem/RavoFile", "write"},
                                                        "cannot write {}: {}", path_, error);
    }
}

void RavoFile::validate(RavoId id) const {
    if (const RavoId stored = read(); stored != id) {
        Pello::raise<Pello::CorruptionDetectedException>(
            {"RavoFile", "SharedMem/RavoFile", "validate"}, "{}: id:{} wanted:{}", path_, stored,
            id);
    }
}

double RavoFile::mtime() const {
    struct stat status {};
    if (local_ || stat(path_.c_str(), &status) != 0) return 0;
    return static_cast<double>(status.st_mtim.tv_sec) +
           static_cast<double>(status.st_mtim.tv_nsec) * 1e-9;
}

} // namespace SharedMem
