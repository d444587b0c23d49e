#include "MoxVesk/MountInfo.h"
#include "Pello/Loop.h"
#include "Rsvp/ErrorCounterColl.h"

#include <iostream>
#include <poll.h>
#include <unistd.h>

/// Says for each line that it reads how many errors another process has counted. It may start
/// before that process, and goes on when that one ends, comes back, or makes its tables anew.
int main(int argc, char** argv) {
    if (argc > 1) Mem::RootPath::baseIs(argv[1]);
    using Rsvp::Vesk::ErrorCounterColl;
    const auto errors = ErrorCounterColl::ErrorCounterCollIs("demo");
    MoxVesk::Mounter mounter;
    mounter.mount(errors, "demo/errors", ErrorCounterColl::writerMountInfo(),
                  Vesk::VeskType::reader);
    const auto loop = Pello::Loop::ofThisThread();
    pollfd waiting[] = {{STDIN_FILENO, POLLIN, 0}, {loop->fd(), POLLIN, 0}};
    while (poll(waiting, 2, -1) > 0) {
        if (waiting[1].revents != 0) loop->runOnce(0); // attaches, and follows the files
        if (waiting[0].revents == 0) continue;
        char text[256];
        if (read(STDIN_FILENO, text, sizeof text) <= 0) break;
        const Rsvp::Vesk::ErrorCounterKey key(Rsvp::arpErrorType);
        if (errors->rxErrorCountMap().ready()) {
            std::cout << errors->rxErrorCount(key).count() << std::endl;
        } else {
            std::cout << "no table yet" << std::endl;
        }
    }
}
