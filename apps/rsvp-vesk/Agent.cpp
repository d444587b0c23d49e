#include "Agent.h"

#include "AgentTables.h"
#include "ExitCode.h"
#include "InterfaceMap.h"
#include "Report.h"
#include "StopSignal.h"

#include "Mem/RootPath.h"
#include "packets/CaptureFile.h"
#include "packets/FrameDecoder.h"
#include "packets/InputError.h"
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

/// Counts the messages of one frame after the other.
class Counter {
  public:
    Counter(AgentTables& tables, std::span<const Packets::LocalAddress> locals)
        : tables_(tables)
        , locals_(locals) {}

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

void countCapture(Packets::CaptureFile& capture, Counter& counter, FrameCounts& frames,
                  StopSignal& stop) {
    constexpr std::uint64_t kFramesBetweenLooks = 256;
    Packets::CaptureRecord record;
    while ((frames.frames % kFramesBetweenLooks != 0 || !stop.requested()) &&
           capture.next(record)) {
        countFrame(frames, Packets::decodeFrame(capture.linkType(), record.frame, counter));
    }
}

} // namespace

int runAgent(const AgentOptions& options) {
    std::vector<Packets::LocalAddress> locals;
    for (const std::string& text : options.locals) {
        try {
            locals.emplace_back(text);
        } catch (const Packets::InputError& e) {
            complain(e.what());
            return exitUsage;
        }
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
        Counter counter(tables, locals);
        FrameCounts frames;
        for (Packets::CaptureFile& capture : captures) {
            if (stop.requested()) break;
            counter.interfaceIs(interfaces.idOf(capture.interfaceName()));
            try {
                countCapture(capture, counter, frames, stop);
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
