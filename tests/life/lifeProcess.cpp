// A process that owns tables, for the tests of what processes may do to each other. Commands come
// on standard input, a line each; each is answered with "ok ..." or "error <text>".

#include "Mem/RootPath.h"
#include "MoxVesk/MountInfo.h"
#include "Rsvp/ErrorCounterColl.h"
#include "Rsvp/MessageCounterColl.h"

#include <chrono>
#include <iostream>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace {

using Rsvp::Vesk::ErrorCounterColl;
using Rsvp::Vesk::MessageCounterColl;

const Rsvp::Vesk::ErrorCounterKey kErrorKey(Rsvp::arpErrorType);

struct Agent {
    MoxVesk::Mounter mounter;
    Mox::Ptr<MessageCounterColl> messages;
    Mox::Ptr<ErrorCounterColl> errors;
    bool lost = false; ///< some table was formatted anew

    std::string mount(bool fresh) {
        Pello::traceSinkIs([this](const Pello::TraceLine& line) {
            if (line.text.find("will be lost") != Pello::String::npos) lost = true;
        });
        Pello::Platform::traceLevelsIs("", 0x3);
        messages = MessageCounterColl::MessageCounterCollIs("m");
        errors = ErrorCounterColl::ErrorCounterCollIs("e");
        const auto adjust = [fresh](const Pello::String&, Vesk::MapDescriptor& descriptor) {
            descriptor.cleanupOnInit = fresh;
        };
        mounter.mount(messages, "m", MessageCounterColl::writerMountInfo(), Vesk::VeskType::writer,
                      adjust);
        mounter.mount(errors, "e", ErrorCounterColl::writerMountInfo(), Vesk::VeskType::writer,
                      adjust);
        return fmt::format("{} {} {} {} {}", lost ? "lost" : "kept", sum(),
                           errors->rxErrorCount(kErrorKey).count(),
                           messages->rxIpv4CountMap().ravoId(), messages->rxIpv4CountMap().owner());
    }

    std::uint64_t sum() const {
        std::uint64_t sum = 0;
        using Map = std::remove_reference_t<decltype(messages->rxIpv4CountMap())>;
        for (Map::IteratorConst each(&messages->rxIpv4CountMap()); each.valid(); each.advance()) {
            sum += each->count();
        }
        return sum;
    }
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    Mem::RootPath::baseIs(argv[1]);
    Agent agent;
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream words(line);
        std::string command;
        std::uint64_t number = 0;
        words >> command >> number;
        try {
            std::string answer;
            if (command == "mount" || command == "fresh") {
                answer = agent.mount(command == "fresh");
            } else if (command == "count") {
                // Spread over interfaces, so that the table grows on the way.
                for (std::uint64_t i = 0; i < number; ++i) {
                    agent.messages->incRxCount(Wirra::IntfId(i % 20000), Rsvp::rsvpPathMsg,
                                               Wirra::ipv4AddressFamily);
                    agent.errors->incRxCount(Rsvp::arpErrorType);
                }
                answer = std::to_string(agent.sum());
            } else if (command == "validate") {
                answer = agent.messages->rxIpv4CountMap().validate() ? "sound" : "not sound";
            } else if (command == "unmount") {
                agent.mounter.unmount("m");
                agent.mounter.unmount("e");
            } else if (command == "cleanup") {
                agent.messages->rxIpv4CountMap().cleanupAndDetach();
            } else if (command == "fork") {
                const pid_t child = fork();
                if (child == 0) {
                    // It holds what it has inherited, until its standard input is gone too.
                    while (getppid() != 1 || number == 0) {
                        std::this_thread::sleep_for(std::chrono::milliseconds(20));
                    }
                    _exit(0);
                }
                answer = std::to_string(child);
            } else {
                answer = "?";
            }
            std::cout << "ok " << answer << std::endl;
        } catch (const std::exception& e) {
            std::cout << "error " << e.what() << std::endl;
        }
    }
}
