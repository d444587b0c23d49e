#include "Rsvp/RsvpMsgType.h"

#include "Mox/GenericIf.h"

#include <array>

namespace Rsvp {

namespace {

constexpr std::array kTypes = {
    Mox::Enumerator{rsvpNoneMsg, "rsvpNoneMsg"},
    Mox::Enumerator{rsvpPathMsg, "rsvpPathMsg"},
    Mox::Enumerator{rsvpResvMsg, "rsvpResvMsg"},
    Mox::Enumerator{rsvpPathErrMsg, "rsvpPathErrMsg"},
    Mox::Enumerator{rsvpResvErrMsg, "rsvpResvErrMsg"},
    Mox::Enumerator{rsvpPathTearMsg, "rsvpPathTearMsg"},
    Mox::Enumerator{rsvpResvTearMsg, "rsvpResvTearMsg"},
    Mox::Enumerator{rsvpResvConfMsg, "rsvpResvConfMsg"},
    Mox::Enumerator{rsvpBundleMsg, "rsvpBundleMsg"},
    Mox::Enumerator{rsvpAckMsg, "rsvpAckMsg"},
    Mox::Enumerator{rsvpSrefreshMsg, "rsvpSrefreshMsg"},
    Mox::Enumerator{rsvpHelloMsg, "rsvpHelloMsg"},
};
constexpr std::array kModuleTypes = {
    Mox::enumType<RsvpMsgType>({"RsvpMsg", 0}, "Rsvp::RsvpMsgType", kTypes),
};
constexpr Mox::ModuleDescriptor kModule = {"RsvpMsg", kModuleTypes};

[[maybe_unused]] const Mox::MoxTypeBase atLoad = moxType(RsvpMsgType{});

} // namespace

Mox::MoxTypeBase moxType(RsvpMsgType) {
    static const Mox::ModuleRegistration once(kModule);
    return {kModule.name, 0};
}

std::string_view wireName(RsvpMsgType type) {
    switch (type) {
    case rsvpNoneMsg:
        break;
    case rsvpPathMsg:
        return "PATH";
    case rsvpResvMsg:
        return "RESV";
    case rsvpPathErrMsg:
        return "PATHERR";
    case rsvpResvErrMsg:
        return "RESVERR";
    case rsvpPathTearMsg:
        return "PATHTEAR";
    case rsvpResvTearMsg:
        return "RESVTEAR";
    case rsvpResvConfMsg:
        return "RESVCONF";
    case rsvpBundleMsg:
        return "BUNDLE";
    case rsvpAckMsg:
        return "ACK";
    case rsvpSrefreshMsg:
        return "SREFRESH";
    case rsvpHelloMsg:
        return "HELLO";
    }
    return {};
}

} // namespace Rsvp
