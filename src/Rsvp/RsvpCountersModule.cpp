// The module RsvpCounters: its content for the registry, and its registration.

#include "Mox/GenericIf.h"
#include "MoxVesk/EntityType.h"
#include "Rsvp/ErrorCounterColl.h"
#include "Rsvp/Factories.h"
#include "Rsvp/MessageCounterColl.h"

#include <array>

namespace Rsvp {

namespace {

constexpr std::array kErrorTypes = {
    Mox::Enumerator{unknownErrorType, "unknownErrorType"},
    Mox::Enumerator{rsvpDisabledErrorType, "rsvpDisabledErrorType"},
    Mox::Enumerator{mplsDisabledErrorType, "mplsDisabledErrorType"},
    Mox::Enumerator{intfErrorType, "intfErrorType"},
    Mox::Enumerator{arpErrorType, "arpErrorType"},
    Mox::Enumerator{invalidPktFormatErrorType, "invalidPktFormatErrorType"},
    Mox::Enumerator{pktParserGenericFailureErrorType, "pktParserGenericFailureErrorType"},
    Mox::Enumerator{pktParserBadMsgChecksumErrorType, "pktParserBadMsgChecksumErrorType"},
    Mox::Enumerator{pktParserIntegrityFailureErrorType, "pktParserIntegrityFailureErrorType"},
    Mox::Enumerator{pktParserSubLspEroDecompressionErrorType,
                    "pktParserSubLspEroDecompressionErrorType"},
    Mox::Enumerator{pktParserSubLspRroDecompressionErrorType,
                    "pktParserSubLspRroDecompressionErrorType"},
    Mox::Enumerator{pktGeneratorGenericFailureErrorType, "pktGeneratorGenericFailureErrorType"},
    Mox::Enumerator{pktGeneratorAuthIndexNotSetErrorType, "pktGeneratorAuthIndexNotSetErrorType"},
    Mox::Enumerator{pktGeneratorNoSecretForAuthIndexErrorType,
                    "pktGeneratorNoSecretForAuthIndexErrorType"},
    Mox::Enumerator{unknownNeighborErrorType, "unknownNeighborErrorType"},
    Mox::Enumerator{invalidSeqNoErrorType, "invalidSeqNoErrorType"},
};
using namespace Vesk;

// The names of types, as attributes and parameters refer to them.
constexpr const char* kU32 = "U32";
constexpr const char* kString = "Mox::String";
constexpr const char* kMessageKey = "Rsvp::Vesk::MessageCounterKey";
constexpr const char* kMessage = "Rsvp::Vesk::MessageCounter";
constexpr const char* kMessages = "Rsvp::Vesk::MessageCounterColl";
constexpr const char* kErrorKey = "Rsvp::Vesk::ErrorCounterKey";
constexpr const char* kError = "Rsvp::Vesk::ErrorCounter";
constexpr const char* kErrors = "Rsvp::Vesk::ErrorCounterColl";
constexpr const char* kMountInfo = "MoxVesk::MountInfo";

constexpr Mox::Parameter kIntfId = {"intfId", "Wirra::IntfId"};
constexpr Mox::Parameter kMType = {"mType", "Rsvp::RsvpMsgType"};
constexpr Mox::Parameter kAf = {"af", "Wirra::AddressFamily"};
constexpr Mox::Parameter kErrorType = {"errorType", "Rsvp::RsvpErrorType"};

constexpr std::array kMessageKeyParameters = {kIntfId, kMType};
constexpr std::array kMessageKeyAttributes = {
    Mox::construction<MessageCounterKey, &MessageCounterKey::intfId>(2, "intfId", kIntfId.type),
    Mox::construction<MessageCounterKey, &MessageCounterKey::mType>(3, "mType", kMType.type),
};

constexpr std::array kMessageParameters = {Mox::Parameter{"key", kMessageKey},
                                           Mox::Parameter{"count", kU32}};
constexpr std::array kMessageAttributes = {
    Mox::construction<MessageCounter, &MessageCounter::key>(2, "key", kMessageKey),
    Mox::settable<MessageCounter, &MessageCounter::count, &MessageCounter::countIs>(3, "count",
                                                                                    kU32),
    Mox::readOnlyMethod<MessageCounter, &MessageCounter::veskString>(4, "veskString", {}, kString),
};

constexpr std::array kErrorKeyParameters = {kErrorType};
constexpr std::array kErrorKeyAttributes = {
    Mox::construction<ErrorCounterKey, &ErrorCounterKey::errorType>(2, "errorType",
                                                                    kErrorType.type),
};

constexpr std::array kErrorParameters = {Mox::Parameter{"key", kErrorKey},
                                         Mox::Parameter{"count", kU32}};
constexpr std::array kErrorAttributes = {
    Mox::construction<ErrorCounter, &ErrorCounter::key>(2, "key", kErrorKey),
    Mox::settable<ErrorCounter, &ErrorCounter::count, &ErrorCounter::countIs>(3, "count", kU32),
    Mox::readOnlyMethod<ErrorCounter, &ErrorCounter::veskString>(4, "veskString", {}, kString),
};

MOXVESK_TABLE_TYPE(MessageCounterColl, rxIpv4Count, MessageCounter, MessageCounterKey);
MOXVESK_TABLE_TYPE(MessageCounterColl, rxIpv6Count, MessageCounter, MessageCounterKey);
MOXVESK_TABLE_TYPE(MessageCounterColl, txIpv4Count, MessageCounter, MessageCounterKey);
MOXVESK_TABLE_TYPE(MessageCounterColl, txIpv6Count, MessageCounter, MessageCounterKey);
MOXVESK_TABLE_TYPE(ErrorCounterColl, rxErrorCount, ErrorCounter, ErrorCounterKey);
MOXVESK_TABLE_TYPE(ErrorCounterColl, txErrorCount, ErrorCounter, ErrorCounterKey);

constexpr std::array kCounted = {kIntfId, kMType, kAf};
constexpr std::array kFailed = {kIntfId, kAf};
constexpr std::array kMessageSince = {Mox::Parameter{"key", kMessageKey},
                                      Mox::Parameter{"snapshotCounterColl", kMessages}};
constexpr std::array kMessagesFrom = {Mox::Parameter{"originalCounterColl", kMessages}};
constexpr std::array kMessagesAttributes = [] {
    using C = MessageCounterColl;
    return std::array{
        MOXVESK_TABLE_ATTRIBUTES(MessageCounterColl, rxIpv4Count, 0x102, kMessage, kMessageKey),
        MOXVESK_TABLE_ATTRIBUTES(MessageCounterColl, rxIpv6Count, 0x104, kMessage, kMessageKey),
        MOXVESK_TABLE_ATTRIBUTES(MessageCounterColl, txIpv4Count, 0x106, kMessage, kMessageKey),
        MOXVESK_TABLE_ATTRIBUTES(MessageCounterColl, txIpv6Count, 0x108, kMessage, kMessageKey),
        Mox::method<C, &C::incRxCount>(0x10a, "incRxCount", kCounted),
        Mox::method<C, &C::incTxCount>(0x10b, "incTxCount", kCounted),
        Mox::method<C, &C::incRxErr>(0x10c, "incRxErr", kFailed),
        Mox::method<C, &C::incTxErr>(0x10d, "incTxErr", kFailed),
        Mox::readOnlyMethod<C, &C::rxAfCount>(0x10e, "rxAfCount", kCounted, kMessage),
        Mox::readOnlyMethod<C, &C::txAfCount>(0x10f, "txAfCount", kCounted, kMessage),
        Mox::method<C, &C::snapshotFrom>(0x110, "snapshotFrom", kMessagesFrom),
        Mox::readOnlyMethod<C, &C::rxIpv4RelativeCount>(0x111, "rxIpv4RelativeCount", kMessageSince,
                                                        kU32),
        Mox::readOnlyMethod<C, &C::rxIpv6RelativeCount>(0x112, "rxIpv6RelativeCount", kMessageSince,
                                                        kU32),
        Mox::readOnlyMethod<C, &C::txIpv4RelativeCount>(0x113, "txIpv4RelativeCount", kMessageSince,
                                                        kU32),
        Mox::readOnlyMethod<C, &C::txIpv6RelativeCount>(0x114, "txIpv6RelativeCount", kMessageSince,
                                                        kU32),
        Mox::constant<&C::mountPath, Mox::String>(0x115, "mountPath", kString),
        Mox::constant<&C::snapshotMountPath, Mox::String>(0x116, "snapshotMountPath", kString),
        Mox::constant<&C::maxIntfs, std::uint32_t>(0x117, "maxIntfs", kU32),
        Mox::constant<&C::msgTypes, std::uint32_t>(0x118, "msgTypes", kU32),
        Mox::constant<&C::collectionSize, std::uint32_t>(0x119, "collectionSize", kU32),
        Mox::staticFunction<&C::writerMountInfo>(0x11a, "writerMountInfo", {}, kMountInfo),
    };
}();

constexpr std::array kErrorCounted = {kErrorType};
constexpr std::array kErrorSince = {Mox::Parameter{"key", kErrorKey},
                                    Mox::Parameter{"snapshotCounterColl", kErrors}};
constexpr std::array kErrorsFrom = {Mox::Parameter{"originalCounterColl", kErrors}};
constexpr std::array kErrorsAttributes = [] {
    using C = ErrorCounterColl;
    return std::array{
        MOXVESK_TABLE_ATTRIBUTES(ErrorCounterColl, rxErrorCount, 0x102, kError, kErrorKey),
        MOXVESK_TABLE_ATTRIBUTES(ErrorCounterColl, txErrorCount, 0x104, kError, kErrorKey),
        Mox::method<C, &C::incRxCount>(0x106, "incRxCount", kErrorCounted),
        Mox::method<C, &C::incTxCount>(0x107, "incTxCount", kErrorCounted),
        Mox::method<C, &C::snapshotFrom>(0x108, "snapshotFrom", kErrorsFrom),
        Mox::readOnlyMethod<C, &C::rxErrorRelativeCount>(0x109, "rxErrorRelativeCount", kErrorSince,
                                                         kU32),
        Mox::readOnlyMethod<C, &C::txErrorRelativeCount>(0x10a, "txErrorRelativeCount", kErrorSince,
                                                         kU32),
        Mox::constant<&C::mountPath, Mox::String>(0x10b, "mountPath", kString),
        Mox::constant<&C::snapshotMountPath, Mox::String>(0x10c, "snapshotMountPath", kString),
        Mox::constant<&C::collectionSize, std::uint32_t>(0x10d, "collectionSize", kU32),
        Mox::staticFunction<&C::writerMountInfo>(0x10e, "writerMountInfo", {}, kMountInfo),
    };
}();

constexpr const char* kName = "RsvpCounters";
constexpr std::array kModuleTypes = {
    Mox::enumType<RsvpErrorType>({kName, 0}, "Rsvp::RsvpErrorType", kErrorTypes),
    Mox::valueType<MessageCounterKey, Wirra::IntfId, RsvpMsgType>(
        {kName, 1}, kMessageKey, kMessageKeyParameters, kMessageKeyAttributes),
    Mox::valueType<MessageCounter, MessageCounterKey, std::uint32_t>(
        {kName, 2}, kMessage, kMessageParameters, kMessageAttributes),
    MoxVesk::entityType<MessageCounterColl, messageCounterCollFactory>({kName, 3}, kMessages,
                                                                       kMessagesAttributes),
    Mox::valueType<ErrorCounterKey, RsvpErrorType>({kName, 4}, kErrorKey, kErrorKeyParameters,
                                                   kErrorKeyAttributes),
    Mox::valueType<ErrorCounter, ErrorCounterKey, std::uint32_t>(
        {kName, 5}, kError, kErrorParameters, kErrorAttributes),
    MoxVesk::entityType<ErrorCounterColl, errorCounterCollFactory>({kName, 6}, kErrors,
                                                                   kErrorsAttributes),
};
constexpr std::array kForeignTypes = {
    Mox::ForeignType{"Wirra::IntfId", {"IntfId", 0}},
    Mox::ForeignType{"Rsvp::RsvpMsgType", {"RsvpMsg", 0}},
    Mox::ForeignType{"MoxVesk::CollectionControl", {"CollectionControl", 0}},
    Mox::ForeignType{"MoxVesk::Entity", {"Entity", 0}},
    Mox::ForeignType{"MoxVesk::MountInfo", {"MountInfo", 1}},
};
constexpr Mox::ModuleDescriptor kModule = {kName, kModuleTypes, kForeignTypes};

[[maybe_unused]] const Mox::MoxTypeBase atLoad = moxType(RsvpErrorType{});

} // namespace

Mox::MoxTypeBase moxType(RsvpErrorType) {
    static const Mox::ModuleRegistration once(kModule);
    return {kModule.name, 0};
}

namespace Vesk {

Mox::Ptr<MessageCounterColl> messageCounterCollFactory(const Pello::String& name) {
    return MessageCounterColl::MessageCounterCollIs(name);
}
Mox::Ptr<ErrorCounterColl> errorCounterCollFactory(const Pello::String& name) {
    return ErrorCounterColl::ErrorCounterCollIs(name);
}

} // namespace Vesk

} // namespace Rsvp
