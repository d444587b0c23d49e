// The module RsvpHistory: its content for the registry, and its registration.

#include "Mox/GenericIf.h"
#include "MoxVesk/EntityType.h"
#include "Rsvp/Factories.h"
#include "Rsvp/RsvpSessionHistory.h"
#include "Rsvp/RsvpSpHistory.h"

#include <array>

namespace Rsvp {

namespace {

constexpr std::array kSessionEntryTypes = {
    Mox::Enumerator{rsvpSessionUnknownEntry, "rsvpSessionUnknownEntry"},
    Mox::Enumerator{rsvpSessionCreationHistoryEntry, "rsvpSessionCreationHistoryEntry"},
    Mox::Enumerator{rsvpSessionMemberHistoryEntry, "rsvpSessionMemberHistoryEntry"},
};
constexpr std::array kSpEntryTypes = {
    Mox::Enumerator{rsvpSpUnknownEntry, "rsvpSpUnknownEntry"},
    Mox::Enumerator{rsvpSpOperStateHistoryEntry, "rsvpSpOperStateHistoryEntry"},
    Mox::Enumerator{rsvpSpFrrAvailableHistoryEntry, "rsvpSpFrrAvailableHistoryEntry"},
    Mox::Enumerator{rsvpSpDsFrrInUseHistoryEntry, "rsvpSpDsFrrInUseHistoryEntry"},
    Mox::Enumerator{rsvpSpUsFrrInUseHistoryEntry, "rsvpSpUsFrrInUseHistoryEntry"},
    Mox::Enumerator{rsvpSpErrorHistoryEntry, "rsvpSpErrorHistoryEntry"},
    Mox::Enumerator{rsvpSpBwStateHistoryEntry, "rsvpSpBwStateHistoryEntry"},
};
// The names of types, as attributes and parameters refer to them.
constexpr const char* kU32 = "U32";
constexpr const char* kBool = "bool";
constexpr const char* kString = "Mox::String";
constexpr const char* kSeconds = "Mox::Seconds";
constexpr const char* kSessionId = "Rsvp::RsvpSessionId";
constexpr const char* kSessionEntryType = "Rsvp::RsvpSessionHistoryEntryType";
constexpr const char* kSessionKey = "Rsvp::RsvpSessionHistoryKey";
constexpr const char* kSessionEntry = "Rsvp::RsvpSessionHistoryEntry";
constexpr const char* kSpId = "Rsvp::RsvpSpId";
constexpr const char* kSpEntryType = "Rsvp::RsvpSpHistoryEntryType";
constexpr const char* kSpKey = "Rsvp::RsvpSpHistoryKey";
constexpr const char* kSpEntry = "Rsvp::RsvpSpHistoryEntry";
constexpr const char* kOperState = "Rsvp::RsvpSpOperState";
constexpr const char* kAddress = "Wirra::IpGenAddr";
constexpr const char* kMountInfo = "MoxVesk::MountInfo";

constexpr std::array kSessionKeyParameters = {Mox::Parameter{"sessionId", kSessionId},
                                              Mox::Parameter{"entryId", kU32}};
constexpr std::array kSessionKeyAttributes = [] {
    using K = RsvpSessionHistoryKey;
    return std::array{
        Mox::construction<K, &K::sessionId>(2, "sessionId", kSessionId),
        Mox::construction<K, &K::entryId>(3, "entryId", kU32),
    };
}();

constexpr std::array kSessionEntryParameters = {Mox::Parameter{"key", kSessionKey},
                                                Mox::Parameter{"timestamp", kSeconds},
                                                Mox::Parameter{"entryType", kSessionEntryType}};
constexpr std::array kTwoSessionEntries = {Mox::Parameter{"e1", kSessionEntry},
                                           Mox::Parameter{"e2", kSessionEntry}};
constexpr std::array kSessionEntryAttributes = [] {
    using E = RsvpSessionHistoryEntry;
    return std::array{
        Mox::construction<E, &E::key>(2, "key", kSessionKey),
        Mox::construction<E, &E::timestamp>(3, "timestamp", kSeconds),
        Mox::construction<E, &E::entryType>(4, "entryType", kSessionEntryType),
        Mox::settable<E, &E::spCliId, &E::spCliIdIs>(5, "spCliId", "Rsvp::RsvpCliId"),
        Mox::settable<E, &E::created, &E::createdIs>(6, "created", kBool),
        Mox::readOnlyMethod<E, &E::veskString>(7, "veskString", {}, kString),
        Mox::staticFunction<&E::timestampLesser>(8, "timestampLesser", kTwoSessionEntries, kBool),
    };
}();

constexpr std::array kSpKeyParameters = {Mox::Parameter{"spId", kSpId},
                                         Mox::Parameter{"entryId", kU32}};
constexpr std::array kSpKeyAttributes = [] {
    using K = RsvpSpHistoryKey;
    return std::array{
        Mox::construction<K, &K::spId>(2, "spId", kSpId),
        Mox::construction<K, &K::entryId>(3, "entryId", kU32),
    };
}();

constexpr std::array kSpEntryParameters = {Mox::Parameter{"key", kSpKey},
                                           Mox::Parameter{"timestamp", kSeconds},
                                           Mox::Parameter{"entryType", kSpEntryType}};
constexpr std::array kTwoSpEntries = {Mox::Parameter{"e1", kSpEntry},
                                      Mox::Parameter{"e2", kSpEntry}};
constexpr std::array kSpEntryAttributes = [] {
    using E = RsvpSpHistoryEntry;
    return std::array{
        Mox::construction<E, &E::key>(2, "key", kSpKey),
        Mox::construction<E, &E::timestamp>(3, "timestamp", kSeconds),
        Mox::construction<E, &E::entryType>(4, "entryType", kSpEntryType),
        Mox::settable<E, &E::spOperPathState, &E::spOperPathStateIs>(5, "spOperPathState",
                                                                     kOperState),
        Mox::settable<E, &E::spOperResvState, &E::spOperResvStateIs>(6, "spOperResvState",
                                                                     kOperState),
        Mox::settable<E, &E::bypassAvailable, &E::bypassAvailableIs>(7, "bypassAvailable", kBool),
        Mox::settable<E, &E::bypassNextHop, &E::bypassNextHopIs>(8, "bypassNextHop", kAddress),
        Mox::settable<E, &E::bypassNodeProtected, &E::bypassNodeProtectedIs>(
            9, "bypassNodeProtected", kBool),
        Mox::settable<E, &E::dsFrrInUse, &E::dsFrrInUseIs>(10, "dsFrrInUse", kBool),
        Mox::settable<E, &E::dsNextHop, &E::dsNextHopIs>(11, "dsNextHop", kAddress),
        Mox::settable<E, &E::dsNodeProtected, &E::dsNodeProtectedIs>(12, "dsNodeProtected", kBool),
        Mox::settable<E, &E::usFrrInUse, &E::usFrrInUseIs>(13, "usFrrInUse", kBool),
        Mox::settable<E, &E::error, &E::errorIs>(14, "error", "Rsvp::RsvpError"),
        Mox::settable<E, &E::bwState, &E::bwStateIs>(15, "bwState", "Rsvp::RsvpSpBwState"),
        Mox::readOnlyMethod<E, &E::veskString>(16, "veskString", {}, kString),
        Mox::staticFunction<&E::timestampLesser>(17, "timestampLesser", kTwoSpEntries, kBool),
    };
}();

MOXVESK_TABLE_TYPE(RsvpSessionHistory, sessionHistory, RsvpSessionHistoryEntry,
                   RsvpSessionHistoryKey);
MOXVESK_TABLE_TYPE(RsvpSpHistory, spHistory, RsvpSpHistoryEntry, RsvpSpHistoryKey);

constexpr std::array kSessionsAttributes = {
    MOXVESK_TABLE_ATTRIBUTES(RsvpSessionHistory, sessionHistory, 0x102, kSessionEntry, kSessionKey),
    Mox::constant<&RsvpSessionHistory::mountPath, Mox::String>(0x104, "mountPath", kString),
    Mox::constant<&RsvpSessionHistory::collectionSize, std::uint32_t>(0x105, "collectionSize",
                                                                      kU32),
    Mox::staticFunction<&RsvpSessionHistory::writerMountInfo>(0x106, "writerMountInfo", {},
                                                              kMountInfo),
};
constexpr std::array kPathsAttributes = {
    MOXVESK_TABLE_ATTRIBUTES(RsvpSpHistory, spHistory, 0x102, kSpEntry, kSpKey),
    Mox::constant<&RsvpSpHistory::mountPath, Mox::String>(0x104, "mountPath", kString),
    Mox::constant<&RsvpSpHistory::collectionSize, std::uint32_t>(0x105, "collectionSize", kU32),
    Mox::staticFunction<&RsvpSpHistory::writerMountInfo>(0x106, "writerMountInfo", {}, kMountInfo),
};

constexpr const char* kName = "RsvpHistory";
constexpr std::array kModuleTypes = {
    Mox::enumType<RsvpSessionHistoryEntryType>({kName, 0}, kSessionEntryType, kSessionEntryTypes),
    Mox::enumType<RsvpSpHistoryEntryType>({kName, 1}, kSpEntryType, kSpEntryTypes),
    Mox::valueType<RsvpSessionHistoryKey, RsvpSessionId, std::uint32_t>(
        {kName, 2}, kSessionKey, kSessionKeyParameters, kSessionKeyAttributes),
    Mox::valueType<RsvpSessionHistoryEntry, RsvpSessionHistoryKey, Mox::Seconds,
                   RsvpSessionHistoryEntryType>({kName, 3}, kSessionEntry, kSessionEntryParameters,
                                                kSessionEntryAttributes),
    MoxVesk::entityType<RsvpSessionHistory, rsvpSessionHistoryFactory>(
        {kName, 4}, "Rsvp::RsvpSessionHistory", kSessionsAttributes),
    Mox::valueType<RsvpSpHistoryKey, RsvpSpId, std::uint32_t>({kName, 5}, kSpKey, kSpKeyParameters,
                                                              kSpKeyAttributes),
    Mox::valueType<RsvpSpHistoryEntry, RsvpSpHistoryKey, Mox::Seconds, RsvpSpHistoryEntryType>(
        {kName, 6}, kSpEntry, kSpEntryParameters, kSpEntryAttributes),
    MoxVesk::entityType<RsvpSpHistory, rsvpSpHistoryFactory>({kName, 7}, "Rsvp::RsvpSpHistory",
                                                             kPathsAttributes),
};
constexpr std::array kForeignTypes = {
    Mox::ForeignType{"MoxVesk::CollectionControl", {"CollectionControl", 0}},
    Mox::ForeignType{"MoxVesk::Entity", {"Entity", 0}},
    Mox::ForeignType{"MoxVesk::MountInfo", {"MountInfo", 1}},
    Mox::ForeignType{"Wirra::IpGenAddr", {"IpGenAddr", 0}},
    Mox::ForeignType{"Rsvp::RsvpCliId", {"MplsRsvpTypes", 0}},
    Mox::ForeignType{"Rsvp::RsvpError", {"RsvpError", 6}},
    Mox::ForeignType{"Rsvp::RsvpSessionId", {"RsvpSessionId", 2}},
    Mox::ForeignType{"Rsvp::RsvpSpBwState", {"RsvpBwState", 1}},
    Mox::ForeignType{"Rsvp::RsvpSpId", {"RsvpSpId", 0}},
    Mox::ForeignType{"Rsvp::RsvpSpOperState", {"RsvpSpOperState", 0}},
};
constexpr Mox::ModuleDescriptor kModule = {kName, kModuleTypes, kForeignTypes};

Mox::MoxTypeBase handle(std::uint32_t typeNumber) {
    static const Mox::ModuleRegistration once(kModule);
    return {kModule.name, typeNumber};
}

[[maybe_unused]] const Mox::MoxTypeBase atLoad = handle(0);

} // namespace

Mox::MoxTypeBase moxType(RsvpSessionHistoryEntryType) { return handle(0); }
Mox::MoxTypeBase moxType(RsvpSpHistoryEntryType) { return handle(1); }

Mox::Ptr<RsvpSessionHistory> rsvpSessionHistoryFactory(const Pello::String& name) {
    return RsvpSessionHistory::RsvpSessionHistoryIs(name);
}
Mox::Ptr<RsvpSpHistory> rsvpSpHistoryFactory(const Pello::String& name) {
    return RsvpSpHistory::RsvpSpHistoryIs(name);
}

} // namespace Rsvp
