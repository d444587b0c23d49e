#include "MoxVesk/MountInfo.h"
#include "Rsvp/ErrorCounterColl.h"

int main(int argc, char** argv) {
    if (argc > 1) Mem::RootPath::baseIs(argv[1]); // else /dev/shm/rsvp-vesk
    using Rsvp::Vesk::ErrorCounterColl;
    const auto errors = ErrorCounterColl::ErrorCounterCollIs("demo");
    MoxVesk::Mounter mounter;
    mounter.mount(errors, "demo/errors", ErrorCounterColl::writerMountInfo(),
                  Vesk::VeskType::writer);
    errors->incRxCount(Rsvp::arpErrorType);
    const Rsvp::Vesk::ErrorCounterKey key(Rsvp::arpErrorType);
    fmt::print("{}: {}\n", errors->rxErrorCountMap().rootPath(), errors->rxErrorCount(key).count());
}
