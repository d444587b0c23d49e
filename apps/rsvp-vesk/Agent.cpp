#include "Agent.h"

#include "CounterTables.h"
#include "ExitCode.h"
#include "HistoryTables.h"
#include "InterfaceMap.h"
#include "Progress.h"
#include "Report.h"
#include "StopSignal.h"
#include "Tables.h"

#include "Mem/RootPath.h"
#include "packets/CaptureFile.h"
#include "packets/FrameDecoder.h"
#include "packets/InputError.h"
#include "packets/Integrity.h"
#include "packets/LocalAddress.h"
#include "state/Follower.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <optional>
#include <span>

namespace {

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

Wirra::AddressFamily familyOf(Packets::Family family) {
    return family == Packets::Family::ipv4 ? Wirra::ipv4AddressFamily : Wirra::ipv6AddressFamily;
}

/// Counts the messages of one frame after the other, and follows the state that they tell.
class Listener {
  public:
    Listener(CounterTables& tables, State::Follower& follower,
             std::span<const Packets::LocalAddress> locals)
        : tables_(tables)
        , follower_(follower)
        , locals_(locals) {}

    /// Of the frame that follows.
    void frameIs(const Wirra::IntfId& interface, std::int64_t time) {
        seen_.interface = interface;
        seen_.time = time;
    }

    void packet(const Packets::FrameSource& source) {
        seen_.sent = Packets::directionOf(source, locals_) == Packets::Direction::sent;
        std::array<std::uint8_t, 16> address{};
        const std::size_t size = source.family == Packets::Family::ipv4 ? 4 : address.size();
        std::copy_n(source.address, size, address.begin());
        seen_.source = Wirra::IpGenAddr(address, familyOf(source.family));
    }

    void verdict(const Packets::Verdict& verdict) {
        const Direction direction = seen_.sent ? Direction::tx : Direction::rx;
        const Wirra::AddressFamily family = familyOf(verdict.family);
        if (verdict.defect == Packets::Defect::none) {
            tables_.countMessage(seen_.interface, direction, family,
                                 static_cast<Rsvp::RsvpMsgType>(verdict.type));
            seen_.message = verdict.message;
            follower_.message(seen_);
        } else {
            tables_.countMessage(seen_.interface, direction, family, Rsvp::rsvpNoneMsg);
            tables_.countError(direction, errorTypeOf(verdict.defect));
        }
    }

  private:
    CounterTables& tables_;
    State::Follower& follower_;
    std::span<const Packets::LocalAddress> locals_;
    State::Observed seen_;
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

/// The captures that can be read, opened one after the other.
class Captures {
  public:
    Captures(const std::vector<std::filesystem::path>& paths, StopSignal& stop)
        : paths_(paths)
        , stop_(stop) {}

    /// The next one that can be read, after complaints of those that cannot; null at the end.
    std::unique_ptr<Packets::CaptureFile> next() {
        while (next_ < paths_.size() && !stop_.requested()) {
            try {
                return std::make_unique<Packets::CaptureFile>(paths_[next_++], stop_.fd());
            } catch (const Packets::InputError& e) {
                complainOf(e);
            }
        }
        return nullptr;
    }
    /// Who stopped the reading has nothing to hear of the record that it broke off.
    void complainOf(const Packets::InputError& e) {
        if (stop_.requested()) return;
        complain(e.what());
        failed_ = true;
    }
    bool failed() const { return failed_; }

  private:
    const std::vector<std::filesystem::path>& paths_;
    StopSignal& stop_;
    std::size_t next_ = 0;
    bool failed_ = false;
};

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
            id = map_.idOf(capture_.interfaceName(record.interface));
            if (record.linkType == Packets::LinkType::unknown) {
                complain(fmt::format("{}: link type {} of interface {} is not understood: its "
                                     "frames are ignored",
                                     capture_.path().string(),
                                     capture_.linkTypeNumber(record.interface), map_.nameOf(*id)));
            }
        }
        return *id;
    }

  private:
    const Packets::CaptureFile& capture_;
    InterfaceMap& map_;
    std::vector<std::optional<Wirra::IntfId>> ids_;
};

void countCapture(Packets::CaptureFile& capture, const Packets::IntegrityKeys& keys,
                  InterfaceMap& map, Listener& listener, FrameCounts& frames, StopSignal& stop) {
    constexpr std::uint64_t kFramesBetweenLooks = 256;
    Packets::FrameDecoder decoder(keys);
    CaptureInterfaces interfaces(capture, map);
    Progress progress(capture);
    Packets::CaptureRecord record;
    while (capture.next(record)) {
        listener.frameIs(interfaces.idOf(record), record.timestamp);
        countFrame(frames, decoder.decode(record, listener));
        if (frames.frames % kFramesBetweenLooks != 0) continue;
        progress.framesAre(frames.frames);
        if (stop.requested()) break;
    }
}

void complainOfRefused(const State::Follower& follower) {
    constexpr State::Follower::Limits limits;
    if (follower.refusedSessions() != 0) {
        complain(
            fmt::format("no room for more than {} sessions at a time: {} messages with new ones "
                        "are not in the history",
                        limits.sessions, follower.refusedSessions()));
    }
    if (follower.refusedPaths() != 0) {
        complain(fmt::format("no room for more than {} paths at a time: {} messages with new ones "
                             "are not in the history",
                             limits.paths, follower.refusedPaths()));
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
    StopSignal stop;
    Captures captures(options.captures, stop);
    // Nothing is made for captures none of which can be read.
    std::unique_ptr<Packets::CaptureFile> capture = captures.next();
    if (!capture) return captures.failed() ? exitFailed : exitDone;
    int code = exitDone;

    if (const std::string problem = Mem::RootPath::makeOwnFolders(Mem::RootPath::base());
        !problem.empty()) {
        complain(problem);
        return exitFailed;
    }
    try {
        InterfaceMap interfaces(Mem::RootPath::base());
        CounterTables tables(CounterTables::Which::current, Vesk::VeskType::writer, options.fresh);
        HistoryTables history(Vesk::VeskType::writer, options.fresh);
        State::Follower follower(history);
        Listener listener(tables, follower, network.locals);
        FrameCounts frames;
        for (; capture && !stop.requested(); capture = captures.next()) {
            try {
                countCapture(*capture, network.keys, interfaces, listener, frames, stop);
            } catch (const Packets::InputError& e) {
                captures.complainOf(e);
            }
        }
        if (captures.failed()) code = exitFailed;
        complainOfRefused(follower);
        if (options.stay) stop.wait();
        InterfaceNames names(Mem::RootPath::base());
        if (options.json) {
            reportJson(std::cout, tables, names, frames);
        } else {
            reportText(std::cout, tables, history, names, frames);
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
