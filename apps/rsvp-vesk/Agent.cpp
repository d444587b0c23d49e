#include "Agent.h"

#include "CounterTables.h"
#include "ExitCode.h"
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

#include <fmt/format.h>

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

/// Counts the messages of one frame after the other.
class Counter {
  public:
    Counter(CounterTables& tables, std::span<const Packets::LocalAddress> locals)
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
    CounterTables& tables_;
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
        Counter counter(tables, network.locals);
        FrameCounts frames;
        for (; capture && !stop.requested(); capture = captures.next()) {
            try {
                countCapture(*capture, network.keys, interfaces, counter, frames, stop);
            } catch (const Packets::InputError& e) {
                captures.complainOf(e);
            }
        }
        if (captures.failed()) code = exitFailed;
        if (options.stay) stop.wait();
        InterfaceNames names(Mem::RootPath::base());
        if (options.json) {
            reportJson(std::cout, tables, names, frames);
        } else {
            reportText(std::cout, tables, names, frames);
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
