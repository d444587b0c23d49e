#include "SharedMem/OwnerFile.h"

#include "Mem/OwnFile.h"
#include "Mem/StopPoint.h"
#include "Pello/Fork.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <set>
#include <span>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace SharedMem {

struct OwnerFile::Record {
    std::uint32_t magic = 0;
    std::uint32_t format = 0;
    std::uint32_t updates = 0;
    std::uint32_t crc = 0;
    std::uint32_t sharedMemType = 0;
    std::uint32_t hasTable = 0;
    std::uint32_t tableId = 0;
    std::uint32_t pad28 = 0;
    std::array<char, 128> typeName{};
    std::array<char, 108> socketName{};
    std::array<std::uint8_t, 244> pad268{};

    static Record fresh();
    std::uint32_t computedCrc() const;
    bool sound(Pello::String& why) const;
    PloxetInfo ploxetInfo() const;
};

namespace {

constexpr std::uint32_t kMagic = 0x524E574F; // "OWNR"
constexpr std::uint32_t kFormat = 1;
constexpr std::size_t kCheckedFrom = 16;

Pello::SourceTag tagOf(const char* operation, unsigned line = __builtin_LINE()) {
    return {"OwnerFile", "SharedMem/OwnerFile", operation, line};
}

/// CRC-32 as of IEEE 802.3.
std::uint32_t crc32(std::span<const std::byte> bytes) {
    std::uint32_t crc = 0xFFFFFFFFU;
    for (const std::byte byte : bytes) {
        crc ^= static_cast<std::uint32_t>(byte);
        for (int bit = 0; bit < 8; ++bit) {
            crc = crc >> 1U ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
        }
    }
    return ~crc;
}

template <std::size_t N>
Pello::String textOf(const std::array<char, N>& field) {
    return {field.begin(), std::find(field.begin(), field.end(), '\0')};
}

template <std::size_t N>
void textIs(std::array<char, N>& field, const Pello::String& text, const char* what) {
    if (text.size() >= N) {
        Pello::raise<Pello::InvalidInitializeException>(
            tagOf("textIs"), "{} too long: {} wanted below:{}", fmt::string_view(what), text, N);
    }
    field.fill('\0');
    std::copy(text.begin(), text.end(), field.begin());
}

/// The descriptors that hold locks. A child that another thread forks meanwhile would keep the lock
/// for as long as it lives.
struct LockedFiles {
    std::mutex mutex;
    std::set<int> descriptors;

    void add(int fd) {
        const std::lock_guard lock(mutex);
        descriptors.insert(fd);
    }
    /// In a forked child the descriptor is closed already, and its number may be another file's.
    void close(int fd) {
        const std::lock_guard lock(mutex);
        if (descriptors.erase(fd) != 0) ::close(fd);
    }
};

LockedFiles& lockedFiles() {
    static auto* const instance = new LockedFiles;
    static const bool hooked = [] {
        Pello::atFork(instance->mutex, [] {
            for (const int fd : lockedFiles().descriptors) {
                close(fd);
            }
            lockedFiles().descriptors.clear();
        });
        return true;
    }();
    static_cast<void>(hooked);
    return *instance;
}

} // namespace

OwnerFile::Record OwnerFile::Record::fresh() {
    Record record;
    record.magic = kMagic;
    record.format = kFormat;
    record.crc = record.computedCrc();
    return record;
}

std::uint32_t OwnerFile::Record::computedCrc() const {
    return crc32(std::as_bytes(std::span(this, 1)).subspan(kCheckedFrom));
}

bool OwnerFile::Record::sound(Pello::String& why) const {
    if (magic != kMagic) {
        why = fmt::format("bad magic:{:#x} wanted:{:#x}", magic, kMagic);
    } else if (format != kFormat) {
        why = fmt::format("bad format:{} wanted:{}", format, kFormat);
    } else if (crc != computedCrc()) {
        why = fmt::format("bad crc:{:#x} wanted:{:#x}", crc, computedCrc());
    } else {
        return true;
    }
    return false;
}

PloxetInfo OwnerFile::Record::ploxetInfo() const {
    PloxetInfo info{textOf(socketName), std::nullopt};
    if (hasTable != 0) info.tableId = tableId;
    return info;
}

OwnerFile::OwnerFile(std::shared_ptr<Pello::Platform::DebugHandler> handler,
                     const Mem::OruRootPath& rootPath, bool local)
    : Debuggable(std::move(handler))
    , path_(rootPath.filePath(FILENAME))
    , local_(local) {
    static_assert(sizeof(Record) == kSize && offsetof(Record, socketName) == 160);
    if (local_) write(Record::fresh());
}

OwnerFile::~OwnerFile() {
    if (fd_ >= 0) lockedFiles().close(fd_); // lets the lock go
}

void OwnerFile::lock(Absent absent) {
    if (local_ || fd_ >= 0) return;
    const auto fail = [this](const char* what, const Pello::String& why) {
        Pello::raise<Pello::InvalidInitializeException>(tagOf("lock"), "cannot {} {}: {}",
                                                        fmt::string_view(what), path_, why);
    };
    while (true) {
        if (absent == Absent::isCorruption && access(path_.c_str(), F_OK) != 0) {
            Pello::raise<Pello::CorruptionDetectedException>(tagOf("lock"), "{}: missing", path_);
        }
        Pello::String error;
        Mem::OwnFile file = Mem::OwnFile::open(
            path_,
            absent == Absent::isMade ? Mem::OwnFile::Absent::isMade : Mem::OwnFile::Absent::isError,
            error);
        if (!file.isOpen()) fail("open", error);
        fd_ = file.release();
        lockedFiles().add(fd_);
        if (!Mem::lockWhole(fd_, true)) fail("lock", std::strerror(errno));
        // A clean-up may have removed the file while this waited: then the lock guards nothing.
        if (!Mem::leadsTo(path_, fd_)) {
            lockedFiles().close(std::exchange(fd_, -1));
            continue;
        }
        struct stat status {};
        if (fstat(fd_, &status) != 0) fail("examine", std::strerror(errno));
        created_ = status.st_size == 0;
        if (created_) write(Record::fresh());
        return;
    }
}

OwnerFile::Record OwnerFile::read() const {
    Record record;
    if (local_) {
        std::memcpy(&record, localImage_.data(), sizeof record);
        return record;
    }
    // Two tries: an update half done is over by the second.
    for (int attempt = 0; attempt < 2; ++attempt) {
        const int fd = fd_ >= 0 ? fd_ : open(path_.c_str(), Mem::OwnFile::kReadFlags);
        record = Record();
        const bool whole = fd >= 0 && pread(fd, &record, sizeof record, 0) == sizeof record;
        if (fd >= 0 && fd != fd_) close(fd);
        Pello::String ignored;
        if (whole && record.sound(ignored)) break;
    }
    return record;
}

void OwnerFile::write(const Record& record) {
    if (local_) {
        std::memcpy(localImage_.data(), &record, sizeof record);
        return;
    }
    Mem::stopAt(Mem::StopPoint::ownerRecord);
    if (const int failure = Mem::writeWhole(fd_, &record, sizeof record); failure != 0) {
        Pello::raise<Pello::InvalidInitializeException>(tagOf("write"), "cannot write {}: {}",
                                                        path_, std::strerror(failure));
    }
}

template <class Change>
void OwnerFile::update(Change change) {
    Record record = read();
    Pello::String ignored;
    if (!record.sound(ignored)) record = Record::fresh();
    change(record);
    ++record.updates;
    record.crc = record.computedCrc();
    write(record);
}

bool OwnerFile::validate() const {
    Pello::String ignored;
    return validate(ignored);
}

bool OwnerFile::validate(Pello::String& why) const { return read().sound(why); }

void OwnerFile::validateFile() const {
    if (Pello::String why; !validate(why)) {
        Pello::raise<Pello::CorruptionDetectedException>(tagOf("validateFile"), "{}: {}", path_,
                                                         why);
    }
}

PloxetInfo OwnerFile::ploxetInfo() const {
    const Record record = read();
    if (Pello::String why; !record.sound(why)) {
        Pello::raise<Pello::CorruptionDetectedException>(tagOf("ploxetInfo"), "{}: {}", path_, why);
    }
    return record.ploxetInfo();
}

void OwnerFile::ploxetInfoIs(const PloxetInfo& info) {
    update([&info](Record& record) {
        textIs(record.socketName, info.socketName, "socket name");
        record.hasTable = info.tableId ? 1 : 0;
        record.tableId = info.tableId.value_or(0);
    });
}

void OwnerFile::typeNameIs(const Pello::String& typeName) {
    update([&typeName](Record& record) { textIs(record.typeName, typeName, "type name"); });
}

void OwnerFile::sharedMemTypeIs(SharedMemType type) {
    update([type](Record& record) { record.sharedMemType = static_cast<std::uint32_t>(type); });
}

Pello::String OwnerFile::headerToString() const {
    const Record record = read();
    return fmt::format("magic:{:#x} format:{} updates:{} crc:{:#x} sharedMemType:{} typeName:{} "
                       "ploxetInfo:{}",
                       record.magic, record.format, record.updates, record.crc,
                       record.sharedMemType, textOf(record.typeName), record.ploxetInfo());
}

} // namespace SharedMem
