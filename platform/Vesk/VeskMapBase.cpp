#include "Vesk/VeskMapBase.h"

#include "SharedMem/RavoFile.h"

namespace Vesk {

using MoxSharedMem::MountStatus;

bool VeskMapBase::ready() const { return mountStatus() != MountStatus::notMounted; }

void VeskMapBase::init(VeskType mode, bool localMem, unsigned int size) {
    MapDescriptor descriptor(size, mode);
    descriptor.localMem = localMem;
    init(descriptor);
}

bool VeskMapBase::exists() const { return rootPath().hasFile(SharedMem::RavoFile::RAVO_NAME); }

Pello::String VeskMapBase::modeStr() const { return fmt::format("{}", mode()); }

bool VeskMapBase::readerFullyAttached() const {
    return mountStatus() ==
           (mode() == VeskType::reader ? MountStatus::mounted : MountStatus::synchronised);
}

bool VeskMapBase::disconnectedActiveReader() const {
    const bool shadow = mode() == VeskType::shadow || mode() == VeskType::keyshadow;
    const MountStatus status = mountStatus();
    const bool active = status == MountStatus::mounted || status == MountStatus::synchronised;
    return shadow && active && !connected();
}

void VeskMapBase::doCorruptionDetected(const Pello::String& message) const {
    ++corruptions_;
    lastCorruption_ = message;
    PELLO_TRACE(*debugHandler_, 0,
                Pello::SourceTag("VeskMapBase", "Vesk/VeskMapBase", "doCorruptionDetected"),
                "{} {}", name_, message);
}

Writer::Counters VeskMapBase::veskMapUpdateWriterCounters(Writer::Counters counters) const {
    counters.corruptions = corruptions_;
    return counters;
}

Reader::Counters VeskMapBase::veskMapUpdateReaderCounters(Reader::Counters counters) const {
    counters.corruptions = corruptions_;
    return counters;
}

} // namespace Vesk
