#include "Agent.h"

#include "AgentTables.h"
#include "ExitCode.h"
#include "InterfaceMap.h"
#include "Progress.h"
#include "Report.h"
#include "StopSignal.h"

#include "Mem/RootPath.h"
#include "packets/CaptureFile.h"
#include "packets/FrameDecoder.h"
#include "packets/InputError.h"
#include "packets/Integrity.h"
#include "packets/LocalAddress.h"

#include <fmt/format.h>

#include <iostream>
#include <optional>
#include <span>

namespace {

void complain(const std::string& text) { std::cerr << "rsvp-vesk: " << text << '\n'; }

Rsvp::RsvpErrorType errorTypeOf(Packets::Defect defect) {
    switch (defect) {
    case Packets::Defect::format:
        return Rsvp::invalidPktFormatErrorType;
    case Packets::Defect::checksum:
        return Rsvp::pktParserBadMsgChecksumErrorType;
    case Packets::Defect::integrity:
        return Rsvp::pktParserIntegrityFailureErrorType;
    case Packets::Defect::objects:
        return Rsvp::pktParserGenericFailureErrorType;
    case Packets::Defect::none:
        break;
    }
    return Rsvp::unknownErrorType;
}

/// What the user gave about the network.
struct Network {
    std::vector<Packets::LocalAddress> locals;
    Packets::IntegrityKeys keys;
};

/// Throws `Packets::InputError`.
Network networkOf(const AgentOptions& options) {
    Network network;
    for (const std::string& text : options.locals) {
        network.locals.emplace_back(text);
    }
    for (const std::string& text : options.keys) {
        network.keys.add(text);
    }
    return network;
}

/// Counts the messages of one frame after the other.
class Counter {
  public:
    Counter(AgentTables& tables, std::span<const Packets::LocalAddress> locals)
        : tables_(tables)
        , locals_(locals) {}

    /// The interface of the frames that follow.
    void interfaceIs(const Wirra::IntfId& interface) { interface_ = interface; }

    void packet(const Packets::FrameSource& source) {
        direction_ = Packets::directionOf(source, locals_) == Packets::Direction::sent
                         ? Direction::tx
                         : Direction::rx;
    }

    void verdict(const Packets::Verdict& verdict) {
        const Wirra::AddressFamily family = verdict.family == Packets::Family::ipv4
                                                ? Wirra::ipv4AddressFamily
                                                : Wirra::ipv6AddressFamily;
        if (verdict.defect == Packets::Defect::none) {
            tables_.countMessage(interface_, direction_, family,
                                 static_cast<Rsvp::RsvpMsgType>(verdict.type));
        } else {
            tables_.countMessage(interface_, direction_, family, Rsvp::rsvpNoneMsg);
            tables_.countError(direction_, errorTypeOf(verdict.defect));
        }
    }

  private:
    AgentTables& tables_;
    std::span<const Packets::LocalAddress> locals_;
    Wirra::IntfId interface_;
    Direction direction_ = Direction::rx;
};

void countFrame(FrameCounts& frames, Packets::Outcome outcome) {
    ++frames.frames;
    switch (outcome) {
    case Packets::Outcome::accepted:
    case Packets::Outcome::erroneous:
        ++frames.rsvp;
        break;
    case Packets::Outcome::ignored:
        ++frames.ignored;
        break;
    case Packets::Outcome::cut:
        ++frames.cut;
        break;
    }
}

/// The identifiers of one capture's interfaces, each looked up when its first frame is met.
class CaptureInterfaces {
  public:
    CaptureInterfaces(const Packets::CaptureFile& capture, InterfaceMap& map)
        : capture_(capture)
        , map_(map) {}

    const Wirra::IntfId& idOf(const Packets::CaptureRecord& record) {
        if (record.interface >= ids_.size()) ids_.resize(record.interface + std::size_t{1});
        std::optional<Wirra::IntfId>& id = ids_[record.interface];
        if (!id) {
            const std::string name = capture_.interfaceName(record.interface);
            if (record.linkType == Packets::LinkType::unknown) {
                complain(fmt::format("{}: link type {} of interface {} is not understood: its "
                                     "frames are ignored",
                                     capture_.path().string(),
                                     capture_.linkTypeNumber(record.interface), name));
            }
            id = map_.idOf(name);
        }
        return *id;
    }

  private:
    const Packets::CaptureFile& capture_;
    InterfaceMap& map_;
    std::vector<std::optional<Wirra::IntfId>> ids_;
};

void countCapture(Packets::CaptureFile& capture, const Packets::IntegrityKeys& keys,
                  InterfaceMap& map, Counter& counter, FrameCounts& frames, StopSignal& stop) {
    constexpr std::uint64_t kFramesBetweenLooks = 256;
    Packets::FrameDecoder decoder(keys);
    CaptureInterfaces interfaces(capture, map);
    Progress progress(capture);
    Packets::CaptureRecord record;
    while (capture.next(record)) {
        counter.interfaceIs(interfaces.idOf(record));
        countFrame(frames, decoder.decode(record, counter));
        if (frames.frames % kFramesBetweenLooks != 0) continue;
        progress.framesAre(frames.frames);
        if (stop.requested()) break;
    }
}

} // namespace

int runAgent(const AgentOptions& options) {
    Network network;
    try {
        network = networkOf(options);
    } catch (const Packets::InputError& e) {
        complain(e.what());
        return exitUsage;
    }
    int code = exitDone;
    // Nothing is made for captures none of which can be read.
    std::vector<Packets::CaptureFile> captures;
    for (const std::filesystem::path& path : options.captures) {
        try {
            captures.emplace_back(path);
        } catch (const Packets::InputError& e) {
            complain(e.what());
            code = exitFailed;
        }
    }
    if (captures.empty()) return code;

    if (const std::string problem = Mem::RootPath::makeOwnFolders(Mem::RootPath::base());
        !problem.empty()) {
        complain(problem);
        return exitFailed;
    }
    try {
        StopSignal stop;
        InterfaceMap interfaces(Mem::RootPath::base());
        AgentTables tables(options.fresh);
        Counter counter(tables, network.locals);
        FrameCounts frames;
        for (Packets::CaptureFile& capture : captures) {
            if (stop.requested()) break;
            try {
                countCapture(capture, network.keys, interfaces, counter, frames, stop);
            } catch (const Packets::InputError& e) {
                complain(e.what());
                code = exitFailed;
            }
        }
        if (options.stay) stop.wait();
        if (options.json) {
            reportJson(std::cout, tables, interfaces, frames);
        } else {
            reportText(std::cout, tables, interfaces, frames);
        }
        std::cout.flush();
        if (!std::cout) {
            complain("cannot write the report to standard output");
            code = exitFailed;
        }
    } catch (const Pello::CorruptionDetectedException& e) {
        complain(e.message());
        return exitCorrupt;
    } catch (const Pello::Exception& e) {
        complain(e.message());
        return exitFailed;
    }
    return code;
}
