#include "Rsvp/CounterTables.h"

int main(int argc, char** argv) {
    if (argc > 1) Mem::RootPath::baseIs(argv[1]); // else /dev/shm/rsvp-vesk
    using namespace Rsvp::Vesk;
    ErrorCounterWriter table(Pello::Platform::getDebugHandler("demo", true), "demo/errors",
                             Vesk::MapDescriptor(10, Vesk::VeskType::writer), ErrorCounterOps(),
                             "demo", Pello::noop);
    table.initialize("none");
    table.write(ErrorCounter(ErrorCounterKey(Rsvp::arpErrorType), 3), true);
    fmt::print("{}: {} entry\n", table.rootPath(), table.members());
}
