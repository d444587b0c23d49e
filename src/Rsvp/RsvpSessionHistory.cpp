#include "Rsvp/RsvpSessionHistory.h"

namespace Rsvp {

RsvpSessionHistory::RsvpSessionHistory(const Pello::String& name)
    : Collection(name) {
    bindTables();
}

MoxVesk::MountInfo RsvpSessionHistory::writerMountInfo() {
    MoxVesk::MountInfo info(0);
    info.collectionInfoIs("sessionHistory", collectionSize, false);
    return info;
}

} // namespace Rsvp
