#include "Rsvp/ErrorCounterColl.h"

namespace Rsvp::Vesk {

ErrorCounterColl::ErrorCounterColl(const Pello::String& name)
    : Collection(name) {
    bindTables();
}

void ErrorCounterColl::increment(Table& table, RsvpErrorType errorType) {
    // An absent counter reads as the default one, whose key is not this one.
    const ErrorCounterKey key(errorType);
    ErrorCounter counter(key, table.get(key).count());
    counter.countInc(1);
    table.is(counter);
}

void ErrorCounterColl::incRxCount(RsvpErrorType errorType) { increment(rxErrorCount_, errorType); }

void ErrorCounterColl::incTxCount(RsvpErrorType errorType) { increment(txErrorCount_, errorType); }

std::uint32_t ErrorCounterColl::rxErrorRelativeCount(ErrorCounterKey key,
                                                     const Snapshot& snapshot) const {
    return rxErrorCount_.relativeCount(key, snapshot->rxErrorCount_);
}

std::uint32_t ErrorCounterColl::txErrorRelativeCount(ErrorCounterKey key,
                                                     const Snapshot& snapshot) const {
    return txErrorCount_.relativeCount(key, snapshot->txErrorCount_);
}

void ErrorCounterColl::snapshotFrom(const Snapshot& originalCounterColl) {
    const Mox::KeepAlive alive(this);
    const Mox::KeepAlive originalAlive(originalCounterColl.get());
    const ErrorCounterColl& original = *originalCounterColl; // observers may change the reference
    rxErrorCount_.copyFrom(original.rxErrorCount_);
    txErrorCount_.copyFrom(original.txErrorCount_);
}

MoxVesk::MountInfo ErrorCounterColl::writerMountInfo() {
    MoxVesk::MountInfo info(0);
    info.collectionInfoIs("rxErrorCount", collectionSize, false);
    info.collectionInfoIs("txErrorCount", collectionSize, false);
    return info;
}

} // namespace Rsvp::Vesk
