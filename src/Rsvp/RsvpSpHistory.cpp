#include "Rsvp/RsvpSpHistory.h"

namespace Rsvp {

RsvpSpHistory::RsvpSpHistory(const Pello::String& name)
    : Collection(name) {
    bindTables();
}

MoxVesk::MountInfo RsvpSpHistory::writerMountInfo() {
    MoxVesk::MountInfo info(0);
    info.collectionInfoIs("spHistory", collectionSize, false);
    return info;
}

} // namespace Rsvp
